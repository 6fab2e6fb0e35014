#include "sqlitestatement.h"

#include <sqlite3.h>

void SQLiteStatement::Finalizer::operator()(sqlite3_stmt* statement) const
{
    sqlite3_finalize(statement);
}

SQLiteStatement::SQLiteStatement(sqlite3* db, const QString& sql)
{
    if (!db)
        return;
    sqlite3_stmt* statement = nullptr;
    const QByteArray utf8 = sql.toUtf8();
    if (sqlite3_prepare_v2(db, utf8.constData(), -1, &statement, nullptr) == SQLITE_OK)
        m_statement.reset(statement);
    else
        sqlite3_finalize(statement);
}

int SQLiteStatement::step()
{
    if (!m_statement)
        return SQLITE_MISUSE;
    return sqlite3_step(m_statement.get());
}

void SQLiteStatement::bindInt(int index, int value)
{
    if (m_statement)
        sqlite3_bind_int(m_statement.get(), index, value);
}

void SQLiteStatement::bindText(int index, const QString& text)
{
    if (!m_statement)
        return;
    m_boundData.append(text.toUtf8());
    const QByteArray& kept = m_boundData.constLast();
    sqlite3_bind_text(m_statement.get(), index, kept.constData(), int(kept.size()), SQLITE_STATIC);
}

void SQLiteStatement::bindBlob(int index, const QByteArray& bytes)
{
    if (!m_statement)
        return;
    m_boundData.append(bytes);
    const QByteArray& kept = m_boundData.constLast();
    // A zero-length blob still has to read as a blob, not NULL, so never pass a null pointer.
    static const char empty = 0;
    sqlite3_bind_blob(m_statement.get(), index, kept.isEmpty() ? &empty : kept.constData(),
                      int(kept.size()), SQLITE_STATIC);
}

void SQLiteStatement::bindNull(int index)
{
    if (m_statement)
        sqlite3_bind_null(m_statement.get(), index);
}

int SQLiteStatement::columnCount() const
{
    return m_statement ? sqlite3_column_count(m_statement.get()) : 0;
}

QString SQLiteStatement::columnName(int column) const
{
    return QString::fromUtf8(sqlite3_column_name(m_statement.get(), column));
}

bool SQLiteStatement::columnIsNull(int column) const
{
    return sqlite3_column_type(m_statement.get(), column) == SQLITE_NULL;
}

int SQLiteStatement::columnInt(int column) const
{
    return sqlite3_column_int(m_statement.get(), column);
}

qint64 SQLiteStatement::columnInt64(int column) const
{
    return sqlite3_column_int64(m_statement.get(), column);
}

double SQLiteStatement::columnDouble(int column) const
{
    return sqlite3_column_double(m_statement.get(), column);
}

QString SQLiteStatement::columnText(int column) const
{
    const auto* text = sqlite3_column_text(m_statement.get(), column);
    if (!text)
        return QString();
    const int size = sqlite3_column_bytes(m_statement.get(), column);
    return QString::fromUtf8(reinterpret_cast<const char*>(text), size);
}

QByteArray SQLiteStatement::columnBlob(int column) const
{
    const void* blob = sqlite3_column_blob(m_statement.get(), column);
    const int size = sqlite3_column_bytes(m_statement.get(), column);
    if (!blob)
        return QByteArray();
    return QByteArray(static_cast<const char*>(blob), size);
}

bool SQLiteStatement::execute(sqlite3* db, const QString& sql, QString* error)
{
    char* message = nullptr;
    const int result = sqlite3_exec(db, sql.toUtf8().constData(), nullptr, nullptr, &message);
    if (result != SQLITE_OK && error)
        *error = message ? QString::fromUtf8(message) : errorMessage(db);
    sqlite3_free(message);
    return result == SQLITE_OK;
}

QString SQLiteStatement::errorMessage(sqlite3* db)
{
    return QString::fromUtf8(sqlite3_errmsg(db));
}

// Saving and deleting records: key allocation, the one row per record, cross-reference rows.
#include "recordlayerstate.h"
#include "sqliteinstancemanager.h"
#include "sqlitepersistence.h"
#include "sqlitepersistentobject.h"
#include "sqlitestatement.h"

#include "platform/systemlog.h"

#include <sqlite3.h>

using namespace Qt::StringLiterals;
using namespace RecordLayer;

namespace {

void executeLogged(const QString& sql, const QString& prefix)
{
    sqlite3* db = SQLitePersistentObject::database();
    QString error;
    if (!SQLiteStatement::execute(db, sql, &error))
        SystemLog::write(prefix + error);
}

// Binds a stored (non-record) object the way its class asks: bytes or text.
void bindStoredObject(SQLiteStatement& statement, int index, const QVariant& value)
{
    if (SQLitePersistence::shouldBeStoredInBlob(SQLitePersistence::classNameOfValue(value)))
        statement.bindBlob(index, SQLitePersistence::sqlBlobRepresentationOfSelf(value));
    else
        statement.bindText(index, SQLitePersistence::sqlColumnRepresentationOfSelf(value));
}

} // namespace

bool SQLitePersistentObject::hasDirtyRelatedRecords() const
{
    const QMap<QString, QString> properties = m_class.propertiesWithEncodedTypes();
    for (auto it = properties.constBegin(); it != properties.constEnd(); ++it) {
        if (!it.value().startsWith(u'@'))
            continue;
        const QString className = SQLiteRecordClass::classNameOfCode(it.value());
        const QVariant value = this->value(it.key());
        if (!SQLitePersistence::isCollectionKind(className)) {
            const auto related = relatedRecord(value);
            if (related && related->isDirty())
                return true;
        } else if (SQLitePersistence::isArrayKind(className) ||
                   SQLitePersistence::isSetKind(className)) {
            for (const QVariant& element : value.toList()) {
                const auto related = relatedRecord(element);
                if (related && related->isDirty())
                    return true;
            }
        }
    }
    return false;
}

void SQLitePersistentObject::allocatePk()
{
    const QString table = tableName(m_class);
    SQLiteStatement statement(database(),
                              u"SELECT SEQ FROM SQLITESEQUENCE WHERE NAME='%1'"_s.arg(table));
    if (!statement.isValid()) {
        SystemLog::write(u"Error determining next PK value in table %1"_s.arg(table));
        return;
    }
    if (statement.step() != SQLITE_ROW)
        return;
    m_pk = qint64(statement.columnInt(0)) + 1;
    executeLogged(u"UPDATE SQLITESEQUENCE set seq=%1 WHERE name='%2'"_s.arg(m_pk).arg(table),
                  u"Error Message: "_s);
}

void SQLitePersistentObject::save()
{
    if (m_alreadySaving)
        return;
    m_alreadySaving = true;
    tableCheck(m_class);
    if (m_pk == 0) {
        // The guard stays set, so every later save of this object returns at once.
        SystemLog::write(
            u"Object of type '%1' seems to be uninitialised, perhaps init does not call super init."_s
                .arg(className()));
        return;
    }
    if (!m_dirty && hasDirtyRelatedRecords())
        markDirty();
    if (!m_dirty) {
        m_alreadySaving = false;
        return;
    }
    makeClean();
    if (m_pk < 0)
        allocatePk();

    const QString table = tableName(m_class);
    const QMap<QString, QString> properties = m_class.propertiesWithEncodedTypes();
    const QStringList transients = m_class.transients();
    QString sql = u"INSERT OR REPLACE INTO %1 (pk"_s.arg(table);
    QString placeholders;
    for (auto it = properties.constBegin(); it != properties.constEnd(); ++it) {
        if (transients.contains(it.key()) ||
            SQLitePersistence::isCollectionKind(SQLiteRecordClass::classNameOfCode(it.value())))
            continue;
        sql += u", "_s + stringAsSQLColumnName(it.key());
        placeholders += u", ?"_s;
    }
    sql += u") VALUES (?%1)"_s.arg(placeholders);

    SQLiteStatement statement(database(), sql);
    if (!statement.isValid()) {
        SystemLog::write(u"Error preparing save SQL: "_s +
                         SQLiteStatement::errorMessage(database()));
    } else {
        statement.bindInt(1, int(m_pk));
        int index = 2;
        for (auto it = properties.constBegin(); it != properties.constEnd(); ++it) {
            if (transients.contains(it.key()))
                continue;
            const QString& code = it.value();
            const QString className = SQLiteRecordClass::classNameOfCode(code);
            const QVariant value = this->value(it.key());
            if (SQLitePersistence::isCollectionKind(className)) {
                saveCollection(stringAsSQLColumnName(it.key()), className, value);
                continue;
            }
            if (SQLitePersistence::isAbsent(value)) {
                statement.bindNull(index++);
                continue;
            }
            if (isScalarNumberCode(code)) {
                statement.bindText(index++, SQLitePersistence::numberStringValue(value));
            } else if (code.startsWith(u'@')) {
                bindValue(statement, index++, code, value);
            }
        }
        if (statement.step() != SQLITE_DONE)
            SystemLog::write(u"Error inserting or updating row"_s);
    }
    registerObjectInMemory(weak_from_this().lock());
    m_alreadySaving = false;
}

void SQLitePersistentObject::bindValue(SQLiteStatement& statement, int index, const QString& code,
                                       const QVariant& value)
{
    Q_UNUSED(code);
    if (const auto related = relatedRecord(value)) {
        related->save();
        statement.bindText(index, related->memoryMapKey());
        return;
    }
    bindStoredObject(statement, index, value);
}

void SQLitePersistentObject::saveCollection(const QString& column, const QString& className,
                                            const QVariant& value)
{
    const QString table = tableName(m_class);
    const QString xref = table + u'_' + column;
    executeLogged(u"delete from %1 where parent_pk = %2"_s.arg(xref).arg(m_pk),
                  u"Error deleting child rows in xref table for array: "_s);
    const QString insertFailed = u"Error inserting child rows in xref table for array: "_s;

    // Writes one element; `keyValue` is the key column's value as written into the statement.
    // Answers false for an element that can be neither referenced nor stored.
    const auto writeElement = [&](const QVariant& element, const QString& keyColumn,
                                  const QString& keyValue) {
        const QString keyColumns = keyColumn.isEmpty() ? QString() : keyColumn + u", "_s;
        const QString keyValues = keyColumn.isEmpty() ? QString() : keyValue + u", "_s;
        if (const auto related = relatedRecord(element)) {
            related->save();
            executeLogged(
                u"insert into %1 (parent_pk, %2fk, fk_table_name) values (%3, %4%5, '%6')"_s.arg(
                    xref, keyColumns, QString::number(m_pk), keyValues,
                    QString::number(related->pk()), tableName(related->recordClass())),
                insertFailed);
            return true;
        }
        const QString elementClass = SQLitePersistence::classNameOfValue(element);
        if (!SQLitePersistence::canBeStoredInSQLite(elementClass))
            return false;
        SQLiteStatement insert(
            database(),
            u"insert into %1 (parent_pk, %2object_data, object_class) values (%3, %4?, '%5')"_s.arg(
                xref, keyColumns, QString::number(m_pk), keyValues, elementClass));
        bindStoredObject(insert, 1, element);
        if (insert.step() != SQLITE_DONE)
            SystemLog::write(u"Error inserting or updating cross-reference row"_s);
        return true;
    };

    if (SQLitePersistence::isArrayKind(className)) {
        int position = 0;
        for (const QVariant& element : value.toList()) {
            if (!writeElement(element, u"array_index"_s, QString::number(position)))
                SystemLog::write(u"Could not save object at array index: %1"_s.arg(position));
            ++position;
        }
    } else if (SQLitePersistence::isDictionaryKind(className)) {
        const QVariantMap map = value.toMap();
        for (auto it = map.constBegin(); it != map.constEnd(); ++it)
            writeElement(it.value(), u"dictionary_key"_s, u"'"_s + it.key() + u"'"_s);
    } else {
        for (const QVariant& element : value.toList()) {
            if (!writeElement(element, QString(), QString()))
                SystemLog::write(u"Could not save object from set"_s);
        }
    }
}

void SQLitePersistentObject::deleteObjectCascade(bool cascade)
{
    if (m_pk < 0 || m_alreadyDeleting)
        return;
    m_alreadyDeleting = true;
    // Keep this record alive while its map entry goes, whoever else holds it.
    const SQLitePersistentObjectPtr self = weak_from_this().lock();
    unregisterObject(this);
    const QString table = tableName(m_class);
    executeLogged(u"DELETE FROM %1 WHERE pk = %2"_s.arg(table).arg(m_pk),
                  u"Error deleting row in table: "_s);

    const QMap<QString, QString> properties = m_class.propertiesWithEncodedTypes();
    for (auto it = properties.constBegin(); it != properties.constEnd(); ++it) {
        const QString className = SQLiteRecordClass::classNameOfCode(it.value());
        if (className.isEmpty())
            continue;
        if (SQLitePersistence::isCollectionKind(className)) {
            deleteCollectionRows(stringAsSQLColumnName(it.key()), cascade);
        } else if (SQLiteRecordClass::forName(className)) {
            // A record always takes its directly referenced records with it.
            if (const auto related = relatedRecord(value(it.key())))
                related->deleteObjectCascade(true);
        }
    }
    m_alreadyDeleting = false;
}

void SQLitePersistentObject::deleteCollectionRows(const QString& column, bool cascade)
{
    const QString xref = tableName(m_class) + u'_' + column;
    if (cascade) {
        SQLiteStatement rows(
            database(),
            u"select fk_table_name, fk from %1 where parent_pk = %2"_s.arg(xref).arg(m_pk));
        while (rows.isValid() && rows.step() == SQLITE_ROW) {
            if (rows.columnIsNull(0))
                continue;
            executeLogged(
                u"delete from %1 where pk = %2"_s.arg(rows.columnText(0)).arg(rows.columnInt(1)),
                u"Error deleting foreign key rows in table: "_s);
        }
    }
    executeLogged(u"DELETE FROM %1 WHERE parent_pk = %2"_s.arg(xref).arg(m_pk),
                  u"Error deleting from foreign key table: "_s);
}

void SQLitePersistentObject::deleteObject(const SQLiteRecordClass& cls, qint64 pk, bool cascade)
{
    if (pk < 0)
        return;
    if (const auto record = findByPK(cls, pk))
        record->deleteObjectCascade(cascade);
}

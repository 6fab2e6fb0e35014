#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <memory>

struct sqlite3;
struct sqlite3_stmt;

// Owns one prepared statement (finalized on destruction) and keeps every bound text or blob
// alive until the statement is gone, since SQLite reads them without copying.
class SQLiteStatement final {
public:
    SQLiteStatement(sqlite3* db, const QString& sql);

    bool isValid() const { return m_statement != nullptr; }
    // Returns SQLite's result code (SQLITE_ROW, SQLITE_DONE, or an error).
    int step();

    void bindInt(int index, int value);
    void bindText(int index, const QString& text);
    void bindBlob(int index, const QByteArray& bytes);
    void bindNull(int index);

    int columnCount() const;
    QString columnName(int column) const;
    bool columnIsNull(int column) const;
    int columnInt(int column) const;
    qint64 columnInt64(int column) const;
    double columnDouble(int column) const;
    // A NULL column reads as a null text.
    QString columnText(int column) const;
    QByteArray columnBlob(int column) const;

    // Runs SQL that returns no rows; on failure answers false with SQLite's message in `error`.
    static bool execute(sqlite3* db, const QString& sql, QString* error = nullptr);
    static QString errorMessage(sqlite3* db);

private:
    struct Finalizer {
        void operator()(sqlite3_stmt* statement) const;
    };
    std::unique_ptr<sqlite3_stmt, Finalizer> m_statement;
    QList<QByteArray> m_boundData;
};

#pragma once

#include <QString>

#include <memory>

struct sqlite3;

// Owns the one SQLite connection through which records read and write. It decides where the
// file lives, opens it on first use and runs statements that return no rows. Failures raise
// SQLiteError with the exact description.
class SQLiteInstanceManager final {
public:
    // An empty name leaves a non-shared manager without one (its path request then raises).
    explicit SQLiteInstanceManager(const QString& databaseName = QString(),
                                   const QString& databaseFilepath = QString());
    ~SQLiteInstanceManager();
    SQLiteInstanceManager(const SQLiteInstanceManager&) = delete;
    SQLiteInstanceManager& operator=(const SQLiteInstanceManager&) = delete;

    static SQLiteInstanceManager* sharedManager();
    bool isShared() const { return m_isShared; }

    // The process name without blanks, lower-cased, plus ".sqlite3".
    static QString databaseNameForProcessName(const QString& processName);

    QString databaseName();
    void setDatabaseName(const QString& name) { m_databaseName = name; }
    QString databaseFilepath();
    void setDatabaseFilepath(const QString& path) { m_databaseFilepath = path; }

    // The open connection, opened (with its two pragmas) when there is none.
    sqlite3* database();

    void executeUpdateSQL(const QString& sql);
    bool tableExists(const QString& tableName);
    void setAutoVacuum(int mode);
    void setCacheSize(unsigned long pages);
    void setLockingMode(int mode);
    void vacuum();
    // Removes the file, forgets the connection and empties the record layer's object map.
    void deleteDatabase();

private:
    struct Closer {
        void operator()(sqlite3* db) const;
    };

    QString m_databaseName;
    QString m_databaseFilepath;
    std::unique_ptr<sqlite3, Closer> m_database;
    bool m_openAttempted = false;
    bool m_isShared = false;
};

#include "sqliteinstancemanager.h"

#include "sqliteerror.h"
#include "sqlitepersistentobject.h"
#include "sqlitestatement.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QStandardPaths>

#include <sqlite3.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace {

QString processName()
{
    QString name = QCoreApplication::applicationName();
    if (name.isEmpty())
        name = QString::fromLocal8Bit(program_invocation_short_name);
    return name;
}

} // namespace

void SQLiteInstanceManager::Closer::operator()(sqlite3* db) const
{
    sqlite3_close(db);
}

SQLiteInstanceManager::SQLiteInstanceManager(const QString& databaseName,
                                             const QString& databaseFilepath)
    : m_databaseName(databaseName), m_databaseFilepath(databaseFilepath)
{
}

SQLiteInstanceManager::~SQLiteInstanceManager() = default;

SQLiteInstanceManager* SQLiteInstanceManager::sharedManager()
{
    // Lives for the whole process, never destroyed, as its connection is never closed.
    static SQLiteInstanceManager* const shared = [] {
        auto* manager = new SQLiteInstanceManager;
        manager->m_isShared = true;
        return manager;
    }();
    return shared;
}

QString SQLiteInstanceManager::databaseNameForProcessName(const QString& processName)
{
    QString name;
    for (const QChar c : processName) {
        if (c == u' ')
            continue;
        name.append(c.toLower());
    }
    return name + u".sqlite3"_s;
}

QString SQLiteInstanceManager::databaseName()
{
    if (!m_databaseName.isEmpty())
        return m_databaseName;
    if (!m_isShared)
        return QString();
    m_databaseName = databaseNameForProcessName(processName());
    return m_databaseName;
}

QString SQLiteInstanceManager::databaseFilepath()
{
    if (databaseName().isEmpty())
        throw SQLiteError(u"You must specify a databaseName for non-shared instances"_s);
    if (!m_databaseFilepath.isEmpty())
        return m_databaseFilepath;
    const QStringList folders = QStandardPaths::standardLocations(QStandardPaths::AppDataLocation);
    const QString folder = folders.isEmpty() ? QDir::tempPath() : folders.first();
    m_databaseFilepath = QDir(folder).filePath(databaseName());
    return m_databaseFilepath;
}

sqlite3* SQLiteInstanceManager::database()
{
    if (m_openAttempted && m_database)
        return m_database.get();
    m_openAttempted = true;
    sqlite3* db = nullptr;
    const int result = sqlite3_open(databaseFilepath().toUtf8().constData(), &db);
    m_database.reset(db);
    if (result != SQLITE_OK) {
        const QString message = db ? SQLiteStatement::errorMessage(db) : u"out of memory"_s;
        m_database.reset();
        throw SQLiteError(u"Failed to open database with message '%1'."_s.arg(message));
    }
    executeUpdateSQL(u"PRAGMA encoding = \"UTF-8\""_s);
    executeUpdateSQL(u"PRAGMA auto_vacuum=1"_s);
    return m_database.get();
}

void SQLiteInstanceManager::executeUpdateSQL(const QString& sql)
{
    QString error;
    if (!SQLiteStatement::execute(database(), sql, &error))
        throw SQLiteError(u"Failed to execute SQL '%1' with message '%2'."_s.arg(sql, error));
}

bool SQLiteInstanceManager::tableExists(const QString& tableName)
{
    SQLiteStatement statement(database(), u"pragma table_info(%1);"_s.arg(tableName));
    return statement.isValid() && statement.step() == SQLITE_ROW;
}

void SQLiteInstanceManager::setAutoVacuum(int mode)
{
    executeUpdateSQL(u"PRAGMA auto_vacuum=%1"_s.arg(mode));
}

void SQLiteInstanceManager::setCacheSize(unsigned long pages)
{
    executeUpdateSQL(u"PRAGMA cache_size=%1"_s.arg(pages));
}

void SQLiteInstanceManager::setLockingMode(int mode)
{
    executeUpdateSQL(u"PRAGMA locking_mode=%1"_s.arg(mode));
}

void SQLiteInstanceManager::vacuum()
{
    executeUpdateSQL(u"VACUUM"_s);
}

void SQLiteInstanceManager::deleteDatabase()
{
    QFile::remove(databaseFilepath());
    // Closing the dropped connection changes nothing a caller can see, and frees its handle.
    m_database.reset();
    SQLitePersistentObject::clearCache();
}

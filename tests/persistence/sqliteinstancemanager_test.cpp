#include "persistencetestsupport.h"

#include "persistence/sqliteerror.h"
#include "persistence/sqliteinstancemanager.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sqlite3.h>
#include <unistd.h>

#include <cstdlib>

namespace {

QString raisedMessage(const std::function<void()>& action)
{
    try {
        action();
    } catch (const SQLiteError& error) {
        return error.message();
    }
    return u"(nothing raised)"_s;
}

int autoVacuum(sqlite3* db)
{
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(db, "PRAGMA auto_vacuum", -1, &statement, nullptr);
    const int mode = sqlite3_step(statement) == SQLITE_ROW ? sqlite3_column_int(statement, 0) : -1;
    sqlite3_finalize(statement);
    return mode;
}

class ManagerTest : public ::testing::Test {
protected:
    QString path(const QString& name = u"db.sqlite3"_s) const { return m_dir.filePath(name); }
    QTemporaryDir m_dir;
};

TEST(ManagerNaming, DropsOnlyBlanksAndLowerCasesAndIsNeededWithoutTheSharedName)
{
    const struct {
        const char16_t* process;
        const char16_t* name;
    } cases[] = {
        {u"Corvina", u"corvina.sqlite3"},     {u"My App", u"myapp.sqlite3"},
        {u" A  B ", u"ab.sqlite3"},           {u"Net-Watch_2.0", u"net-watch_2.0.sqlite3"},
        {u"Tab\tName", u"tab\tname.sqlite3"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(SQLiteInstanceManager::databaseNameForProcessName(QString::fromUtf16(c.process)),
                  QString::fromUtf16(c.name));

    // A manager of its own needs a name, even with a path.
    SQLiteInstanceManager manager;
    manager.setDatabaseFilepath(u"/tmp/somewhere.sqlite3"_s);
    EXPECT_EQ(raisedMessage([&] { manager.databaseFilepath(); }),
              u"You must specify a databaseName for non-shared instances"_s);
    EXPECT_TRUE(manager.databaseName().isNull());
}

TEST_F(ManagerTest, OpensWithBothPragmasRunsStatementsAndStartsAfreshWhenDeleted)
{
    SQLiteInstanceManager manager(u"db.sqlite3"_s, path());
    sqlite3* db = manager.database();
    ASSERT_NE(db, nullptr);
    EXPECT_EQ(manager.database(), db) << "a second request reuses the connection";
    manager.executeUpdateSQL(u"CREATE TABLE t (a INTEGER); INSERT INTO t VALUES (1)"_s);
    EXPECT_TRUE(manager.tableExists(u"t"_s));
    EXPECT_FALSE(manager.tableExists(u"missing"_s));
    EXPECT_FALSE(manager.tableExists(u"t; DROP"_s));
    EXPECT_EQ(autoVacuum(db), 1);

    // Deleted, the next use starts a fresh file with the pragmas.
    manager.deleteDatabase();
    EXPECT_FALSE(QFile::exists(path()));
    EXPECT_FALSE(manager.tableExists(u"t"_s));
    EXPECT_TRUE(QFile::exists(path()));
    EXPECT_EQ(autoVacuum(manager.database()), 1);
}

TEST_F(ManagerTest, FailedStatementRaisesWithStatementAndMessage)
{
    SQLiteInstanceManager manager(u"db.sqlite3"_s, path());
    EXPECT_EQ(
        raisedMessage([&] { manager.executeUpdateSQL(u"CREATE TABLE (oops"_s); }),
        uR"(Failed to execute SQL 'CREATE TABLE (oops' with message 'near "(": syntax error'.)"_s);
    // A statement holding "%1" is reported as written.
    EXPECT_EQ(
        raisedMessage([&] { manager.executeUpdateSQL(u"SELEC '%1'"_s); }),
        uR"(Failed to execute SQL 'SELEC '%1'' with message 'near "SELEC": syntax error'.)"_s);
}

TEST_F(ManagerTest, BadFilesRaiseTheExactDescriptions)
{
    // Not a database: the first pragma that reads the file fails.
    {
        QFile file(path(u"corrupt.sqlite3"_s));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(QByteArray(4096, 'x'));
    }
    SQLiteInstanceManager corrupt(u"corrupt.sqlite3"_s, path(u"corrupt.sqlite3"_s));
    EXPECT_EQ(
        raisedMessage([&] { corrupt.database(); }),
        u"Failed to execute SQL 'PRAGMA auto_vacuum=1' with message 'file is not a database'."_s);

    // A folder that does not exist: the open itself fails, and is tried again next time.
    SQLiteInstanceManager missing(u"x.sqlite3"_s, path(u"no/such/folder/x.sqlite3"_s));
    const QString openFailed =
        u"Failed to open database with message 'unable to open database file'."_s;
    EXPECT_EQ(raisedMessage([&] { missing.database(); }), openFailed);
    EXPECT_EQ(raisedMessage([&] { missing.database(); }), openFailed);
}

TEST_F(ManagerTest, ReadOnlyFileRaisesOnWrite)
{
    {
        SQLiteInstanceManager writer(u"ro.sqlite3"_s, path(u"ro.sqlite3"_s));
        writer.executeUpdateSQL(u"CREATE TABLE t (a)"_s);
    }
    QFile::setPermissions(path(u"ro.sqlite3"_s),
                          QFile::ReadOwner | QFile::ReadGroup | QFile::ReadOther);
    // The second pragma of the open already wants to write.
    const auto check = [this] {
        SQLiteInstanceManager readOnly(u"ro.sqlite3"_s, path(u"ro.sqlite3"_s));
        return raisedMessage([&] { readOnly.database(); }) ==
               u"Failed to execute SQL 'PRAGMA auto_vacuum=1' with message 'attempt to write a readonly database'."_s;
    };
    if (geteuid() != 0) {
        EXPECT_TRUE(check());
        return;
    }
    // Root ignores file permissions: check as an unprivileged user in a child process.
    QFile::setPermissions(m_dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner |
                                            QFile::ReadOther | QFile::ExeOther);
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            if (setgid(65534) != 0 || setuid(65534) != 0)
                std::_Exit(2);
            std::_Exit(check() ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

} // namespace

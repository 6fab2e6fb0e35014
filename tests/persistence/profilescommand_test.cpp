#include "persistencetestsupport.h"
#include "support/program.h"

#include <QDirIterator>
#include <QFile>
#include <QTemporaryDir>

#include <sqlite3.h>

#include <algorithm>

namespace {

class ProfilesCommandTest : public ::testing::Test {
protected:
    ProgramRun run(const QStringList& arguments) const
    {
        return runCorvina(m_home.path(), QStringList{u"profiles"_s} + arguments);
    }
    QString databaseFile() const
    {
        QDirIterator files(m_home.path(), {u"corvina.sqlite3"_s}, QDir::Files,
                           QDirIterator::Subdirectories);
        return files.hasNext() ? files.next() : QString();
    }
    QTemporaryDir m_home;
};

TEST_F(ProfilesCommandTest, AddListDelete)
{
    const ProgramRun empty = run({u"list"_s});
    EXPECT_EQ(empty.exitCode, 0) << empty.err.toStdString();
    EXPECT_EQ(empty.out(), u"No saved searches.\n"_s);
    EXPECT_TRUE(databaseFile().startsWith(m_home.filePath(u"data"_s)));

    EXPECT_EQ(run({u"add"_s, u"Work"_s, u"protocol == \"TCP\""_s}).out(), u"1\n"_s);
    EXPECT_EQ(run({u"add"_s, u"50% 'off'"_s, u"remotePort == \"443\""_s}).out(), u"2\n"_s);
    EXPECT_EQ(run({u"list"_s}).out(),
              u"1\tWork\tprotocol == \"TCP\"\n2\t50% 'off'\tremotePort == \"443\"\n"_s);

    EXPECT_EQ(run({u"delete"_s, u"1"_s}).exitCode, 0);
    const ProgramRun missing = run({u"delete"_s, u"1"_s});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.err, u"corvina: no profile with the key or name '1'\n"_s);
    EXPECT_EQ(run({u"add"_s, u"Next"_s, u"PID > 0x10"_s}).out(), u"3\n"_s);
    EXPECT_EQ(run({u"list"_s}).out(),
              u"2\t50% 'off'\tremotePort == \"443\"\n3\tNext\tPID > 0x10\n"_s);

    // By name: one profile of that name is deleted; a name two share deletes neither.
    EXPECT_EQ(run({u"delete"_s, u"50% 'off'"_s}).exitCode, 0);
    EXPECT_EQ(run({u"add"_s, u"Next"_s, u"TRUEPREDICATE"_s}).out(), u"4\n"_s);
    const ProgramRun shared = run({u"delete"_s, u"Next"_s});
    EXPECT_EQ(shared.exitCode, 2);
    EXPECT_EQ(shared.err,
              u"corvina: 2 profiles are named 'Next'; delete one by its key (3, 4)\n"_s);
    EXPECT_EQ(run({u"delete"_s, u"4"_s}).exitCode, 0);
    EXPECT_EQ(run({u"delete"_s, u"Next"_s}).exitCode, 0);
    EXPECT_EQ(run({u"list"_s}).out(), u"No saved searches.\n"_s);
}

// An expression that does not parse is refused with the parser's message and position, and
// nothing is stored.
TEST_F(ProfilesCommandTest, AddRefusesAnExpressionThatDoesNotParse)
{
    for (const QString& expression : {u"PID >"_s, u"pid == 1"_s, u""_s}) {
        const ProgramRun refused = run({u"add"_s, u"Broken"_s, expression});
        EXPECT_EQ(refused.exitCode, 2) << expression.toStdString();
        EXPECT_TRUE(refused.err.startsWith(u"corvina: the expression is not valid: "_s))
            << refused.err.toStdString();
        EXPECT_EQ(refused.err.count(u'\n'), 1);
    }
    const ProgramRun position = run({u"add"_s, u"Broken"_s, u"PID >"_s});
    EXPECT_TRUE(position.err.contains(u"(at character 6)"_s)) << position.err.toStdString();
    EXPECT_EQ(run({u"list"_s}).out(), u"No saved searches.\n"_s);
}

TEST_F(ProfilesCommandTest, BadUsageIsOneLineAndStatusTwo)
{
    const QList<QStringList> bad = {
        {},
        {u"show"_s},
        {u"list"_s, u"extra"_s},
        {u"add"_s, u"only-name"_s},
        {u"add"_s, u" "_s, u"x"_s},
        {u"delete"_s},
        {u"delete"_s, u""_s},
        {u"delete"_s, u"1"_s, u"2"_s},
    };
    for (const QStringList& arguments : bad) {
        const ProgramRun result = run(arguments);
        EXPECT_EQ(result.exitCode, 2) << arguments.join(u' ').toStdString();
        EXPECT_EQ(result.err.count(u'\n'), 1) << result.err.toStdString();
        EXPECT_TRUE(result.output.isEmpty());
    }
}

TEST_F(ProfilesCommandTest, UnusableDatabaseGivesStatusOne)
{
    ASSERT_EQ(run({u"add"_s, u"Work"_s, u"TRUEPREDICATE"_s}).exitCode, 0);
    const QString path = databaseFile();
    ASSERT_FALSE(path.isEmpty());
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(QByteArray(8192, 'z'));
    }
    for (const QStringList& arguments :
         {QStringList{u"list"_s}, QStringList{u"add"_s, u"a"_s, u"TRUEPREDICATE"_s}}) {
        const ProgramRun result = run(arguments);
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_EQ(
            result.err,
            u"corvina: cannot use the profile database %1: Failed to execute SQL 'PRAGMA auto_vacuum=1' with message 'file is not a database'.\n"_s
                .arg(path));
    }
    EXPECT_EQ(QFile(path).size(), 8192) << "the unusable file is left as it was";
}

// Another program holds the database's exclusive lock: every verb fails at once with one line
// and status 1, and when the lock goes the profiles are all still there.
TEST_F(ProfilesCommandTest, ALockedDatabaseFailsAtOnceAndLosesNothing)
{
    ASSERT_EQ(run({u"add"_s, u"Work"_s, u"TRUEPREDICATE"_s}).exitCode, 0);
    const QString path = databaseFile();
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(path.toUtf8().constData(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
    for (const QStringList& arguments :
         {QStringList{u"list"_s}, QStringList{u"add"_s, u"Home"_s, u"FALSEPREDICATE"_s},
          QStringList{u"delete"_s, u"1"_s}}) {
        const ProgramRun result = run(arguments);
        EXPECT_EQ(result.exitCode, 1) << arguments.join(u' ').toStdString();
        EXPECT_EQ(result.err.count(u'\n'), 1) << result.err.toStdString();
        EXPECT_TRUE(result.err.contains(u"locked"_s)) << result.err.toStdString();
    }
    sqlite3_exec(other, "COMMIT", nullptr, nullptr, nullptr);
    sqlite3_close(other);
    EXPECT_EQ(run({u"list"_s}).out(), u"1\tWork\tTRUEPREDICATE\n"_s);
    EXPECT_EQ(run({u"add"_s, u"Home"_s, u"FALSEPREDICATE"_s}).out(), u"2\n"_s);
}

// A file whose header is intact but whose pages are damaged is found out by the first query
// that reads them: one line, status 1, and the file is left as it was for the user to rescue.
TEST_F(ProfilesCommandTest, DamagedPagesAreReportedAndTheFileIsLeftAlone)
{
    ASSERT_EQ(run({u"add"_s, u"Work"_s, u"TRUEPREDICATE"_s}).exitCode, 0);
    const QString path = databaseFile();
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    QByteArray damaged = file.readAll();
    ASSERT_GT(damaged.size(), 1024);
    std::fill(damaged.begin() + 100, damaged.end(), '\xa5');
    file.seek(0);
    file.write(damaged);
    file.close();

    for (const QStringList& arguments :
         {QStringList{u"list"_s}, QStringList{u"add"_s, u"Home"_s, u"FALSEPREDICATE"_s}}) {
        const ProgramRun result = run(arguments);
        EXPECT_EQ(result.exitCode, 1) << arguments.join(u' ').toStdString();
        EXPECT_EQ(result.err.count(u'\n'), 1) << result.err.toStdString();
        EXPECT_TRUE(result.output.isEmpty()) << result.out().toStdString();
    }
    QFile after(path);
    ASSERT_TRUE(after.open(QIODevice::ReadOnly));
    EXPECT_EQ(after.readAll(), damaged);
}

} // namespace

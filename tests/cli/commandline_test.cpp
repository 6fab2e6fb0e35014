#include "support/program.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <random>

namespace {

class CommandLineTest : public ::testing::Test {
protected:
    ProgramRun corvina(const QStringList& arguments, const QByteArray& input = {})
    {
        return runCorvina(m_home.path(), arguments, input);
    }
    static QString data(const char* name)
    {
        return QStringLiteral(CORVINA_TEST_DATA "/") + QString::fromUtf8(name);
    }
    QString file(const QString& name, const QByteArray& bytes)
    {
        QFile f(m_home.filePath(name));
        EXPECT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(bytes);
        return f.fileName();
    }
    static QList<QJsonObject> objects(const QByteArray& text)
    {
        QList<QJsonObject> result;
        for (const QByteArray& line : text.split('\n')) {
            if (!line.isEmpty())
                result << QJsonDocument::fromJson(line).object();
        }
        return result;
    }

    QTemporaryDir m_home;
};

QList<int> statusesOf(const QList<QJsonObject>& objects, int snapshot)
{
    QList<int> statuses;
    for (const QJsonObject& object : objects) {
        if (object[u"snapshot"_s].toInt() == snapshot)
            statuses << object[u"status"_s].toInt();
    }
    return statuses;
}

} // namespace

TEST_F(CommandLineTest, ReplayMarksEveryStatusAcrossCapturedSnapshots)
{
    const ProgramRun run =
        corvina({u"replay"_s, u"--format"_s, u"json"_s, u"--no-resolve"_s, data("sequence-1.txt"),
                 data("sequence-2.txt"), data("sequence-3.txt"), data("sequence-3.txt")});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    const QList<QJsonObject> items = objects(run.output);
    EXPECT_EQ(statusesOf(items, 0), QList<int>(5, 0));
    EXPECT_EQ(statusesOf(items, 1), (QList<int>{0, 2, 2, 0, 0, 1, 1}));
    EXPECT_EQ(statusesOf(items, 2), (QList<int>{0, 0, 0, 0, 0, 3, 3}));
    EXPECT_EQ(statusesOf(items, 3), QList<int>(5, 0));

    // Every key of the contract, nulls as JSON null.
    const QJsonObject first = items.first();
    const QString keys = u"status processName processId PID protocol localAddress localPort "
                         u"localPortNumber remoteAddress remotePort remotePortNumber state "
                         u"oldState user type sizeAndOffset device fileDescriptor identifier "
                         u"localPortName remotePortName localizedAppName processPath snapshot"_s;
    for (const QString& key : keys.split(u' '))
        EXPECT_TRUE(first.contains(key)) << key.toStdString();
    EXPECT_TRUE(first[u"remoteAddress"_s].isNull());
    EXPECT_EQ(first[u"processName"_s].toString(), u"echo server"_s);
    EXPECT_EQ(first[u"PID"_s].toInt(), 6362);
    EXPECT_EQ(items[6][u"oldState"_s].toString(), u"ESTABLISHED"_s);
}

TEST_F(CommandLineTest, FiltersFollowTheWindowsRules)
{
    const auto count = [&](const QStringList& options) {
        const ProgramRun run = corvina(QStringList{u"list"_s, u"--input"_s, data("sequence-2.txt"),
                                                   u"--format"_s, u"json"_s, u"--no-resolve"_s} +
                                       options);
        EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
        return objects(run.output).size();
    };
    EXPECT_EQ(count({}), 7);
    EXPECT_EQ(count({u"--keyword"_s, u"close_wait,FIN"_s}), 2);
    EXPECT_EQ(count({u"--keyword"_s, u"("_s}), 0) << "an invalid pattern shows nothing";
    EXPECT_EQ(count({u"--filter"_s, u"state BEGINSWITH 'EST'"_s}), 2);
    EXPECT_EQ(count({u"--filter"_s, u"state =="_s}), 7) << "an invalid expression shows all";
    EXPECT_EQ(count({u"--hide-protocol"_s, u"TCP"_s}), 2);
    EXPECT_EQ(count({u"--hide-type"_s, u"IPv4"_s}), 1);
    EXPECT_EQ(count({u"--remote-only"_s}), 4);
    // Toolbar filters do not apply to expressions.
    EXPECT_EQ(count({u"--filter"_s, u"TRUEPREDICATE"_s, u"--hide-protocol"_s, u"TCP"_s}), 7);

    ASSERT_EQ(corvina({u"profiles"_s, u"add"_s, u"udp only"_s, u"protocol == 'UDP'"_s}).exitCode,
              0);
    // A saved search wins over everything else.
    EXPECT_EQ(count({u"--profile"_s, u"udp only"_s, u"--keyword"_s, u"LISTEN"_s}), 2);
    const ProgramRun missing =
        corvina({u"list"_s, u"--input"_s, data("sequence-2.txt"), u"--profile"_s, u"nope"_s});
    EXPECT_EQ(missing.exitCode, 2);
}

TEST_F(CommandLineTest, AnyBytesGiveACleanResult)
{
    std::mt19937 random(7);
    QList<QByteArray> inputs = {
        {},
        "COMMAND  PID USER   FD   TYPE DEVICE SIZE/OFF NODE NAME\n",
        "not lsof output at all\nreally\n",
        "COMMAND  PID USER   FD   TYPE DEVICE SIZE/OFF NODE NAME\n\xff\xfe broken utf-8\n",
        "NAME NODE SIZE/OFF DEVICE TYPE FD USER PID\n1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n",
        "COMMAND  PID USER   FD   TYPE DEVICE SIZE/OFF NODE NAME\nshort\nx 1 r 3u IPv4 9 0t0 TCP",
    };
    for (int i = 0; i < 20; ++i) {
        QByteArray bytes(int(random() % 400), '\0');
        for (char& c : bytes)
            c = char(
                random() % 3
                    ? "COMMAND PID USER FD TYPE DEVICE SIZE/OFF NODE NAME ->:(\n"[random() % 56]
                    : random() % 256);
        inputs << bytes;
    }
    for (const QByteArray& bytes : inputs) {
        for (const char* format : {"table", "csv", "json"}) {
            const ProgramRun run = corvina({u"list"_s, u"--input"_s, u"-"_s, u"--format"_s,
                                            QString::fromLatin1(format), u"--no-resolve"_s},
                                           bytes);
            EXPECT_EQ(run.exitCode, 0) << bytes.toHex().toStdString();
        }
    }
    const ProgramRun unreadable = corvina({u"replay"_s, m_home.filePath(u"missing.txt"_s)});
    EXPECT_EQ(unreadable.exitCode, 1);
    EXPECT_EQ(unreadable.err.count(u'\n'), 1);
}

TEST_F(CommandLineTest, BadUsageSaysSoInOneLine)
{
    for (const QStringList& arguments : {QStringList{u"frobnicate"_s},
                                         {u"list"_s, u"--format"_s, u"xml"_s},
                                         {u"list"_s, u"--keyword"_s, u"a"_s, u"--filter"_s, u"b"_s},
                                         {u"replay"_s},
                                         {u"list"_s, u"--hide-type"_s, u"IPv5"_s},
                                         {u"watch"_s, u"--interval"_s, u"0"_s},
                                         {u"watch"_s, u"--format"_s, u"xml"_s},
                                         {u"list"_s, u"--source"_s, u"ss"_s},
                                         {u"list"_s, u"--host"_s, u"-oProxyCommand=x"_s},
                                         {u"watch"_s, u"--top"_s, u"0"_s},
                                         {u"list"_s, u"--input"_s}}) {
        const ProgramRun run = corvina(arguments);
        EXPECT_EQ(run.exitCode, 2) << arguments.join(u' ').toStdString();
        EXPECT_EQ(run.err.count(u'\n'), 1) << run.err.toStdString();
        EXPECT_TRUE(run.output.isEmpty());
    }
}

TEST_F(CommandLineTest, ReplayLogsNewConnectionsAsTheSettingsAsk)
{
    ASSERT_EQ(corvina({u"replay"_s, u"--format"_s, u"json"_s, data("sequence-1.txt"),
                       data("sequence-2.txt")})
                  .exitCode,
              0);
    QDir logs(m_home.filePath(u"data/Corvina/Logs"_s));
    const QStringList files = logs.entryList({u"CorvinaLog-*.csv"_s});
    ASSERT_EQ(files.size(), 1);
    QFile log(logs.filePath(files.first()));
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    // Titles, then the two new connections of the second snapshot.
    EXPECT_EQ(QString::fromUtf8(log.readAll()).count(u'\n'), 3);

    ASSERT_EQ(corvina({u"replay"_s, u"--no-log"_s, data("sequence-1.txt"), data("sequence-2.txt")})
                  .exitCode,
              0);
    log.seek(0);
    EXPECT_EQ(QString::fromUtf8(log.readAll()).count(u'\n'), 3) << "--no-log writes nothing";
}

// Every verb answers a help word, anywhere after it, with its own usage and status 0.
TEST_F(CommandLineTest, EveryVerbAnswersHelpWithItsOwnUsage)
{
    for (const char* verb : {"watch", "list", "replay", "profiles", "settings", "helper"}) {
        const QString name = QString::fromUtf8(verb);
        for (const QStringList& arguments :
             {QStringList{name, u"--help"_s}, {name, u"-h"_s}, {name, u"list"_s, u"--help"_s}}) {
            const ProgramRun run = corvina(arguments);
            EXPECT_EQ(run.exitCode, 0) << arguments.join(u' ').toStdString();
            EXPECT_TRUE(run.out().startsWith(u"usage: corvina "_s + name + u' '))
                << run.out().toStdString();
            EXPECT_TRUE(run.err.isEmpty()) << run.err.toStdString();
        }
    }
    const ProgramRun general = corvina({u"--help"_s});
    EXPECT_EQ(general.exitCode, 0);
    EXPECT_TRUE(general.out().startsWith(u"Usage: corvina"_s));
}

// list reports no changes, so --no-log, which it takes as replay does, has nothing to stop:
// with it or without, no log is written.
TEST_F(CommandLineTest, ListTakesNoLogAndLogsNothingEitherWay)
{
    for (const QStringList& extra : {QStringList{}, QStringList{u"--no-log"_s}}) {
        const ProgramRun run =
            corvina(QStringList{u"list"_s, u"--no-resolve"_s, u"--format"_s, u"json"_s,
                                u"--input"_s, data("sequence-2.txt")} +
                    extra);
        EXPECT_EQ(run.exitCode, 0) << run.err.toStdString();
        EXPECT_EQ(objects(run.output).size(), 7);
    }
    EXPECT_FALSE(QDir(m_home.filePath(u"data/Corvina/Logs"_s)).exists());
}

// Another machine through ssh (here a stand-in that runs the remote command on this one): its
// rows are listed; a host that cannot be reached ends the command with one line and exit 1.
TEST_F(CommandLineTest, ListReachesAnotherHostThroughSsh)
{
    const QDir home(m_home.path());
    home.mkpath(u"bin"_s);
    home.mkpath(u"remote"_s);
    ASSERT_TRUE(QFile::copy(QStringLiteral(CORVINA_SOURCE_DIR "/tests/remote/fake-ssh"),
                            home.filePath(u"bin/ssh"_s)));
    ASSERT_TRUE(QFile::link(u"/bin/sh"_s, home.filePath(u"remote/sh"_s)));
    ASSERT_TRUE(QFile::link(u"/bin/cat"_s, home.filePath(u"remote/cat"_s)));
    const QString lsof =
        file(u"remote/lsof"_s, "#!/bin/sh\nexec cat '" + data("sequence-1.txt").toUtf8() + "'\n");
    QFile::setPermissions(lsof, QFile::ReadOwner | QFile::ExeOwner);
    QFile::setPermissions(home.filePath(u"bin/ssh"_s), QFile::ReadOwner | QFile::ExeOwner);
    QProcessEnvironment ssh;
    ssh.insert(u"FAKE_SSH_DIR"_s, m_home.path());
    ssh.insert(u"FAKE_REMOTE_PATH"_s, home.filePath(u"remote"_s));
    ssh.insert(u"PATH"_s, home.filePath(u"bin"_s) + u':' + qEnvironmentVariable("PATH"));

    const ProgramRun listed = runCorvina(m_home.path(),
                                         {u"list"_s, u"--host"_s, u"ann@db1.test:2222"_s,
                                          u"--format"_s, u"json"_s, u"--no-resolve"_s},
                                         {}, ssh);
    const ProgramRun unreachable =
        runCorvina(m_home.path(), {u"list"_s, u"--host"_s, u"unresolvable.test"_s}, {}, ssh);
    EXPECT_EQ(listed.exitCode, 0) << listed.err.toStdString();
    EXPECT_EQ(objects(listed.output).size(), 5);
    EXPECT_EQ(unreachable.exitCode, 1);
    EXPECT_EQ(unreachable.err.count(u'\n'), 1) << unreachable.err.toStdString();
    EXPECT_TRUE(unreachable.output.isEmpty());
}

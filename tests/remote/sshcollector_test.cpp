#include "remote/sshcollector.h"
#include "snapshot/lsofdata.h"
#include "snapshot/lsoffetcher.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

namespace {

// A stand-in ssh first on PATH, which runs the remote command here; the "remote" side sees
// only the programs the test puts in its folder.
class SshCollectorTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        QDir(m_dir.path()).mkpath(u"bin"_s);
        QDir(m_dir.path()).mkpath(u"remote"_s);
        ASSERT_TRUE(QFile::copy(QStringLiteral(CORVINA_SOURCE_DIR "/tests/remote/fake-ssh"),
                                path(u"bin/ssh"_s)));
        makeExecutable(path(u"bin/ssh"_s));
        ASSERT_TRUE(QFile::link(u"/bin/sh"_s, path(u"remote/sh"_s)));
        m_oldPath = qgetenv("PATH");
        qputenv("PATH", path(u"bin"_s).toUtf8() + ':' + m_oldPath);
        qputenv("FAKE_SSH_DIR", m_dir.path().toUtf8());
        qputenv("FAKE_REMOTE_PATH", path(u"remote"_s).toUtf8());
    }
    void TearDown() override { qputenv("PATH", m_oldPath); }

    QString path(const QString& name) const { return m_dir.filePath(name); }

    static void makeExecutable(const QString& file)
    {
        QFile::setPermissions(file, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    // A program on the remote side: records its arguments, then runs `body`.
    void remoteProgram(const QString& name, const QString& body)
    {
        QFile file(path(u"remote/"_s + name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("#!/bin/sh\nprintf '%s\\n' \"$@\" > \"$FAKE_SSH_DIR/" + name.toUtf8() +
                   ".arguments\"\n" + body.toUtf8() + '\n');
        file.close();
        makeExecutable(file.fileName());
    }
    void remotePrinting(const QString& name, const char* dataFile)
    {
        remoteProgram(name, u"exec /bin/cat '%1/%2'"_s.arg(QStringLiteral(CORVINA_TEST_DATA),
                                                           QString::fromUtf8(dataFile)));
    }

    QStringList recorded(const QString& name) const
    {
        QFile file(path(name));
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
    }

    static SshCollector collector(const QString& host,
                                  std::chrono::milliseconds bound = std::chrono::seconds(20))
    {
        return SshCollector(*HostSpec::parse(host), {bound, std::chrono::seconds(5)});
    }

    QTemporaryDir m_dir;
    QByteArray m_oldPath;
};

QByteArray dataBytes(const char* name)
{
    return lsofData(name).toUtf8();
}

} // namespace

TEST_F(SshCollectorTest, RunsCorvinaThereWhenItIsInstalled)
{
    remotePrinting(u"corvina"_s, "sequence-2.txt");
    remotePrinting(u"lsof"_s, "sequence-1.txt");
    const SshCollector::Result result = collector(u"admin@web1.test:2222"_s).collect();
    ASSERT_TRUE(result.ok()) << result.problem.toStdString();
    EXPECT_EQ(result.source, SshCollector::Source::Corvina);
    EXPECT_EQ(result.output, dataBytes("sequence-2.txt"));
    EXPECT_EQ(recorded(u"corvina.arguments"_s), QStringList{u"sockets"_s});

    // Non-interactive, the port and user as options, and the host only after "--".
    const QStringList args = recorded(u"arguments"_s);
    for (const QString& expected : {u"-T"_s, u"BatchMode=yes"_s, u"ConnectTimeout=5"_s})
        EXPECT_TRUE(args.contains(expected)) << expected.toStdString();
    const qsizetype end = args.indexOf(u"--"_s);
    ASSERT_GE(end, 0);
    EXPECT_EQ(args.mid(end + 1, 1), QStringList{u"web1.test"_s});
    EXPECT_EQ(args.at(args.indexOf(u"-p"_s) + 1), u"2222"_s);
    EXPECT_EQ(args.at(args.indexOf(u"-l"_s) + 1), u"admin"_s);
    EXPECT_LT(args.indexOf(u"-p"_s), end);
}

TEST_F(SshCollectorTest, FallsBackToLsofWithoutCorvina)
{
    remotePrinting(u"lsof"_s, "sequence-1.txt");
    const SshCollector::Result result = collector(u"web1.test"_s).collect();
    ASSERT_TRUE(result.ok()) << result.problem.toStdString();
    EXPECT_EQ(result.source, SshCollector::Source::Lsof);
    EXPECT_EQ(result.output, dataBytes("sequence-1.txt"));
    EXPECT_EQ(recorded(u"lsof.arguments"_s),
              (QStringList{u"-i"_s, u"-n"_s, u"-P"_s, u"+c"_s, u"0"_s}));
    EXPECT_FALSE(recorded(u"arguments"_s).contains(u"-p"_s));
    EXPECT_EQ(collector(u"noisy.test"_s).collect().output, result.output);

    LsofFetcher fetcher;
    EXPECT_EQ(fetcher.parseLsofOutput(result.output).size(), 5);
}

TEST_F(SshCollectorTest, SaysWhyAMachineCannotBeReached)
{
    struct Case {
        QString host;
        SshCollector::Failure failure;
        QString problem;
    };
    const QList<Case> cases = {
        {u"unresolvable.test"_s, SshCollector::Failure::Unreachable,
         u"Could not reach unresolvable.test: its name does not resolve."_s},
        {u"refused.test"_s, SshCollector::Failure::Unreachable,
         u"Could not reach refused.test: the connection was refused (is sshd running there?)."_s},
        {u"slow.test"_s, SshCollector::Failure::Unreachable,
         u"Could not reach slow.test: the connection timed out."_s},
        {u"admin@denied.test"_s, SshCollector::Failure::AuthenticationRefused,
         u"admin@denied.test refused the login: Corvina logs in with ssh keys only, never a "
         u"password; set up key login (for example with ssh-copy-id)."_s},
        {u"changed-key.test"_s, SshCollector::Failure::HostKeyRefused,
         u"The host key of changed-key.test is unknown or has changed; connect once with "
         u"\"ssh changed-key.test\" to check and accept it."_s},
    };
    remotePrinting(u"lsof"_s, "sequence-1.txt");
    for (const Case& c : cases) {
        const SshCollector::Result result = collector(c.host).collect();
        EXPECT_EQ(result.failure, c.failure) << c.host.toStdString();
        EXPECT_EQ(result.problem, c.problem);
        EXPECT_TRUE(result.output.isEmpty());
    }
}

TEST_F(SshCollectorTest, ReportsTheRemoteSidesOwnFailures)
{
    if (QFile::exists(u"/usr/sbin/lsof"_s) || QFile::exists(u"/sbin/lsof"_s))
        GTEST_SKIP() << "a real lsof in /usr/sbin or /sbin is always on the remote PATH here";
    SshCollector::Result result = collector(u"web1.test"_s).collect();
    EXPECT_EQ(result.failure, SshCollector::Failure::NoCollector);
    EXPECT_EQ(result.problem,
              u"Neither corvina nor lsof is installed on web1.test; install one of them there."_s);

    remoteProgram(u"corvina"_s, u"echo 'corvina: netlink refused' >&2; exit 1"_s);
    result = collector(u"web1.test"_s).collect();
    EXPECT_EQ(result.failure, SshCollector::Failure::RemoteCommandFailed);
    EXPECT_EQ(result.problem, u"The collection command failed on web1.test (exit status 1): "
                              u"corvina: netlink refused"_s);

    // lsof exits 1 without a word when a machine has no socket: an empty snapshot, no failure.
    QFile::remove(path(u"remote/corvina"_s));
    remoteProgram(u"lsof"_s, u"exit 1"_s);
    result = collector(u"web1.test"_s).collect();
    EXPECT_TRUE(result.ok()) << result.problem.toStdString();
    EXPECT_EQ(result.source, SshCollector::Source::Lsof);
    EXPECT_TRUE(result.output.isEmpty());
}

TEST_F(SshCollectorTest, AHangingPassIsCutAtItsBoundWithEverythingItStarted)
{
    QElapsedTimer timer;
    timer.start();
    const SshCollector::Result result = collector(u"hang.test"_s, 1500ms).collect();
    // Generous: what matters is that the call comes back instead of waiting for sleep 600.
    EXPECT_LT(timer.elapsed(), 15000);
    EXPECT_EQ(result.failure, SshCollector::Failure::TimedOut);
    EXPECT_EQ(result.problem, u"hang.test did not answer within 1.5 seconds."_s);

    const QStringList sleeper = recorded(u"sleeper"_s);
    ASSERT_EQ(sleeper.size(), 1);
    // The stand-in's child is gone too (or a zombie waiting for init to reap it).
    const QString stat = u"/proc/%1/stat"_s.arg(sleeper.first());
    bool gone = false;
    for (int i = 0; i < 200 && !gone; ++i) {
        QFile file(stat);
        gone = !file.open(QIODevice::ReadOnly) || file.readAll().contains(") Z ");
        if (!gone)
            QThread::msleep(10);
    }
    EXPECT_TRUE(gone) << "sleep " << sleeper.first().toStdString() << " outlived the pass";
}

TEST_F(SshCollectorTest, GarbageComesBackAsBytesAndParsesToNothing)
{
    remoteProgram(u"corvina"_s, u"printf 'garbage\\000\\377\\376\\nNAME COMMAND\\n\\n->:::\\n'"_s);
    const SshCollector::Result result = collector(u"web1.test"_s).collect();
    ASSERT_TRUE(result.ok()) << result.problem.toStdString();
    static constexpr char garbage[] = "garbage\0\377\376\nNAME COMMAND\n\n->:::\n";
    EXPECT_EQ(result.output, QByteArray(garbage, sizeof garbage - 1));
    LsofFetcher fetcher;
    EXPECT_TRUE(fetcher.parseLsofOutput(result.output).isEmpty());
}

TEST_F(SshCollectorTest, SaysSoWhenSshIsMissing)
{
    qputenv("PATH", path(u"remote"_s).toUtf8());
    const SshCollector::Result result = collector(u"web1.test"_s).collect();
    EXPECT_EQ(result.failure, SshCollector::Failure::SshMissing);
    EXPECT_EQ(result.problem,
              u"ssh was not found on PATH; install the OpenSSH client to watch another machine."_s);
}

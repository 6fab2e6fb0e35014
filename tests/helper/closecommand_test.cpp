// `corvina close`, run as the built program: directly as root, through the daemon as a user.

#include "daemonprocess.h"
#include "loopbackconnection.h"

#include "collector/nativecollector.h"
#include "snapshot/lsofitem.h"

#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

struct ProgramRun {
    int exitCode = -1;
    QString out;
    QString err;
};

// The identifier of descriptor `fd` of process `pid` in a fresh snapshot; null when not listed.
QString identifierOf(pid_t pid, int fd)
{
    NativeCollector collector;
    for (const SocketRecord& record : collector.collect()) {
        if (record.processId == QString::number(pid) &&
            record.fileDescriptor == QString::number(fd) + u'u')
            return LsofItem::identifierOf(record);
    }
    return {};
}

class CloseCommandTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_home.isValid());
        // The user nobody runs the program here too.
        ::chmod(m_home.path().toLocal8Bit().constData(), 0777);
    }

    // The built program; as the user `user` when given.
    ProgramRun corvina(const QStringList& arguments, const passwd* user = nullptr)
    {
        QProcess process;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"HOME"_s, m_home.path());
        environment.insert(u"XDG_CONFIG_HOME"_s, m_home.filePath(u"config"_s));
        environment.insert(u"XDG_DATA_HOME"_s, m_home.filePath(u"data"_s));
        process.setProcessEnvironment(environment);
        if (user != nullptr) {
            const uid_t uid = user->pw_uid;
            const gid_t gid = user->pw_gid;
            process.setChildProcessModifier([uid, gid] {
                if (::setgid(gid) != 0 || ::setuid(uid) != 0)
                    ::_exit(120);
            });
        }
        process.start(QStringLiteral(CORVINA_BINARY_DIR "/src/corvina"), arguments);
        EXPECT_TRUE(process.waitForFinished(30000));
        return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }

    QTemporaryDir m_home;
};

TEST_F(CloseCommandTest, RootClosesAConnectionByItsIdentifier)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "closing a connection directly needs CAP_NET_ADMIN; run as root";
    LoopbackConnection connection;
    ASSERT_TRUE(connection.isOpen());
    const QString identifier = identifierOf(::getpid(), connection.client);
    ASSERT_FALSE(identifier.isNull());

    const ProgramRun closed = corvina({u"close"_s, identifier});
    if (closed.err.contains(u"not supported by this kernel"_s))
        GTEST_SKIP() << "this kernel lacks CONFIG_INET_DIAG_DESTROY";
    EXPECT_EQ(closed.exitCode, 0) << closed.err.toStdString();
    EXPECT_EQ(closed.out, u"closed\n"_s);
    EXPECT_EQ(LoopbackConnection::readOutcome(connection.server), ECONNRESET);

    const ProgramRun again = corvina({u"close"_s, identifier});
    EXPECT_EQ(again.exitCode, 1);
    EXPECT_TRUE(again.err.startsWith(u"corvina: already gone"_s)) << again.err.toStdString();
}

TEST_F(CloseCommandTest, RefusesWhatIsNoTcpConnection)
{
    LoopbackConnection connection;
    const int udp = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    peer.sin_port = htons(9);
    ASSERT_EQ(::connect(udp, reinterpret_cast<sockaddr*>(&peer), sizeof(peer)), 0);
    for (const int fd : {connection.listener, udp}) {
        const QString identifier = identifierOf(::getpid(), fd);
        ASSERT_FALSE(identifier.isNull());
        const ProgramRun run = corvina({u"close"_s, identifier});
        EXPECT_EQ(run.exitCode, 2);
        EXPECT_EQ(run.err,
                  u"corvina: %1: not a TCP connection with a remote side\n"_s.arg(identifier));
    }
    ::close(udp);
    EXPECT_EQ(corvina({u"close"_s}).exitCode, 2);
    EXPECT_EQ(corvina({u"close"_s, u"a"_s, u"b"_s}).exitCode, 2);
    EXPECT_EQ(corvina({u"close"_s, u"--help"_s}).exitCode, 0);
}

TEST_F(CloseCommandTest, AUserClosesTheirOwnConnectionThroughTheDaemonOnly)
{
    const passwd* nobody = ::getpwnam("nobody");
    if (::geteuid() != 0 || nobody == nullptr)
        GTEST_SKIP() << "acting as the user nobody needs root and that user";
    LoopbackConnection connection;
    ASSERT_TRUE(connection.isOpen());
    // A process of nobody's holds the connection, at the same descriptor number.
    const int fd = connection.client;
    const pid_t holder = ::fork();
    if (holder == 0) {
        ::fcntl(fd, F_SETFD, 0);
        if (::setgid(nobody->pw_gid) == 0 && ::setuid(nobody->pw_uid) == 0)
            ::execl("/bin/sleep", "sleep", "30", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    ::close(connection.client);
    connection.client = -1;
    QString identifier;
    // Listed once sleep runs: exec made it nobody's to inspect.
    for (int attempt = 0; attempt < 100 && identifier.isNull(); ++attempt) {
        std::this_thread::sleep_for(10ms);
        identifier = identifierOf(holder, fd);
    }
    ASSERT_FALSE(identifier.isNull());

    const std::string socketPath = m_home.filePath(u"helper.sock"_s).toStdString();
    const ProgramRun alone = corvina(
        {u"close"_s, identifier, u"--helper-socket"_s, m_home.filePath(u"none.sock"_s)}, nobody);
    EXPECT_EQ(alone.exitCode, 1);
    EXPECT_TRUE(alone.err.startsWith(u"corvina: not permitted: closing a connection needs root "
                                     "(CAP_NET_ADMIN) or the Corvina helper"_s))
        << alone.err.toStdString();

    DaemonProcess daemon;
    ASSERT_TRUE(daemon.start(socketPath, {"--allow-uid", std::to_string(nobody->pw_uid)}));
    const ProgramRun helped = corvina(
        {u"close"_s, identifier, u"--helper-socket"_s, QString::fromStdString(socketPath)}, nobody);
    EXPECT_EQ(helped.exitCode, 0) << helped.err.toStdString();
    EXPECT_EQ(helped.out, u"closed\n"_s);
    EXPECT_EQ(LoopbackConnection::readOutcome(connection.server), ECONNRESET);
    EXPECT_EQ(daemon.stop(), 0);
    ::kill(holder, SIGKILL);
    ::waitpid(holder, nullptr, 0);
}

} // namespace

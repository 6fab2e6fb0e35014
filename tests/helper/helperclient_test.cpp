#include "daemonprocess.h"
#include "loopbackconnection.h"

#include "helper/cvhelperutility.h"
#include "platform/systemlog.h"
#include "privileged/authorizationform.h"
#include "privileged/framedsocket.h"
#include "privileged/helperprotocol.h"

#include <QCoreApplication>
#include <QMutex>
#include <QStringList>
#include <QThread>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

namespace {

// Collects every reply of one request: the tests check it came exactly once. Texts are
// QString, lsof's output QByteArray.
template <typename Reply = QString> struct ReplyRecorder {
    std::mutex lock;
    std::vector<std::optional<Reply>> replies;
    std::vector<Qt::HANDLE> threads;
    std::promise<void> first;
    std::atomic<bool> fulfilled{false};

    std::function<void(std::optional<Reply>)> callback()
    {
        return [this](std::optional<Reply> reply) {
            std::lock_guard guard(lock);
            replies.push_back(std::move(reply));
            threads.push_back(QThread::currentThreadId());
            if (!fulfilled.exchange(true))
                first.set_value();
        };
    }

    bool waitForReply(std::chrono::milliseconds patience = 5s)
    {
        return first.get_future().wait_for(patience) == std::future_status::ready;
    }
};

// A daemon that refuses every peer, as the real one refuses a user outside its group (which
// this suite, often run as root, cannot be). Counts the connections it was asked on.
class RefusingDaemon {
public:
    explicit RefusingDaemon(const std::string& path)
    {
        m_listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        if (::bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
            ::listen(m_listener, 16) != 0)
            return;
        m_thread = std::thread([this] {
            for (;;) {
                const int fd = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
                if (fd < 0)
                    return;
                ++m_connections;
                FramedSocket peer(fd);
                peer.writeFrame(HelperProtocol::encodeReply({HelperProtocol::Operation{0},
                                                             HelperProtocol::Status::Refused,
                                                             "peer not allowed"}),
                                FramedSocket::Clock::now() + 1s);
            }
        });
    }
    ~RefusingDaemon()
    {
        ::shutdown(m_listener, SHUT_RDWR);
        if (m_thread.joinable())
            m_thread.join();
        ::close(m_listener);
    }
    int connections() const { return m_connections.load(); }

private:
    int m_listener = -1;
    std::atomic<int> m_connections{0};
    std::thread m_thread;
};

class HelperClientTest : public DaemonTest {
protected:
    static void SetUpTestSuite()
    {
        static int argc = 1;
        static char name[] = "corvina_tests_helper";
        static char* argv[] = {name, nullptr};
        if (QCoreApplication::instance() == nullptr)
            new QCoreApplication(argc, argv);
    }

    void SetUp() override
    {
        DaemonTest::SetUp();
        SystemLog::setEcho([this](const QString& message) {
            QMutexLocker locker(&m_logLock);
            m_log << message;
        });
    }

    void TearDown() override
    {
        SystemLog::setEcho({});
        DaemonTest::TearDown();
    }

    void startDaemon(const std::string& lsofBody = "echo COMMAND")
    {
        ASSERT_TRUE(
            m_daemon.start(m_socket, {"--allow-uid", std::to_string(::getuid()), "--lsof",
                                      script("lsof", lsofBody), "--request-timeout", "1000"}));
    }

    CVHelperUtility::Environment environment()
    {
        CVHelperUtility::Environment env;
        env.socketPath = QString::fromStdString(m_socket);
        env.offerInstall = false;
        env.replyTimeout = 3s;
        return env;
    }

    QStringList log()
    {
        QMutexLocker locker(&m_logLock);
        return m_log;
    }

    QMutex m_logLock;
    QStringList m_log;
};

TEST_F(HelperClientTest, GetsVersionAndLsofTextOffTheGuiThread)
{
    startDaemon("echo 'COMMAND PID'; echo \"$@\"");
    CVHelperUtility utility(environment());

    ReplyRecorder<> version;
    utility.getVersion(version.callback());
    ASSERT_TRUE(version.waitForReply());
    ASSERT_EQ(version.replies.size(), 1u);
    EXPECT_EQ(version.replies[0], utility.bundledHelperVersion());

    ReplyRecorder<QByteArray> lsof;
    utility.runLsofWithReply(lsof.callback());
    ASSERT_TRUE(lsof.waitForReply());
    // The version is stored after its callback ran; requests are answered in order.
    EXPECT_EQ(utility.helperVersion(), u"1.0"_s);
    EXPECT_EQ(lsof.replies.at(0), QByteArray("COMMAND PID\n-i -n -P +c 0\n"));
    EXPECT_NE(lsof.threads.at(0), QThread::currentThreadId());
    EXPECT_TRUE(log().isEmpty()) << log().join(u'\n').toStdString();
}

TEST_F(HelperClientTest, CollectsAndClosesThroughTheDaemon)
{
    ASSERT_TRUE(
        m_daemon.start(m_socket, {"--allow-uid", std::to_string(::getuid()), "--sockets-program",
                                  script("sockets", "echo 'COMMAND PID'")}));
    CVHelperUtility utility(environment());
    ReplyRecorder<QByteArray> collect;
    utility.runCollectorWithReply(collect.callback());
    ASSERT_TRUE(collect.waitForReply());
    EXPECT_EQ(collect.replies.at(0), QByteArray("COMMAND PID\n"));

    LoopbackConnection connection;
    SocketIdentity socket = LoopbackConnection::identityOf(connection.client);
    ReplyRecorder<SocketDestroyer::Result> close;
    utility.closeConnection(socket, close.callback());
    ASSERT_TRUE(close.waitForReply());
    ASSERT_TRUE(close.replies.at(0));
    // Root's daemon closes it; a user's own daemon lacks CAP_NET_ADMIN and says so.
    const auto expected = ::geteuid() == 0 ? SocketDestroyer::Outcome::Closed
                                           : SocketDestroyer::Outcome::NotPermitted;
    if (close.replies[0]->outcome != SocketDestroyer::Outcome::NotSupported) {
        EXPECT_EQ(close.replies[0]->outcome, expected) << close.replies[0]->detail;
    }

    // Fields that name no connection are not sent: the answer comes at once, on this thread.
    socket.cookie = 0;
    ReplyRecorder<SocketDestroyer::Result> invalid;
    utility.closeConnection(socket, invalid.callback());
    ASSERT_EQ(invalid.replies.size(), 1u);
    ASSERT_TRUE(invalid.replies[0]);
    EXPECT_EQ(invalid.replies[0]->outcome, SocketDestroyer::Outcome::Invalid);
    EXPECT_EQ(invalid.threads.at(0), QThread::currentThreadId());
    EXPECT_TRUE(log().isEmpty()) << log().join(u'\n').toStdString();
}

// The caller may drop the utility as soon as its callback has run, while the reply is still
// storing the version on the connection's thread: destruction waits for that store. (Without
// the wait the store lands in a destroyed member, which the sanitized suite reports as a leak.)
TEST_F(HelperClientTest, DestroyingTheUtilityRightAfterAReplyWaitsForTheReplyToEnd)
{
    startDaemon();
    auto utility = std::make_unique<CVHelperUtility>(environment());
    std::promise<std::optional<QString>> answer;
    utility->getVersion([&answer](std::optional<QString> version) {
        answer.set_value(version);
        // Holds the connection's thread inside the reply while the test destroys the utility.
        std::this_thread::sleep_for(100ms);
    });
    auto future = answer.get_future();
    ASSERT_EQ(future.wait_for(5s), std::future_status::ready);
    EXPECT_EQ(future.get(), u"1.0"_s);
    utility.reset();
}

TEST_F(HelperClientTest, MissingDaemonAnswersNullOnceAndLogsConnectError)
{
    CVHelperUtility utility(environment());
    ReplyRecorder<QByteArray> lsof;
    utility.runLsofWithReply(lsof.callback());
    ASSERT_TRUE(lsof.waitForReply());
    ReplyRecorder<> version;
    utility.getVersion(version.callback());
    ASSERT_TRUE(version.waitForReply());
    std::this_thread::sleep_for(50ms);

    EXPECT_EQ(lsof.replies, (std::vector<std::optional<QByteArray>>{std::nullopt}));
    EXPECT_EQ(version.replies, (std::vector<std::optional<QString>>{std::nullopt}));
    EXPECT_EQ(utility.helperVersion(), std::nullopt);
    const QStringList messages = log();
    ASSERT_EQ(messages.size(), 2);
    for (const QString& message : messages)
        EXPECT_TRUE(message.startsWith(u"connect error "_s)) << message.toStdString();
}

// A refusal is final for this user: said once in the log with what to do, and no more
// connections (nor log lines) until it is forgotten.
TEST_F(HelperClientTest, ARefusedUserIsToldOnceAndNotAskedAgain)
{
    RefusingDaemon daemon(m_socket);
    // Outlive the utility: a reply may still be finishing on the connection's thread when the
    // test has its answer.
    std::vector<std::unique_ptr<ReplyRecorder<QByteArray>>> recorders;
    CVHelperUtility utility(environment());
    const auto ask = [&utility, &recorders] {
        recorders.push_back(std::make_unique<ReplyRecorder<QByteArray>>());
        ReplyRecorder<QByteArray>& lsof = *recorders.back();
        utility.runLsofWithReply(lsof.callback());
        ASSERT_TRUE(lsof.waitForReply());
        std::lock_guard guard(lsof.lock);
        EXPECT_EQ(lsof.replies, (std::vector<std::optional<QByteArray>>{std::nullopt}));
    };
    ask();
    ASSERT_TRUE(utility.refusal()) << log().join(u'\n').toStdString();
    EXPECT_NE(utility.refusal()->indexOf(u"refused this user"_s), -1);
    ask();
    ask();
    EXPECT_EQ(daemon.connections(), 1);
    ASSERT_EQ(log().size(), 1);
    EXPECT_TRUE(log().first().startsWith(u"connect error the helper refused this user"_s));
    EXPECT_NE(log().first().indexOf(u"group corvina"_s), -1) << log().first().toStdString();

    // Once forgotten (the settings changed), the daemon is asked again; the log says no more.
    utility.forgetRefusal();
    EXPECT_FALSE(utility.refusal());
    QCoreApplication::processEvents();
    ask();
    EXPECT_EQ(daemon.connections(), 2);
    EXPECT_TRUE(utility.refusal());
    EXPECT_EQ(log().size(), 1);
}

TEST_F(HelperClientTest, DaemonKilledMidRequestGivesOneNullThenReconnects)
{
    startDaemon("sleep 5; echo late");
    CVHelperUtility utility(environment());
    const auto firstConnection = utility.connectToHelperTool();

    ReplyRecorder<QByteArray> lsof;
    utility.runLsofWithReply(lsof.callback());
    std::this_thread::sleep_for(200ms);
    m_daemon.kill();
    ASSERT_TRUE(lsof.waitForReply(3s));
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(lsof.replies, (std::vector<std::optional<QByteArray>>{std::nullopt}));
    EXPECT_TRUE(firstConnection->isInvalidated());
    ASSERT_FALSE(log().isEmpty());
    EXPECT_TRUE(log().first().startsWith(u"connect error "_s));

    // The next request goes through a new connection to the restarted daemon.
    startDaemon();
    QCoreApplication::processEvents();
    ReplyRecorder<QByteArray> again;
    utility.runLsofWithReply(again.callback());
    ASSERT_TRUE(again.waitForReply());
    EXPECT_EQ(again.replies.at(0), QByteArray("COMMAND\n"));
    EXPECT_NE(utility.connectToHelperTool(), firstConnection);
}

TEST_F(HelperClientTest, InstallOfferIsMadeOncePerBundledVersion)
{
    const std::string record = m_dir + "/installer-calls";
    // Records its arguments and fails as a cancelled password dialog does.
    const std::string installer = script("fake-pkexec", "echo \"$@\" >> " + record + "\nexit 126");
    const auto calls = [&] {
        std::ifstream in(record);
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);)
            lines.push_back(line);
        return lines;
    };

    struct Case {
        const char* name;
        std::optional<QString> stored;
        std::size_t expectedCalls;
    };
    const std::vector<Case> cases = {
        {"never offered", std::nullopt, 1},
        {"offered for an older version", u"0.9"_s, 1},
        {"already offered for this version", u"1.0"_s, 0},
    };
    const QString key = u"OVLastCheckedHelperVersion.com.brindle.Corvina.Helper"_s;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        fs::remove(record);
        QMap<QString, QString> store;
        if (c.stored)
            store.insert(key, *c.stored);
        auto env = environment();
        env.offerInstall = true;
        env.elevateProgram = QString::fromStdString(installer);
        env.helperExecutable = u"/opt/corvina-helper"_s;
        env.settings.read = [&](const QString& k) { return store.value(k); };
        env.settings.write = [&](const QString& k, const QString& v) { store.insert(k, v); };
        CVHelperUtility utility(env);
        EXPECT_TRUE(calls().empty()) << "the offer waits for the event loop";
        QCoreApplication::processEvents();
        EXPECT_EQ(calls().size(), c.expectedCalls);
        if (c.expectedCalls == 1) {
            EXPECT_EQ(calls().at(0), "/opt/corvina-helper --install");
            ASSERT_FALSE(log().isEmpty());
            EXPECT_TRUE(log().last().startsWith(u"install helper failed "_s));
        }
        EXPECT_EQ(store.value(key), u"1.0"_s);
    }
}

TEST_F(HelperClientTest, InstallReplacesTheConnectionAndRemoveChangesNothing)
{
    startDaemon();
    auto env = environment();
    env.elevateProgram = u"/bin/true"_s;
    int probes = 0;
    env.installedProbe = [&probes] {
        ++probes;
        return true;
    };
    CVHelperUtility utility(env);
    const auto before = utility.connectToHelperTool();
    EXPECT_TRUE(utility.installHelper());
    EXPECT_TRUE(before->isInvalidated());
    EXPECT_NE(utility.connectToHelperTool(), before);

    EXPECT_TRUE(utility.removeHelper());
    EXPECT_TRUE(utility.checkHelperInstalled());
    EXPECT_EQ(probes, 1);
    ReplyRecorder<> version;
    utility.getVersion(version.callback());
    ASSERT_TRUE(version.waitForReply());
    EXPECT_EQ(version.replies.at(0), u"1.0"_s);
}

TEST_F(HelperClientTest, AuthorizationFormNamesThisProcess)
{
    CVHelperUtility utility(environment());
    const QByteArray form = utility.authorization();
    ASSERT_EQ(form.size(), 32);
    const auto decoded = AuthorizationForm::fromBytes(
        reinterpret_cast<const std::uint8_t*>(form.constData()), std::size_t(form.size()));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->pid, std::uint32_t(::getpid()));
    EXPECT_EQ(decoded->uid, std::uint32_t(::getuid()));
    EXPECT_EQ(decoded->startTime, AuthorizationForm::processStartTime(::getpid()));
}

TEST(HelperUtilityBase, MissingSubclassOperationsRaiseTheirNames)
{
    OVPrivilegeUtilityBase::Environment env;
    env.offerInstall = false;
    OVPrivilegeUtilityBase base(env);
    try {
        base.helperToolServiceName();
        FAIL() << "no exception";
    } catch (const PrivilegeUtilityException& e) {
        EXPECT_EQ(e.name(), u"Must specified the helper tool class"_s);
    }
    try {
        base.bundledHelperVersion();
        FAIL() << "no exception";
    } catch (const PrivilegeUtilityException& e) {
        EXPECT_EQ(e.name(), u"bundledHelperVersion not implemented"_s);
    }
}

} // namespace

#include "daemonprocess.h"

#include "privileged/framedsocket.h"
#include "privileged/helperprotocol.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace std::chrono_literals;

namespace {

constexpr int kEndpoint = 1;
constexpr int kVersion = 2;
constexpr int kRunLsof = 3;
constexpr int kRunCollector = 4;

class HelperDaemonTest : public DaemonTest {
protected:
    void startDaemon(std::vector<std::string> arguments = {})
    {
        arguments.insert(arguments.end(),
                         {"--allow-uid", std::to_string(::getuid()), "--request-timeout", "300"});
        ASSERT_TRUE(m_daemon.start(m_socket, arguments));
    }
};

TEST_F(HelperDaemonTest, AnswersEveryOperation)
{
    // The fake prints what it was given: its arguments, its environment and its file limit.
    const std::string lsof = script("lsof", "echo \"$@\"; env | sort; ulimit -n");
    // The daemon inherits our limit; raise it so that seeing 1024 in the child proves the cut.
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
    ::setenv("CORVINA_TEST_LEAK", "1", 1);
    startDaemon({"--lsof", lsof});
    ::unsetenv("CORVINA_TEST_LEAK");

    const auto endpoint = rawRequest(m_socket, requestBytes(kEndpoint));
    ASSERT_TRUE(endpoint);
    EXPECT_EQ(endpoint->operation, kEndpoint);
    EXPECT_EQ(endpoint->status, kStatusText);
    EXPECT_EQ(endpoint->text, m_socket);

    const auto version = rawRequest(m_socket, requestBytes(kVersion));
    ASSERT_TRUE(version);
    EXPECT_EQ(version->status, kStatusText);
    EXPECT_EQ(version->text, "1.0");

    const auto lsofReply = rawRequest(m_socket, requestBytes(kRunLsof));
    ASSERT_TRUE(lsofReply);
    ASSERT_EQ(lsofReply->status, kStatusText);
    EXPECT_EQ(lsofReply->text.substr(0, lsofReply->text.find('\n')), "-i -n -P +c 0");
    EXPECT_EQ(lsofReply->text.find("CORVINA_TEST_LEAK"), std::string::npos)
        << "the child must not inherit the daemon's environment";
    EXPECT_EQ(lsofReply->text.find("HOME="), std::string::npos);
    EXPECT_NE(lsofReply->text.find("\n1024\n"), std::string::npos) << lsofReply->text;
}

TEST_F(HelperDaemonTest, ServesSeveralRequestsOnOneConnectionInOrder)
{
    startDaemon();
    const std::string three =
        requestBytes(kVersion) + requestBytes(kEndpoint) + requestBytes(kVersion);
    std::string error;
    FramedSocket socket = FramedSocket::connectTo(m_socket, &error);
    ASSERT_TRUE(socket.isValid()) << error;
    const auto deadline = FramedSocket::Clock::now() + 5s;
    socket.writeRaw(reinterpret_cast<const std::uint8_t*>(three.data()), three.size(), deadline);
    std::vector<int> operations;
    std::vector<std::uint8_t> payload;
    while (socket.readFrame(payload, 1024, deadline) == FramedSocket::Result::Ok)
        operations.push_back(payload.at(1));
    EXPECT_EQ(operations, (std::vector<int>{kVersion, kEndpoint, kVersion}));
}

// Only a run that ends of itself with valid text answers text (empty when lsof printed
// nothing and exited 1, as it does on a machine without sockets); every other run gives null.
TEST_F(HelperDaemonTest, LsofFailuresGiveNull)
{
    struct Case {
        const char* name;
        std::string lsof;
        int status;
    };
    const std::vector<Case> cases = {
        {"no output, exit 1", script("quiet", "exit 1"), kStatusText},
        {"missing program", m_dir + "/no-such-lsof", kStatusNull},
        {"not UTF-8", script("bad-utf8", "printf 'COMMAND\\377\\376\\n'"), kStatusNull},
        {"hangs past the bound", script("hang", "echo partial; exec sleep 30"), kStatusNull},
        {"killed by a signal", script("crash", "echo partial; kill -9 $$"), kStatusNull},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DaemonProcess daemon;
        ASSERT_TRUE(daemon.start(m_socket, {"--allow-uid", std::to_string(::getuid()), "--lsof",
                                            c.lsof, "--lsof-timeout", "300"}));
        const auto reply = rawRequest(m_socket, requestBytes(kRunLsof));
        ASSERT_TRUE(reply);
        EXPECT_EQ(reply->status, c.status);
        EXPECT_EQ(reply->text, "");
        // Still serving after the failure.
        const auto version = rawRequest(m_socket, requestBytes(kVersion));
        ASSERT_TRUE(version);
        EXPECT_EQ(version->text, "1.0");
        EXPECT_EQ(daemon.stop(), 0);
    }
}

TEST_F(HelperDaemonTest, RefusesPeersOutsideItsPolicy)
{
    ASSERT_TRUE(m_daemon.start(m_socket, {}));
    // A peer that is neither root, nor in the group, nor allowed by uid.
    const auto ask = [this] {
        const auto reply = rawRequest(m_socket, requestBytes(kVersion));
        return reply ? reply->status : -1;
    };
    const int status = ::getuid() == 0 ? asNobody(ask) : ask();
    if (status == -2)
        GTEST_SKIP() << "no user 'nobody' to act as a stranger";
    // Root and the uids named with --allow-uid are served: every other test here relies on it.
    EXPECT_EQ(status, kStatusRefused);
}

TEST_F(HelperDaemonTest, RejectsMalformedRequestsAndStaysUp)
{
    startDaemon();
    // What the decoder refuses is covered by its own tests; here, that a refusal is answered.
    const std::pair<const char*, std::string> cases[] = {
        {"request with extra bytes", std::string("\0\0\0\3\1\2\0", 7)},
        {"empty frame", std::string("\0\0\0\0", 4)},
        {"frame claiming gigabytes", std::string("\xff\xff\xff\xf0", 4)},
        {"garbage", std::string("\x41\x00\x13\x37GET / HTTP/1.0\r\n\r\n", 22)},
    };
    for (const auto& [name, bytes] : cases) {
        SCOPED_TRACE(name);
        const auto reply = rawRequest(m_socket, bytes, 2s);
        ASSERT_TRUE(reply);
        EXPECT_EQ(reply->status, kStatusBadRequest);
    }
    const auto version = rawRequest(m_socket, requestBytes(kVersion));
    ASSERT_TRUE(version);
    EXPECT_EQ(version->text, "1.0");
}

TEST_F(HelperDaemonTest, HalfAFrameThenSilenceIsClosedByTheReadTimeOut)
{
    startDaemon();
    std::string error;
    FramedSocket socket = FramedSocket::connectTo(m_socket, &error);
    ASSERT_TRUE(socket.isValid());
    const std::string half = requestBytes(kVersion).substr(0, 5);
    socket.writeRaw(reinterpret_cast<const std::uint8_t*>(half.data()), half.size(),
                    FramedSocket::Clock::now() + 1s);
    std::vector<std::uint8_t> payload;
    // The daemon's time-out is 300 ms here; far sooner than our own patience.
    EXPECT_EQ(socket.readFrame(payload, 1024, FramedSocket::Clock::now() + 5s),
              FramedSocket::Result::Closed);
}

TEST_F(HelperDaemonTest, SurvivesAClientThatLeavesMidReply)
{
    // About 8 MiB: more than the socket buffers hold, so the daemon is still writing.
    startDaemon({"--lsof", script("big", "head -c 8388608 /dev/zero | tr '\\0' x")});
    for (int i = 0; i < 3; ++i) {
        std::string error;
        FramedSocket socket = FramedSocket::connectTo(m_socket, &error);
        const std::string request = requestBytes(kRunLsof);
        socket.writeRaw(reinterpret_cast<const std::uint8_t*>(request.data()), request.size(),
                        FramedSocket::Clock::now() + 1s);
        std::uint8_t first[16];
        ASSERT_GT(::recv(socket.fd(), first, sizeof(first), MSG_WAITALL), 0);
    }
    const auto reply = rawRequest(m_socket, requestBytes(kRunLsof));
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->text.size(), 8388608u);
}

TEST_F(HelperDaemonTest, StopsOnSigtermAfterAnsweringTheRequestInFlight)
{
    startDaemon({"--lsof", script("slow", "sleep 0.4; echo done")});
    std::string error;
    FramedSocket idle = FramedSocket::connectTo(m_socket, &error);
    auto inFlight = std::async(std::launch::async,
                               [this] { return rawRequest(m_socket, requestBytes(kRunLsof)); });
    std::this_thread::sleep_for(150ms);
    ::kill(m_daemon.pid(), SIGTERM);
    const auto reply = inFlight.get();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->text, "done\n");
    EXPECT_EQ(m_daemon.stop(), 0);
    EXPECT_FALSE(fs::exists(m_socket)) << "its own socket file is removed on the way out";
}

// More clients than the daemon's connection cap: the rest wait in the listen backlog (root has
// no share of its own to exhaust) or are turned away busy and ask again, and all are served.
TEST_F(HelperDaemonTest, ServesAHundredClientsAtOnce)
{
    startDaemon();
    constexpr int kClients = 100;
    std::atomic<int> answered{0};
    std::vector<std::thread> clients;
    for (int i = 0; i < kClients; ++i) {
        clients.emplace_back([&] {
            const auto reply = rawRequestServed(m_socket, requestBytes(kVersion), 10s);
            if (reply && reply->text == "1.0")
                ++answered;
        });
    }
    for (std::thread& client : clients)
        client.join();
    EXPECT_EQ(answered.load(), kClients);
}

// However many clients ask at once, one lsof (or corvina-sockets) runs at a time and its text
// answers every request that arrived before it started: twenty clients cost a handful of runs,
// not twenty parallel root processes.
TEST_F(HelperDaemonTest, ConcurrentRequestsShareRunsThatNeverOverlap)
{
    const std::string program = script(
        "counting", "dir=$(dirname \"$0\")\n"
                    "mkdir \"$dir/running\" 2>/dev/null || echo overlap >> \"$dir/overlaps\"\n"
                    "echo run >> \"$dir/runs\"\n"
                    "sleep 0.2\n"
                    "rmdir \"$dir/running\"\n"
                    "echo 'COMMAND PID USER'");
    for (const auto& [operation, option] :
         {std::pair{kRunLsof, "--lsof"}, std::pair{kRunCollector, "--sockets-program"}}) {
        SCOPED_TRACE(option);
        fs::remove(m_dir + "/runs");
        DaemonProcess daemon;
        ASSERT_TRUE(
            daemon.start(m_socket, {"--allow-uid", std::to_string(::getuid()), option, program}));
        constexpr int kClients = 20;
        std::atomic<int> answered{0};
        std::vector<std::thread> clients;
        for (int i = 0; i < kClients; ++i) {
            clients.emplace_back([&, operation = operation] {
                const auto reply = rawRequestServed(m_socket, requestBytes(operation), 10s);
                if (reply && reply->status == kStatusText && reply->text == "COMMAND PID USER\n")
                    ++answered;
            });
        }
        for (std::thread& client : clients)
            client.join();
        EXPECT_EQ(answered.load(), kClients);
        EXPECT_FALSE(fs::exists(m_dir + "/overlaps")) << "two runs overlapped";
        std::ifstream runs(m_dir + "/runs");
        int count = 0;
        for (std::string line; std::getline(runs, line);)
            ++count;
        EXPECT_GE(count, 1);
        EXPECT_LT(count, kClients / 2) << "requests that waited together share one run";
        EXPECT_EQ(daemon.stop(), 0);
    }
}

TEST(HelperDaemonCommandLine, RejectsTestOptionsWithoutItsOwnSocket)
{
    for (const char* option :
         {"--lsof", "--sockets-program", "--allow-uid", "--request-timeout", "--idle-timeout",
          "--lsof-timeout", "--sockets-timeout", "--max-connections", "--max-per-peer"}) {
        SCOPED_TRACE(option);
        EXPECT_EQ(DaemonProcess::runToCompletion({option, "1"}), 2);
    }
    EXPECT_EQ(DaemonProcess::runToCompletion({"--allow-uid", "me", "--socket", "/tmp/x"}), 2);
    EXPECT_EQ(DaemonProcess::runToCompletion({"--max-per-peer", "0", "--socket", "/tmp/x"}), 2);
    EXPECT_EQ(DaemonProcess::runToCompletion({"--bogus"}), 2);
    // Outside systemd there is no socket to take over.
    EXPECT_EQ(DaemonProcess::runToCompletion({}), 2);
}

using HelperDaemonInstall = DaemonTest;

TEST_F(HelperDaemonInstall, StagesTheDaemonUnitsAndPolicy)
{
    const fs::path root = m_dir;
    ASSERT_EQ(DaemonProcess::runToCompletion({"--install", "--destdir", root.string()}), 0);
    const fs::path executables = fs::path(DaemonProcess::executable()).parent_path();
    for (const char* name : {"corvina-helper", "corvina-sockets"}) {
        const fs::path binary = root / "usr/local/libexec/corvina" / name;
        ASSERT_TRUE(fs::exists(binary)) << name;
        EXPECT_EQ(fs::file_size(binary), fs::file_size(executables / name));
        EXPECT_NE(fs::status(binary).permissions() & fs::perms::owner_exec, fs::perms::none);
    }
    const auto read = [](const fs::path& path) {
        std::ifstream in(path);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    };
    const std::string service =
        read(root / "etc/systemd/system/com.brindle.Corvina.Helper.service");
    EXPECT_NE(service.find("ExecStart=/usr/local/libexec/corvina/corvina-helper\n"),
              std::string::npos);
    EXPECT_NE(service.find("NoNewPrivileges=yes"), std::string::npos);
    const std::string socket = read(root / "etc/systemd/system/com.brindle.Corvina.Helper.socket");
    EXPECT_NE(socket.find("ListenStream=/run/com.brindle.Corvina.Helper.sock\n"),
              std::string::npos);
    EXPECT_TRUE(fs::exists(root / "usr/share/polkit-1/actions/com.brindle.Corvina.Helper.policy"));

    if (::geteuid() != 0) {
        EXPECT_EQ(DaemonProcess::runToCompletion({"--install"}), 1) << "only root installs";
    }
}

} // namespace

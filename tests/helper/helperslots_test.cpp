#include "daemonprocess.h"

#include "privileged/framedsocket.h"
#include "privileged/helperprotocol.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <poll.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using HelperProtocol::kMaxConnections;
using HelperProtocol::kMaxConnectionsPerPeer;
using HelperProtocol::kRootReservedConnections;

namespace {

constexpr int kVersion = 2;
constexpr int kStatusText = 1;
constexpr int kStatusBusy = 4;

// How many of `sockets` the daemon turned away busy. Waits for `expected` of them (the daemon
// answers in the order it accepts, which is the order of connecting), then takes whatever else
// has arrived by then.
int countBusy(std::vector<FramedSocket>& sockets, int expected)
{
    std::vector<bool> answered(sockets.size(), false);
    int busy = 0;
    const auto sweep = [&](int waitMs) {
        std::vector<pollfd> entries;
        for (std::size_t i = 0; i < sockets.size(); ++i)
            entries.push_back({answered[i] ? -1 : sockets[i].fd(), POLLIN, 0});
        if (::poll(entries.data(), entries.size(), waitMs) <= 0)
            return;
        for (std::size_t i = 0; i < sockets.size(); ++i) {
            if (entries[i].revents == 0)
                continue;
            answered[i] = true;
            std::vector<std::uint8_t> payload;
            if (sockets[i].readFrame(payload, 64, FramedSocket::Clock::now() + 1s) ==
                    FramedSocket::Result::Ok &&
                payload.size() >= 3 && payload[2] == kStatusBusy)
                ++busy;
        }
    };
    const auto deadline = FramedSocket::Clock::now() + 5s;
    while (busy < expected && FramedSocket::Clock::now() < deadline)
        sweep(50);
    sweep(0);
    return busy;
}

// `count` connections that never send a request, opened one after the other by a child
// process running as `uid` and held until this object goes away.
class SilentClients {
public:
    SilentClients(const std::string& socketPath, uid_t uid, int count, int expectedBusy)
    {
        int result[2];
        int release[2];
        if (::pipe(result) != 0 || ::pipe(release) != 0)
            return;
        m_child = ::fork();
        if (m_child == 0) {
            // Only its own pipe ends: another holder's release end kept open here would keep
            // that holder's child waiting for ever.
            const unsigned low = unsigned(std::min(result[1], release[0]));
            const unsigned high = unsigned(std::max(result[1], release[0]));
            ::close_range(3, low - 1, 0);
            ::close_range(low + 1, high - 1, 0);
            ::close_range(high + 1, ~0U, 0);
            if (uid != ::getuid() && (::setgid(uid) != 0 || ::setuid(uid) != 0))
                ::_exit(1);
            std::vector<FramedSocket> sockets;
            for (int i = 0; i < count; ++i) {
                std::string error;
                sockets.push_back(FramedSocket::connectTo(socketPath, &error));
            }
            const int busy = countBusy(sockets, expectedBusy);
            [[maybe_unused]] const ssize_t written = ::write(result[1], &busy, sizeof busy);
            char ignored = 0;
            [[maybe_unused]] const ssize_t got = ::read(release[0], &ignored, 1);
            ::_exit(0);
        }
        ::close(result[1]);
        ::close(release[0]);
        m_release = release[1];
        if (m_child < 0 || ::read(result[0], &m_busy, sizeof m_busy) != sizeof m_busy)
            m_busy = -1;
        ::close(result[0]);
    }
    ~SilentClients()
    {
        if (m_release >= 0)
            ::close(m_release);
        if (m_child > 0)
            ::waitpid(m_child, nullptr, 0);
    }
    SilentClients(const SilentClients&) = delete;
    SilentClients& operator=(const SilentClients&) = delete;

    int busy() const { return m_busy; }

private:
    pid_t m_child = -1;
    int m_release = -1;
    int m_busy = -1;
};

class HelperSlotsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/corvina-slots-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        m_dir = pattern;
        // Reachable by the other users the tests act as.
        ::chmod(m_dir.c_str(), 0755);
        m_socket = m_dir + "/helper.sock";
    }
    void TearDown() override
    {
        if (m_daemon.isRunning()) {
            EXPECT_EQ(m_daemon.stop(), 0);
        }
        fs::remove_all(m_dir);
    }

    std::string m_dir;
    std::string m_socket;
    DaemonProcess m_daemon;
};

uid_t nobody()
{
    const passwd* entry = ::getpwnam("nobody");
    return entry != nullptr ? entry->pw_uid : 65534;
}

} // namespace

// Silent clients are never closed for idleness here, so whoever is served is served because a
// slot was free: one user holds its share, the next connection of it is turned away busy at
// once, and root is served however many users hold what they may.
TEST_F(HelperSlotsTest, OneUserHoldsOnlyItsShareAndRootIsAlwaysServed)
{
    const bool root = ::getuid() == 0;
    // Root has no share to exhaust: the flood comes from another user when we are root.
    std::vector<uid_t> users = {root ? nobody() : ::getuid(), 1, 2, 3, 4};
    std::vector<std::string> arguments = {"--idle-timeout", "60000"};
    for (uid_t uid : users)
        arguments.insert(arguments.end(), {"--allow-uid", std::to_string(uid)});
    ASSERT_TRUE(m_daemon.start(m_socket, arguments));

    constexpr int kFlood = 40;
    const int share = int(kMaxConnectionsPerPeer);
    SilentClients flood(m_socket, users[0], kFlood, kFlood - share);
    EXPECT_EQ(flood.busy(), kFlood - share);
    SilentClients oneMore(m_socket, users[0], 1, 1);
    EXPECT_EQ(oneMore.busy(), 1);
    if (!root)
        GTEST_SKIP() << "acting as other users, and root's slots, need root";

    // Three more users take what is left of the slots others than root may hold.
    const int shared = int(kMaxConnections - kRootReservedConnections);
    std::vector<std::unique_ptr<SilentClients>> others;
    int held = share;
    for (std::size_t i = 1; i < 4; ++i) {
        const int expected = std::min(share, shared - held);
        others.push_back(
            std::make_unique<SilentClients>(m_socket, users[i], kFlood, kFlood - expected));
        EXPECT_EQ(others.back()->busy(), kFlood - expected) << "user " << users[i];
        held += expected;
    }
    ASSERT_EQ(held, shared);
    SilentClients latecomer(m_socket, users[4], 1, 1);
    EXPECT_EQ(latecomer.busy(), 1) << "only root's slots are left";

    const auto reply = rawRequest(m_socket, requestBytes(kVersion), 5s);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->status, kStatusText);
}

// A connection that says nothing, at first or after a reply, is closed by the idle time-out
// (300 ms here, far within the 5 s the reads below wait).
TEST_F(HelperSlotsTest, AConnectionIdleBetweenRequestsIsClosed)
{
    ASSERT_TRUE(m_daemon.start(
        m_socket, {"--allow-uid", std::to_string(::getuid()), "--idle-timeout", "300"}));
    std::string error;
    FramedSocket silent = FramedSocket::connectTo(m_socket, &error);
    FramedSocket served = FramedSocket::connectTo(m_socket, &error);
    ASSERT_TRUE(silent.isValid() && served.isValid()) << error;
    const std::string request = requestBytes(kVersion);
    ASSERT_EQ(served.writeRaw(reinterpret_cast<const std::uint8_t*>(request.data()), request.size(),
                              FramedSocket::Clock::now() + 1s),
              FramedSocket::Result::Ok);
    std::vector<std::uint8_t> payload;
    ASSERT_EQ(served.readFrame(payload, 64, FramedSocket::Clock::now() + 5s),
              FramedSocket::Result::Ok);
    EXPECT_EQ(served.readFrame(payload, 64, FramedSocket::Clock::now() + 5s),
              FramedSocket::Result::Closed);
    EXPECT_EQ(silent.readFrame(payload, 64, FramedSocket::Clock::now() + 5s),
              FramedSocket::Result::Closed);
}

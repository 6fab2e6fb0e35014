#include "daemonprocess.h"
#include "silentclients.h"

#include "privileged/helperprotocol.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <pwd.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using HelperProtocol::kMaxConnections;
using HelperProtocol::kMaxConnectionsPerPeer;
using HelperProtocol::kRootReservedConnections;

namespace {

constexpr int kVersion = 2;

using HelperSlotsTest = DaemonTest;

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

// The daemon's collect and close requests, served by the real daemon process.

#include "daemonprocess.h"
#include "loopbackconnection.h"

#include "privileged/helperprotocol.h"

#include <gtest/gtest.h>

#include <pwd.h>
#include <unistd.h>

using HelperProtocol::Operation;

namespace {

constexpr int kCollect = static_cast<int>(Operation::RunCollector);

std::string closeBytes(const SocketIdentity& socket)
{
    const std::vector<std::uint8_t> payload =
        HelperProtocol::encodeRequest({Operation::CloseConnection, socket});
    std::string bytes(4, '\0');
    HelperProtocol::putLength(reinterpret_cast<std::uint8_t*>(bytes.data()),
                              static_cast<std::uint32_t>(payload.size()));
    return bytes + std::string(payload.begin(), payload.end());
}

// Whether data still travels from the client to the server: the connection is open.
bool carriesData(const LoopbackConnection& connection)
{
    char byte = 0;
    pollfd entry{connection.server, POLLIN, 0};
    return ::send(connection.client, "x", 1, MSG_NOSIGNAL) == 1 && ::poll(&entry, 1, 1000) == 1 &&
           ::recv(connection.server, &byte, 1, 0) == 1 && byte == 'x';
}

using CollectAndCloseTest = DaemonTest;

TEST_F(CollectAndCloseTest, CollectAnswersWhatCorvinaSocketsPrints)
{
    LoopbackConnection connection;
    ASSERT_TRUE(connection.isOpen());
    const SocketIdentity socket = LoopbackConnection::identityOf(connection.client);
    ASSERT_TRUE(
        m_daemon.start(m_socket, {"--allow-uid", std::to_string(::getuid()), "--sockets-program",
                                  CORVINA_BINARY_DIR "/src/helper/corvina-sockets"}));
    const auto reply = rawRequest(m_socket, requestBytes(kCollect));
    ASSERT_TRUE(reply);
    ASSERT_EQ(reply->status, kStatusText);
    EXPECT_EQ(reply->text.rfind("COMMAND ", 0), 0u) << reply->text;
    const std::string name = "TCP 127.0.0.1:" + std::to_string(socket.localPort) +
                             "->127.0.0.1:" + std::to_string(socket.remotePort) +
                             " (ESTABLISHED)\n";
    EXPECT_NE(reply->text.find(name), std::string::npos) << reply->text;
    EXPECT_NE(reply->text.find("#corvina socket " + std::to_string(::getpid()) + " " +
                               std::to_string(connection.client) + "u "),
              std::string::npos);
    EXPECT_NE(reply->text.find(" cookie=" + std::to_string(socket.cookie)), std::string::npos);
}

TEST_F(CollectAndCloseTest, CollectRunsOnlyATrustworthyProgramAndGivesNullWhenItFails)
{
    struct Case {
        const char* name;
        std::string program;
        int status;
        std::string text;
    };
    const std::vector<Case> cases = {
        {"a good program, given no arguments", script("good", "echo \"COMMAND $#\""), kStatusText,
         "COMMAND 0\n"},
        {"missing", m_dir + "/no-such-program", kStatusNull, ""},
        {"changeable by others", script("open", "echo COMMAND", 0757), kStatusNull, ""},
        {"the kernel refused it", script("refused", "echo refused >&2; exit 1"), kStatusNull, ""},
        {"hangs past the bound", script("hang", "echo COMMAND; exec sleep 30"), kStatusNull, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DaemonProcess daemon;
        ASSERT_TRUE(
            daemon.start(m_socket, {"--allow-uid", std::to_string(::getuid()), "--sockets-program",
                                    c.program, "--sockets-timeout", "300"}));
        const auto reply = rawRequest(m_socket, requestBytes(kCollect));
        ASSERT_TRUE(reply);
        EXPECT_EQ(reply->status, c.status);
        EXPECT_EQ(reply->text, c.text);
        EXPECT_EQ(daemon.stop(), 0);
    }
}

TEST_F(CollectAndCloseTest, RootClosesAnyConnectionOthersOnlyTheirOwn)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "closing needs a daemon with CAP_NET_ADMIN; run the suite as root";
    const passwd* nobody = ::getpwnam("nobody");
    if (nobody == nullptr)
        GTEST_SKIP() << "no user 'nobody' to act as another user";
    ASSERT_TRUE(m_daemon.start(m_socket, {"--allow-uid", std::to_string(nobody->pw_uid)}));

    LoopbackConnection root;
    ASSERT_TRUE(root.isOpen());
    const SocketIdentity rootSocket = LoopbackConnection::identityOf(root.client);
    const int strangerStatus = asNobody([&] {
        const auto reply = rawRequest(m_socket, closeBytes(rootSocket));
        return reply && reply->text.rfind("not-permitted: process ", 0) == 0 ? 0 : 1;
    });
    EXPECT_EQ(strangerStatus, 0) << "nobody may not close root's connection";
    EXPECT_TRUE(carriesData(root));

    const auto byRoot = rawRequest(m_socket, closeBytes(rootSocket));
    ASSERT_TRUE(byRoot);
    if (byRoot->text == "not-supported")
        GTEST_SKIP() << "this kernel lacks CONFIG_INET_DIAG_DESTROY";
    EXPECT_EQ(byRoot->text, "closed");
    EXPECT_EQ(LoopbackConnection::readOutcome(root.server), ECONNRESET);
    const auto again = rawRequest(m_socket, closeBytes(rootSocket));
    ASSERT_TRUE(again);
    EXPECT_EQ(again->text, "already-gone");

    // A connection held by nobody's process alone is nobody's to close.
    LoopbackConnection owned;
    ASSERT_TRUE(owned.isOpen());
    const SocketIdentity ownedSocket = LoopbackConnection::identityOf(owned.client);
    const int ownerStatus = asNobody(
        [&] {
            const auto reply = rawRequest(m_socket, closeBytes(ownedSocket));
            return reply && reply->text == "closed" ? 0 : 1;
        },
        [&owned] {
            ::close(owned.client);
            owned.client = -1;
        });
    EXPECT_EQ(ownerStatus, 0);
    EXPECT_EQ(LoopbackConnection::readOutcome(owned.server), ECONNRESET);
}

} // namespace

#include "collector/nativecollector.h"
#include "collector/socketdestroyer.h"
#include "helper/loopbackconnection.h"
#include "livesockets.h"

#include <gtest/gtest.h>

#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using SocketDestroyer::Outcome;

namespace {

bool listed(pid_t pid, int fd)
{
    NativeCollector collector;
    return recordOf(collector.collect(), pid, fd) != nullptr;
}

} // namespace

TEST(SocketDestroyer, ClosesAConnectionAndResetsItsPeer)
{
    if (::geteuid() != 0)
        GTEST_SKIP() << "closing a connection needs CAP_NET_ADMIN; run the suite as root";
    for (const int family : {AF_INET, AF_INET6}) {
        SCOPED_TRACE(family == AF_INET ? "IPv4" : "IPv6");
        LoopbackConnection connection(family);
        ASSERT_TRUE(connection.isOpen());
        const SocketIdentity identity = LoopbackConnection::identityOf(connection.client);
        ASSERT_TRUE(listed(::getpid(), connection.client));

        SocketDestroyer::Result failure;
        const auto owner = SocketDestroyer::lookup(identity, &failure);
        ASSERT_TRUE(owner) << SocketDestroyer::describe(failure);
        EXPECT_EQ(owner->uid, ::geteuid());
        struct stat status {};
        ::fstat(connection.client, &status);
        EXPECT_EQ(owner->inode, status.st_ino);

        const SocketDestroyer::Result result = SocketDestroyer::destroy(identity);
        if (result.outcome == Outcome::NotSupported)
            GTEST_SKIP() << "this kernel lacks CONFIG_INET_DIAG_DESTROY";
        ASSERT_EQ(result.outcome, Outcome::Closed) << SocketDestroyer::describe(result);
        // The owner's socket is aborted; the peer got a reset, not an orderly end.
        EXPECT_EQ(LoopbackConnection::readOutcome(connection.client), ECONNABORTED);
        EXPECT_EQ(LoopbackConnection::readOutcome(connection.server), ECONNRESET);
        EXPECT_FALSE(listed(::getpid(), connection.client));
        EXPECT_EQ(SocketDestroyer::destroy(identity).outcome, Outcome::AlreadyGone);
    }
}

// A socket on the same endpoints with another cookie is another socket: it stays open.
TEST(SocketDestroyer, AWrongCookieClosesNothing)
{
    LoopbackConnection connection;
    ASSERT_TRUE(connection.isOpen());
    SocketIdentity identity = LoopbackConnection::identityOf(connection.client);
    identity.cookie += 1;
    const SocketDestroyer::Result result = SocketDestroyer::destroy(identity);
    // Unprivileged, the kernel looks the socket up before it checks the capability.
    EXPECT_EQ(result.outcome, Outcome::AlreadyGone) << SocketDestroyer::describe(result);
    SocketDestroyer::Result failure;
    EXPECT_FALSE(SocketDestroyer::lookup(identity, &failure));
    EXPECT_EQ(failure.outcome, Outcome::AlreadyGone);
    EXPECT_TRUE(listed(::getpid(), connection.client));
}

TEST(SocketDestroyer, RefusesWithoutCapNetAdmin)
{
    LoopbackConnection connection;
    ASSERT_TRUE(connection.isOpen());
    const SocketIdentity identity = LoopbackConnection::identityOf(connection.client);
    // Root tries from a child that has become nobody, and so lost every capability.
    const pid_t child = ::fork();
    if (child == 0) {
        const passwd* nobody = ::getpwnam("nobody");
        if (::geteuid() == 0 &&
            (nobody == nullptr || ::setgid(nobody->pw_gid) != 0 || ::setuid(nobody->pw_uid) != 0))
            ::_exit(100);
        ::_exit(static_cast<int>(SocketDestroyer::destroy(identity).outcome));
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 100)
        GTEST_SKIP() << "no user 'nobody' to drop to";
    EXPECT_EQ(WEXITSTATUS(status), static_cast<int>(Outcome::NotPermitted));
    EXPECT_EQ(SocketDestroyer::describe({Outcome::NotPermitted, {}}),
              "not permitted: closing a connection needs CAP_NET_ADMIN");
    EXPECT_TRUE(listed(::getpid(), connection.client));
}

TEST(SocketDestroyer, FieldsThatNameNoConnectionAreNotSent)
{
    LoopbackConnection connection;
    ASSERT_TRUE(connection.isOpen());
    const SocketIdentity good = LoopbackConnection::identityOf(connection.client);
    ASSERT_EQ(good.validationError(), "");
    const auto changed = [&good](auto change) {
        SocketIdentity identity = good;
        change(identity);
        return identity;
    };
    const std::vector<SocketIdentity> bad = {
        changed([](SocketIdentity& s) { s.family = AF_UNIX; }),
        changed([](SocketIdentity& s) { s.protocol = IPPROTO_UDP; }),
        changed([](SocketIdentity& s) { s.localAddress[7] = 1; }),
        changed([](SocketIdentity& s) { s.remoteAddress[15] = 1; }),
        changed([](SocketIdentity& s) { s.remoteAddress = {}; }),
        changed([](SocketIdentity& s) { s.localPort = 0; }),
        changed([](SocketIdentity& s) { s.remotePort = 0; }),
        changed([](SocketIdentity& s) { s.cookie = 0; }),
        // All ones would make the kernel skip the cookie check.
        changed([](SocketIdentity& s) { s.cookie = ~std::uint64_t(0); }),
    };
    for (std::size_t i = 0; i < bad.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(SocketDestroyer::destroy(bad[i]).outcome, Outcome::Invalid);
    }
    EXPECT_TRUE(listed(::getpid(), connection.client));
}

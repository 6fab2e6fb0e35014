#include "collector/inetdiagdecoder.h"
#include "collector/nativecollector.h"
#include "collector/netlinkdumper.h"
#include "livesockets.h"

#include <gtest/gtest.h>

#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <linux/tcp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>

namespace {

std::vector<DiagSocket> dumpAll(NetlinkDumper& dumper, const DiagQuery& query, int* error)
{
    std::vector<DiagSocket> sockets;
    *error = dumper.dump(query, [&](QByteArrayView message) {
        if (const auto decoded = InetDiagDecoder::decode(message, query.protocol); decoded.socket)
            sockets.push_back(*decoded.socket);
    });
    return sockets;
}

const DiagSocket* withInode(const std::vector<DiagSocket>& sockets, quint64 inode)
{
    for (const DiagSocket& socket : sockets) {
        if (socket.inode == inode)
            return &socket;
    }
    return nullptr;
}

} // namespace

TEST(NetlinkDumper, theKernelListsOurSocketsWithTheirTcpInfoAndCookie)
{
    LiveSockets sockets;
    const auto [client, accepted] = sockets.connectedPair(sockets.listener("::1"), "::1");
    const char data[1000] = {};
    ASSERT_EQ(write(client, data, sizeof(data)), ssize_t(sizeof(data)));
    char received[sizeof(data)];
    ASSERT_EQ(recv(accepted, received, sizeof(received), MSG_WAITALL), ssize_t(sizeof(data)));
    // Wait for the acknowledgement, so the figures stand still while we compare.
    tcp_info info{};
    for (int i = 0; i < 200 && info.tcpi_bytes_acked < sizeof(data); ++i) {
        socklen_t length = sizeof(info);
        getsockopt(client, IPPROTO_TCP, TCP_INFO, &info, &length);
        usleep(5000);
    }

    NetlinkDumper dumper;
    const auto query = NativeCollector::queries().at(3);
    ASSERT_EQ(query.family, AF_INET6);
    ASSERT_EQ(query.protocol, IPPROTO_TCP);
    int error = -1;
    const std::vector<DiagSocket> dumped = dumpAll(dumper, query, &error);
    EXPECT_EQ(error, 0);
    const DiagSocket* sender = withInode(dumped, LiveSockets::inode(client));
    ASSERT_TRUE(sender);
    EXPECT_EQ(sender->state, 1);
    EXPECT_EQ(sender->remotePort, LiveSockets::port(accepted));
    EXPECT_EQ(sender->bytesAcked, info.tcpi_bytes_acked);
    EXPECT_EQ(sender->rttMicroseconds, info.tcpi_rtt);
    quint64 cookie = 0;
    socklen_t length = sizeof(cookie);
    getsockopt(client, SOL_SOCKET, SO_COOKIE, &cookie, &length);
    EXPECT_EQ(sender->cookie, cookie);
    const DiagSocket* receiver = withInode(dumped, LiveSockets::inode(accepted));
    ASSERT_TRUE(receiver);
    EXPECT_EQ(receiver->bytesReceived, sizeof(data));

    // The socket stays open between dumps, and a second dump sees the same.
    EXPECT_EQ(dumpAll(dumper, query, &error).size(), dumped.size());
}

#if defined(__x86_64__)
// Under a seccomp filter that forbids netlink sockets, as a sandbox might install.
TEST(NetlinkDumper, aSeccompRefusalReachesTheCallerAsASentence)
{
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        sock_filter filter[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AUDIT_ARCH_X86_64, 1, 0),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_socket, 0, 3),
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[0])),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, AF_NETLINK, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        };
        sock_fprog program{sizeof(filter) / sizeof(filter[0]), filter};
        if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
            prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
            _exit(3);
        NativeCollector collector;
        const bool refused = collector.collect().isEmpty() &&
                             collector.refusal().contains(QLatin1StringView("permission denied"));
        _exit(refused ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}
#endif

#include "collector/nativecollector.h"
#include "collectorfakes.h"
#include "diagmessages.h"
#include "livesockets.h"
#include "support/records.h"

#include <gtest/gtest.h>

#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

using DiagMessages::encode;

namespace {

// A collector over a scripted kernel and a made-up /proc.
struct Rig {
    FakeProc proc;
    ScriptedDiagSource* diag = new ScriptedDiagSource;
    NativeCollector collector{{std::unique_ptr<SocketDiagSource>(diag), proc.root(), proc.clock()}};

    void dump(int family, int protocol, const QList<QByteArray>& messages, int error = 0)
    {
        diag->answer(family, protocol) = {messages, error};
    }
};

QString userName()
{
    const passwd* entry = getpwuid(getuid());
    return entry ? QString::fromLocal8Bit(entry->pw_name) : QString::number(getuid());
}

QStringList keys(const SocketRecords& records)
{
    QStringList list;
    for (const SocketRecord& record : records)
        list << record.processId + u'/' + record.fileDescriptor + u'/' + record.device;
    return list;
}

} // namespace

TEST(NativeCollector, givesOneRecordPerDescriptorInProcessThenDescriptorOrder)
{
    Rig rig;
    DiagSocket tcp =
        DiagMessages::ipv4(IPPROTO_TCP, 1, 501, "10.0.0.2", 51000, "198.51.100.7", 443);
    tcp.bytesAcked = 1001;
    tcp.bytesReceived = 20;
    tcp.rttMicroseconds = 1500;
    rig.dump(
        AF_INET, IPPROTO_TCP,
        {encode(tcp, DiagMessages::fullTcpInfo),
         encode(DiagMessages::ipv4(IPPROTO_TCP, 10, 502, "0.0.0.0", 80)),
         encode(DiagMessages::ipv4(IPPROTO_TCP, 6, 0, "10.0.0.2", 51001, "198.51.100.7", 443))});
    rig.dump(AF_INET6, IPPROTO_UDP,
             {encode(DiagMessages::ipv6(IPPROTO_UDP, 7, 601, "::1", 5353)),
              encode(DiagMessages::ipv6(IPPROTO_UDP, 7, 602, "::", 9))});
    // The listener is shared by two processes; 602 is held by no one, 999 is no socket we know.
    rig.proc.addProcess(20, "server");
    rig.proc.addSocket(20, 7, 502);
    rig.proc.addSocket(20, 4, 601);
    rig.proc.addProcess(3, "client");
    rig.proc.addSocket(3, 12, 501);
    rig.proc.addSocket(3, 5, 502);
    rig.proc.addSocket(3, 6, 999);

    const SocketRecords records = rig.collector.collect();
    EXPECT_TRUE(rig.collector.refusal().isEmpty());
    EXPECT_EQ(keys(records),
              (QStringList{u"3/5u/502"_s, u"3/12u/501"_s, u"20/4u/601"_s, u"20/7u/502"_s}));
    ASSERT_EQ(records.size(), 4);

    SocketRecord expected = socketRecord(u"client|3|%1|12u|IPv4|501|0t0|TCP|10.0.0.2|51000|"
                                         u"198.51.100.7|443|ESTABLISHED"_s.arg(userName()));
    expected.cookie = tcp.cookie;
    expected.bytesSent = 1001;
    expected.bytesReceived = 20;
    expected.rtt = 1.5;
    expected.identifier = u"3-IPv4-TCP-10.0.0.2:51000-198.51.100.7:443-501:12u"_s;
    EXPECT_EQ(records[1], expected);

    const SocketRecord& udp = records[2];
    EXPECT_EQ(udp.processName, u"server"_s);
    EXPECT_EQ(udp.type, u"IPv6"_s);
    EXPECT_EQ(udp.localAddress, u"[::1]"_s);
    EXPECT_TRUE(udp.remoteAddress.isNull() && udp.remotePort.isNull() && udp.state.isNull());
    EXPECT_TRUE(udp.cookie && !udp.bytesSent && !udp.rtt);
    EXPECT_EQ(records[3].state, u"LISTEN"_s);
    EXPECT_EQ(records[3].localAddress, u"*"_s);
}

TEST(NativeCollector, namesAreCutToTheWidestNameListed)
{
    Rig rig;
    rig.dump(AF_INET, IPPROTO_TCP,
             {encode(DiagMessages::ipv4(IPPROTO_TCP, 10, 1, "0.0.0.0", 1)),
              encode(DiagMessages::ipv4(IPPROTO_TCP, 10, 2, "0.0.0.0", 2))});
    rig.proc.addProcess(10, "\xc3\xa9"
                            "abc");
    rig.proc.addSocket(10, 3, 1);
    rig.proc.addProcess(11, "a b c d e f g h");
    rig.proc.addSocket(11, 3, 3);
    EXPECT_EQ(rig.collector.collect().at(0).processName, u"\\xc3"_s);

    // Once the wide name has a socket listed, the other shows whole.
    rig.proc.addSocket(11, 4, 2);
    rig.proc.run(11);
    const SocketRecords records = rig.collector.collect();
    ASSERT_EQ(records.size(), 2);
    EXPECT_EQ(records[0].processName, u"\\xc3\\xa9abc"_s);
    EXPECT_EQ(records[1].processName, u"a\\x20b\\x20c\\x20d\\x20e\\x20f\\x20g\\x20h"_s);
}

TEST(NativeCollector, aKernelThatRefusesGivesNoRecordsAndASentence)
{
    const struct {
        int family, protocol, error;
        QString says;
    } refusals[] = {
        {AF_INET, IPPROTO_TCP, EPERM, u"permission denied"_s},
        {AF_INET, IPPROTO_UDP, EPROTONOSUPPORT, u"cannot list UDP sockets"_s},
        {AF_INET6, IPPROTO_TCP, EBADMSG, u"Listing sockets through netlink failed"_s},
    };
    for (const auto& refusal : refusals) {
        Rig rig;
        rig.proc.addProcess(10, "p");
        rig.proc.addSocket(10, 3, 1);
        rig.dump(AF_INET, IPPROTO_TCP,
                 {encode(DiagMessages::ipv4(IPPROTO_TCP, 10, 1, "0.0.0.0", 1))});
        ASSERT_EQ(rig.collector.collect().size(), 1);

        // Answers already given do not make a partial list.
        auto& answer = rig.diag->answer(refusal.family, refusal.protocol);
        answer.error = refusal.error;
        EXPECT_TRUE(rig.collector.collect().isEmpty());
        EXPECT_TRUE(rig.collector.refusal().contains(refusal.says))
            << rig.collector.refusal().toStdString();

        answer.error = 0;
        EXPECT_EQ(rig.collector.collect().size(), 1);
        EXPECT_TRUE(rig.collector.refusal().isEmpty());
    }
}

TEST(NativeCollector, aKernelWithoutUdpLiteOrIpv6StillAnswers)
{
    Rig rig;
    rig.proc.addProcess(10, "p");
    rig.proc.addSocket(10, 3, 1);
    rig.dump(AF_INET, IPPROTO_TCP, {encode(DiagMessages::ipv4(IPPROTO_TCP, 10, 1, "0.0.0.0", 1))});
    rig.dump(AF_INET, IPPROTO_UDPLITE, {}, ENOENT);
    rig.dump(AF_INET6, IPPROTO_UDPLITE, {}, ENOENT);
    rig.dump(AF_INET6, IPPROTO_TCP, {}, EAFNOSUPPORT);
    rig.dump(AF_INET6, IPPROTO_UDP, {}, EAFNOSUPPORT);
    EXPECT_EQ(rig.collector.collect().size(), 1);
    EXPECT_TRUE(rig.collector.refusal().isEmpty());

    NativeCollector noProc({std::make_unique<ScriptedDiagSource>(), "/nonexistent/proc"});
    EXPECT_TRUE(noProc.collect().isEmpty());
    EXPECT_FALSE(noProc.refusal().isEmpty());
}

TEST(NativeCollector, malformedAnswersAreLeftOutAndCounted)
{
    Rig rig;
    const QByteArray good = encode(DiagMessages::ipv4(IPPROTO_TCP, 10, 1, "0.0.0.0", 1));
    const QByteArray otherFamily = encode(DiagMessages::ipv6(IPPROTO_TCP, 10, 2, "::", 2));
    QByteArray truncated = encode(DiagMessages::ipv4(IPPROTO_TCP, 10, 3, "0.0.0.0", 3));
    truncated.chop(8);
    rig.dump(AF_INET, IPPROTO_TCP, {truncated, good, otherFamily, QByteArray("junk")});
    rig.proc.addProcess(10, "p");
    for (int fd = 1; fd <= 3; ++fd)
        rig.proc.addSocket(10, fd + 2, quint64(fd));

    const SocketRecords records = rig.collector.collect();
    EXPECT_EQ(keys(records), QStringList{u"10/3u/1"_s});
    EXPECT_EQ(rig.collector.skippedMessages(), 3);
}

// A loopback transfer of a known size shows in the sender's bytes sent and the receiver's
// bytes received, within the kernel's accounting (the handshake's byte at most); a UDP socket
// has no figures at all.
TEST(NativeCollector, aTransferShowsInTheBytesOfBothEnds)
{
    LiveSockets sockets;
    const int listener = sockets.listener("127.0.0.1");
    const auto [client, server] = sockets.connectedPair(listener, "127.0.0.1");
    const int udp = sockets.datagram("127.0.0.1");
    constexpr qint64 size = 1 << 20;
    const std::vector<char> block(size, 'x');
    std::vector<char> sink(size);
    qint64 sent = 0, received = 0;
    while (received < size) {
        if (sent < size) {
            const ssize_t n =
                ::send(client, block.data() + sent, size_t(size - sent), MSG_DONTWAIT);
            sent += n > 0 ? n : 0;
        }
        const ssize_t n = ::recv(server, sink.data(), sink.size(), MSG_DONTWAIT);
        received += n > 0 ? n : 0;
    }
    ::usleep(50 * 1000); // the last acknowledgement

    NativeCollector collector;
    const SocketRecords records = collector.collect();
    ASSERT_TRUE(collector.refusal().isEmpty()) << collector.refusal().toStdString();
    const SocketRecord* from = recordOf(records, ::getpid(), client);
    const SocketRecord* to = recordOf(records, ::getpid(), server);
    const SocketRecord* datagram = recordOf(records, ::getpid(), udp);
    ASSERT_TRUE(from && to && datagram);
    ASSERT_TRUE(from->bytesSent && to->bytesReceived);
    EXPECT_GE(*from->bytesSent, size);
    EXPECT_LE(*from->bytesSent, size + 1);
    EXPECT_GE(*to->bytesReceived, size);
    EXPECT_LE(*to->bytesReceived, size + 1);
    EXPECT_EQ(from->bytesReceived, 0);
    EXPECT_TRUE(from->rtt);
    EXPECT_FALSE(datagram->bytesSent || datagram->bytesReceived || datagram->rtt);
}

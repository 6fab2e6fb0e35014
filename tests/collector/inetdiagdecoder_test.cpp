#include "collector/inetdiagdecoder.h"
#include "diagmessages.h"

#include <gtest/gtest.h>

#include <cstddef>

using DiagMessages::encode;

namespace {

DiagSocket established()
{
    DiagSocket socket = DiagMessages::ipv6(IPPROTO_TCP, 1, 4711, "::1", 40000, "::1", 443);
    socket.cookie = 0x1122334455667788ull;
    socket.bytesAcked = 1001;
    socket.bytesReceived = 5000000000ull;
    socket.rttMicroseconds = 1250;
    return socket;
}

nlattr* firstAttribute(QByteArray& message)
{
    return reinterpret_cast<nlattr*>(message.data() + MNL_NLMSG_HDRLEN + sizeof(inet_diag_msg));
}

} // namespace

TEST(InetDiagDecoder, decodesWhatTheKernelSendsAtAnyAlignment)
{
    const DiagSocket socket = established();
    const InetDiagDecoder::Result tcp =
        InetDiagDecoder::decode(encode(socket, DiagMessages::fullTcpInfo), IPPROTO_TCP);
    ASSERT_TRUE(tcp.socket) << tcp.error;
    EXPECT_EQ(*tcp.socket, socket);

    // tcp_info means nothing to a UDP answer; a UDP socket has no traffic figures.
    DiagSocket udp = DiagMessages::ipv4(IPPROTO_UDP, 7, 99, "0.0.0.0", 5353);
    const InetDiagDecoder::Result decoded =
        InetDiagDecoder::decode(encode(udp, DiagMessages::fullTcpInfo), IPPROTO_UDP);
    ASSERT_TRUE(decoded.socket);
    EXPECT_EQ(*decoded.socket, udp);
    EXPECT_FALSE(decoded.socket->bytesAcked || decoded.socket->rttMicroseconds);

    // Bytes at any alignment decode alike.
    QByteArray shifted = "x" + encode(socket, DiagMessages::fullTcpInfo);
    const auto result = InetDiagDecoder::decode(QByteArrayView(shifted).sliced(1), IPPROTO_TCP);
    ASSERT_TRUE(result.socket);
    EXPECT_EQ(*result.socket, socket);
}

TEST(InetDiagDecoder, anOlderKernelsShorterTcpInfoGivesWhatItHolds)
{
    const DiagSocket socket = established();
    const auto decode = [&](size_t length) {
        return *InetDiagDecoder::decode(encode(socket, int(length)), IPPROTO_TCP).socket;
    };
    const DiagSocket withRttOnly = decode(offsetof(tcp_info, tcpi_bytes_acked));
    EXPECT_EQ(withRttOnly.rttMicroseconds, 1250u);
    EXPECT_FALSE(withRttOnly.bytesAcked || withRttOnly.bytesReceived);
    const DiagSocket withAcked = decode(offsetof(tcp_info, tcpi_bytes_received));
    EXPECT_EQ(withAcked.bytesAcked, 1001u);
    EXPECT_FALSE(withAcked.bytesReceived);
    EXPECT_FALSE(decode(offsetof(tcp_info, tcpi_rtt) + 3).rttMicroseconds);
    EXPECT_FALSE(decode(0).rttMicroseconds);
}

TEST(InetDiagDecoder, refusesMalformedMessages)
{
    const QByteArray good = encode(established(), DiagMessages::fullTcpInfo);
    std::vector<std::pair<const char*, QByteArray>> cases;
    cases.emplace_back("empty", QByteArray());
    cases.emplace_back("header cut", good.left(10));
    cases.emplace_back("truncated", good.left(good.size() - 8));
    cases.emplace_back("fixed part cut", [&] {
        QByteArray m = good.left(MNL_NLMSG_HDRLEN + 40);
        reinterpret_cast<nlmsghdr*>(m.data())->nlmsg_len = m.size();
        return m;
    }());
    cases.emplace_back("an error answer", [&] {
        QByteArray m = good;
        reinterpret_cast<nlmsghdr*>(m.data())->nlmsg_type = NLMSG_ERROR;
        return m;
    }());
    cases.emplace_back("not internet", [&] {
        QByteArray m = good;
        m[MNL_NLMSG_HDRLEN] = char(AF_UNIX);
        return m;
    }());
    cases.emplace_back("attribute past the end", [&] {
        QByteArray m = good;
        firstAttribute(m)->nla_len = 0x4000;
        return m;
    }());
    cases.emplace_back("empty attribute", [&] {
        QByteArray m = good;
        firstAttribute(m)->nla_len = 0;
        return m;
    }());
    for (const auto& [what, message] : cases) {
        const InetDiagDecoder::Result result = InetDiagDecoder::decode(message, IPPROTO_TCP);
        EXPECT_FALSE(result.socket) << what;
        EXPECT_NE(result.error, nullptr) << what;
    }
}

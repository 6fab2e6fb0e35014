#pragma once

// Socket-dump answers made by hand, as the kernel lays them out: for scripted dumps in tests
// and for the fuzz target's round trip.

#include "collector/diagsocket.h"

#include <QByteArray>

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/inet_diag.h>
#include <linux/sock_diag.h>
#include <linux/tcp.h>
#include <netinet/in.h>

#include <cstring>

namespace DiagMessages {

// How much of struct tcp_info to attach: none, the whole, or the first `length` bytes (as an
// older kernel sends).
inline constexpr int noTcpInfo = -1;
inline constexpr int fullTcpInfo = int(sizeof(tcp_info));

// One answer of a dump describing `socket`.
inline QByteArray encode(const DiagSocket& socket, int tcpInfoLength = noTcpInfo)
{
    QByteArray buffer(MNL_SOCKET_BUFFER_SIZE, 0);
    nlmsghdr* header = mnl_nlmsg_put_header(buffer.data());
    header->nlmsg_type = SOCK_DIAG_BY_FAMILY;
    header->nlmsg_flags = NLM_F_MULTI;
    auto* fixed =
        static_cast<inet_diag_msg*>(mnl_nlmsg_put_extra_header(header, sizeof(inet_diag_msg)));
    fixed->idiag_family = socket.family;
    fixed->idiag_state = socket.state;
    fixed->id.idiag_sport = htons(socket.localPort);
    fixed->id.idiag_dport = htons(socket.remotePort);
    std::memcpy(fixed->id.idiag_src, socket.localAddress.data(), 16);
    std::memcpy(fixed->id.idiag_dst, socket.remoteAddress.data(), 16);
    fixed->id.idiag_cookie[0] = quint32(socket.cookie);
    fixed->id.idiag_cookie[1] = quint32(socket.cookie >> 32);
    fixed->idiag_inode = socket.inode;
    if (tcpInfoLength >= 0) {
        tcp_info info{};
        info.tcpi_rtt = socket.rttMicroseconds.value_or(0);
        info.tcpi_bytes_acked = socket.bytesAcked.value_or(0);
        info.tcpi_bytes_received = socket.bytesReceived.value_or(0);
        mnl_attr_put(header, INET_DIAG_INFO, size_t(tcpInfoLength), &info);
    }
    buffer.truncate(header->nlmsg_len);
    return buffer;
}

inline DiagSocket ipv4(quint8 protocol, quint8 state, quint32 inode, const char* local,
                       quint16 localPort, const char* remote = nullptr, quint16 remotePort = 0)
{
    DiagSocket socket;
    socket.family = AF_INET;
    socket.protocol = protocol;
    socket.state = state;
    socket.inode = inode;
    socket.cookie = 0x100000000ull + inode;
    inet_pton(AF_INET, local, socket.localAddress.data());
    socket.localPort = localPort;
    if (remote)
        inet_pton(AF_INET, remote, socket.remoteAddress.data());
    socket.remotePort = remotePort;
    return socket;
}

inline DiagSocket ipv6(quint8 protocol, quint8 state, quint32 inode, const char* local,
                       quint16 localPort, const char* remote = nullptr, quint16 remotePort = 0)
{
    DiagSocket socket = ipv4(protocol, state, inode, "0.0.0.0", localPort);
    socket.family = AF_INET6;
    inet_pton(AF_INET6, local, socket.localAddress.data());
    if (remote)
        inet_pton(AF_INET6, remote, socket.remoteAddress.data());
    socket.remotePort = remotePort;
    return socket;
}

} // namespace DiagMessages

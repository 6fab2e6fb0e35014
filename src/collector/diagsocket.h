#pragma once

#include "snapshot/socketrecord.h"

#include <QtGlobal>

#include <array>
#include <optional>

// One socket as the kernel's socket-diagnostics dump describes it, before any formatting.
struct DiagSocket {
    quint8 family = 0;   // AF_INET or AF_INET6
    quint8 protocol = 0; // IPPROTO_TCP, IPPROTO_UDP or IPPROTO_UDPLITE
    // The kernel's TCP state number; UDP sockets report 7 (unconnected) or 1 (connected).
    quint8 state = 0;
    quint16 localPort = 0; // host order
    quint16 remotePort = 0;
    // Network order; an IPv4 address fills the first four bytes.
    std::array<quint8, 16> localAddress{};
    std::array<quint8, 16> remoteAddress{};
    // 0 when no file holds the socket (time-wait, orphans, half-open requests).
    quint32 inode = 0;
    quint64 cookie = 0;
    // TCP, when the kernel's tcp_info is long enough to hold them.
    std::optional<quint64> bytesAcked;
    std::optional<quint64> bytesReceived;
    std::optional<quint32> rttMicroseconds;

    bool operator==(const DiagSocket&) const = default;
};

// Gives a record what only the kernel tells of its socket: the cookie and the TCP figures. A
// round-trip time of 0 is one never measured (a listener's, say), so unknown.
inline void copyKernelFigures(const DiagSocket& socket, SocketRecord& record)
{
    record.cookie = socket.cookie;
    if (socket.bytesAcked)
        record.bytesSent = qint64(*socket.bytesAcked);
    if (socket.bytesReceived)
        record.bytesReceived = qint64(*socket.bytesReceived);
    if (socket.rttMicroseconds && *socket.rttMicroseconds > 0)
        record.rtt = *socket.rttMicroseconds / 1000.0;
}

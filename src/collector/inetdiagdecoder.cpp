#include "inetdiagdecoder.h"

#include <libmnl/libmnl.h>
#include <linux/inet_diag.h>
#include <linux/sock_diag.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstring>
#include <vector>

namespace {

using Result = InetDiagDecoder::Result;

Result failure(const char* why)
{
    return {std::nullopt, why};
}

// A field of tcp_info, when the kernel's copy reaches that far: older kernels send a shorter
// structure, and a field past its end is simply unknown.
template <typename T> std::optional<T> tcpInfoField(const char* info, size_t length, size_t offset)
{
    if (length < offset + sizeof(T))
        return std::nullopt;
    T value;
    std::memcpy(&value, info + offset, sizeof(T));
    return value;
}

void readTcpInfo(const nlattr* attribute, DiagSocket& socket)
{
    const char* info = static_cast<const char*>(mnl_attr_get_payload(attribute));
    const size_t length = mnl_attr_get_payload_len(attribute);
    socket.rttMicroseconds = tcpInfoField<quint32>(info, length, offsetof(tcp_info, tcpi_rtt));
    socket.bytesAcked = tcpInfoField<quint64>(info, length, offsetof(tcp_info, tcpi_bytes_acked));
    socket.bytesReceived =
        tcpInfoField<quint64>(info, length, offsetof(tcp_info, tcpi_bytes_received));
}

// The attributes after the fixed part: tcp_info, and the protocol, which a destroy notice
// names (a dump's answers do not). One that runs past the message's end makes the whole message
// suspect.
const char* readAttributes(const nlmsghdr* header, DiagSocket& socket)
{
    const char* const end = reinterpret_cast<const char*>(header) + header->nlmsg_len;
    const auto* attribute =
        static_cast<const nlattr*>(mnl_nlmsg_get_payload_offset(header, sizeof(inet_diag_msg)));
    const nlattr* info = nullptr;
    while (end - reinterpret_cast<const char*>(attribute) >= int(sizeof(nlattr))) {
        if (!mnl_attr_ok(attribute, int(end - reinterpret_cast<const char*>(attribute))))
            return "an attribute runs past the end of the message";
        if (mnl_attr_get_type(attribute) == INET_DIAG_INFO)
            info = attribute;
        else if (mnl_attr_get_type(attribute) == INET_DIAG_PROTOCOL && socket.protocol == 0 &&
                 mnl_attr_get_payload_len(attribute) >= 1)
            socket.protocol = mnl_attr_get_u8(attribute);
        attribute = mnl_attr_next(attribute);
    }
    if (socket.protocol == 0)
        return "the message does not name its protocol";
    if (info && socket.protocol == IPPROTO_TCP)
        readTcpInfo(info, socket);
    return nullptr;
}

Result decodeAligned(const nlmsghdr* header, size_t size, quint8 protocol)
{
    if (header->nlmsg_len < MNL_NLMSG_HDRLEN || header->nlmsg_len > size)
        return failure("the message's length disagrees with its size");
    if (header->nlmsg_type != SOCK_DIAG_BY_FAMILY)
        return failure("the message is not a socket answer");
    if (mnl_nlmsg_get_payload_len(header) < sizeof(inet_diag_msg))
        return failure("the message is too short for a socket");
    inet_diag_msg fixed;
    std::memcpy(&fixed, mnl_nlmsg_get_payload(header), sizeof(fixed));
    if (fixed.idiag_family != AF_INET && fixed.idiag_family != AF_INET6)
        return failure("the socket is neither IPv4 nor IPv6");

    DiagSocket socket;
    socket.family = fixed.idiag_family;
    socket.protocol = protocol;
    socket.state = fixed.idiag_state;
    socket.localPort = ntohs(fixed.id.idiag_sport);
    socket.remotePort = ntohs(fixed.id.idiag_dport);
    std::memcpy(socket.localAddress.data(), fixed.id.idiag_src, 16);
    std::memcpy(socket.remoteAddress.data(), fixed.id.idiag_dst, 16);
    socket.inode = fixed.idiag_inode;
    socket.cookie = quint64(fixed.id.idiag_cookie[1]) << 32 | fixed.id.idiag_cookie[0];
    if (const char* error = readAttributes(header, socket))
        return failure(error);
    return {socket, nullptr};
}

} // namespace

InetDiagDecoder::Result InetDiagDecoder::decode(QByteArrayView message, quint8 protocol)
{
    const size_t size = size_t(message.size());
    if (size < MNL_NLMSG_HDRLEN)
        return failure("the message is shorter than a netlink header");
    // A netlink message's length is 32 bits.
    if (size > 0xffffffffu)
        return failure("the message is longer than netlink allows");
    // Netlink buffers are aligned; a copy serves the rare caller whose bytes are not.
    if (reinterpret_cast<quintptr>(message.data()) % alignof(nlmsghdr) == 0)
        return decodeAligned(reinterpret_cast<const nlmsghdr*>(message.data()), size, protocol);
    std::vector<quint32> copy((size + 3) / 4);
    std::memcpy(copy.data(), message.data(), size);
    return decodeAligned(reinterpret_cast<const nlmsghdr*>(copy.data()), size, protocol);
}

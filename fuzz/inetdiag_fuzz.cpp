// Feeds the socket-dump decoder any bytes (the first picks TCP or UDP) and checks what it
// decodes: a valid family, traffic only for TCP, printable lsof texts, and a message that, made
// again from the decoded socket, decodes to the very same socket.

#include "collector/diagmessages.h"
#include "collector/inetdiagdecoder.h"
#include "collector/lsofformatter.h"
#include "fuzzcheck.h"

#include <cstddef>
#include <cstdint>

namespace {

// How much tcp_info a message needs to carry what `socket` holds.
int tcpInfoLength(const DiagSocket& socket)
{
    if (socket.bytesReceived)
        return DiagMessages::fullTcpInfo;
    if (socket.bytesAcked)
        return int(offsetof(tcp_info, tcpi_bytes_received));
    if (socket.rttMicroseconds)
        return int(offsetof(tcp_info, tcpi_bytes_acked));
    return DiagMessages::noTcpInfo;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const quint8 protocol = data[0] & 1 ? IPPROTO_TCP : IPPROTO_UDP;
    const QByteArrayView message(reinterpret_cast<const char*>(data + 1), qsizetype(size - 1));
    const InetDiagDecoder::Result result = InetDiagDecoder::decode(message, protocol);
    require(result.socket.has_value() != (result.error != nullptr),
            "neither or both of a socket and an error");
    if (!result.socket)
        return 0;
    const DiagSocket& socket = *result.socket;
    require(socket.family == AF_INET || socket.family == AF_INET6, "family not internet");
    require(socket.protocol == protocol, "protocol not the dump's");
    require(protocol == IPPROTO_TCP ||
                !(socket.bytesAcked || socket.bytesReceived || socket.rttMicroseconds),
            "traffic figures on a UDP socket");
    require(!LsofFormatter::address(socket.family, socket.localAddress).isEmpty() &&
                !LsofFormatter::address(socket.family, socket.remoteAddress).isEmpty(),
            "an empty address text");

    const QByteArray again = DiagMessages::encode(socket, tcpInfoLength(socket));
    const InetDiagDecoder::Result redecoded = InetDiagDecoder::decode(again, protocol);
    require(redecoded.socket && *redecoded.socket == socket, "the round trip changed the socket");
    return 0;
}

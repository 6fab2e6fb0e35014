#include "lsofformatter.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

using namespace Qt::StringLiterals;

namespace {

// One byte of a command name as lsof prints it. `text` is not NUL-terminated.
struct Escape {
    char text[4];
    int length;
    int width;
};

Escape escape(uchar byte)
{
    static constexpr char hex[] = "0123456789abcdef";
    const Escape asHex{{'\\', 'x', hex[byte >> 4], hex[byte & 15]}, 4, byte >= 0x80 ? 2 : 4};
    switch (byte) {
    case '\\':
        return {{'\\', '\\'}, 2, 2};
    case '\b':
        return {{'\\', 'b'}, 2, 2};
    case '\t':
        return {{'\\', 't'}, 2, 2};
    case '\n':
        return {{'\\', 'n'}, 2, 2};
    case '\f':
        return {{'\\', 'f'}, 2, 2};
    case '\r':
        return {{'\\', 'r'}, 2, 2};
    default:
        break;
    }
    if (byte < 0x20)
        return {{'^', char(byte + 0x40)}, 2, 2};
    if (byte == ' ' || byte >= 0x7f)
        return asHex;
    return {{char(byte)}, 1, 1};
}

bool isZero(const quint8* bytes, size_t length)
{
    return std::all_of(bytes, bytes + length, [](quint8 b) { return b == 0; });
}

bool isMappedIpv4(const std::array<quint8, 16>& bytes)
{
    return isZero(bytes.data(), 10) && bytes[10] == 0xff && bytes[11] == 0xff;
}

} // namespace

QString LsofFormatter::type(quint8 family)
{
    static const QString ipv4 = u"IPv4"_s, ipv6 = u"IPv6"_s;
    return family == AF_INET6 ? ipv6 : ipv4;
}

QString LsofFormatter::protocol(quint8 protocol)
{
    static const QString tcp = u"TCP"_s, udp = u"UDP"_s, udpLite = u"UDPLITE"_s;
    switch (protocol) {
    case IPPROTO_TCP:
        return tcp;
    case IPPROTO_UDPLITE:
        return udpLite;
    default:
        return udp;
    }
}

QString LsofFormatter::state(quint8 protocol, quint8 tcpState)
{
    // Indexed by the kernel's state numbers (include/net/tcp_states.h).
    static const QString names[] = {
        u"UNKNOWN"_s,   u"ESTABLISHED"_s, u"SYN_SENT"_s, u"SYN_RECV"_s,   u"FIN_WAIT1"_s,
        u"FIN_WAIT2"_s, u"TIME_WAIT"_s,   u"CLOSE"_s,    u"CLOSE_WAIT"_s, u"LAST_ACK"_s,
        u"LISTEN"_s,    u"CLOSING"_s,     u"SYN_RECV"_s};
    if (protocol != IPPROTO_TCP)
        return {};
    return tcpState < std::size(names) ? names[tcpState] : names[0];
}

QString LsofFormatter::address(quint8 family, const std::array<quint8, 16>& bytes)
{
    static const QString wildcard = u"*"_s;
    char text[INET6_ADDRSTRLEN + 2];
    if (family == AF_INET || isMappedIpv4(bytes)) {
        const quint8* ipv4 = family == AF_INET ? bytes.data() : bytes.data() + 12;
        if (isZero(ipv4, 4))
            return wildcard;
        inet_ntop(AF_INET, ipv4, text, sizeof(text));
        return QString::fromLatin1(text);
    }
    if (isZero(bytes.data(), 16))
        return wildcard;
    text[0] = '[';
    inet_ntop(AF_INET6, bytes.data(), text + 1, INET6_ADDRSTRLEN);
    const size_t length = std::strlen(text);
    text[length] = ']';
    return QString::fromLatin1(text, qsizetype(length + 1));
}

QString LsofFormatter::port(quint16 port)
{
    static const QString wildcard = u"*"_s;
    return port == 0 ? wildcard : QString::number(port);
}

bool LsofFormatter::hasRemote(const DiagSocket& socket)
{
    const size_t length = socket.family == AF_INET ? 4 : 16;
    return socket.remotePort != 0 || !isZero(socket.remoteAddress.data(), length);
}

QString LsofFormatter::fileDescriptor(int fd)
{
    // A socket's file is always open for reading and writing: its mode is always "u".
    return QString::number(fd) + u'u';
}

int LsofFormatter::commandWidth(QByteArrayView command)
{
    int width = 0;
    for (const char byte : command)
        width += escape(uchar(byte)).width;
    return width;
}

QString LsofFormatter::command(QByteArrayView command, int columnWidth)
{
    QString text;
    text.reserve(command.size());
    for (const char byte : command) {
        const Escape e = escape(uchar(byte));
        if (text.size() + e.length > columnWidth)
            break;
        text.append(QLatin1StringView(e.text, e.length));
    }
    return text;
}

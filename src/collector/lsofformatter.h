#pragma once

#include "diagsocket.h"

#include <QByteArrayView>
#include <QString>

// The texts lsof -i -n -P +c 0 prints on Linux for what the kernel tells of a socket and its
// process, so the built-in collector's records read exactly like lsof's.
class LsofFormatter final {
public:
    // The narrowest COMMAND column: its title.
    static constexpr int minimumCommandWidth = 7;

    // "IPv4" or "IPv6".
    static QString type(quint8 family);
    // "TCP", "UDP" or "UDPLITE".
    static QString protocol(quint8 protocol);
    // The TCP state's name; null for UDP, which lsof prints without a state.
    static QString state(quint8 protocol, quint8 tcpState);
    // "*" for the wildcard address, a dotted quad for IPv4 and for IPv4-mapped IPv6, "[...]"
    // for the other IPv6 addresses (no zone).
    static QString address(quint8 family, const std::array<quint8, 16>& bytes);
    // The number, or "*" for port 0.
    static QString port(quint16 port);
    // Whether lsof prints a "->" side: any address or port at all.
    static bool hasRemote(const DiagSocket& socket);
    // The FD column: the number and the access mode, "u" for read and write.
    static QString fileDescriptor(int fd);

    // The command name's width as lsof reckons it when it sizes the COMMAND column: the width
    // of its escaped text, except that each byte from 0x80 up counts 2 (lsof prints it as 4).
    static int commandWidth(QByteArrayView command);
    // The command name escaped as lsof escapes it ("\x20" for a blank, "\xc3" for a byte above
    // ASCII, "^A" for a control character, "\\" for a backslash) and cut where lsof cuts it:
    // before the first escape that would not fit the column `columnWidth` wide, the widest
    // commandWidth of all the lines listed. So a name with non-ASCII bytes loses its end
    // unless a wider name is listed beside it, as it does in lsof's own output.
    static QString command(QByteArrayView command, int columnWidth);
};

// Writes a socket's endpoint texts, as lsof prints them, into anything with the record's
// fields of those names (a record, the socket table's entry); no remote side leaves them null.
template <class Texts> void formatEndpoints(const DiagSocket& socket, Texts& out)
{
    out.type = LsofFormatter::type(socket.family);
    out.protocol = LsofFormatter::protocol(socket.protocol);
    out.localAddress = LsofFormatter::address(socket.family, socket.localAddress);
    out.localPort = LsofFormatter::port(socket.localPort);
    const bool remote = LsofFormatter::hasRemote(socket);
    out.remoteAddress =
        remote ? LsofFormatter::address(socket.family, socket.remoteAddress) : QString();
    out.remotePort = remote ? LsofFormatter::port(socket.remotePort) : QString();
}

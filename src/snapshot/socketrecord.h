#pragma once

#include <QList>
#include <QString>

#include <optional>

// One socket of one process, as a collector sees it: the fields lsof prints, with no status and
// no history. Both collectors give these (lsof's text cut at its title positions, and the
// built-in collector that asks the kernel); change detection turns them into items.
//
// Texts keep lsof's spelling: the command name with lsof's escapes (the item undoes them),
// addresses as `-n -P` prints them ("*", "127.0.0.1", "[::1]"), the state without parentheses.
// A null text is a field lsof left out (a UDP socket's state, the remote side of a listener).
struct SocketRecord {
    QString processName;
    QString processId;
    QString user;
    QString fileDescriptor;
    QString type;
    QString device;
    QString sizeAndOffset;
    QString protocol;
    QString localAddress;
    QString localPort;
    QString remoteAddress;
    QString remotePort;
    QString state;

    // What LsofItem::identifier() gives for an item made from this record, when the collector
    // made it already (a record kept from one snapshot to the next keeps it); null otherwise.
    QString identifier;

    // What only the kernel tells (the built-in collector); unknown otherwise.
    // The socket's cookie, which follows one socket for its whole life.
    std::optional<quint64> cookie;
    // TCP: bytes acknowledged by the peer and bytes received, since the connection opened;
    // the smoothed round-trip time in milliseconds.
    std::optional<qint64> bytesSent;
    std::optional<qint64> bytesReceived;
    std::optional<double> rtt;

    bool operator==(const SocketRecord&) const = default;
};

using SocketRecords = QList<SocketRecord>;

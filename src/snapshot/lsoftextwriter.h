#pragma once

#include "socketrecord.h"

#include <QByteArray>
#include <QHash>

// Records as the text `lsof -i -n -P +c 0` prints: its header and columns, each value under its
// title as lsof aligns it, so that any reader of lsof's text (LsofTextReader among them) reads
// the same records back.
//
// What lsof cannot print follows the socket lines, one line per socket that has any, each
// beginning with "#corvina " (lsof never begins a line with "#"):
//
//   #corvina socket PID FD DEVICE [cookie=N] [sent=N] [received=N] [rtt=MS]
//
// A figure that is unknown is left out. Plain (`traffic` false) leaves these lines out.
class LsofTextWriter final {
public:
    static QByteArray write(const SocketRecords& records, bool traffic = true);

    // The figures of the "#corvina socket" lines of an output, by socket (process id,
    // descriptor, device), for LsofTextReader.
    struct Figures {
        std::optional<quint64> cookie;
        std::optional<qint64> bytesSent;
        std::optional<qint64> bytesReceived;
        std::optional<double> rtt;
    };
    using FiguresBySocket = QHash<QByteArray, Figures>;
    // True when `line` is such a line; its figures go into `figures`.
    static bool readFiguresLine(QByteArrayView line, FiguresBySocket& figures);
    // The key a record's figures stand under.
    static QByteArray socketKey(const SocketRecord& record);
};

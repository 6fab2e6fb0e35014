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
//
// Then the sockets that closed since the collector's last pass (a collector that runs pass
// after pass hears them from the kernel; one run once has none to give), one line each:
//
//   #corvina closed cookie=N type=T protocol=P local=ADDRESS:PORT [remote=ADDRESS:PORT]
//       [state=S] [sent=N] [received=N] [rtt=MS] [pid=N] [command=NAME] [user=NAME]
//
// on one line, addresses as lsof prints them, the command name with lsof's escapes (so no
// value holds a blank); a field that is unknown is left out.
class LsofTextWriter final {
public:
    static QByteArray write(const SocketRecords& records, bool traffic = true,
                            const SocketRecords& closed = {});

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
    // True when `line` is a "#corvina closed" line; its socket goes at the end of `closed`
    // (unless the line lacks its cookie, type, protocol or local side).
    static bool readClosedLine(QByteArrayView line, SocketRecords& closed);
    // The key a record's figures stand under.
    static QByteArray socketKey(const SocketRecord& record);
};

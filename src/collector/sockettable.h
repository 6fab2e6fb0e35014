#pragma once

#include "diagsocket.h"

#include <QHash>
#include <QString>

// The sockets of the last dump by inode, with their lsof texts. A socket that keeps its
// addresses keeps its texts from pass to pass: at ten thousand sockets, formatting every
// address afresh would cost more than the rest of a pass.
class SocketTable final {
public:
    struct Entry {
        DiagSocket socket;
        QString type, protocol, state, device;
        QString localAddress, localPort;
        QString remoteAddress, remotePort; // null without a remote side
        quint64 pass = 0;
        // The identifier of the last record made from this socket and the descriptor it was
        // made for: composing it afresh for every socket of every pass was a tenth of a pass.
        mutable QString identifier;
        mutable int identifierPid = 0, identifierFd = -1;
    };

    // Starts a dump: sockets not added again before the next start are gone.
    void beginPass();
    // A socket of the current dump; one no file holds (inode 0) is ignored.
    void add(const DiagSocket& socket);
    // Drops the sockets the current dump did not list.
    void endPass();
    // The socket of the current dump with this inode, or null.
    const Entry* find(quint64 inode) const;
    qsizetype size() const { return m_entries.size(); }

private:
    QHash<quint64, Entry> m_entries;
    quint64 m_pass = 0;
};

#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

// Who owned a socket, by its cookie, remembered while the socket lived: a short-lived
// connection's process is gone before /proc can be read, so it must have been noted as the
// socket was used.
class SocketOwners {
public:
    struct Owner {
        int pid = 0;
        uint uid = 0;       // effective user
        QByteArray command; // the kernel's command name of the process
    };

    virtual ~SocketOwners() = default;

    // Starts noting owners; empty when it runs, else why it cannot, in a few words.
    virtual QString start() = 0;
    // Called once a pass, before ownerOf, with the cookies of the pass's short-lived sockets
    // (never none): an implementation that asks another process asks about them all at once
    // here. Empty while owners can be known, else why they no longer can; ownerOf is then
    // asked no more.
    virtual QString prefetch(const QList<quint64>& cookies)
    {
        Q_UNUSED(cookies);
        return {};
    }
    virtual std::optional<Owner> ownerOf(quint64 cookie) = 0;
};

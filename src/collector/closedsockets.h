#pragma once

#include "destroynotices.h"
#include "socketowners.h"
#include "usernames.h"

#include "snapshot/socketrecord.h"

#include <QHash>
#include <QSet>
#include <QString>

#include <memory>
#include <vector>

// Turns the kernel's destroy notices into the records of the sockets that closed since the last
// pass: one the last pass listed (change detection gives its item the final figures) or one
// never listed at all, a short-lived connection. A notice for a socket some earlier dump saw but
// the last pass did not list (another user's, or one its process had already let go) is no
// news, and is dropped: it must not come back as a phantom connection.
//
// Only a collector that runs pass after pass hears anything: one pass alone (`corvina sockets`
// run once, say) has no "since the last pass".
class ClosedSockets final {
public:
    ClosedSockets(std::unique_ptr<DestroyNotices> notices, std::unique_ptr<SocketOwners> owners);

    // A pass: begin, every socket of the dump, then the records it gave.
    void beginPass();
    void dumped(quint64 cookie) { m_seen.insert(cookie, m_pass); }
    // The sockets destroyed since the last pass, in the kernel's order. `users` names the
    // owners noted for short-lived ones.
    SocketRecords endPass(const SocketRecords& listed, UserNames& users);

    // What this pass could not do: notices lost, a listener that cannot run (said once), an
    // attribution that cannot (said once, at the first short-lived connection without its
    // process). Empty when all went well.
    const QString& problem() const { return m_problem; }

private:
    struct Listener {
        QString address, processId, processName, user;
    };
    using Listeners = QHash<QString, std::vector<Listener>>; // by protocol and port

    void start();
    void prefetchOwners(const QList<quint64>& cookies);
    SocketRecord shortLived(const DiagSocket& socket, UserNames& users) const;
    bool attributeToListener(SocketRecord& record) const;
    static Listeners listenersOf(const SocketRecords& listed);
    void say(const QString& sentence);

    std::unique_ptr<DestroyNotices> m_notices;
    std::unique_ptr<SocketOwners> m_owners;
    bool m_started = false;
    bool m_listening = false;
    bool m_attributing = false;
    QString m_ownersRefusal; // until said
    quint64 m_pass = 0;
    // Cookie → the last pass whose dump listed the socket, kept one pass after it left the dump
    // (a notice may come a moment after the socket left).
    QHash<quint64, quint64> m_seen;
    // The cookies of the records the last pass gave.
    QSet<quint64> m_listed;
    // Notices of sockets this pass's dump still listed: they closed after the dump, and count
    // for the next pass.
    std::vector<DiagSocket> m_deferred;
    Listeners m_listeners, m_lastListeners;
    QString m_problem;
};

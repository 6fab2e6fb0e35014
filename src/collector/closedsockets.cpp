#include "closedsockets.h"

#include "lsofformatter.h"

#include <netinet/in.h>

#include <cstring>
#include <set>

using namespace Qt::StringLiterals;

namespace {

QString listenKey(const QString& protocol, const QString& port)
{
    return protocol + u':' + port;
}

// A notice's socket as a record, without a process: the fields lsof would have printed, and the
// final figures.
SocketRecord recordOf(const DiagSocket& socket)
{
    SocketRecord record;
    formatEndpoints(socket, record);
    record.state = LsofFormatter::state(socket.protocol, socket.state);
    copyKernelFigures(socket, record);
    return record;
}

} // namespace

ClosedSockets::ClosedSockets(std::unique_ptr<DestroyNotices> notices,
                             std::unique_ptr<SocketOwners> owners)
    : m_notices(std::move(notices)), m_owners(std::move(owners))
{
}

void ClosedSockets::say(const QString& sentence)
{
    m_problem = m_problem.isEmpty() ? sentence : m_problem + u' ' + sentence;
}

// Before the first dump, so that nothing closing between it and the next pass goes unheard.
void ClosedSockets::start()
{
    m_started = true;
    if (const int error = m_notices ? m_notices->start() : ENOSYS) {
        say(u"Connections that open and close between two refreshes cannot be seen: the kernel "
            u"refuses its notices of closed sockets (%1)."_s.arg(
                QString::fromLocal8Bit(std::strerror(error))));
        return;
    }
    m_listening = true;
    m_ownersRefusal = m_owners ? m_owners->start() : u"not offered"_s;
    m_attributing = m_ownersRefusal.isEmpty();
}

void ClosedSockets::beginPass()
{
    m_problem.clear();
    if (!m_started)
        start();
    ++m_pass;
}

SocketRecords ClosedSockets::endPass(const SocketRecords& listed, UserNames& users)
{
    SocketRecords closed;
    if (!m_listening)
        return closed;
    DestroyNotices::Batch batch = m_notices->take();
    std::vector<DiagSocket> notices = std::exchange(m_deferred, {});
    notices.insert(notices.end(), batch.sockets.begin(), batch.sockets.end());
    m_lastListeners = std::exchange(m_listeners, listenersOf(listed));
    // Each news and whether it is short-lived: the owners of those are asked for all at once.
    std::vector<std::pair<const DiagSocket*, bool>> news;
    QList<quint64> shortLivedCookies;
    for (const DiagSocket& socket : notices) {
        // Never bound, so never a connection (a socket made for an ioctl, say).
        if (socket.localPort == 0)
            continue;
        const auto seen = m_seen.constFind(socket.cookie);
        if (seen != m_seen.cend() && *seen == m_pass) {
            m_deferred.push_back(socket);
        } else if (m_listed.contains(socket.cookie)) {
            news.emplace_back(&socket, false);
        } else if (seen == m_seen.cend() && m_pass > 1) {
            // Before the first dump the listener heard sockets of unknown age.
            news.emplace_back(&socket, true);
            shortLivedCookies.append(socket.cookie);
        }
    }
    prefetchOwners(shortLivedCookies);
    int unattributed = 0;
    for (const auto& [socket, isShortLived] : news) {
        closed.append(isShortLived ? shortLived(*socket, users) : recordOf(*socket));
        unattributed += isShortLived && closed.last().processId.isNull() ? 1 : 0;
    }
    // Said once, when it first matters.
    if (unattributed > 0 && !m_ownersRefusal.isEmpty())
        say(u"Connections that open and close between two refreshes are shown without their "
            u"process, unless it was listening for them: the program that notes each "
            u"socket's owner cannot run here (%1)."_s.arg(std::exchange(m_ownersRefusal, {})));
    m_seen.removeIf([this](const auto& entry) { return entry.value() + 1 < m_pass; });
    m_listed.clear();
    for (const SocketRecord& record : listed) {
        if (record.cookie)
            m_listed.insert(*record.cookie);
    }
    if (batch.lost > 0)
        say(u"Notices of closed sockets were lost (%1, too many closed at once): every open "
            u"connection is listed again, but some that opened and closed since the last "
            u"refresh are missing."_s.arg(batch.lost));
    return closed;
}

void ClosedSockets::prefetchOwners(const QList<quint64>& cookies)
{
    if (!m_attributing || cookies.isEmpty())
        return;
    // Said, once, as a refusal at start would have been.
    if (QString why = m_owners->prefetch(cookies); !why.isEmpty()) {
        m_attributing = false;
        m_ownersRefusal = std::move(why);
    }
}

SocketRecord ClosedSockets::shortLived(const DiagSocket& socket, UserNames& users) const
{
    SocketRecord record = recordOf(socket);
    if (const auto owner = m_attributing ? m_owners->ownerOf(socket.cookie) : std::nullopt) {
        record.processId = QString::number(owner->pid);
        record.processName =
            LsofFormatter::command(owner->command, LsofFormatter::commandWidth(owner->command));
        record.user = users.name(owner->uid);
    } else {
        attributeToListener(record);
    }
    return record;
}

// An accepted connection belongs to the process that listened for it, when one alone did:
// its local side is the listener's port, on the listener's address or any.
bool ClosedSockets::attributeToListener(SocketRecord& record) const
{
    const QString key = listenKey(record.protocol, record.localPort);
    const Listener* match = nullptr;
    std::set<QString> processes;
    for (const Listeners* listeners : {&m_listeners, &m_lastListeners}) {
        const auto found = listeners->constFind(key);
        if (found == listeners->cend())
            continue;
        for (const Listener& listener : *found) {
            if (listener.address != u"*" && listener.address != record.localAddress)
                continue;
            processes.insert(listener.processId);
            match = match ? match : &listener;
        }
        if (match)
            break;
    }
    if (!match || processes.size() != 1)
        return false;
    record.processId = match->processId;
    record.processName = match->processName;
    record.user = match->user;
    return true;
}

ClosedSockets::Listeners ClosedSockets::listenersOf(const SocketRecords& listed)
{
    Listeners listeners;
    for (const SocketRecord& record : listed) {
        if (record.state == u"LISTEN")
            listeners[listenKey(record.protocol, record.localPort)].push_back(
                {record.localAddress, record.processId, record.processName, record.user});
    }
    return listeners;
}

#include "sockettable.h"

#include "lsofformatter.h"

namespace {

bool sameEndpoints(const DiagSocket& a, const DiagSocket& b)
{
    return a.family == b.family && a.protocol == b.protocol && a.localPort == b.localPort &&
           a.remotePort == b.remotePort && a.localAddress == b.localAddress &&
           a.remoteAddress == b.remoteAddress;
}

void formatEntry(SocketTable::Entry& entry)
{
    entry.identifierFd = -1;
    formatEndpoints(entry.socket, entry);
}

} // namespace

void SocketTable::beginPass()
{
    ++m_pass;
}

void SocketTable::add(const DiagSocket& socket)
{
    if (socket.inode == 0)
        return;
    Entry& entry = m_entries[socket.inode];
    const bool known = entry.pass != 0 && sameEndpoints(entry.socket, socket);
    const bool sameState = known && entry.socket.state == socket.state;
    entry.socket = socket;
    entry.pass = m_pass;
    if (!sameState)
        entry.state = LsofFormatter::state(socket.protocol, socket.state);
    if (entry.device.isNull())
        entry.device = QString::number(socket.inode);
    if (!known)
        formatEntry(entry);
}

void SocketTable::endPass()
{
    m_entries.removeIf([this](const auto& item) { return item.value().pass != m_pass; });
}

const SocketTable::Entry* SocketTable::find(quint64 inode) const
{
    const auto found = m_entries.constFind(inode);
    return found != m_entries.cend() && found->pass == m_pass ? &*found : nullptr;
}

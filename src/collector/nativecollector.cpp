#include "nativecollector.h"

#include "bpfsocketowners.h"
#include "destroylistener.h"
#include "helpersocketowners.h"
#include "inetdiagdecoder.h"
#include "lsofformatter.h"
#include "netlinkdumper.h"
#include "snapshot/lsofitem.h"

#include <linux/inet_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

using namespace Qt::StringLiterals;

namespace {

// TCP states 1 to 11 but time-wait (6): time-wait sockets and half-open requests (12) belong to
// no file, and bit 13 would add sockets that are only bound, which lsof does not list either.
constexpr quint32 tcpStates = ((1u << 12) - 1) & ~(1u << 6) & ~1u;
constexpr quint32 allStates = ~0u;
// The largest descriptor whose FD text is kept for reuse.
constexpr int keptFdTexts = 65536;

bool unsupported(int error)
{
    return error == ENOENT || error == EPROTONOSUPPORT || error == EAFNOSUPPORT ||
           error == EOPNOTSUPP;
}

// A kernel without IPv6 or without UDP-Lite has no such sockets to list.
bool optional(const DiagQuery& query)
{
    return query.family == AF_INET6 || query.protocol == IPPROTO_UDPLITE;
}

// The fields a socket gives, alike for every descriptor that holds it.
void fill(SocketRecord& record, const SocketTable::Entry& entry)
{
    static const QString zeroOffset = u"0t0"_s;
    record.type = entry.type;
    record.device = entry.device;
    record.sizeAndOffset = zeroOffset;
    record.protocol = entry.protocol;
    record.localAddress = entry.localAddress;
    record.localPort = entry.localPort;
    record.remoteAddress = entry.remoteAddress;
    record.remotePort = entry.remotePort;
    record.state = entry.state;
    copyKernelFigures(entry.socket, record);
}

} // namespace

NativeCollector::NativeCollector() : NativeCollector(Sources{}) {}

NativeCollector::NativeCollector(Sources sources)
    : m_diag(sources.diag ? std::move(sources.diag) : std::make_unique<NetlinkDumper>()),
      m_processes(std::move(sources.procRoot), std::move(sources.cpuClock)),
      m_users(std::move(sources.passwdPath))
{
    if (sources.notices)
        m_closedSockets =
            std::make_unique<ClosedSockets>(std::move(sources.notices), std::move(sources.owners));
}

std::unique_ptr<NativeCollector> NativeCollector::listening(const QString& helperSocket)
{
    Sources sources;
    sources.notices = std::make_unique<DestroyListener>();
    // Without a helper, an ordinary user's eBPF program says why it cannot load.
    if (::geteuid() != 0 && !helperSocket.isEmpty())
        sources.owners = std::make_unique<HelperSocketOwners>(helperSocket);
    else
        sources.owners = std::make_unique<BpfSocketOwners>();
    return std::make_unique<NativeCollector>(std::move(sources));
}

const QString& NativeCollector::problem() const
{
    static const QString none;
    return m_closedSockets ? m_closedSockets->problem() : none;
}

NativeCollector::~NativeCollector() = default;

QList<DiagQuery> NativeCollector::queries()
{
    const quint8 tcpInfo = 1 << (INET_DIAG_INFO - 1);
    QList<DiagQuery> list;
    for (const quint8 family : {quint8(AF_INET), quint8(AF_INET6)}) {
        list.append({family, IPPROTO_TCP, tcpStates, tcpInfo});
        list.append({family, IPPROTO_UDP, allStates, 0});
        list.append({family, IPPROTO_UDPLITE, allStates, 0});
    }
    return list;
}

QString NativeCollector::refusalFor(int error, const DiagQuery& query)
{
    if (error == EPERM || error == EACCES)
        return u"The kernel refused to list sockets to Corvina (netlink socket diagnostics: "
               "permission denied)."_s;
    if (unsupported(error))
        return u"This kernel cannot list %1 sockets through netlink socket diagnostics."_s.arg(
            LsofFormatter::protocol(query.protocol));
    return u"Listing sockets through netlink failed: %1."_s.arg(
        QString::fromLocal8Bit(std::strerror(error)));
}

SocketRecords NativeCollector::collect()
{
    m_refusal.clear();
    m_closed.clear();
    m_skipped = 0;
    if (m_closedSockets)
        m_closedSockets->beginPass();
    if (!dumpSockets())
        return {};
    if (!m_processes.refresh()) {
        m_refusal = u"The process list in /proc cannot be read."_s;
        return {};
    }
    SocketRecords list = records();
    if (m_closedSockets)
        m_closed = m_closedSockets->endPass(list, m_users);
    return list;
}

SocketRecords NativeCollector::closedAmong(const SocketRecords& listed)
{
    m_closed.clear();
    if (!m_closedSockets)
        return {};
    // The dump tells which sockets exist but were not listed (another moment's, or held by no
    // file): their notices are no news, not short-lived connections.
    m_closedSockets->beginPass();
    if (dumpSockets())
        m_closed = m_closedSockets->endPass(listed, m_users);
    return m_closed;
}

bool NativeCollector::dumpSockets()
{
    m_sockets.beginPass();
    for (const DiagQuery& query : queries()) {
        const int error = m_diag->dump(query, [&](QByteArrayView message) {
            const InetDiagDecoder::Result decoded =
                InetDiagDecoder::decode(message, query.protocol);
            if (!decoded.socket || decoded.socket->family != query.family) {
                ++m_skipped;
                return;
            }
            m_sockets.add(*decoded.socket);
            if (m_closedSockets)
                m_closedSockets->dumped(decoded.socket->cookie);
        });
        if (error == 0 || (optional(query) && unsupported(error)))
            continue;
        m_refusal = refusalFor(error, query);
        return false;
    }
    m_sockets.endPass();
    return true;
}

SocketRecords NativeCollector::records()
{
    m_users.revalidate();
    SocketRecords list;
    list.reserve(m_sockets.size() + 16);
    // Where each process's rows start: lsof sizes its COMMAND column to the widest name it
    // lists, and cuts the names it escapes to that width.
    std::vector<std::pair<const ProcessTable::Process*, qsizetype>> spans;
    int width = LsofFormatter::minimumCommandWidth;
    for (const auto& [pid, process] : m_processes.processes()) {
        const qsizetype first = list.size();
        QString pidText, user;
        for (const ProcessTable::SocketFd& socketFd : process.sockets) {
            const SocketTable::Entry* entry = m_sockets.find(socketFd.inode);
            if (!entry)
                continue;
            if (pidText.isNull()) {
                pidText = QString::number(pid);
                user = m_users.name(process.uid);
            }
            SocketRecord& record = list.emplace_back();
            record.processId = pidText;
            record.user = user;
            record.fileDescriptor = fdText(socketFd.fd);
            fill(record, *entry);
            if (entry->identifierPid != pid || entry->identifierFd != socketFd.fd) {
                entry->identifier = LsofItem::identifierOf(record);
                entry->identifierPid = pid;
                entry->identifierFd = socketFd.fd;
            }
            record.identifier = entry->identifier;
        }
        if (list.size() > first) {
            spans.emplace_back(&process, first);
            width = std::max(width, LsofFormatter::commandWidth(process.command));
        }
    }
    for (size_t i = 0; i < spans.size(); ++i) {
        const QString name = LsofFormatter::command(spans[i].first->command, width);
        const qsizetype end = i + 1 < spans.size() ? spans[i + 1].second : list.size();
        for (qsizetype row = spans[i].second; row < end; ++row)
            list[row].processName = name;
    }
    return list;
}

QString NativeCollector::fdText(int fd)
{
    if (fd >= keptFdTexts)
        return LsofFormatter::fileDescriptor(fd);
    if (m_fdTexts.size() <= fd)
        m_fdTexts.resize(fd + 1);
    QString& text = m_fdTexts[fd];
    if (text.isNull())
        text = LsofFormatter::fileDescriptor(fd);
    return text;
}

#pragma once

#include "closedsockets.h"
#include "processtable.h"
#include "socketdiagsource.h"
#include "sockettable.h"
#include "usernames.h"

#include "snapshot/socketrecord.h"

#include <QList>
#include <QString>

#include <memory>

// The built-in collector: the records lsof -i -n -P +c 0 would give, from the kernel's socket
// dump (NETLINK_SOCK_DIAG) matched to processes through /proc/<pid>/fd, at a fraction of
// lsof's cost. It keeps what each pass learned (see ProcessTable and SocketTable), so a pass
// reads again only what can have changed.
//
// Not thread-safe: one collector belongs to one acquisition worker.
class NativeCollector final {
public:
    // Where the collector looks. Tests script the dumps and build a /proc of their own.
    struct Sources {
        std::unique_ptr<SocketDiagSource> diag;
        QByteArray procRoot = "/proc";
        ProcessTable::CpuClock cpuClock = ProcessTable::processCpuTime;
        QByteArray passwdPath = "/etc/passwd";
        // The kernel's notices of closed sockets and the owners noted for them; without
        // notices, no pass reports closed sockets.
        std::unique_ptr<DestroyNotices> notices = nullptr;
        std::unique_ptr<SocketOwners> owners = nullptr;
    };

    // This machine: the kernel over netlink, /proc and the account database, without notices.
    NativeCollector();
    // The same, listening to the kernel's notices of closed sockets and noting their owners:
    // what a collector that runs pass after pass wants. Root notes owners itself (eBPF); an
    // ordinary user asks the privileged helper daemon on `helperSocket`, when one is given.
    static std::unique_ptr<NativeCollector> listening(const QString& helperSocket = {});
    explicit NativeCollector(Sources sources);
    ~NativeCollector();
    NativeCollector(const NativeCollector&) = delete;
    NativeCollector& operator=(const NativeCollector&) = delete;

    // Every TCP, UDP and UDP-Lite socket, over IPv4 and IPv6, held by a process this user may
    // inspect (root: every process): one record per descriptor, ordered by process id, then
    // descriptor. When the kernel refuses the dump, an empty list, and refusal() says why.
    SocketRecords collect();

    // The sockets destroyed since the last collect(), in the kernel's order: those that
    // collect listed, with their final figures, and short-lived ones it never listed, with
    // their process where it is known. Empty without notices.
    const SocketRecords& closed() const { return m_closed; }
    // The same when another collector gave the pass's records (the helper daemon's, which
    // hears no socket close): this one dumps the sockets, without reading /proc, and listens.
    SocketRecords closedAmong(const SocketRecords& listed);
    // What the last collect() missed although it gave its records (notices lost, say), in a
    // sentence or two; empty when nothing was missed.
    const QString& problem() const;

    // Why the last collect() gave nothing, in one sentence a user understands; empty when the
    // kernel answered. The caller falls back on lsof.
    const QString& refusal() const { return m_refusal; }
    // Answers of the last dump that could not be decoded and were left out.
    int skippedMessages() const { return m_skipped; }
    // The dumps a pass asks for.
    static QList<DiagQuery> queries();

private:
    static QString refusalFor(int error, const DiagQuery& query);
    bool dumpSockets();
    SocketRecords records();
    // "5u": the same text for descriptor 5 of every process, made once.
    QString fdText(int fd);

    std::unique_ptr<SocketDiagSource> m_diag;
    ProcessTable m_processes;
    SocketTable m_sockets;
    UserNames m_users;
    QList<QString> m_fdTexts;
    std::unique_ptr<ClosedSockets> m_closedSockets;
    SocketRecords m_closed;
    QString m_refusal;
    int m_skipped = 0;
};

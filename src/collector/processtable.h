#pragma once

#include <QByteArray>

#include <functional>
#include <map>
#include <optional>
#include <vector>

// The processes of the system and the sockets their descriptors hold, read from /proc through
// directory descriptors and kept from one refresh to the next.
//
// Reading a process's descriptors is the dear part of a refresh (a getdents64 entry and a
// readlinkat per descriptor), and the kernel offers no cheap sign that one descriptor changed:
// a descriptor closed and reopened under its number, or dup2'ed over, looks the same from
// outside. It does offer one for a whole process: its CPU time, to the nanosecond. A descriptor
// table, a command name and an effective user change only through a system call of one of the
// process's own threads (accept, close, dup2, recvmsg with SCM_RIGHTS, exec, prctl, setuid,
// exit), and the scheduler charges that time to the process. So a process whose start time
// (against a reused pid) and CPU time are both what they were when its descriptors were read
// keeps what was read; every other process is read again, whole.
//
// The clock is read before the descriptors, so a change during the read shows at the next
// refresh. It is charged at every scheduler tick while a thread runs: a change could only hide
// in a thread that was running at both readings with no tick in between. A process that
// shares its descriptor table with another process (clone with CLONE_FILES but without
// CLONE_THREAD, a rare thing) could see it change without its own clock moving.
class ProcessTable final {
public:
    // The CPU time a process has used so far, in nanoseconds; nothing when unknown, and then
    // the process is read again at every refresh.
    using CpuClock = std::function<std::optional<qint64>(int pid)>;

    struct SocketFd {
        int fd = 0;
        quint64 inode = 0;
        bool operator==(const SocketFd&) const = default;
    };

    struct Process {
        int pid = 0;
        quint64 startTime = 0; // clock ticks after boot
        QByteArray command;    // the kernel's command name, at most 15 bytes
        uint uid = 0;          // effective user
        // Whether its descriptors could be read (an ordinary user reads only its own).
        bool inspectable = false;
        std::vector<SocketFd> sockets; // by descriptor
        std::optional<qint64> cpuTime; // read just before the descriptors were
    };

    explicit ProcessTable(QByteArray procRoot = "/proc", CpuClock cpuClock = processCpuTime);
    ~ProcessTable();
    ProcessTable(const ProcessTable&) = delete;
    ProcessTable& operator=(const ProcessTable&) = delete;

    // Brings the table up to date with the system. False when the proc root cannot be read.
    bool refresh();
    // By process id.
    const std::map<int, Process>& processes() const { return m_processes; }
    // How many processes the last refresh read descriptors of; the rest it kept.
    int lastReads() const { return m_lastReads; }

    // The kernel's CPU clock of a process (the one clock_getcpuclockid names).
    static std::optional<qint64> processCpuTime(int pid);

private:
    struct Stat {
        quint64 startTime = 0;
        QByteArrayView command;
    };

    bool listPids(std::vector<int>& pids);
    std::optional<Stat> readStat(int pid, char* buffer, size_t size) const;
    // Reads uid and descriptors into `process`; false when the process has gone.
    bool readDescriptors(Process& process);
    bool readSocketFds(int fdDirectory, std::vector<SocketFd>& sockets);
    // The process as it is now, from what was kept of it or read afresh; nothing when gone.
    std::optional<Process> update(int pid, std::optional<Process> kept);

    QByteArray m_procRoot;
    CpuClock m_cpuClock;
    int m_root = -1;
    std::map<int, Process> m_processes;
    std::vector<char> m_entries;
    int m_lastReads = 0;
};

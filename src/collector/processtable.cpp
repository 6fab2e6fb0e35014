#include "processtable.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

constexpr size_t entryBufferSize = 32768;
// /proc/PID/stat up to its 22nd field, with a kernel thread's long name.
constexpr size_t statBufferSize = 1024;

// A closed descriptor on every path out.
class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};

// A directory entry's name as a non-negative number; -1 for any other name.
int numberOf(const char* name)
{
    if (*name == 0)
        return -1;
    long long value = 0;
    for (const char* c = name; *c; ++c) {
        if (*c < '0' || *c > '9' || value > 0x7fffffff / 10)
            return -1;
        value = value * 10 + (*c - '0');
    }
    return value > 0x7fffffff ? -1 : int(value);
}

// Calls `visit` with each entry's name; false when the directory cannot be read.
template <typename Visit> bool forEachEntry(int directory, std::vector<char>& buffer, Visit&& visit)
{
    for (;;) {
        const ssize_t length = getdents64(directory, buffer.data(), buffer.size());
        if (length < 0 && errno == EINTR)
            continue;
        if (length <= 0)
            return length == 0;
        for (ssize_t offset = 0; offset < length;) {
            const auto* entry = reinterpret_cast<const dirent64*>(buffer.data() + offset);
            offset += entry->d_reclen;
            visit(entry->d_name);
        }
    }
}

// The inode of a descriptor's "socket:[12345]" link; nothing for any other file.
std::optional<quint64> socketInode(const char* link, ssize_t length)
{
    static constexpr char prefix[] = "socket:[";
    constexpr ssize_t prefixLength = sizeof(prefix) - 1;
    if (length < prefixLength + 2 || std::memcmp(link, prefix, prefixLength) != 0 ||
        link[length - 1] != ']')
        return std::nullopt;
    quint64 inode = 0;
    for (ssize_t i = prefixLength; i < length - 1; ++i) {
        if (link[i] < '0' || link[i] > '9')
            return std::nullopt;
        inode = inode * 10 + quint64(link[i] - '0');
    }
    return inode;
}

} // namespace

ProcessTable::ProcessTable(QByteArray procRoot, CpuClock cpuClock)
    : m_procRoot(std::move(procRoot)), m_cpuClock(std::move(cpuClock)), m_entries(entryBufferSize)
{
}

ProcessTable::~ProcessTable()
{
    if (m_root >= 0)
        ::close(m_root);
}

std::optional<qint64> ProcessTable::processCpuTime(int pid)
{
    // What clock_getcpuclockid(pid) names (MAKE_PROCESS_CPUCLOCK(pid, CPUCLOCK_SCHED)), without
    // its extra system call to check the clock exists.
    const clockid_t clock = clockid_t((~clockid_t(pid) << 3) | 2);
    timespec time{};
    if (clock_gettime(clock, &time) != 0)
        return std::nullopt;
    return qint64(time.tv_sec) * 1000000000 + time.tv_nsec;
}

bool ProcessTable::refresh()
{
    std::vector<int> pids;
    if (!listPids(pids))
        return false;
    std::map<int, Process> current;
    m_lastReads = 0;
    for (const int pid : pids) {
        std::optional<Process> kept;
        if (auto node = m_processes.extract(pid))
            kept = std::move(node.mapped());
        if (std::optional<Process> process = update(pid, std::move(kept)))
            current.emplace_hint(current.end(), pid, std::move(*process));
    }
    m_processes = std::move(current);
    return true;
}

bool ProcessTable::listPids(std::vector<int>& pids)
{
    if (m_root < 0)
        m_root = ::open(m_procRoot.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (m_root < 0 || ::lseek(m_root, 0, SEEK_SET) < 0)
        return false;
    const bool listed = forEachEntry(m_root, m_entries, [&](const char* name) {
        if (const int pid = numberOf(name); pid > 0)
            pids.push_back(pid);
    });
    std::sort(pids.begin(), pids.end());
    return listed;
}

std::optional<ProcessTable::Process> ProcessTable::update(int pid, std::optional<Process> kept)
{
    // The clock first: whatever the process does from here on moves it.
    const std::optional<qint64> cpuTime = m_cpuClock ? m_cpuClock(pid) : std::nullopt;
    char buffer[statBufferSize];
    const std::optional<Stat> stat = readStat(pid, buffer, sizeof(buffer));
    if (!stat)
        return std::nullopt;
    if (kept && kept->startTime == stat->startTime && cpuTime && kept->cpuTime == cpuTime) {
        if (kept->command != stat->command)
            kept->command = stat->command.toByteArray();
        return kept;
    }
    Process process;
    process.pid = pid;
    process.startTime = stat->startTime;
    process.command = stat->command.toByteArray();
    process.cpuTime = cpuTime;
    ++m_lastReads;
    if (!readDescriptors(process))
        return std::nullopt;
    return process;
}

std::optional<ProcessTable::Stat> ProcessTable::readStat(int pid, char* buffer, size_t size) const
{
    char path[32];
    std::snprintf(path, sizeof(path), "%d/stat", pid);
    const Descriptor file(::openat(m_root, path, O_RDONLY | O_CLOEXEC));
    if (file.get() < 0)
        return std::nullopt;
    const ssize_t length = ::read(file.get(), buffer, size - 1);
    if (length <= 0)
        return std::nullopt;
    buffer[length] = 0;
    // "pid (command) state ppid ...": the command may hold blanks and parentheses, so it ends
    // at the last ')'. The start time is the 22nd field.
    const char* open = static_cast<const char*>(std::memchr(buffer, '(', size_t(length)));
    const char* close = static_cast<const char*>(memrchr(buffer, ')', size_t(length)));
    if (!open || !close || close < open)
        return std::nullopt;
    const char* field = close + 1;
    for (int number = 2; number < 22; ++number) {
        field = std::strchr(field, ' ');
        if (!field)
            return std::nullopt;
        ++field;
    }
    char* end = nullptr;
    const unsigned long long startTime = std::strtoull(field, &end, 10);
    if (end == field)
        return std::nullopt;
    return Stat{startTime, QByteArrayView(open + 1, close - open - 1)};
}

bool ProcessTable::readDescriptors(Process& process)
{
    char path[32];
    std::snprintf(path, sizeof(path), "%d", process.pid);
    struct stat status {};
    if (::fstatat(m_root, path, &status, 0) != 0)
        return false;
    process.uid = status.st_uid;
    std::snprintf(path, sizeof(path), "%d/fd", process.pid);
    const Descriptor directory(::openat(m_root, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.get() < 0) {
        // Another user's process: present, but its descriptors are not ours to read.
        process.inspectable = false;
        return errno == EACCES || errno == EPERM;
    }
    process.inspectable = true;
    return readSocketFds(directory.get(), process.sockets);
}

bool ProcessTable::readSocketFds(int fdDirectory, std::vector<SocketFd>& sockets)
{
    char link[64];
    const bool listed = forEachEntry(fdDirectory, m_entries, [&](const char* name) {
        const int fd = numberOf(name);
        if (fd < 0)
            return;
        // A descriptor closed since the listing fails here and is rightly left out.
        const ssize_t length = ::readlinkat(fdDirectory, name, link, sizeof(link));
        if (const std::optional<quint64> inode = socketInode(link, length))
            sockets.push_back({fd, *inode});
    });
    if (!std::is_sorted(sockets.begin(), sockets.end(),
                        [](const SocketFd& a, const SocketFd& b) { return a.fd < b.fd; }))
        std::sort(sockets.begin(), sockets.end(),
                  [](const SocketFd& a, const SocketFd& b) { return a.fd < b.fd; });
    return listed;
}

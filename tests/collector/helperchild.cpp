#include "helperchild.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/sched.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <vector>

namespace {

struct Request {
    char command = 0;
    int a = 0;
    int b = 0;
    char text[16] = {};
};

// Sends `data` with `fd` attached when it is not -1.
bool sendWith(int control, const void* data, size_t size, int fd)
{
    iovec part{const_cast<void*>(data), size};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    alignas(cmsghdr) char space[CMSG_SPACE(sizeof(int))] = {};
    if (fd >= 0) {
        message.msg_control = space;
        message.msg_controllen = sizeof(space);
        cmsghdr* header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(sizeof(int));
        std::memcpy(CMSG_DATA(header), &fd, sizeof(int));
    }
    return sendmsg(control, &message, 0) == ssize_t(size);
}

// Receives `size` bytes and the descriptor attached, if any (-1 otherwise).
bool receiveWith(int control, void* data, size_t size, int* fd)
{
    iovec part{data, size};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    alignas(cmsghdr) char space[CMSG_SPACE(sizeof(int))] = {};
    message.msg_control = space;
    message.msg_controllen = sizeof(space);
    if (recvmsg(control, &message, MSG_CMSG_CLOEXEC) != ssize_t(size))
        return false;
    *fd = -1;
    if (cmsghdr* header = CMSG_FIRSTHDR(&message); header && header->cmsg_type == SCM_RIGHTS)
        std::memcpy(fd, CMSG_DATA(header), sizeof(int));
    return true;
}

int newListener()
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(fd, 8) != 0)
        return -1;
    return fd;
}

int perform(const Request& request, int passed, int control)
{
    switch (request.command) {
    case 'l':
        return newListener();
    case 'f':
        return open("/dev/null", O_RDONLY);
    case 'c':
        return ::close(request.a);
    case 'd':
        return ::dup2(request.a, request.b);
    case 'r':
        return passed;
    case 's':
        return sendWith(control, &request.a, sizeof(int), request.a) ? 0 : -1;
    case 'n':
        return prctl(PR_SET_NAME, request.text, 0, 0, 0);
    case 'u':
        return setresuid(uid_t(request.a), uid_t(request.a), uid_t(request.a));
    default:
        return -1;
    }
}

[[noreturn]] void serve(int control)
{
    // Ready: the test may look at this process from now on.
    const int ready = 0;
    if (write(control, &ready, sizeof(ready)) != sizeof(ready))
        _exit(1);
    for (;;) {
        Request request;
        int passed = -1;
        if (!receiveWith(control, &request, sizeof(request), &passed) || request.command == 'q')
            _exit(0);
        const int result = perform(request, passed, control);
        if (request.command != 's' && write(control, &result, sizeof(result)) != sizeof(result))
            _exit(1);
    }
}

// Closes every descriptor from 3 up but `control` and those in `keep`.
void closeOthers(std::initializer_list<int> keep, int control)
{
    std::vector<int> kept(keep);
    kept.push_back(control);
    std::sort(kept.begin(), kept.end());
    unsigned from = 3;
    for (const int fd : kept) {
        if (fd >= int(from)) {
            if (fd > int(from))
                close_range(from, unsigned(fd - 1), 0);
            from = unsigned(fd + 1);
        }
    }
    close_range(from, ~0u, 0);
}

} // namespace

HelperChild::HelperChild(std::initializer_list<int> keep)
{
    m_control = spawn(keep, std::nullopt, &m_pid);
}

std::optional<HelperChild> HelperChild::withPid(pid_t pid, std::initializer_list<int> keep)
{
    pid_t child = -1;
    const int control = spawn(keep, pid, &child);
    if (control < 0)
        return std::nullopt;
    return HelperChild(child, control);
}

int HelperChild::spawn(std::initializer_list<int> keep, const std::optional<pid_t>& pid,
                       pid_t* child)
{
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair) != 0)
        return -1;
    if (pid) {
        pid_t wanted = *pid;
        clone_args args{};
        args.exit_signal = SIGCHLD;
        args.set_tid = reinterpret_cast<quint64>(&wanted);
        args.set_tid_size = 1;
        *child = pid_t(syscall(SYS_clone3, &args, sizeof(args)));
    } else {
        *child = fork();
    }
    if (*child == 0) {
        ::close(pair[0]);
        closeOthers(keep, pair[1]);
        serve(pair[1]);
    }
    ::close(pair[1]);
    int ready = -1;
    if (*child < 0 || read(pair[0], &ready, sizeof(ready)) != sizeof(ready)) {
        ::close(pair[0]);
        return -1;
    }
    return pair[0];
}

HelperChild::HelperChild(HelperChild&& other) noexcept
    : m_pid(other.m_pid), m_control(other.m_control)
{
    other.m_pid = -1;
    other.m_control = -1;
}

HelperChild::~HelperChild()
{
    exit();
}

int HelperChild::request(char command, int a, int b, const QByteArray& text, int passFd,
                         int* received)
{
    Request request;
    request.command = command;
    request.a = a;
    request.b = b;
    std::memcpy(request.text, text.constData(), std::min<size_t>(text.size(), 15));
    if (!sendWith(m_control, &request, sizeof(request), passFd))
        return -1;
    int result = -1;
    int fd = -1;
    if (!receiveWith(m_control, &result, sizeof(result), &fd))
        return -1;
    if (received)
        *received = fd;
    return result;
}

int HelperChild::send(int fd)
{
    int received = -1;
    request('s', fd, 0, {}, -1, &received);
    return received;
}

void HelperChild::exit()
{
    if (m_control >= 0) {
        Request quit;
        quit.command = 'q';
        sendWith(m_control, &quit, sizeof(quit), -1);
        ::close(m_control);
        m_control = -1;
    }
    if (m_pid > 0)
        waitpid(m_pid, nullptr, 0);
    m_pid = -1;
}

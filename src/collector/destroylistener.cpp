#include "destroylistener.h"

#include "inetdiagdecoder.h"

#include <libmnl/libmnl.h>
#include <linux/sock_diag.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <utility>

namespace {

// What root asks for: the kernel charges each notice about 2 KiB, so this holds the notices of
// some 15 000 sockets closed at once, should the thread not run in the meantime.
constexpr int forcedBuffer = 16 << 20;
// One notice is a few hundred bytes; a datagram never holds more than one.
constexpr size_t readBufferSize = 8192;

int largestOrdinaryBuffer()
{
    int bytes = 0;
    if (FILE* file = std::fopen("/proc/sys/net/core/rmem_max", "re")) {
        if (std::fscanf(file, "%d", &bytes) != 1)
            bytes = 0;
        std::fclose(file);
    }
    return bytes > 0 ? bytes : 212992;
}

// The kernel's count of datagrams it dropped on this socket; nothing where it does not tell.
std::optional<quint32> droppedSoFar(int fd)
{
    quint32 memory[SK_MEMINFO_VARS] = {};
    socklen_t length = sizeof(memory);
    if (getsockopt(fd, SOL_SOCKET, SO_MEMINFO, memory, &length) != 0 ||
        length < (SK_MEMINFO_DROPS + 1) * sizeof(quint32))
        return std::nullopt;
    return memory[SK_MEMINFO_DROPS];
}

} // namespace

DestroyListener::DestroyListener(Options options) : m_options(options) {}

DestroyListener::~DestroyListener()
{
    m_stopping = true;
    if (m_thread.joinable()) {
        const quint64 one = 1;
        if (::write(m_wake, &one, sizeof(one)) < 0)
            std::perror("corvina: stopping the destroy listener");
        m_thread.join();
    }
    if (m_wake >= 0)
        ::close(m_wake);
    if (m_socket)
        mnl_socket_close(m_socket);
}

int DestroyListener::start()
{
    if (m_socket)
        return 0;
    if (const int error = open()) {
        if (m_socket)
            mnl_socket_close(m_socket);
        m_socket = nullptr;
        return error;
    }
    if (m_options.ownThread) {
        m_wake = eventfd(0, EFD_CLOEXEC);
        if (m_wake < 0)
            return errno;
        m_thread = std::thread([this] { run(); });
    }
    return 0;
}

int DestroyListener::open()
{
    m_socket = mnl_socket_open2(NETLINK_SOCK_DIAG, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (!m_socket || mnl_socket_bind(m_socket, 0, MNL_SOCKET_AUTOPID) < 0)
        return errno;
    for (int group : {SKNLGRP_INET_TCP_DESTROY, SKNLGRP_INET_UDP_DESTROY, SKNLGRP_INET6_TCP_DESTROY,
                      SKNLGRP_INET6_UDP_DESTROY}) {
        if (mnl_socket_setsockopt(m_socket, NETLINK_ADD_MEMBERSHIP, &group, sizeof(group)) < 0)
            return errno;
    }
    const int fd = mnl_socket_get_fd(m_socket);
    int bytes = m_options.receiveBuffer;
    // Forcing needs CAP_NET_ADMIN; without it, the ordinary ceiling.
    if (bytes > 0 ||
        setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &forcedBuffer, sizeof(forcedBuffer)) != 0) {
        if (bytes <= 0)
            bytes = largestOrdinaryBuffer();
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof(bytes));
    }
    m_drops = droppedSoFar(fd).value_or(0);
    return 0;
}

void DestroyListener::run()
{
    pollfd waits[2] = {{mnl_socket_get_fd(m_socket), POLLIN, 0}, {m_wake, POLLIN, 0}};
    while (!m_stopping) {
        if (poll(waits, 2, -1) < 0 && errno != EINTR)
            return;
        if (waits[1].revents)
            return;
        if (waits[0].revents && !drain())
            return;
    }
}

bool DestroyListener::drain()
{
    alignas(nlmsghdr) char buffer[readBufferSize];
    for (;;) {
        const ssize_t received = mnl_socket_recvfrom(m_socket, buffer, sizeof(buffer));
        if (received < 0) {
            if (errno == EINTR)
                continue;
            if (errno == EAGAIN)
                return true;
            if (errno != ENOBUFS)
                return false;
            // The kernel dropped notices; how many is counted at the take.
            std::lock_guard locker(m_lock);
            m_lost = std::max<quint64>(m_lost, 1);
            continue;
        }
        int left = int(received);
        for (auto* header = reinterpret_cast<const nlmsghdr*>(buffer); mnl_nlmsg_ok(header, left);
             header = mnl_nlmsg_next(header, &left)) {
            const InetDiagDecoder::Result decoded = InetDiagDecoder::decode(
                QByteArrayView(reinterpret_cast<const char*>(header), header->nlmsg_len), 0);
            if (decoded.socket)
                keep(*decoded.socket);
        }
    }
}

void DestroyListener::keep(const DiagSocket& socket)
{
    std::lock_guard locker(m_lock);
    if (m_pending.sockets.size() < m_options.maximumPending)
        m_pending.sockets.push_back(socket);
    else
        ++m_pending.lost;
}

DestroyListener::Batch DestroyListener::take()
{
    if (!m_socket)
        return {};
    if (!m_options.ownThread)
        drain();
    Batch batch;
    std::lock_guard locker(m_lock);
    std::swap(batch, m_pending);
    // The kernel's own count is exact; the flag of an overflow stands in where it has none.
    quint64 dropped = 0;
    if (const std::optional<quint32> drops = droppedSoFar(mnl_socket_get_fd(m_socket))) {
        dropped = quint32(*drops - m_drops);
        m_drops = *drops;
    }
    batch.lost += std::max(dropped, std::exchange(m_lost, 0));
    return batch;
}

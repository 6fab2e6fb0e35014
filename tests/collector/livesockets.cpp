#include "livesockets.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace {

// `address` as a socket address of its family, with `port`.
socklen_t socketAddress(const char* address, quint16 port, sockaddr_storage& storage)
{
    std::memset(&storage, 0, sizeof(storage));
    auto* ipv4 = reinterpret_cast<sockaddr_in*>(&storage);
    if (inet_pton(AF_INET, address, &ipv4->sin_addr) == 1) {
        ipv4->sin_family = AF_INET;
        ipv4->sin_port = htons(port);
        return sizeof(sockaddr_in);
    }
    auto* ipv6 = reinterpret_cast<sockaddr_in6*>(&storage);
    inet_pton(AF_INET6, address, &ipv6->sin6_addr);
    ipv6->sin6_family = AF_INET6;
    ipv6->sin6_port = htons(port);
    return sizeof(sockaddr_in6);
}

} // namespace

LiveSockets::~LiveSockets()
{
    for (const int fd : m_fds)
        ::close(fd);
}

int LiveSockets::adopt(int fd)
{
    if (fd >= 0)
        m_fds.push_back(fd);
    return fd;
}

void LiveSockets::close(int fd)
{
    m_fds.erase(std::remove(m_fds.begin(), m_fds.end(), fd), m_fds.end());
    ::close(fd);
}

int LiveSockets::listener(const char* address, int backlog)
{
    sockaddr_storage storage;
    const socklen_t length = socketAddress(address, 0, storage);
    const int fd = adopt(socket(storage.ss_family, SOCK_STREAM, 0));
    if (bind(fd, reinterpret_cast<sockaddr*>(&storage), length) != 0 || listen(fd, backlog) != 0)
        return -1;
    return fd;
}

std::pair<int, int> LiveSockets::connectedPair(int listener, const char* address)
{
    sockaddr_storage storage;
    const socklen_t length = socketAddress(address, port(listener), storage);
    const int client = adopt(socket(storage.ss_family, SOCK_STREAM, 0));
    if (connect(client, reinterpret_cast<sockaddr*>(&storage), length) != 0)
        return {-1, -1};
    return {client, adopt(accept(listener, nullptr, nullptr))};
}

int LiveSockets::datagram(const char* address, const char* peer, quint16 peerPort, int protocol)
{
    sockaddr_storage storage;
    const socklen_t length = socketAddress(address, 0, storage);
    const int fd = adopt(socket(storage.ss_family, SOCK_DGRAM, protocol));
    if (bind(fd, reinterpret_cast<sockaddr*>(&storage), length) != 0)
        return -1;
    if (peer) {
        const socklen_t peerLength = socketAddress(peer, peerPort, storage);
        if (connect(fd, reinterpret_cast<sockaddr*>(&storage), peerLength) != 0)
            return -1;
    }
    return fd;
}

int LiveSockets::stalledConnect(int listener)
{
    sockaddr_storage storage;
    const socklen_t length = socketAddress("127.0.0.1", port(listener), storage);
    const int fd = adopt(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
    connect(fd, reinterpret_cast<sockaddr*>(&storage), length);
    return fd;
}

bool LiveSockets::waitForState(int fd, int state)
{
    for (int i = 0; i < 200; ++i) {
        tcp_info info{};
        socklen_t length = sizeof(info);
        if (getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &length) == 0 && info.tcpi_state == state)
            return true;
        usleep(5000);
    }
    return false;
}

quint16 LiveSockets::port(int fd)
{
    sockaddr_storage storage{};
    socklen_t length = sizeof(storage);
    getsockname(fd, reinterpret_cast<sockaddr*>(&storage), &length);
    return storage.ss_family == AF_INET
               ? ntohs(reinterpret_cast<sockaddr_in*>(&storage)->sin_port)
               : ntohs(reinterpret_cast<sockaddr_in6*>(&storage)->sin6_port);
}

quint64 LiveSockets::inode(int fd)
{
    struct stat status {};
    fstat(fd, &status);
    return status.st_ino;
}

SocketRecords recordsOf(const SocketRecords& records, const QList<pid_t>& pids)
{
    SocketRecords mine;
    for (const SocketRecord& record : records) {
        if (pids.contains(pid_t(record.processId.toInt())))
            mine.append(record);
    }
    return mine;
}

const SocketRecord* recordOf(const SocketRecords& records, pid_t pid, int fd)
{
    const QString id = QString::number(pid);
    const QString descriptor = QString::number(fd) + u'u';
    for (const SocketRecord& record : records) {
        if (record.processId == id && record.fileDescriptor == descriptor)
            return &record;
    }
    return nullptr;
}

#pragma once

// Real sockets on the loopback interface for the tests that compare against the kernel and lsof.

#include "snapshot/socketrecord.h"

#include <QList>

#include <netinet/in.h>
#include <sys/types.h>

#include <vector>

// Opens sockets and closes, when it goes, every one still open.
class LiveSockets final {
public:
    LiveSockets() = default;
    LiveSockets(const LiveSockets&) = delete;
    LiveSockets& operator=(const LiveSockets&) = delete;
    ~LiveSockets();

    // A TCP listener on `address` ("127.0.0.1", "::", "::1"), any port.
    int listener(const char* address, int backlog = 16);
    // A connected TCP pair: {client, accepted}.
    std::pair<int, int> connectedPair(int listener, const char* address);
    // A UDP (or UDP-Lite) socket bound to `address`, connected to `peer`:`port` when given.
    int datagram(const char* address, const char* peer = nullptr, quint16 port = 0,
                 int protocol = IPPROTO_UDP);
    // A TCP socket whose connect stays in SYN_SENT: `listener` (backlog 0) is full.
    int stalledConnect(int listener);
    // Waits, up to a second, for a TCP socket to reach a state (netinet/tcp.h's numbers):
    // a FIN or an acknowledgement is on its way for a moment.
    static bool waitForState(int fd, int state);
    // Closes and forgets.
    void close(int fd);
    // Keeps `fd` to close later.
    int adopt(int fd);

    static quint16 port(int fd);
    static quint64 inode(int fd);

private:
    std::vector<int> m_fds;
};

// The records of these processes, in their order.
SocketRecords recordsOf(const SocketRecords& records, const QList<pid_t>& pids);
// The record of one descriptor, or null.
const SocketRecord* recordOf(const SocketRecords& records, pid_t pid, int fd);

#pragma once

#include "destroynotices.h"

#include <atomic>
#include <mutex>
#include <thread>

struct mnl_socket;

// Listens to the four destroy groups of NETLINK_SOCK_DIAG (TCP and UDP, over IPv4 and IPv6;
// the kernel announces no UDP-Lite socket). Any user may.
//
// A thread of its own drains the socket as notices come: a mass close announces thousands of
// sockets within milliseconds, and a refresh may be seconds away (or off), so draining only at
// each pass would need a buffer as big as everything that can close in a whole interval. The
// thread sleeps in poll() between notices, so it costs nothing at rest. The receive buffer
// only has to absorb a burst faster than the thread reads: root forces a large one
// (SO_RCVBUFFORCE), others take the largest the system lets them (net.core.rmem_max).
class DestroyListener final : public DestroyNotices {
public:
    struct Options {
        // Bytes asked for the receive buffer (the kernel doubles what it grants, for its
        // bookkeeping); 0: the largest this process may have.
        int receiveBuffer = 0;
        // Without its thread the socket is drained only at each take (tests that need an
        // overflow for certain).
        bool ownThread = true;
        // Notices kept between two takes; past that they are counted as lost.
        size_t maximumPending = 200000;
    };

    DestroyListener() : DestroyListener(Options{}) {}
    explicit DestroyListener(Options options);
    ~DestroyListener() override;
    DestroyListener(const DestroyListener&) = delete;
    DestroyListener& operator=(const DestroyListener&) = delete;

    int start() override;
    Batch take() override;

private:
    int open();
    void run();
    // Reads every notice waiting on the socket; false when the socket failed for good.
    bool drain();
    void keep(const DiagSocket& socket);

    Options m_options;
    mnl_socket* m_socket = nullptr;
    int m_wake = -1; // eventfd that stops the thread
    std::thread m_thread;
    std::mutex m_lock; // guards m_pending, m_lost and m_drops
    Batch m_pending;
    quint64 m_lost = 0;
    // The kernel's count of notices it dropped on this socket, at the last overflow seen.
    quint32 m_drops = 0;
    std::atomic<bool> m_stopping{false};
};

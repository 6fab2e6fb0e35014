#pragma once

#include "diagsocket.h"

#include <QtGlobal>

#include <vector>

// The kernel's notices of sockets as they are destroyed (the socket-diagnostics destroy groups):
// each with its addresses, state, cookie and final tcp_info, but no inode and no owner. Tests
// script them; the application listens to the kernel (DestroyListener).
class DestroyNotices {
public:
    virtual ~DestroyNotices() = default;

    struct Batch {
        // In the order the kernel sent them.
        std::vector<DiagSocket> sockets;
        // Notices the kernel dropped since the last take because the receive buffer was full,
        // or that were held back because too many waited: 0 when none were, at least 1 when
        // some were and the kernel could not say how many.
        quint64 lost = 0;
    };

    // Starts listening; answers 0, or the errno that refused it (then nothing is ever taken).
    virtual int start() = 0;
    // Everything received since the last take, without waiting.
    virtual Batch take() = 0;
};

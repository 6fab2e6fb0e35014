#pragma once

#include "collector/socketdestroyer.h"

#include <QString>

#include <functional>
#include <optional>

// Closes one TCP connection without touching its process: the kernel is asked directly when
// Corvina may destroy sockets itself (root), else the helper daemon, which closes the user's
// own connections.
class ConnectionCloser final {
public:
    // Null when the daemon could not be asked. Runs on any thread, exactly once.
    using Reply = std::function<void(std::optional<SocketDestroyer::Result>)>;

    // Never blocks the calling thread.
    static void close(const SocketIdentity& socket, Reply reply);

    // What the status bar says of an answer about `connection` ("10.0.0.2:51000 to ...").
    static QString describe(const std::optional<SocketDestroyer::Result>& result,
                            const QString& connection);
};

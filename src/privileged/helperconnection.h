#pragma once

#include "framedsocket.h"
#include "helperprotocol.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

// The client's one connection to the daemon. Requests are sent in order from a thread of the
// connection's own; each request's reply or error handler runs there, exactly once. The first
// failure at the socket level invalidates the connection: that request and every later one end
// in their error handler, and the owner replaces the connection.
class HelperConnection final {
public:
    using ReplyHandler = std::function<void(std::optional<std::string>)>;
    // Why a request got no reply. `refused`: the daemon's policy does not admit this user, which
    // no retry changes. `busy`: every slot this user may take was in use, which a later
    // request may find otherwise.
    struct Failure {
        std::string message;
        bool refused = false;
        bool busy = false;
    };
    using ErrorHandler = std::function<void(const Failure& failure)>;

    explicit HelperConnection(std::string socketPath, std::chrono::milliseconds replyTimeout =
                                                          HelperProtocol::kReplyTimeout);
    // Fails what is still queued and waits for the request in flight to end.
    ~HelperConnection();
    HelperConnection(const HelperConnection&) = delete;
    HelperConnection& operator=(const HelperConnection&) = delete;

    // Called once, on the connection's thread, when the connection becomes invalid.
    void setInvalidationHandler(std::function<void()> handler);
    void send(const HelperProtocol::Request& request, ReplyHandler reply, ErrorHandler error);
    void invalidate();
    bool isInvalidated() const { return m_invalidated.load(); }
    const std::string& socketPath() const { return m_socketPath; }

private:
    struct Pending {
        HelperProtocol::Request request;
        ReplyHandler reply;
        ErrorHandler error;
    };

    void work();
    // Nullopt with `failure` set on failure.
    std::optional<HelperProtocol::Reply> exchange(const HelperProtocol::Request& request,
                                                  Failure* failure);
    void markInvalid();

    const std::string m_socketPath;
    const std::chrono::milliseconds m_replyTimeout;
    std::atomic<bool> m_invalidated{false};

    std::mutex m_lock;
    std::condition_variable m_wake;
    std::deque<Pending> m_queue;
    bool m_stopping = false;
    int m_activeFd = -1;
    std::function<void()> m_invalidationHandler;
    std::thread m_thread;
};

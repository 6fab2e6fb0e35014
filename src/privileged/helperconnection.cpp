#include "helperconnection.h"

#include <sys/socket.h>

using HelperProtocol::Operation;

HelperConnection::HelperConnection(std::string socketPath, std::chrono::milliseconds replyTimeout)
    : m_socketPath(std::move(socketPath)), m_replyTimeout(replyTimeout)
{
    m_thread = std::thread([this] { work(); });
}

HelperConnection::~HelperConnection()
{
    {
        std::lock_guard lock(m_lock);
        m_stopping = true;
        m_invalidationHandler = nullptr;
        if (m_activeFd >= 0)
            ::shutdown(m_activeFd, SHUT_RDWR);
    }
    m_wake.notify_all();
    m_thread.join();
}

void HelperConnection::setInvalidationHandler(std::function<void()> handler)
{
    std::lock_guard lock(m_lock);
    m_invalidationHandler = std::move(handler);
}

void HelperConnection::send(const HelperProtocol::Request& request, ReplyHandler reply,
                            ErrorHandler error)
{
    {
        std::lock_guard lock(m_lock);
        m_queue.push_back({request, std::move(reply), std::move(error)});
    }
    m_wake.notify_all();
}

void HelperConnection::invalidate()
{
    std::lock_guard lock(m_lock);
    m_invalidated.store(true);
    if (m_activeFd >= 0)
        ::shutdown(m_activeFd, SHUT_RDWR);
    m_wake.notify_all();
}

void HelperConnection::markInvalid()
{
    std::function<void()> handler;
    {
        std::lock_guard lock(m_lock);
        m_invalidated.store(true);
        handler = std::exchange(m_invalidationHandler, nullptr);
    }
    if (handler)
        handler();
}

void HelperConnection::work()
{
    for (;;) {
        Pending next;
        {
            std::unique_lock lock(m_lock);
            m_wake.wait(lock, [this] { return m_stopping || !m_queue.empty(); });
            if (m_stopping) {
                std::deque<Pending> abandoned = std::move(m_queue);
                lock.unlock();
                for (Pending& pending : abandoned)
                    pending.error({"connection closed"});
                return;
            }
            next = std::move(m_queue.front());
            m_queue.pop_front();
        }
        if (m_invalidated.load()) {
            markInvalid();
            next.error({"connection invalidated"});
            continue;
        }
        Failure failure;
        const auto reply = exchange(next.request, &failure);
        if (!reply) {
            markInvalid();
            next.error(failure);
            continue;
        }
        next.reply(reply->value());
    }
}

// One socket per request: the daemon closes idle connections, and a fresh socket never meets
// a half-read reply of an earlier request.
std::optional<HelperProtocol::Reply>
HelperConnection::exchange(const HelperProtocol::Request& request, Failure* failure)
{
    const Operation operation = request.operation;
    std::string* error = &failure->message;
    FramedSocket socket = FramedSocket::connectTo(m_socketPath, error);
    if (!socket.isValid())
        return std::nullopt;
    {
        std::lock_guard lock(m_lock);
        if (m_stopping || m_invalidated.load()) {
            *error = "connection invalidated";
            return std::nullopt;
        }
        m_activeFd = socket.fd();
    }
    const auto deadline = FramedSocket::Clock::now() + m_replyTimeout;
    const FramedSocket::Result written =
        socket.writeFrame(HelperProtocol::encodeRequest(request), deadline);
    // A refusal or a busy reply is sent at once and the connection closed, without reading
    // the request: it may be waiting here even when the request could not be written.
    std::vector<std::uint8_t> payload;
    FramedSocket::Result result =
        socket.readFrame(payload, HelperProtocol::kMaxReplyFrame, deadline);
    if (result != FramedSocket::Result::Ok && written != FramedSocket::Result::Ok)
        result = written;
    {
        std::lock_guard lock(m_lock);
        m_activeFd = -1;
    }
    if (result != FramedSocket::Result::Ok) {
        *error = std::string("helper ") + HelperProtocol::operationName(operation) + ": " +
                 FramedSocket::describe(result);
        return std::nullopt;
    }
    HelperProtocol::DecodeError decodeError;
    auto reply = HelperProtocol::decodeReply(payload, &decodeError);
    if (!reply) {
        *error = "helper sent a bad reply: " + decodeError.message;
        return std::nullopt;
    }
    failure->refused = reply->status == HelperProtocol::Status::Refused;
    failure->busy = reply->status == HelperProtocol::Status::Busy;
    if (failure->refused)
        *error = "the helper refused this user: " + reply->text;
    else if (reply->status == HelperProtocol::Status::Busy)
        *error = "the helper is busy: " + reply->text;
    else if (reply->status == HelperProtocol::Status::BadRequest)
        *error = "the helper rejected the request: " + reply->text;
    else if (reply->operation != operation)
        *error = "the helper answered another operation";
    if (!error->empty())
        return std::nullopt;
    return reply;
}

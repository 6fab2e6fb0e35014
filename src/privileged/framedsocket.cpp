#include "framedsocket.h"

#include "helperprotocol.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

FramedSocket::~FramedSocket()
{
    close();
}

FramedSocket::FramedSocket(FramedSocket&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}

FramedSocket& FramedSocket::operator=(FramedSocket&& other) noexcept
{
    if (this != &other) {
        close();
        m_fd = std::exchange(other.m_fd, -1);
    }
    return *this;
}

void FramedSocket::close()
{
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
}

FramedSocket FramedSocket::connectTo(const std::string& path, std::string* error)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(address.sun_path)) {
        *error = "socket path '" + path + "' is empty or too long";
        return FramedSocket();
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    FramedSocket socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket.isValid()) {
        *error = std::string("cannot create a socket: ") + std::strerror(errno);
        return socket;
    }
    if (::connect(socket.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        *error = "cannot connect to " + path + ": " + std::strerror(errno);
        socket.close();
    }
    return socket;
}

bool FramedSocket::waitFor(short events, Clock::time_point deadline, Result* failure)
{
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) {
            *failure = Result::TimedOut;
            return false;
        }
        pollfd entry{m_fd, events, 0};
        const int ready = ::poll(&entry, 1, static_cast<int>(left.count()));
        if (ready > 0)
            return true;
        if (ready < 0 && errno != EINTR) {
            *failure = Result::Error;
            return false;
        }
    }
}

FramedSocket::Result FramedSocket::readExactly(std::uint8_t* out, std::size_t size,
                                               Clock::time_point deadline, bool atFrameStart)
{
    std::size_t done = 0;
    while (done < size) {
        Result failure = Result::Error;
        if (!waitFor(POLLIN, deadline, &failure))
            return failure;
        const ssize_t got = ::recv(m_fd, out + done, size - done, 0);
        if (got == 0)
            return (atFrameStart && done == 0) ? Result::Closed : Result::Truncated;
        if (got < 0) {
            if (errno == EINTR || errno == EAGAIN)
                continue;
            return errno == ECONNRESET && atFrameStart && done == 0 ? Result::Closed
                                                                    : Result::Error;
        }
        done += static_cast<std::size_t>(got);
    }
    return Result::Ok;
}

FramedSocket::Result FramedSocket::readFrame(std::vector<std::uint8_t>& payload,
                                             std::size_t maxSize, Clock::time_point deadline)
{
    return readFrame(payload, maxSize, 0, {}, deadline);
}

FramedSocket::Result FramedSocket::readFrame(std::vector<std::uint8_t>& payload,
                                             std::size_t maxSize, std::size_t prefixSize,
                                             const FrameLimit& limitFor, Clock::time_point deadline)
{
    payload.clear();
    if (!isValid())
        return Result::Error;
    std::uint8_t header[HelperProtocol::kFrameHeaderSize];
    Result result = readExactly(header, sizeof(header), deadline, true);
    if (result != Result::Ok)
        return result;
    const std::uint32_t length = HelperProtocol::getLength(header);
    // Checked before allocating: a frame that claims gigabytes must not cost gigabytes.
    if (length > maxSize)
        return Result::TooLarge;
    // Memory follows the bytes that arrive, not the length claimed: a peer that announces the
    // largest frame and then sends nothing costs a chunk, not the whole limit.
    constexpr std::size_t kChunk = 64 * 1024;
    std::size_t done = 0;
    // A frame shorter than the prefix is read whole: decoding refuses it.
    if (limitFor && length >= prefixSize) {
        payload.resize(prefixSize);
        result = readExactly(payload.data(), prefixSize, deadline, false);
        if (result == Result::Ok && length > limitFor(payload.data()))
            result = Result::TooLarge;
        if (result != Result::Ok) {
            payload.clear();
            return result;
        }
        done = prefixSize;
    }
    while (done < length) {
        const std::size_t chunk = std::min<std::size_t>(kChunk, length - done);
        payload.resize(done + chunk);
        result = readExactly(payload.data() + done, chunk, deadline, false);
        if (result != Result::Ok) {
            payload.clear();
            return result;
        }
        done += chunk;
    }
    return Result::Ok;
}

FramedSocket::Result FramedSocket::writeRaw(const std::uint8_t* data, std::size_t size,
                                            Clock::time_point deadline)
{
    if (!isValid())
        return Result::Error;
    std::size_t done = 0;
    while (done < size) {
        Result failure = Result::Error;
        if (!waitFor(POLLOUT, deadline, &failure))
            return failure;
        // MSG_NOSIGNAL: a client that hangs up mid-reply must not kill the daemon with SIGPIPE.
        const ssize_t sent = ::send(m_fd, data + done, size - done, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0) {
            if (errno == EINTR || errno == EAGAIN)
                continue;
            return Result::Error;
        }
        done += static_cast<std::size_t>(sent);
    }
    return Result::Ok;
}

FramedSocket::Result FramedSocket::writeFrame(const std::vector<std::uint8_t>& payload,
                                              Clock::time_point deadline)
{
    if (payload.size() > UINT32_MAX)
        return Result::TooLarge;
    std::uint8_t header[HelperProtocol::kFrameHeaderSize];
    HelperProtocol::putLength(header, static_cast<std::uint32_t>(payload.size()));
    const Result result = writeRaw(header, sizeof(header), deadline);
    if (result != Result::Ok)
        return result;
    return writeRaw(payload.data(), payload.size(), deadline);
}

const char* FramedSocket::describe(Result result)
{
    switch (result) {
    case Result::Ok:
        return "ok";
    case Result::Closed:
        return "the connection was closed";
    case Result::Truncated:
        return "the connection was closed inside a frame";
    case Result::TimedOut:
        return "timed out";
    case Result::TooLarge:
        return "the frame is larger than allowed";
    case Result::Error:
        return "socket error";
    }
    return "unknown";
}

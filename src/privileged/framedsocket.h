#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

// One end of a Unix stream socket that carries length-prefixed frames. Every read and write is
// bounded by a deadline and every frame by a size limit, so a silent or lying peer costs at most
// the deadline. Owns its descriptor.
class FramedSocket final {
public:
    using Clock = std::chrono::steady_clock;

    enum class Result {
        Ok,
        // The peer closed the connection before the first byte of a frame.
        Closed,
        // The peer closed the connection inside a frame.
        Truncated,
        TimedOut,
        TooLarge,
        Error,
    };

    explicit FramedSocket(int fd = -1) : m_fd(fd) {}
    ~FramedSocket();
    FramedSocket(FramedSocket&& other) noexcept;
    FramedSocket& operator=(FramedSocket&& other) noexcept;
    FramedSocket(const FramedSocket&) = delete;
    FramedSocket& operator=(const FramedSocket&) = delete;

    // Connects to the socket at `path`; on failure the result is not valid and `error` says why.
    static FramedSocket connectTo(const std::string& path, std::string* error);

    bool isValid() const { return m_fd >= 0; }
    int fd() const { return m_fd; }
    void close();
    // Gives up ownership of the descriptor without closing it.
    int release() { return std::exchange(m_fd, -1); }

    Result readFrame(std::vector<std::uint8_t>& payload, std::size_t maxSize,
                     Clock::time_point deadline);
    // As readFrame, for a frame whose own limit (at most `maxSize`) depends on its first
    // `prefixSize` bytes, a request's version and operation: they are read first, and a frame
    // that claims more than limitFor(prefix) is TooLarge before the rest is read.
    using FrameLimit = std::function<std::size_t(const std::uint8_t* prefix)>;
    Result readFrame(std::vector<std::uint8_t>& payload, std::size_t maxSize,
                     std::size_t prefixSize, const FrameLimit& limitFor,
                     Clock::time_point deadline);
    Result writeFrame(const std::vector<std::uint8_t>& payload, Clock::time_point deadline);
    // Writes raw bytes as they are, for tests that speak broken protocol.
    Result writeRaw(const std::uint8_t* data, std::size_t size, Clock::time_point deadline);

    static const char* describe(Result result);

private:
    Result readExactly(std::uint8_t* out, std::size_t size, Clock::time_point deadline,
                       bool atFrameStart);
    bool waitFor(short events, Clock::time_point deadline, Result* failure);

    int m_fd = -1;
};

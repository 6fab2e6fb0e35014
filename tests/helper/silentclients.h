#pragma once

#include "privileged/framedsocket.h"
#include "privileged/helperprotocol.h"

#include <algorithm>
#include <poll.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

// How many of `sockets` the daemon turned away busy. Waits for `expected` of them (the daemon
// answers in the order it accepts, which is the order of connecting), then takes whatever else
// has arrived by then.
inline int countBusy(std::vector<FramedSocket>& sockets, int expected)
{
    std::vector<bool> answered(sockets.size(), false);
    int busy = 0;
    const auto sweep = [&](int waitMs) {
        std::vector<pollfd> entries;
        for (std::size_t i = 0; i < sockets.size(); ++i)
            entries.push_back({answered[i] ? -1 : sockets[i].fd(), POLLIN, 0});
        if (::poll(entries.data(), entries.size(), waitMs) <= 0)
            return;
        for (std::size_t i = 0; i < sockets.size(); ++i) {
            if (entries[i].revents == 0)
                continue;
            answered[i] = true;
            std::vector<std::uint8_t> payload;
            if (sockets[i].readFrame(payload, 64,
                                     FramedSocket::Clock::now() + std::chrono::seconds(1)) ==
                    FramedSocket::Result::Ok &&
                payload.size() >= 3 &&
                payload[2] == static_cast<std::uint8_t>(HelperProtocol::Status::Busy))
                ++busy;
        }
    };
    const auto deadline = FramedSocket::Clock::now() + std::chrono::seconds(5);
    while (busy < expected && FramedSocket::Clock::now() < deadline)
        sweep(50);
    sweep(0);
    return busy;
}

// `count` connections that never send a request, opened one after the other by a child
// process running as `uid` and held until this object goes away.
class SilentClients {
public:
    SilentClients(const std::string& socketPath, uid_t uid, int count, int expectedBusy)
    {
        int result[2];
        int release[2];
        if (::pipe(result) != 0 || ::pipe(release) != 0)
            return;
        m_child = ::fork();
        if (m_child == 0) {
            // Only its own pipe ends: another holder's release end kept open here would keep
            // that holder's child waiting for ever.
            const unsigned low = unsigned(std::min(result[1], release[0]));
            const unsigned high = unsigned(std::max(result[1], release[0]));
            ::close_range(3, low - 1, 0);
            ::close_range(low + 1, high - 1, 0);
            ::close_range(high + 1, ~0U, 0);
            if (uid != ::getuid() && (::setgid(uid) != 0 || ::setuid(uid) != 0))
                ::_exit(1);
            std::vector<FramedSocket> sockets;
            for (int i = 0; i < count; ++i) {
                std::string error;
                sockets.push_back(FramedSocket::connectTo(socketPath, &error));
            }
            const int busy = countBusy(sockets, expectedBusy);
            [[maybe_unused]] const ssize_t written = ::write(result[1], &busy, sizeof busy);
            char ignored = 0;
            [[maybe_unused]] const ssize_t got = ::read(release[0], &ignored, 1);
            ::_exit(0);
        }
        ::close(result[1]);
        ::close(release[0]);
        m_release = release[1];
        if (m_child < 0 || ::read(result[0], &m_busy, sizeof m_busy) != sizeof m_busy)
            m_busy = -1;
        ::close(result[0]);
    }
    ~SilentClients()
    {
        if (m_release >= 0)
            ::close(m_release);
        if (m_child > 0)
            ::waitpid(m_child, nullptr, 0);
    }
    SilentClients(const SilentClients&) = delete;
    SilentClients& operator=(const SilentClients&) = delete;

    int busy() const { return m_busy; }

private:
    pid_t m_child = -1;
    int m_release = -1;
    int m_busy = -1;
};

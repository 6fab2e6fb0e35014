#pragma once

#include "collector/socketdestroyer.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

// A TCP connection of the test's own on the loopback interface: a listener, the connecting
// socket (client) and the accepted one (server), all closed when it goes.
class LoopbackConnection final {
public:
    explicit LoopbackConnection(int family = AF_INET)
    {
        sockaddr_storage address{};
        socklen_t length = 0;
        if (family == AF_INET) {
            auto* ipv4 = reinterpret_cast<sockaddr_in*>(&address);
            ipv4->sin_family = AF_INET;
            ipv4->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            length = sizeof(sockaddr_in);
        } else {
            auto* ipv6 = reinterpret_cast<sockaddr_in6*>(&address);
            ipv6->sin6_family = AF_INET6;
            ipv6->sin6_addr = in6addr_loopback;
            length = sizeof(sockaddr_in6);
        }
        listener = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (::bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
            ::listen(listener, 4) != 0 ||
            ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0)
            return;
        client = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (::connect(client, reinterpret_cast<sockaddr*>(&address), length) != 0)
            return;
        server = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    }
    ~LoopbackConnection()
    {
        for (int fd : {listener, client, server}) {
            if (fd >= 0)
                ::close(fd);
        }
    }
    LoopbackConnection(const LoopbackConnection&) = delete;
    LoopbackConnection& operator=(const LoopbackConnection&) = delete;

    bool isOpen() const { return client >= 0 && server >= 0; }

    // What the kernel calls the socket `fd`: its endpoints and its cookie.
    static SocketIdentity identityOf(int fd)
    {
        SocketIdentity identity;
        sockaddr_storage local{};
        sockaddr_storage remote{};
        socklen_t length = sizeof(local);
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&local), &length);
        length = sizeof(remote);
        ::getpeername(fd, reinterpret_cast<sockaddr*>(&remote), &length);
        identity.family = static_cast<std::uint8_t>(local.ss_family);
        identity.protocol = IPPROTO_TCP;
        const auto endpoint = [](const sockaddr_storage& address, std::uint8_t* bytes,
                                 std::uint16_t* port) {
            if (address.ss_family == AF_INET) {
                const auto* ipv4 = reinterpret_cast<const sockaddr_in*>(&address);
                std::memcpy(bytes, &ipv4->sin_addr, 4);
                *port = ntohs(ipv4->sin_port);
            } else {
                const auto* ipv6 = reinterpret_cast<const sockaddr_in6*>(&address);
                std::memcpy(bytes, &ipv6->sin6_addr, 16);
                *port = ntohs(ipv6->sin6_port);
            }
        };
        endpoint(local, identity.localAddress.data(), &identity.localPort);
        endpoint(remote, identity.remoteAddress.data(), &identity.remotePort);
        socklen_t cookieLength = sizeof(identity.cookie);
        ::getsockopt(fd, SOL_SOCKET, SO_COOKIE, &identity.cookie, &cookieLength);
        return identity;
    }

    // What a read on `fd` gives once something arrives (within a second): 0 at an orderly
    // end, the errno of a failed read, or -1 when data or nothing came.
    static int readOutcome(int fd)
    {
        pollfd entry{fd, POLLIN, 0};
        if (::poll(&entry, 1, 1000) != 1)
            return -1;
        char byte = 0;
        const ssize_t got = ::recv(fd, &byte, 1, MSG_DONTWAIT);
        if (got == 0)
            return 0;
        return got < 0 ? errno : -1;
    }

    int listener = -1;
    int client = -1;
    int server = -1;
};

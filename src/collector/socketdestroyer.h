#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include <netinet/in.h>
#include <sys/socket.h>

// One TCP connection as the kernel's socket diagnostics name it: the two endpoints and the
// socket's cookie, which tells this socket from a later one that reuses the same endpoints.
struct SocketIdentity {
    std::uint8_t family = 0;   // AF_INET or AF_INET6
    std::uint8_t protocol = 0; // IPPROTO_TCP: the only protocol destroyed here
    // Network order; an IPv4 address fills the first four bytes, the rest stays zero.
    std::array<std::uint8_t, 16> localAddress{};
    std::array<std::uint8_t, 16> remoteAddress{};
    std::uint16_t localPort = 0; // host order
    std::uint16_t remotePort = 0;
    std::uint64_t cookie = 0;

    bool operator==(const SocketIdentity&) const = default;

    // Empty when the fields can name a TCP connection, else why not. Inline, so the helper's
    // wire protocol checks requests with the very same rules without linking netlink.
    std::string validationError() const
    {
        if (family != AF_INET && family != AF_INET6)
            return "the family is neither IPv4 nor IPv6";
        if (protocol != IPPROTO_TCP)
            return "only TCP connections can be closed";
        const std::size_t length = family == AF_INET ? 4 : 16;
        bool remoteSet = false;
        for (std::size_t i = 0; i < 16; ++i) {
            if (i >= length && (localAddress[i] != 0 || remoteAddress[i] != 0))
                return "an IPv4 address has bytes past its fourth";
            remoteSet = remoteSet || remoteAddress[i] != 0;
        }
        if (!remoteSet || localPort == 0 || remotePort == 0)
            return "a connection has both ports and a remote address";
        // Zero is no socket's cookie, and all ones tells the kernel not to compare cookies.
        if (cookie == 0 || cookie == ~std::uint64_t(0))
            return "the cookie is not a socket's cookie";
        return {};
    }
};

// Closes a TCP connection with SOCK_DESTROY over NETLINK_SOCK_DIAG: the kernel aborts the
// socket (its owner's next call fails with ECONNABORTED) and resets the peer. Needs
// CAP_NET_ADMIN and a kernel built with CONFIG_INET_DIAG_DESTROY. Plain C++: the helper links it.
namespace SocketDestroyer {

enum class Outcome {
    Closed,
    NotSupported, // EOPNOTSUPP: the kernel cannot destroy sockets
    NotPermitted, // EPERM: CAP_NET_ADMIN is missing
    AlreadyGone,  // ENOENT: no such socket, or its cookie differs
    Invalid,      // a field cannot name a connection; nothing was asked
    Failed,       // any other answer
};

struct Result {
    Outcome outcome = Outcome::Failed;
    // Why, for Invalid, Failed and a NotPermitted that has more to say; may be empty.
    std::string detail;

    bool operator==(const Result&) const = default;
};

// What the kernel tells of a live socket without privileges.
struct SocketOwner {
    std::uint32_t uid = 0;   // the socket's owner: the process's uid when it was made
    std::uint32_t inode = 0; // 0 when no file holds it any more
};

Result destroy(const SocketIdentity& socket);
// The socket's owner and inode, or nullopt with `failure` saying why (AlreadyGone when the
// kernel has no such socket).
std::optional<SocketOwner> lookup(const SocketIdentity& socket, Result* failure);

// One line for a user: "closed", "not permitted: ...", "not supported by this kernel", ...
std::string describe(const Result& result);

} // namespace SocketDestroyer

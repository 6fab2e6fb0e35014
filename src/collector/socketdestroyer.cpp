#include "socketdestroyer.h"

#include <libmnl/libmnl.h>
#include <linux/inet_diag.h>
#include <linux/sock_diag.h>

#include <arpa/inet.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <vector>

namespace SocketDestroyer {
namespace {

struct NetlinkCloser {
    void operator()(mnl_socket* socket) const { mnl_socket_close(socket); }
};
using NetlinkSocket = std::unique_ptr<mnl_socket, NetlinkCloser>;

int readOwner(const nlmsghdr* header, void* data)
{
    if (header->nlmsg_type != SOCK_DIAG_BY_FAMILY ||
        mnl_nlmsg_get_payload_len(header) < sizeof(inet_diag_msg))
        return MNL_CB_OK;
    inet_diag_msg message;
    std::memcpy(&message, mnl_nlmsg_get_payload(header), sizeof(message));
    *static_cast<std::optional<SocketOwner>*>(data) =
        SocketOwner{message.idiag_uid, message.idiag_inode};
    return MNL_CB_OK;
}

void putRequest(nlmsghdr* header, const SocketIdentity& socket)
{
    auto* request = static_cast<inet_diag_req_v2*>(
        mnl_nlmsg_put_extra_header(header, sizeof(inet_diag_req_v2)));
    request->sdiag_family = socket.family;
    request->sdiag_protocol = socket.protocol;
    request->idiag_states = ~0u;
    request->id.idiag_sport = htons(socket.localPort);
    request->id.idiag_dport = htons(socket.remotePort);
    std::memcpy(request->id.idiag_src, socket.localAddress.data(), 16);
    std::memcpy(request->id.idiag_dst, socket.remoteAddress.data(), 16);
    request->id.idiag_cookie[0] = static_cast<std::uint32_t>(socket.cookie);
    request->id.idiag_cookie[1] = static_cast<std::uint32_t>(socket.cookie >> 32);
}

// Sends one request of `type` about `socket` and reads up to the kernel's acknowledgement:
// 0, or the errno the kernel answered. The kernel answers while it takes the request, so the
// receive time-out only guards against the unforeseen.
int ask(std::uint16_t type, const SocketIdentity& socket, std::optional<SocketOwner>* owner)
{
    NetlinkSocket netlink(mnl_socket_open2(NETLINK_SOCK_DIAG, SOCK_CLOEXEC));
    if (!netlink)
        return errno;
    const timeval patience{2, 0};
    ::setsockopt(mnl_socket_get_fd(netlink.get()), SOL_SOCKET, SO_RCVTIMEO, &patience,
                 sizeof(patience));
    if (mnl_socket_bind(netlink.get(), 0, MNL_SOCKET_AUTOPID) < 0)
        return errno;
    std::vector<char> buffer(MNL_SOCKET_BUFFER_SIZE);
    nlmsghdr* header = mnl_nlmsg_put_header(buffer.data());
    header->nlmsg_type = type;
    header->nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    const unsigned sequence = static_cast<unsigned>(std::time(nullptr));
    header->nlmsg_seq = sequence;
    putRequest(header, socket);
    if (mnl_socket_sendto(netlink.get(), header, header->nlmsg_len) < 0)
        return errno;
    const unsigned portId = mnl_socket_get_portid(netlink.get());
    for (;;) {
        const ssize_t received = mnl_socket_recvfrom(netlink.get(), buffer.data(), buffer.size());
        if (received < 0 && errno == EINTR)
            continue;
        if (received <= 0)
            return received < 0 ? errno : EPROTO;
        // An acknowledgement ends the exchange: errno holds the kernel's answer.
        errno = 0;
        const int result = mnl_cb_run(buffer.data(), static_cast<std::size_t>(received), sequence,
                                      portId, readOwner, owner);
        if (result < 0)
            return errno != 0 ? errno : EPROTO;
        if (result == MNL_CB_STOP)
            return 0;
    }
}

Result resultOf(int error)
{
    switch (error) {
    case 0:
        return {Outcome::Closed, {}};
    case EOPNOTSUPP:
        return {Outcome::NotSupported, {}};
    case EPERM:
    case EACCES:
        return {Outcome::NotPermitted, {}};
    // A socket whose cookie differs is another socket on the same endpoints: ours is gone.
    case ENOENT:
    case ESTALE:
        return {Outcome::AlreadyGone, {}};
    default:
        return {Outcome::Failed, std::strerror(error)};
    }
}

} // namespace

Result destroy(const SocketIdentity& socket)
{
    if (const std::string why = socket.validationError(); !why.empty())
        return {Outcome::Invalid, why};
    std::optional<SocketOwner> ignored;
    return resultOf(ask(SOCK_DESTROY, socket, &ignored));
}

std::optional<SocketOwner> lookup(const SocketIdentity& socket, Result* failure)
{
    if (const std::string why = socket.validationError(); !why.empty()) {
        *failure = {Outcome::Invalid, why};
        return std::nullopt;
    }
    std::optional<SocketOwner> owner;
    const int error = ask(SOCK_DIAG_BY_FAMILY, socket, &owner);
    if (error == 0 && owner)
        return owner;
    *failure = resultOf(error == 0 ? ENOENT : error);
    return std::nullopt;
}

std::string describe(const Result& result)
{
    switch (result.outcome) {
    case Outcome::Closed:
        return "closed";
    case Outcome::NotSupported:
        return "not supported by this kernel (it lacks CONFIG_INET_DIAG_DESTROY)";
    case Outcome::NotPermitted:
        return "not permitted: " + (result.detail.empty()
                                        ? std::string("closing a connection needs CAP_NET_ADMIN")
                                        : result.detail);
    case Outcome::AlreadyGone:
        return "already gone";
    case Outcome::Invalid:
        return "not a connection: " + result.detail;
    case Outcome::Failed:
        break;
    }
    return "failed: " + result.detail;
}

} // namespace SocketDestroyer

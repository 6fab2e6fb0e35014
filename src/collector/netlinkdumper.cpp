#include "netlinkdumper.h"

#include <libmnl/libmnl.h>
#include <linux/inet_diag.h>
#include <linux/sock_diag.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>

namespace {

// The kernel fills a dump's messages up to 32 KiB at a time, whatever larger buffer we offer.
constexpr size_t bufferSize = 32768;

struct SinkCall {
    const SocketDiagSource::MessageSink* sink;
};

int deliver(const nlmsghdr* header, void* data)
{
    const auto* call = static_cast<const SinkCall*>(data);
    (*call->sink)(QByteArrayView(reinterpret_cast<const char*>(header), header->nlmsg_len));
    return MNL_CB_OK;
}

// A dump that fails part-way ends with NLMSG_DONE carrying the negative errno: libmnl's own
// handler would take it for success.
int done(const nlmsghdr* header, void*)
{
    int error = 0;
    if (mnl_nlmsg_get_payload_len(header) >= sizeof(error))
        std::memcpy(&error, mnl_nlmsg_get_payload(header), sizeof(error));
    if (error >= 0)
        return MNL_CB_STOP;
    errno = -error;
    return MNL_CB_ERROR;
}

} // namespace

NetlinkDumper::NetlinkDumper() : m_sequence(unsigned(std::time(nullptr))), m_buffer(bufferSize) {}

NetlinkDumper::~NetlinkDumper()
{
    close();
}

int NetlinkDumper::open()
{
    if (m_socket)
        return 0;
    m_socket = mnl_socket_open2(NETLINK_SOCK_DIAG, SOCK_CLOEXEC);
    if (!m_socket)
        return errno;
    if (mnl_socket_bind(m_socket, 0, MNL_SOCKET_AUTOPID) < 0) {
        const int error = errno;
        close();
        return error;
    }
    m_portId = mnl_socket_get_portid(m_socket);
    return 0;
}

void NetlinkDumper::close()
{
    if (m_socket)
        mnl_socket_close(m_socket);
    m_socket = nullptr;
}

int NetlinkDumper::dump(const DiagQuery& query, const MessageSink& sink)
{
    if (const int error = open())
        return error;
    int error = request(query);
    if (!error)
        error = receive(sink);
    if (error)
        close();
    return error;
}

int NetlinkDumper::request(const DiagQuery& query)
{
    nlmsghdr* header = mnl_nlmsg_put_header(m_buffer.data());
    header->nlmsg_type = SOCK_DIAG_BY_FAMILY;
    header->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    header->nlmsg_seq = ++m_sequence;
    auto* request = static_cast<inet_diag_req_v2*>(
        mnl_nlmsg_put_extra_header(header, sizeof(inet_diag_req_v2)));
    request->sdiag_family = query.family;
    request->sdiag_protocol = query.protocol;
    request->idiag_states = query.states;
    request->idiag_ext = query.extensions;
    if (mnl_socket_sendto(m_socket, header, header->nlmsg_len) < 0)
        return errno;
    return 0;
}

int NetlinkDumper::receive(const MessageSink& sink)
{
    SinkCall call{&sink};
    for (;;) {
        const ssize_t received = mnl_socket_recvfrom(m_socket, m_buffer.data(), m_buffer.size());
        if (received < 0) {
            if (errno == EINTR)
                continue;
            return errno;
        }
        if (received == 0)
            return EPROTO;
        // An error answer sets errno to the kernel's reason; NLMSG_DONE ends the dump.
        std::array<mnl_cb_t, NLMSG_MIN_TYPE> control{};
        control[NLMSG_DONE] = done;
        errno = 0;
        const int result = mnl_cb_run2(m_buffer.data(), size_t(received), m_sequence, m_portId,
                                       deliver, &call, control.data(), unsigned(control.size()));
        if (result < 0)
            return errno ? errno : EPROTO;
        if (result == MNL_CB_STOP)
            return 0;
    }
}

#pragma once

#include "socketdiagsource.h"

#include <vector>

struct mnl_socket;

// Dumps the kernel's socket table over NETLINK_SOCK_DIAG. The socket opens on first use and
// stays open between dumps; a dump that fails part-way closes it, so no stale answer can
// reach the next one.
class NetlinkDumper final : public SocketDiagSource {
public:
    NetlinkDumper();
    ~NetlinkDumper() override;
    NetlinkDumper(const NetlinkDumper&) = delete;
    NetlinkDumper& operator=(const NetlinkDumper&) = delete;

    int dump(const DiagQuery& query, const MessageSink& sink) override;

private:
    int open();
    void close();
    int request(const DiagQuery& query);
    int receive(const MessageSink& sink);

    mnl_socket* m_socket = nullptr;
    unsigned m_portId = 0;
    unsigned m_sequence = 0;
    std::vector<char> m_buffer;
};

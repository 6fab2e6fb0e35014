#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

// Credentials of the process at the other end of a Unix socket, as the kernel saw it connect.
struct PeerCredentials {
    pid_t pid = 0;
    uid_t uid = 0;
    gid_t gid = 0;

    // False when the descriptor is not a connected Unix socket.
    static bool read(int fd, PeerCredentials* out);
};

// Who may talk to the daemon: root, members of one group (created by the installer), and uids
// named explicitly (a user's own daemon started for a test or a manual run).
class PeerPolicy final {
public:
    PeerPolicy() : m_groupName(kDefaultGroup) {}
    explicit PeerPolicy(std::string groupName, std::vector<uid_t> allowedUids = {})
        : m_groupName(std::move(groupName)), m_allowedUids(std::move(allowedUids))
    {
    }

    static constexpr const char* kDefaultGroup = "corvina";

    bool allows(const PeerCredentials& peer) const;

private:
    bool isGroupMember(uid_t uid, gid_t primaryGid) const;

    std::string m_groupName;
    std::vector<uid_t> m_allowedUids;
};

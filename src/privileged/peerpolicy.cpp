#include "peerpolicy.h"

#include <algorithm>
#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

bool PeerCredentials::read(int fd, PeerCredentials* out)
{
    ucred credentials{};
    socklen_t length = sizeof(credentials);
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0 ||
        length != sizeof(credentials))
        return false;
    out->pid = credentials.pid;
    out->uid = credentials.uid;
    out->gid = credentials.gid;
    return true;
}

bool PeerPolicy::allows(const PeerCredentials& peer) const
{
    if (peer.uid == 0)
        return true;
    if (std::find(m_allowedUids.begin(), m_allowedUids.end(), peer.uid) != m_allowedUids.end())
        return true;
    return isGroupMember(peer.uid, peer.gid);
}

// Membership is read from the group database, so a user added to the group is allowed without
// logging in again; a missing group allows nobody.
bool PeerPolicy::isGroupMember(uid_t uid, gid_t primaryGid) const
{
    if (m_groupName.empty())
        return false;
    std::vector<char> buffer(16384);
    group groupEntry{};
    group* foundGroup = nullptr;
    if (::getgrnam_r(m_groupName.c_str(), &groupEntry, buffer.data(), buffer.size(), &foundGroup) !=
            0 ||
        foundGroup == nullptr)
        return false;
    const gid_t wanted = foundGroup->gr_gid;
    if (primaryGid == wanted)
        return true;

    std::vector<char> userBuffer(16384);
    passwd userEntry{};
    passwd* foundUser = nullptr;
    if (::getpwuid_r(uid, &userEntry, userBuffer.data(), userBuffer.size(), &foundUser) != 0 ||
        foundUser == nullptr)
        return false;
    int count = 64;
    std::vector<gid_t> groups(static_cast<std::size_t>(count));
    if (::getgrouplist(foundUser->pw_name, foundUser->pw_gid, groups.data(), &count) < 0) {
        groups.resize(static_cast<std::size_t>(count));
        if (::getgrouplist(foundUser->pw_name, foundUser->pw_gid, groups.data(), &count) < 0)
            return false;
    }
    groups.resize(static_cast<std::size_t>(count));
    return std::find(groups.begin(), groups.end(), wanted) != groups.end();
}

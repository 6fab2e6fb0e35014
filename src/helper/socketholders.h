#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

// The processes that hold a socket open, found through /proc/PID/fd, with their uids: whom a
// connection belongs to when the daemon is asked to close it.
namespace SocketHolders {

struct Holder {
    pid_t pid = 0;
    // Real, effective, saved and file-system uid, as /proc/PID/status lists them.
    std::array<uid_t, 4> uids{};
};

// Processes whose descriptors root cannot read are left out; so is a process that ends while
// it is read.
std::vector<Holder> of(std::uint32_t inode, const std::string& procRoot = "/proc");

} // namespace SocketHolders

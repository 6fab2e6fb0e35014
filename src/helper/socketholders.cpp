#include "socketholders.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace SocketHolders {
namespace {

struct DirCloser {
    void operator()(DIR* dir) const { ::closedir(dir); }
};
using Dir = std::unique_ptr<DIR, DirCloser>;

bool isNumber(const char* name)
{
    if (*name == '\0')
        return false;
    for (; *name != '\0'; ++name) {
        if (!std::isdigit(static_cast<unsigned char>(*name)))
            return false;
    }
    return true;
}

bool holds(const std::string& fdFolder, const std::string& target)
{
    const Dir folder(::opendir(fdFolder.c_str()));
    if (!folder)
        return false;
    char link[64];
    while (const dirent* entry = ::readdir(folder.get())) {
        const ssize_t length =
            ::readlinkat(::dirfd(folder.get()), entry->d_name, link, sizeof(link));
        if (length == static_cast<ssize_t>(target.size()) &&
            std::memcmp(link, target.data(), target.size()) == 0)
            return true;
    }
    return false;
}

bool readUids(const std::string& statusPath, std::array<uid_t, 4>* uids)
{
    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(statusPath.c_str(), "re"), std::fclose);
    if (!file)
        return false;
    char line[256];
    while (std::fgets(line, sizeof(line), file.get()) != nullptr) {
        unsigned values[4];
        if (std::sscanf(line, "Uid: %u %u %u %u", &values[0], &values[1], &values[2], &values[3]) ==
            4) {
            for (int i = 0; i < 4; ++i)
                (*uids)[i] = static_cast<uid_t>(values[i]);
            return true;
        }
    }
    return false;
}

} // namespace

std::vector<Holder> of(std::uint32_t inode, const std::string& procRoot)
{
    std::vector<Holder> holders;
    const Dir proc(::opendir(procRoot.c_str()));
    if (!proc || inode == 0)
        return holders;
    const std::string target = "socket:[" + std::to_string(inode) + "]";
    while (const dirent* entry = ::readdir(proc.get())) {
        if (!isNumber(entry->d_name))
            continue;
        const std::string folder = procRoot + '/' + entry->d_name;
        Holder holder;
        holder.pid = static_cast<pid_t>(std::atol(entry->d_name));
        if (holds(folder + "/fd", target) && readUids(folder + "/status", &holder.uids))
            holders.push_back(holder);
    }
    return holders;
}

} // namespace SocketHolders

#include "socketownerprogram.h"

#include "socketowners.skel.h"

#include <bpf/libbpf.h>
#include <fcntl.h>
#include <mntent.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstring>

namespace {

// The program's map value (struct owner in socketowners.bpf.c).
struct NotedOwner {
    std::uint32_t pid;
    std::uint32_t uid;
    char command[16];
};

// libbpf narrates every step on standard error; a refusal is told once, by load().
int quiet(libbpf_print_level, const char*, va_list)
{
    return 0;
}

// The root of the cgroup v2 hierarchy, where a program sees every process: /sys/fs/cgroup on
// most systems, /sys/fs/cgroup/unified beside version 1.
std::string cgroupRoot()
{
    std::string root;
    FILE* mounts = ::setmntent("/proc/self/mounts", "re");
    if (mounts == nullptr)
        return root;
    mntent entry{};
    char buffer[1024];
    while (root.empty() && ::getmntent_r(mounts, &entry, buffer, sizeof(buffer)) != nullptr) {
        if (std::strcmp(entry.mnt_type, "cgroup2") == 0)
            root = entry.mnt_dir;
    }
    ::endmntent(mounts);
    return root;
}

std::string failure(const std::string& what)
{
    return what + ": " + std::strerror(errno);
}

} // namespace

struct SocketOwnerProgram::Program {
    socketowners* skeleton = nullptr;
    int cgroup = -1;
    ~Program()
    {
        // The skeleton's links go with it, which detaches the program.
        socketowners__destroy(skeleton);
        if (cgroup >= 0)
            ::close(cgroup);
    }
};

SocketOwnerProgram::SocketOwnerProgram() = default;
SocketOwnerProgram::~SocketOwnerProgram() = default;

std::string SocketOwnerProgram::load()
{
    if (m_program)
        return {};
    libbpf_set_print(quiet);
    auto program = std::make_unique<Program>();
    const std::string root = cgroupRoot();
    if (root.empty())
        return "no cgroup v2 hierarchy is mounted";
    program->cgroup = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (program->cgroup < 0)
        return failure(root);
    program->skeleton = socketowners__open_and_load();
    if (!program->skeleton)
        return failure("eBPF");
    auto& links = program->skeleton->links;
    auto& hooks = program->skeleton->progs;
    links.note_creator = bpf_program__attach_cgroup(hooks.note_creator, program->cgroup);
    if (links.note_creator)
        links.note_releaser = bpf_program__attach_cgroup(hooks.note_releaser, program->cgroup);
    if (!links.note_creator || !links.note_releaser)
        return failure("eBPF");
    m_program = std::move(program);
    return {};
}

std::optional<SocketOwnerProgram::Owner> SocketOwnerProgram::ownerOf(std::uint64_t cookie) const
{
    if (!m_program)
        return std::nullopt;
    NotedOwner noted{};
    if (bpf_map__lookup_elem(m_program->skeleton->maps.owners, &cookie, sizeof(cookie), &noted,
                             sizeof(noted), 0) != 0)
        return std::nullopt;
    return Owner{noted.pid, noted.uid,
                 std::string(noted.command, ::strnlen(noted.command, sizeof(noted.command)))};
}

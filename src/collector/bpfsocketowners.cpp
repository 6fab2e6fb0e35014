#include "bpfsocketowners.h"

#include "socketowners.skel.h"

#include <QList>

#include <bpf/libbpf.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

using namespace Qt::StringLiterals;

namespace {

// The program's map value (struct owner in socketowners.bpf.c).
struct NotedOwner {
    quint32 pid;
    quint32 uid;
    char command[16];
};

// libbpf narrates every step on standard error; a refusal is told once, by start().
int quiet(libbpf_print_level, const char*, va_list)
{
    return 0;
}

// The root of the cgroup v2 hierarchy, where a program sees every process: /sys/fs/cgroup on
// most systems, /sys/fs/cgroup/unified beside version 1.
QByteArray cgroupRoot()
{
    QByteArray root;
    if (FILE* mounts = std::fopen("/proc/self/mounts", "re")) {
        char line[512];
        while (root.isEmpty() && std::fgets(line, sizeof(line), mounts)) {
            const QList<QByteArray> fields = QByteArray(line).split(' ');
            if (fields.size() > 2 && fields[2] == "cgroup2")
                root = fields[1];
        }
        std::fclose(mounts);
    }
    return root;
}

} // namespace

struct BpfSocketOwners::Program {
    socketowners* skeleton = nullptr;
    int cgroup = -1;
    ~Program()
    {
        socketowners__destroy(skeleton);
        if (cgroup >= 0)
            ::close(cgroup);
    }
};

BpfSocketOwners::BpfSocketOwners() = default;
BpfSocketOwners::~BpfSocketOwners() = default;

QString BpfSocketOwners::start()
{
    if (m_program)
        return {};
    libbpf_set_print(quiet);
    auto program = std::make_unique<Program>();
    const QByteArray root = cgroupRoot();
    if (root.isEmpty())
        return u"no cgroup v2 hierarchy is mounted"_s;
    program->cgroup = ::open(root.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (program->cgroup < 0)
        return QString::fromLocal8Bit(root + ": " + std::strerror(errno));
    program->skeleton = socketowners__open_and_load();
    if (!program->skeleton)
        return u"eBPF: "_s + QString::fromLocal8Bit(std::strerror(errno));
    // The skeleton's links are destroyed with it.
    auto& links = program->skeleton->links;
    auto& hooks = program->skeleton->progs;
    links.note_creator = bpf_program__attach_cgroup(hooks.note_creator, program->cgroup);
    if (links.note_creator)
        links.note_releaser = bpf_program__attach_cgroup(hooks.note_releaser, program->cgroup);
    if (!links.note_creator || !links.note_releaser)
        return u"eBPF: "_s + QString::fromLocal8Bit(std::strerror(errno));
    m_program = std::move(program);
    return {};
}

std::optional<SocketOwners::Owner> BpfSocketOwners::ownerOf(quint64 cookie)
{
    if (!m_program)
        return std::nullopt;
    NotedOwner noted{};
    if (bpf_map__lookup_elem(m_program->skeleton->maps.owners, &cookie, sizeof(cookie), &noted,
                             sizeof(noted), 0) != 0)
        return std::nullopt;
    Owner owner;
    owner.pid = int(noted.pid);
    owner.uid = noted.uid;
    owner.command = QByteArray(noted.command, int(strnlen(noted.command, sizeof(noted.command))));
    return owner;
}

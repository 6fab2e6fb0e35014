// Notes the process that owns each internet socket, by the socket's cookie, as the socket is
// made or let go: a connection that opens and closes between two
// refreshes is gone, and so may be its process, before anyone can read /proc. The collector
// looks the cookie up when the kernel announces the socket's end.
//
// Built with clang -target bpf; the kernel types below carry only the fields read here, and
// preserve_access_index lets libbpf fit their offsets to the running kernel (CO-RE).

#include <linux/bpf.h>
#include <linux/types.h>

#include <bpf/bpf_core_read.h>
#include <bpf/bpf_helpers.h>

typedef struct {
    __u32 val;
} kuid_t;

struct cred {
    kuid_t euid;
} __attribute__((preserve_access_index));

struct task_struct {
    struct task_struct* group_leader;
    const struct cred* cred;
    char comm[16];
} __attribute__((preserve_access_index));

// What the collector reads back; the same layout as BpfSocketOwners' copy.
struct owner {
    __u32 pid;
    __u32 uid;
    char command[16];
};

// Least recently used entries go first: a socket's entry is wanted only until its notice is
// read, moments after it closes.
struct {
    __uint(type, BPF_MAP_TYPE_LRU_HASH);
    __uint(max_entries, 65536);
    __type(key, __u64);
    __type(value, struct owner);
} owners SEC(".maps");

static __always_inline void note(struct bpf_sock* sk)
{
    // TCP and UDP only: the kernel announces the end of no other socket.
    if (sk->protocol != 6 && sk->protocol != 17)
        return;
    __u64 cookie = bpf_get_socket_cookie(sk);
    // The first owner stays: a descriptor handed to a child does not move the connection.
    if (bpf_map_lookup_elem(&owners, &cookie))
        return;
    struct owner owner = {};
    owner.pid = bpf_get_current_pid_tgid() >> 32;
    struct task_struct* task = (struct task_struct*)bpf_get_current_task();
    owner.uid = BPF_CORE_READ(task, cred, euid.val);
    // The process's name, as /proc/PID/stat gives it, not the calling thread's.
    BPF_CORE_READ_STR_INTO(&owner.command, task, group_leader, comm);
    bpf_map_update_elem(&owners, &cookie, &owner, BPF_NOEXIST);
}

// Both hooks run in the process's own context: at socket(), and when its last descriptor is
// closed (an accepted socket, made by the kernel on its own, is noted there), also when the
// process exits. They attach to the root of the cgroup hierarchy, so every process passes them;
// unlike fentry hooks they need no trampolines, which some kernels lack.
SEC("cgroup/sock_create")
int note_creator(struct bpf_sock* sk)
{
    note(sk);
    return 1; // allowed
}

SEC("cgroup/sock_release")
int note_releaser(struct bpf_sock* sk)
{
    note(sk);
    return 1;
}

char LICENSE[] SEC("license") = "Dual BSD/GPL";

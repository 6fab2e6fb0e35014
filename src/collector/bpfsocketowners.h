#pragma once

#include "socketowners.h"

#include <memory>

// Socket owners noted in the kernel by a small eBPF program (src/bpf/socketowners.bpf.c) as
// each socket is made and as its last descriptor is closed, in a bounded map read by cookie.
// The program attaches to the root of the cgroup v2 hierarchy and needs BTF, CAP_BPF and
// CAP_PERFMON (root); where any is missing, or where the build left the program out, start()
// says why and no owner is ever known.
class BpfSocketOwners final : public SocketOwners {
public:
    BpfSocketOwners();
    ~BpfSocketOwners() override;
    BpfSocketOwners(const BpfSocketOwners&) = delete;
    BpfSocketOwners& operator=(const BpfSocketOwners&) = delete;

    QString start() override;
    std::optional<Owner> ownerOf(quint64 cookie) override;

private:
    struct Program;
    std::unique_ptr<Program> m_program;
};

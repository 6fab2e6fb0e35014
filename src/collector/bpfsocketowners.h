#pragma once

#include "socketownerprogram.h"
#include "socketowners.h"

// Socket owners noted in the kernel by a small eBPF program (SocketOwnerProgram) as each socket
// is made and as its last descriptor is closed, in a bounded map read by cookie. It needs root;
// where the program cannot run, start() says why and no owner is ever known.
class BpfSocketOwners final : public SocketOwners {
public:
    QString start() override;
    std::optional<Owner> ownerOf(quint64 cookie) override;

private:
    SocketOwnerProgram m_program;
};

#include "socketownerprogram.h"

// This build has no eBPF program: clang, bpftool or libbpf-dev was missing.
struct SocketOwnerProgram::Program {};

SocketOwnerProgram::SocketOwnerProgram() = default;
SocketOwnerProgram::~SocketOwnerProgram() = default;

std::string SocketOwnerProgram::load()
{
    return "not built: clang, bpftool or libbpf-dev was missing";
}

std::optional<SocketOwnerProgram::Owner> SocketOwnerProgram::ownerOf(std::uint64_t) const
{
    return std::nullopt;
}

#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

// The socket-owner eBPF program (src/bpf/socketowners.bpf.c), loaded and attached, and its map
// of owners read by cookie. Plain C++: the helper daemon, which has no Qt, loads it for the
// ordinary users it serves, and the collector loads it where it runs as root.
//
// The program attaches to the root of the cgroup v2 hierarchy and needs BTF, CAP_BPF,
// CAP_PERFMON and CAP_NET_ADMIN; it stays attached while this object lives. Where any of these
// is missing, or where the build left the program out, load() says why.
class SocketOwnerProgram final {
public:
    struct Owner {
        std::uint32_t pid = 0;
        std::uint32_t uid = 0; // effective user
        std::string command;   // the kernel's command name of the process, up to 15 bytes
    };

    SocketOwnerProgram();
    ~SocketOwnerProgram();
    SocketOwnerProgram(const SocketOwnerProgram&) = delete;
    SocketOwnerProgram& operator=(const SocketOwnerProgram&) = delete;

    // Loads and attaches the program, once; empty when it runs, else why it cannot, in a few
    // words. Not thread-safe; ownerOf() is, once load() has returned.
    std::string load();
    bool isLoaded() const { return m_program != nullptr; }
    std::optional<Owner> ownerOf(std::uint64_t cookie) const;

private:
    struct Program;
    std::unique_ptr<Program> m_program;
};

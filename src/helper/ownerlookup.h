#pragma once

#include "collector/socketownerprogram.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

// The daemon's side of socketOwnersWithReply: the socket-owner eBPF program, loaded at the
// first request and kept attached while the daemon runs, read for each cookie asked about.
// Ordinary users' collectors hear their short-lived sockets close but cannot load the program;
// the daemon notes the owners for them. Safe to use from every connection's thread at once.
class OwnerLookup final {
public:
    // Disabled, it answers as a build without the program does (tests).
    explicit OwnerLookup(bool enabled = true) : m_enabled(enabled) {}

    // The reply's text (OwnersReply): the owners noted of `cookies`, each once, unknown ones
    // left out; or why no owner can be known. At most kMaxOwnerCookies map reads.
    std::string answer(const std::vector<std::uint64_t>& cookies);

private:
    const bool m_enabled;
    std::once_flag m_loading;
    SocketOwnerProgram m_program;
    std::string m_refusal; // written once, under m_loading
};

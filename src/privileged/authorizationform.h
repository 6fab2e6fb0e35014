#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <sys/types.h>

// The 32-byte external form of a client's authorization: who is asking, as polkit names a
// "unix-process" subject. Layout (big-endian): pid u32, uid u32, process start time u64 (clock
// ticks since boot, field 22 of /proc/PID/stat), 16 zero bytes.
struct AuthorizationForm {
    static constexpr std::size_t kSize = 32;
    using Bytes = std::array<std::uint8_t, kSize>;

    std::uint32_t pid = 0;
    std::uint32_t uid = 0;
    std::uint64_t startTime = 0;

    Bytes toBytes() const;
    // Null unless `size` is exactly kSize and the padding is zero.
    static std::optional<AuthorizationForm> fromBytes(const std::uint8_t* data, std::size_t size);
    // The form of the calling process; null when its start time cannot be read.
    static std::optional<AuthorizationForm> forCurrentProcess();
    // Start time of `pid` from /proc; null when the process is gone or the file is odd.
    static std::optional<std::uint64_t> processStartTime(pid_t pid);

    bool operator==(const AuthorizationForm&) const = default;
};

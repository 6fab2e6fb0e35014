#pragma once

#include "helperprotocol.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The text of a socketOwnersWithReply reply (docs/helper-protocol.md, "Owners reply"): either
//
//     owners N
//     COOKIE PID UID COMMAND      (N lines, each ended by a line feed)
//
// or "unavailable: " and why the daemon cannot note owners. Numbers are decimal; the command is
// the kernel's bytes with every byte outside 0x21-0x7e, and the backslash, written \xNN, as lsof
// writes command names, so the text is ASCII whatever the process called itself.
namespace OwnersReply {

inline constexpr std::string_view kKnown = "owners";
inline constexpr std::string_view kUnavailable = "unavailable";
// The kernel's command names are at most 15 bytes (TASK_COMM_LEN less its NUL).
inline constexpr std::size_t kMaxCommandBytes = 15;

struct Owner {
    std::uint64_t cookie = 0;
    std::uint32_t pid = 0;
    std::uint32_t uid = 0;
    std::string command; // as the kernel has it, unescaped

    bool operator==(const Owner&) const = default;
};

struct Answer {
    std::vector<Owner> owners;
    // Set when the daemon cannot note owners: why, in its words.
    std::optional<std::string> unavailable;
};

std::string knownText(const std::vector<Owner>& owners);
std::string unavailableText(std::string_view why);
// Nullopt, with `error` set, for a text that does not follow the form above, names more than
// kMaxOwnerCookies owners, or whose line count differs from N.
std::optional<Answer> parse(std::string_view text, HelperProtocol::DecodeError* error);

std::string escapedCommand(std::string_view bytes);
std::optional<std::string> unescapedCommand(std::string_view text);

} // namespace OwnersReply

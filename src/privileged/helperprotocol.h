#pragma once

#include "collector/socketdestroyer.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The wire protocol between the helper daemon and its clients (docs/helper-protocol.md).
// A frame is a 4-byte big-endian payload length followed by the payload. A request payload is
// [version][operation], followed for closeConnection by the socket it names and for
// socketOwners by the cookies it asks about; a reply payload is
// [version][operation][status] followed, for a text reply, by the UTF-8 text. Plain C++: the
// daemon links no Qt.
namespace HelperProtocol {

inline constexpr std::uint8_t kProtocolVersion = 1;
inline constexpr std::size_t kFrameHeaderSize = 4;
inline constexpr std::size_t kRequestSize = 2;
// What follows a closeConnection request's two bytes: family, protocol, local address and port,
// remote address and port, cookie.
inline constexpr std::size_t kCloseArgumentsSize = 46;
// What follows a socketOwners request's two bytes: the number of cookies, then the cookies.
inline constexpr std::size_t kOwnersCountSize = 2;
inline constexpr std::size_t kCookieSize = 8;
// A socketOwners request asks about at most this many sockets (a refresh's short-lived ones,
// which seldom number more than a few dozen): it bounds the daemon's work for one request.
inline constexpr std::size_t kMaxOwnerCookies = 4096;
inline constexpr std::size_t kReplyHeaderSize = 3;
// Every request but socketOwners is at most 48 bytes; anything longer than this is abuse, not a
// future extension.
inline constexpr std::size_t kMaxRequestFrame = 64;
inline constexpr std::size_t kMaxOwnersRequestFrame =
    kRequestSize + kOwnersCountSize + kMaxOwnerCookies * kCookieSize;
// lsof text for 100 000 sockets is about 15 MiB; a reply beyond this is refused by the client.
inline constexpr std::size_t kMaxReplyFrame = 64 * 1024 * 1024;
// Once a request's first byte has come, the client must deliver the rest within this time; it
// also bounds writing each reply.
inline constexpr std::chrono::milliseconds kRequestTimeout{5000};
// A connection that sends no request for this long (after it is made or after a reply) is
// closed: an idle client must not keep a slot from the others.
inline constexpr std::chrono::milliseconds kIdleTimeout{3000};
// The client waits this long for a reply: lsof's own bound plus a margin.
inline constexpr std::chrono::milliseconds kReplyTimeout{15000};
inline constexpr std::chrono::milliseconds kLsofTimeout{10000};
// corvina-sockets is bounded as lsof is: the client's reply time-out covers both.
inline constexpr std::chrono::milliseconds kCollectTimeout{10000};
inline constexpr std::size_t kMaxConnections = 32;
// One user (root excepted) holds at most this many connections at once.
inline constexpr std::size_t kMaxConnectionsPerPeer = 8;
// Slots of kMaxConnections that only root may take, so root is served however many users ask.
inline constexpr std::size_t kRootReservedConnections = 2;

enum class Operation : std::uint8_t {
    ConnectWithEndpoint = 1,
    GetVersion = 2,
    RunLsof = 3,
    RunCollector = 4,
    CloseConnection = 5,
    SocketOwners = 6,
};

enum class Status : std::uint8_t {
    Null = 0,
    Text = 1,
    // The peer is not allowed by the daemon's policy; the daemon closes the connection after it.
    Refused = 2,
    // The request was malformed or named no known operation; the connection is closed after it.
    BadRequest = 3,
    // Every slot this peer may take is in use; sent at once, then the connection is closed.
    Busy = 4,
};

struct Request {
    Request(Operation operation = Operation::GetVersion, SocketIdentity socket = {})
        : operation(operation), socket(socket)
    {
    }

    Operation operation;
    // closeConnection only: the connection to close, valid by SocketIdentity::validationError.
    SocketIdentity socket;
    // socketOwners only: the sockets asked about, at most kMaxOwnerCookies.
    std::vector<std::uint64_t> cookies;
};

struct Reply {
    Operation operation = Operation::GetVersion;
    Status status = Status::Null;
    std::string text;

    std::optional<std::string> value() const
    {
        if (status == Status::Text)
            return text;
        return std::nullopt;
    }
};

// Why a decode failed, in a sentence for a log.
struct DecodeError {
    std::string message;
};

// The longest request frame payload `operation` (a request's second byte) may have: a frame
// that claims more is refused before the rest of it is read.
std::size_t maxRequestFrame(std::uint8_t operation);
std::vector<std::uint8_t> encodeRequest(const Request& request);
std::optional<Request> decodeRequest(const std::vector<std::uint8_t>& payload, DecodeError* error);

std::vector<std::uint8_t> encodeReply(const Reply& reply);
// The length prefix and the reply header of a reply frame whose text has `textSize` bytes
// (none for a null reply): the text can then be written from where it lies, uncopied.
using ReplyFrameHead = std::array<std::uint8_t, kFrameHeaderSize + kReplyHeaderSize>;
ReplyFrameHead encodeReplyFrameHead(Operation operation, Status status, std::size_t textSize);
std::optional<Reply> decodeReply(const std::vector<std::uint8_t>& payload, DecodeError* error);

// A closeConnection reply's text: the outcome's code, then ": " and the detail when there is one.
std::string closeOutcomeText(const SocketDestroyer::Result& result);
// Nullopt for a text that starts with no known code.
std::optional<SocketDestroyer::Result> parseCloseOutcome(std::string_view text);
const char* closeOutcomeCode(SocketDestroyer::Outcome outcome);

bool isKnownOperation(std::uint8_t code);
const char* operationName(Operation operation);

void putLength(std::uint8_t* out, std::uint32_t length);
std::uint32_t getLength(const std::uint8_t* in);

bool isValidUtf8(std::string_view bytes);

} // namespace HelperProtocol

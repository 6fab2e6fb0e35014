#include "helperprotocol.h"

#include <algorithm>

namespace HelperProtocol {

bool isKnownOperation(std::uint8_t code)
{
    return code >= static_cast<std::uint8_t>(Operation::ConnectWithEndpoint) &&
           code <= static_cast<std::uint8_t>(Operation::SocketOwners);
}

std::size_t maxRequestFrame(std::uint8_t operation)
{
    return operation == static_cast<std::uint8_t>(Operation::SocketOwners) ? kMaxOwnersRequestFrame
                                                                           : kMaxRequestFrame;
}

const char* operationName(Operation operation)
{
    switch (operation) {
    case Operation::ConnectWithEndpoint:
        return "connectWithEndpointReply";
    case Operation::GetVersion:
        return "getVersionWithReply";
    case Operation::RunLsof:
        return "runLsofWithReply";
    case Operation::RunCollector:
        return "runCollectorWithReply";
    case Operation::CloseConnection:
        return "closeConnectionWithReply";
    case Operation::SocketOwners:
        return "socketOwnersWithReply";
    }
    return "unknown";
}

namespace {

// The family travels as the IP version, not as this system's AF_ number.
constexpr std::uint8_t kWireIpv4 = 4;
constexpr std::uint8_t kWireIpv6 = 6;

void putBigEndian(std::vector<std::uint8_t>& out, std::uint64_t value, int bytes)
{
    for (int i = bytes - 1; i >= 0; --i)
        out.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

std::uint64_t getBigEndian(const std::uint8_t* in, int bytes)
{
    std::uint64_t value = 0;
    for (int i = 0; i < bytes; ++i)
        value = (value << 8) | in[i];
    return value;
}

void encodeSocket(const SocketIdentity& socket, std::vector<std::uint8_t>& out)
{
    out.push_back(socket.family == AF_INET6 ? kWireIpv6 : kWireIpv4);
    out.push_back(socket.protocol);
    out.insert(out.end(), socket.localAddress.begin(), socket.localAddress.end());
    putBigEndian(out, socket.localPort, 2);
    out.insert(out.end(), socket.remoteAddress.begin(), socket.remoteAddress.end());
    putBigEndian(out, socket.remotePort, 2);
    putBigEndian(out, socket.cookie, 8);
}

// `in` holds kCloseArgumentsSize bytes.
std::optional<SocketIdentity> decodeSocket(const std::uint8_t* in, DecodeError* error)
{
    if (in[0] != kWireIpv4 && in[0] != kWireIpv6) {
        error->message = "the family must be 4 or 6, not " + std::to_string(in[0]);
        return std::nullopt;
    }
    SocketIdentity socket;
    socket.family = in[0] == kWireIpv4 ? AF_INET : AF_INET6;
    socket.protocol = in[1];
    std::copy(in + 2, in + 18, socket.localAddress.begin());
    socket.localPort = static_cast<std::uint16_t>(getBigEndian(in + 18, 2));
    std::copy(in + 20, in + 36, socket.remoteAddress.begin());
    socket.remotePort = static_cast<std::uint16_t>(getBigEndian(in + 36, 2));
    socket.cookie = getBigEndian(in + 38, 8);
    if (std::string why = socket.validationError(); !why.empty()) {
        error->message = std::move(why);
        return std::nullopt;
    }
    return socket;
}

// The size a request of this operation must have, judged from its first bytes; nullopt, with
// `error` set, when they already make it malformed.
std::optional<std::size_t>
expectedSize(Operation operation, const std::vector<std::uint8_t>& payload, DecodeError* error)
{
    if (operation == Operation::CloseConnection)
        return kRequestSize + kCloseArgumentsSize;
    if (operation != Operation::SocketOwners)
        return kRequestSize;
    const std::string name = operationName(operation);
    if (payload.size() < kRequestSize + kOwnersCountSize) {
        error->message = "a " + name + " request is too short to hold its count";
        return std::nullopt;
    }
    const std::size_t count = getBigEndian(payload.data() + kRequestSize, kOwnersCountSize);
    if (count > kMaxOwnerCookies) {
        error->message = "a " + name + " request asks about at most " +
                         std::to_string(kMaxOwnerCookies) + " sockets, this one claims " +
                         std::to_string(count);
        return std::nullopt;
    }
    return kRequestSize + kOwnersCountSize + count * kCookieSize;
}

} // namespace

std::vector<std::uint8_t> encodeRequest(const Request& request)
{
    std::vector<std::uint8_t> payload = {kProtocolVersion,
                                         static_cast<std::uint8_t>(request.operation)};
    if (request.operation == Operation::CloseConnection)
        encodeSocket(request.socket, payload);
    if (request.operation == Operation::SocketOwners) {
        putBigEndian(payload, request.cookies.size(), kOwnersCountSize);
        for (const std::uint64_t cookie : request.cookies)
            putBigEndian(payload, cookie, kCookieSize);
    }
    return payload;
}

std::optional<Request> decodeRequest(const std::vector<std::uint8_t>& payload, DecodeError* error)
{
    if (payload.size() < kRequestSize) {
        error->message = "a request is at least " + std::to_string(kRequestSize) +
                         " bytes, this one is " + std::to_string(payload.size());
        return std::nullopt;
    }
    if (payload[0] != kProtocolVersion) {
        error->message = "unsupported protocol version " + std::to_string(payload[0]);
        return std::nullopt;
    }
    if (!isKnownOperation(payload[1])) {
        error->message = "unknown operation " + std::to_string(payload[1]);
        return std::nullopt;
    }
    Request request(static_cast<Operation>(payload[1]));
    const std::optional<std::size_t> expected = expectedSize(request.operation, payload, error);
    if (!expected)
        return std::nullopt;
    if (payload.size() != *expected) {
        error->message = std::string("a ") + operationName(request.operation) + " request is " +
                         std::to_string(*expected) + " bytes, this one is " +
                         std::to_string(payload.size());
        return std::nullopt;
    }
    if (request.operation == Operation::CloseConnection) {
        const auto socket = decodeSocket(payload.data() + kRequestSize, error);
        if (!socket)
            return std::nullopt;
        request.socket = *socket;
    }
    if (request.operation == Operation::SocketOwners) {
        for (std::size_t at = kRequestSize + kOwnersCountSize; at < payload.size();
             at += kCookieSize)
            request.cookies.push_back(getBigEndian(payload.data() + at, kCookieSize));
    }
    return request;
}

const char* closeOutcomeCode(SocketDestroyer::Outcome outcome)
{
    using SocketDestroyer::Outcome;
    switch (outcome) {
    case Outcome::Closed:
        return "closed";
    case Outcome::NotSupported:
        return "not-supported";
    case Outcome::NotPermitted:
        return "not-permitted";
    case Outcome::AlreadyGone:
        return "already-gone";
    case Outcome::Invalid:
        return "invalid";
    case Outcome::Failed:
        break;
    }
    return "failed";
}

std::string closeOutcomeText(const SocketDestroyer::Result& result)
{
    std::string text = closeOutcomeCode(result.outcome);
    if (!result.detail.empty())
        text += ": " + result.detail;
    return text;
}

std::optional<SocketDestroyer::Result> parseCloseOutcome(std::string_view text)
{
    const std::size_t colon = text.find(':');
    const std::string_view code = text.substr(0, colon);
    std::string detail;
    if (colon != std::string_view::npos) {
        if (text.substr(colon, 2) != ": ")
            return std::nullopt;
        detail = text.substr(colon + 2);
    }
    using SocketDestroyer::Outcome;
    for (const Outcome outcome : {Outcome::Closed, Outcome::NotSupported, Outcome::NotPermitted,
                                  Outcome::AlreadyGone, Outcome::Invalid, Outcome::Failed}) {
        if (code == closeOutcomeCode(outcome))
            return SocketDestroyer::Result{outcome, std::move(detail)};
    }
    return std::nullopt;
}

std::vector<std::uint8_t> encodeReply(const Reply& reply)
{
    const bool hasText = reply.status != Status::Null;
    const ReplyFrameHead head =
        encodeReplyFrameHead(reply.operation, reply.status, hasText ? reply.text.size() : 0);
    std::vector<std::uint8_t> payload;
    payload.reserve(kReplyHeaderSize + (hasText ? reply.text.size() : 0));
    for (std::size_t i = kFrameHeaderSize; i < head.size(); ++i)
        payload.push_back(head[i]);
    if (hasText)
        payload.insert(payload.end(), reply.text.begin(), reply.text.end());
    return payload;
}

ReplyFrameHead encodeReplyFrameHead(Operation operation, Status status, std::size_t textSize)
{
    ReplyFrameHead head{};
    putLength(head.data(), static_cast<std::uint32_t>(kReplyHeaderSize + textSize));
    head[kFrameHeaderSize] = kProtocolVersion;
    head[kFrameHeaderSize + 1] = static_cast<std::uint8_t>(operation);
    head[kFrameHeaderSize + 2] = static_cast<std::uint8_t>(status);
    return head;
}

std::optional<Reply> decodeReply(const std::vector<std::uint8_t>& payload, DecodeError* error)
{
    if (payload.size() < kReplyHeaderSize) {
        error->message = "a reply is at least " + std::to_string(kReplyHeaderSize) +
                         " bytes, this one is " + std::to_string(payload.size());
        return std::nullopt;
    }
    if (payload[0] != kProtocolVersion) {
        error->message = "unsupported protocol version " + std::to_string(payload[0]);
        return std::nullopt;
    }
    // A refusal is sent before any request was read, so it names no operation.
    const std::uint8_t status = payload[2];
    if (status > static_cast<std::uint8_t>(Status::Busy)) {
        error->message = "unknown reply status " + std::to_string(status);
        return std::nullopt;
    }
    Reply reply;
    reply.operation = static_cast<Operation>(payload[1]);
    reply.status = static_cast<Status>(status);
    reply.text.assign(payload.begin() + kReplyHeaderSize, payload.end());
    if (reply.status == Status::Null && !reply.text.empty()) {
        error->message = "a null reply carries no text";
        return std::nullopt;
    }
    if (!isValidUtf8(reply.text)) {
        error->message = "reply text is not UTF-8";
        return std::nullopt;
    }
    return reply;
}

void putLength(std::uint8_t* out, std::uint32_t length)
{
    out[0] = static_cast<std::uint8_t>(length >> 24);
    out[1] = static_cast<std::uint8_t>(length >> 16);
    out[2] = static_cast<std::uint8_t>(length >> 8);
    out[3] = static_cast<std::uint8_t>(length);
}

std::uint32_t getLength(const std::uint8_t* in)
{
    return (std::uint32_t(in[0]) << 24) | (std::uint32_t(in[1]) << 16) |
           (std::uint32_t(in[2]) << 8) | std::uint32_t(in[3]);
}

// Strict UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isValidUtf8(std::string_view bytes)
{
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    const auto* end = p + bytes.size();
    while (p < end) {
        const unsigned char c = *p;
        if (c < 0x80) {
            ++p;
            continue;
        }
        int extra = 0;
        std::uint32_t cp = 0;
        std::uint32_t minimum = 0;
        if ((c & 0xE0) == 0xC0) {
            extra = 1;
            cp = c & 0x1F;
            minimum = 0x80;
        } else if ((c & 0xF0) == 0xE0) {
            extra = 2;
            cp = c & 0x0F;
            minimum = 0x800;
        } else if ((c & 0xF8) == 0xF0) {
            extra = 3;
            cp = c & 0x07;
            minimum = 0x10000;
        } else {
            return false;
        }
        if (end - p <= extra)
            return false;
        for (int i = 1; i <= extra; ++i) {
            if ((p[i] & 0xC0) != 0x80)
                return false;
            cp = (cp << 6) | (p[i] & 0x3F);
        }
        if (cp < minimum || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
            return false;
        p += extra + 1;
    }
    return true;
}

} // namespace HelperProtocol

#include "helperprotocol.h"

namespace HelperProtocol {

bool isKnownOperation(std::uint8_t code)
{
    return code >= static_cast<std::uint8_t>(Operation::ConnectWithEndpoint) &&
           code <= static_cast<std::uint8_t>(Operation::RunLsof);
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
    }
    return "unknown";
}

std::vector<std::uint8_t> encodeRequest(const Request& request)
{
    return {kProtocolVersion, static_cast<std::uint8_t>(request.operation)};
}

std::optional<Request> decodeRequest(const std::vector<std::uint8_t>& payload, DecodeError* error)
{
    if (payload.size() != kRequestSize) {
        error->message = "a request is " + std::to_string(kRequestSize) + " bytes, this one is " +
                         std::to_string(payload.size());
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
    return Request{static_cast<Operation>(payload[1])};
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

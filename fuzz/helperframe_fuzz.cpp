// The daemon's side of the wire: bytes from a peer are cut into frames by FramedSocket and
// each payload is decoded as a request (and, for the client's side, as a reply, and its text as
// an owners reply). A decoded message encodes back to the very bytes it came from; nothing
// allocates past the frame limit, which for a request is its operation's.

#include "fuzzcheck.h"
#include "privileged/framedsocket.h"
#include "privileged/helperprotocol.h"
#include "privileged/ownersreply.h"

#include <sys/socket.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // Stays below the socket buffer, so the whole input is written before it is read.
    if (size == 0 || size > 60000)
        return 0;
    const bool replySide = (data[0] & 1) != 0;
    const std::size_t limit =
        replySide ? HelperProtocol::kMaxReplyFrame : HelperProtocol::kMaxOwnersRequestFrame;
    // As the daemon reads requests: each operation's own limit, judged from its first bytes.
    const auto operationLimit = [](const std::uint8_t* head) {
        return HelperProtocol::maxRequestFrame(head[1]);
    };
    int fds[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0)
        return 0;
    FramedSocket reader(fds[0]);
    FramedSocket writer(fds[1]);
    const auto deadline = FramedSocket::Clock::now() + std::chrono::seconds(5);
    require(writer.writeRaw(data + 1, size - 1, deadline) == FramedSocket::Result::Ok,
            "could not write the input");
    ::shutdown(writer.fd(), SHUT_WR);

    std::size_t consumed = 0;
    std::vector<std::uint8_t> payload;
    for (;;) {
        const FramedSocket::Result result =
            replySide ? reader.readFrame(payload, limit, deadline)
                      : reader.readFrame(payload, limit, HelperProtocol::kRequestSize,
                                         operationLimit, deadline);
        require(result != FramedSocket::Result::TimedOut && result != FramedSocket::Result::Error,
                "a frame read neither finished nor failed cleanly");
        if (result != FramedSocket::Result::Ok) {
            require(payload.empty(), "a failed read left a payload behind");
            break;
        }
        require(payload.size() <= limit, "a frame passed its limit");
        require(replySide || payload.size() < HelperProtocol::kRequestSize ||
                    payload.size() <= HelperProtocol::maxRequestFrame(payload[1]),
                "a request passed its operation's limit");
        consumed += HelperProtocol::kFrameHeaderSize + payload.size();
        require(consumed <= size - 1, "read more bytes than were sent");
        const std::uint32_t claimed =
            HelperProtocol::getLength(data + 1 + consumed - payload.size() - 4);
        require(claimed == payload.size(), "payload length differs from its prefix");

        HelperProtocol::DecodeError error;
        if (const auto request = HelperProtocol::decodeRequest(payload, &error)) {
            require(HelperProtocol::encodeRequest(*request) == payload,
                    "request does not round-trip");
        } else {
            require(!error.message.empty(), "request refused without a reason");
        }
        HelperProtocol::DecodeError replyError;
        if (const auto reply = HelperProtocol::decodeReply(payload, &replyError)) {
            require(HelperProtocol::encodeReply(*reply) == payload, "reply does not round-trip");
            require(HelperProtocol::isValidUtf8(reply->text), "reply text is not UTF-8");
            HelperProtocol::DecodeError ownersError;
            const auto answer = OwnersReply::parse(reply->text, &ownersError);
            if (answer && !answer->unavailable) {
                const auto again =
                    OwnersReply::parse(OwnersReply::knownText(answer->owners), &ownersError);
                require(again && again->owners == answer->owners, "owners do not round-trip");
            }
        } else {
            require(!replyError.message.empty(), "reply refused without a reason");
        }
    }
    return 0;
}

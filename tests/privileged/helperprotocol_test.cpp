#include "privileged/framedsocket.h"
#include "privileged/helperprotocol.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <thread>

using namespace HelperProtocol;
using namespace std::chrono_literals;

namespace {

TEST(HelperProtocol, RepliesRoundTrip)
{
    const std::vector<Reply> replies = {
        {Operation::GetVersion, Status::Text, "1.0"},
        {Operation::RunLsof, Status::Text, ""},
        {Operation::RunLsof, Status::Null, ""},
        {Operation::RunLsof, Status::Text, "COMMAND  PID\nFirefox\xC3\xA9 12 \xF0\x9F\x98\x80\n"},
        {Operation{0}, Status::Refused, "peer not allowed"},
    };
    for (const Reply& reply : replies) {
        DecodeError error;
        const auto decoded = decodeReply(encodeReply(reply), &error);
        ASSERT_TRUE(decoded) << error.message;
        EXPECT_EQ(decoded->operation, reply.operation);
        EXPECT_EQ(decoded->status, reply.status);
        EXPECT_EQ(decoded->text, reply.text);
    }
    // Null and the empty text stay apart.
    EXPECT_EQ(Reply({Operation::RunLsof, Status::Null, ""}).value(), std::nullopt);
    EXPECT_EQ(Reply({Operation::RunLsof, Status::Text, ""}).value(), std::string());
}

TEST(HelperProtocol, RejectsMalformedPayloads)
{
    struct Case {
        const char* name;
        std::vector<std::uint8_t> payload;
        bool isRequest;
    };
    const std::vector<Case> cases = {
        {"empty request", {}, true},
        {"one-byte request", {1}, true},
        {"three-byte request", {1, 2, 0}, true},
        {"request of another version", {2, 2}, true},
        {"operation zero", {1, 0}, true},
        {"operation past the last", {1, 6}, true},
        {"close without its socket", {1, 5}, true},
        {"short reply", {1, 2}, false},
        {"reply of another version", {0, 2, 1}, false},
        {"unknown status", {1, 2, 9}, false},
        {"null carrying text", {1, 3, 0, 'x'}, false},
        {"text not UTF-8", {1, 3, 1, 0xFF}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DecodeError error;
        if (c.isRequest)
            EXPECT_FALSE(decodeRequest(c.payload, &error));
        else
            EXPECT_FALSE(decodeReply(c.payload, &error));
        EXPECT_FALSE(error.message.empty());
    }
    DecodeError error;
    const auto request = decodeRequest(encodeRequest({Operation::RunLsof}), &error);
    ASSERT_TRUE(request);
    EXPECT_EQ(request->operation, Operation::RunLsof);
}

// The byte layout is checked against docs/helper-protocol.md by its drift test; here, that a
// close request comes back whole and that the wire's own constraints hold.
TEST(HelperProtocol, CloseRequestsCarryTheirSocketAndAreValidated)
{
    SocketIdentity socket;
    socket.family = AF_INET6;
    socket.protocol = IPPROTO_TCP;
    socket.localAddress[15] = 1;
    socket.remoteAddress[15] = 1;
    socket.localPort = 40000;
    socket.remotePort = 443;
    socket.cookie = 0x0102030405060708;
    const std::vector<std::uint8_t> good = encodeRequest({Operation::CloseConnection, socket});
    DecodeError error;
    const auto decoded = decodeRequest(good, &error);
    ASSERT_TRUE(decoded) << error.message;
    EXPECT_EQ(decoded->socket, socket);

    std::vector<std::uint8_t> longer = good;
    longer.push_back(0);
    std::vector<std::uint8_t> versionWithArguments = good;
    versionWithArguments[1] = static_cast<std::uint8_t>(Operation::GetVersion);
    std::vector<std::uint8_t> familyFive = good;
    familyFive[2] = 5;
    std::vector<std::uint8_t> allOnesCookie = good;
    std::fill(allOnesCookie.end() - 8, allOnesCookie.end(), 0xFF);
    for (const auto& payload : {std::vector<std::uint8_t>(good.begin(), good.end() - 1), longer,
                                versionWithArguments, familyFive, allOnesCookie}) {
        EXPECT_FALSE(decodeRequest(payload, &error));
        EXPECT_FALSE(error.message.empty());
    }
}

TEST(HelperProtocol, CloseOutcomesRoundTripAsText)
{
    using SocketDestroyer::Outcome;
    for (const Outcome outcome : {Outcome::Closed, Outcome::NotSupported, Outcome::NotPermitted,
                                  Outcome::AlreadyGone, Outcome::Invalid, Outcome::Failed}) {
        for (const std::string detail : {"", "process 12 holds it: not yours"}) {
            const SocketDestroyer::Result result{outcome, detail};
            EXPECT_EQ(parseCloseOutcome(closeOutcomeText(result)), result);
        }
    }
    EXPECT_EQ(closeOutcomeText({Outcome::NotPermitted, "why"}), "not-permitted: why");
    for (const char* text : {"", "shut", "closed:x", "Closed"})
        EXPECT_EQ(parseCloseOutcome(text), std::nullopt) << text;
}

TEST(HelperProtocol, Utf8ValidationIsStrict)
{
    struct Case {
        std::string bytes;
        bool valid;
    };
    const std::vector<Case> cases = {
        {"", true},
        {"plain ascii", true},
        {"\xC3\xA9", true},
        {"\xE2\x82\xAC", true},
        {"\xF4\x8F\xBF\xBF", true},  // U+10FFFF
        {"\xC3", false},             // truncated at the end
        {"\xE2\x82", false},         // truncated at the end
        {"\xC0\xAF", false},         // overlong '/'
        {"\xE0\x80\xAF", false},     // overlong
        {"\xED\xA0\x80", false},     // surrogate
        {"\xF4\x90\x80\x80", false}, // above U+10FFFF
        {"\x80", false},             // lone continuation
        {"\xC3\x28", false},         // bad continuation
        {"\xFF", false},
    };
    for (const Case& c : cases)
        EXPECT_EQ(isValidUtf8(c.bytes), c.valid) << testing::PrintToString(c.bytes);
}

class FramedSocketTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        int fds[2];
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds), 0);
        m_a = FramedSocket(fds[0]);
        m_b = FramedSocket(fds[1]);
    }
    void sendRaw(const std::string& bytes)
    {
        ASSERT_EQ(m_a.writeRaw(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(),
                               FramedSocket::Clock::now() + 1s),
                  FramedSocket::Result::Ok);
    }
    FramedSocket::Result readB(std::vector<std::uint8_t>& payload, std::size_t max = 1024,
                               std::chrono::milliseconds wait = 1s)
    {
        return m_b.readFrame(payload, max, FramedSocket::Clock::now() + wait);
    }

    FramedSocket m_a;
    FramedSocket m_b;
};

TEST_F(FramedSocketTest, FramesArriveWholeEvenInPieces)
{
    const std::vector<std::uint8_t> payload = {1, 2, 3, 4, 5};
    std::thread writer([this] {
        const std::string bytes("\0\0\0\5\1\2\3\4\5", 9);
        for (char byte : bytes) {
            sendRaw(std::string(1, byte));
            std::this_thread::sleep_for(2ms);
        }
    });
    std::vector<std::uint8_t> got;
    EXPECT_EQ(readB(got), FramedSocket::Result::Ok);
    writer.join();
    EXPECT_EQ(got, payload);

    ASSERT_EQ(m_a.writeFrame({}, FramedSocket::Clock::now() + 1s), FramedSocket::Result::Ok);
    EXPECT_EQ(readB(got), FramedSocket::Result::Ok);
    EXPECT_TRUE(got.empty());
}

TEST_F(FramedSocketTest, SizeLimitIsCheckedBeforeReading)
{
    sendRaw("\xff\xff\xff\xff");
    std::vector<std::uint8_t> got;
    EXPECT_EQ(readB(got, 64), FramedSocket::Result::TooLarge);
    EXPECT_TRUE(got.empty());
    // Exactly the limit is allowed.
    sendRaw(std::string("\0\0\0\2\1\2", 6));
    EXPECT_EQ(readB(got, 2), FramedSocket::Result::Ok);
}

TEST_F(FramedSocketTest, SilenceAndHangUpsAreToldApart)
{
    std::vector<std::uint8_t> got;
    EXPECT_EQ(readB(got, 1024, 50ms), FramedSocket::Result::TimedOut);
    sendRaw(std::string("\0\0\0\4\1", 5));
    EXPECT_EQ(readB(got, 1024, 50ms), FramedSocket::Result::TimedOut);
    EXPECT_TRUE(got.empty());

    SetUp();
    sendRaw(std::string("\0\0\0\4\1", 5));
    m_a.close();
    EXPECT_EQ(readB(got), FramedSocket::Result::Truncated);

    SetUp();
    m_a.close();
    EXPECT_EQ(readB(got), FramedSocket::Result::Closed);
    EXPECT_NE(m_b.writeFrame({1, 2}, FramedSocket::Clock::now() + 1s), FramedSocket::Result::Ok)
        << "writing to a closed peer fails without SIGPIPE";
}

TEST(FramedSocketConnect, ExplainsWhyItCannotConnect)
{
    std::string error;
    EXPECT_FALSE(FramedSocket::connectTo("/nonexistent/helper.sock", &error).isValid());
    EXPECT_NE(error.find("/nonexistent/helper.sock"), std::string::npos);
    EXPECT_FALSE(FramedSocket::connectTo(std::string(200, 'x'), &error).isValid());
    EXPECT_NE(error.find("too long"), std::string::npos);
}

} // namespace

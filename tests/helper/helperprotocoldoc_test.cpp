#include "helper/cvhelpertool.h"
#include "privileged/helperprotocol.h"
#include "privileged/ownersreply.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace HelperProtocol;

std::string trimmed(const std::string& text)
{
    const auto first = text.find_first_not_of(" `");
    const auto last = text.find_last_not_of(" `");
    return first == std::string::npos ? std::string() : text.substr(first, last - first + 1);
}

// The rows of the first table under the heading `## section`, cells trimmed, header and rule
// skipped.
std::vector<std::vector<std::string>> tableRows(const std::string& document,
                                                const std::string& section)
{
    std::istringstream in(document);
    std::vector<std::vector<std::string>> rows;
    bool inSection = false;
    int tableLine = 0;
    for (std::string line; std::getline(in, line);) {
        if (line.rfind("## ", 0) == 0) {
            if (inSection)
                break;
            inSection = line == "## " + section;
            continue;
        }
        if (!inSection || line.rfind("|", 0) != 0) {
            if (tableLine > 0)
                break;
            continue;
        }
        if (++tableLine <= 2)
            continue;
        std::vector<std::string> cells;
        std::istringstream cellStream(line.substr(1));
        for (std::string cell; std::getline(cellStream, cell, '|');)
            cells.push_back(trimmed(cell));
        rows.push_back(cells);
    }
    return rows;
}

class HelperProtocolDocTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::ifstream in(CORVINA_SOURCE_DIR "/docs/helper-protocol.md");
        ASSERT_TRUE(in) << "docs/helper-protocol.md is missing";
        m_document.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    std::string m_document;
};

TEST_F(HelperProtocolDocTest, ConstantsMatchTheCode)
{
    const std::map<std::string, unsigned long long> code = {
        {"protocol version", kProtocolVersion},
        {"frame header size", kFrameHeaderSize},
        {"request size", kRequestSize},
        {"close arguments size", kCloseArgumentsSize},
        {"owners count size", kOwnersCountSize},
        {"cookie size", kCookieSize},
        {"max owner cookies", kMaxOwnerCookies},
        {"reply header size", kReplyHeaderSize},
        {"max request frame", kMaxRequestFrame},
        {"max owners request frame", kMaxOwnersRequestFrame},
        {"max reply frame", kMaxReplyFrame},
        {"request timeout ms", static_cast<unsigned long long>(kRequestTimeout.count())},
        {"idle timeout ms", static_cast<unsigned long long>(kIdleTimeout.count())},
        {"reply timeout ms", static_cast<unsigned long long>(kReplyTimeout.count())},
        {"lsof timeout ms", static_cast<unsigned long long>(kLsofTimeout.count())},
        {"collect timeout ms", static_cast<unsigned long long>(kCollectTimeout.count())},
        {"max connections", kMaxConnections},
        {"max connections per peer", kMaxConnectionsPerPeer},
        {"root reserved connections", kRootReservedConnections},
    };
    std::map<std::string, unsigned long long> documented;
    for (const auto& row : tableRows(m_document, "Constants")) {
        ASSERT_GE(row.size(), 2u);
        documented[row[0]] = std::stoull(row[1]);
    }
    EXPECT_EQ(documented, code);
}

TEST_F(HelperProtocolDocTest, OperationsMatchTheCode)
{
    std::map<int, std::string> documented;
    for (const auto& row : tableRows(m_document, "Operations")) {
        ASSERT_GE(row.size(), 2u);
        documented[std::stoi(row[0])] = row[1];
    }
    std::map<int, std::string> code;
    for (int value = 0; value < 256; ++value) {
        if (isKnownOperation(static_cast<std::uint8_t>(value)))
            code[value] = operationName(static_cast<Operation>(value));
    }
    EXPECT_EQ(documented, code);

    CVHelperTool tool(OVPrivilegeToolBase::Options{});
    std::vector<int> exported;
    for (Operation operation : tool.machServiceProtocol())
        exported.push_back(static_cast<int>(operation));
    std::vector<int> documentedCodes;
    for (const auto& [value, name] : documented)
        documentedCodes.push_back(value);
    EXPECT_EQ(exported, documentedCodes);

    std::string arguments = "lsof";
    for (const std::string& argument : CVHelperTool::lsofArguments())
        arguments += " " + argument;
    EXPECT_NE(m_document.find("`" + arguments + "`"), std::string::npos) << arguments;
    for (const std::string& candidate : CVHelperTool::lsofCandidates())
        EXPECT_NE(m_document.find("`" + candidate + "`"), std::string::npos) << candidate;
    EXPECT_NE(m_document.find(std::string("`") + CVHelperTool::kVersion + "`"), std::string::npos);
    EXPECT_NE(m_document.find(std::string("`") + HelperInstallation::kSocketsProgram + "`"),
              std::string::npos);
}

// Each documented field, read at its documented offset from an encoded request, holds the value
// the socket had.
TEST_F(HelperProtocolDocTest, CloseRequestLayoutMatchesTheCode)
{
    SocketIdentity socket;
    socket.family = AF_INET6;
    socket.protocol = IPPROTO_TCP;
    for (std::uint8_t i = 0; i < 16; ++i) {
        socket.localAddress[i] = i + 1;
        socket.remoteAddress[i] = i + 101;
    }
    socket.localPort = 0x1234;
    socket.remotePort = 0xABCD;
    socket.cookie = 0x1122334455667788;
    const std::vector<std::uint8_t> payload = encodeRequest({Operation::CloseConnection, socket});
    const std::map<std::string, std::vector<std::uint8_t>> expected = {
        {"family", {6}},
        {"protocol", {IPPROTO_TCP}},
        {"local address", {socket.localAddress.begin(), socket.localAddress.end()}},
        {"local port", {0x12, 0x34}},
        {"remote address", {socket.remoteAddress.begin(), socket.remoteAddress.end()}},
        {"remote port", {0xAB, 0xCD}},
        {"cookie", {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88}},
    };
    std::set<std::string> seen;
    std::size_t next = 0;
    for (const auto& row : tableRows(m_document, "Close request")) {
        ASSERT_GE(row.size(), 3u);
        const std::size_t offset = std::stoul(row[0]);
        const std::size_t size = std::stoul(row[1]);
        EXPECT_EQ(offset, next) << "fields must follow each other: " << row[2];
        next = offset + size;
        const auto field = std::find_if(expected.begin(), expected.end(), [&](const auto& entry) {
            return row[2].rfind(entry.first, 0) == 0;
        });
        ASSERT_NE(field, expected.end()) << row[2];
        seen.insert(field->first);
        ASSERT_LE(kRequestSize + next, payload.size());
        EXPECT_EQ(std::vector<std::uint8_t>(payload.begin() + kRequestSize + offset,
                                            payload.begin() + kRequestSize + next),
                  field->second)
            << field->first;
    }
    EXPECT_EQ(next, kCloseArgumentsSize);
    EXPECT_EQ(seen.size(), expected.size());
}

// The count, then the first cookie, where the table puts them; the words a reply starts with;
// and the example reply, read as the client reads it.
TEST_F(HelperProtocolDocTest, OwnersRequestAndReplyMatchTheCode)
{
    Request request(Operation::SocketOwners);
    request.cookies = {0x1122334455667788, 7};
    const std::vector<std::uint8_t> payload = encodeRequest(request);
    const std::vector<std::vector<std::uint8_t>> expected = {
        {0, 2}, {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88}};
    const auto rows = tableRows(m_document, "Owners request");
    ASSERT_EQ(rows.size(), expected.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const std::size_t offset = kRequestSize + std::stoul(rows[i][0]);
        ASSERT_LE(offset + std::stoul(rows[i][1]), payload.size());
        EXPECT_EQ(std::vector<std::uint8_t>(payload.begin() + offset,
                                            payload.begin() + offset + std::stoul(rows[i][1])),
                  expected[i])
            << rows[i][2];
    }
    EXPECT_EQ(payload.size(), kRequestSize + kOwnersCountSize + 2 * kCookieSize);

    std::set<std::string> words;
    for (const auto& row : tableRows(m_document, "Owners reply"))
        words.insert(row.at(0));
    EXPECT_EQ(words, (std::set<std::string>{std::string(OwnersReply::kKnown),
                                            std::string(OwnersReply::kUnavailable)}));
    const std::size_t example = m_document.find("```\nowners ");
    ASSERT_NE(example, std::string::npos);
    const std::size_t start = example + 4;
    DecodeError error;
    const auto answer =
        OwnersReply::parse(m_document.substr(start, m_document.find("```", start) - start), &error);
    ASSERT_TRUE(answer) << error.message;
    ASSERT_EQ(answer->owners.size(), 2u);
    EXPECT_EQ(answer->owners[1], (OwnersReply::Owner{40965, 3171, 1000, "Web Content"}));
}

TEST_F(HelperProtocolDocTest, CloseOutcomesMatchTheCode)
{
    using SocketDestroyer::Outcome;
    std::set<std::string> code;
    for (const Outcome outcome : {Outcome::Closed, Outcome::NotSupported, Outcome::NotPermitted,
                                  Outcome::AlreadyGone, Outcome::Invalid, Outcome::Failed})
        code.insert(closeOutcomeCode(outcome));
    std::set<std::string> documented;
    for (const auto& row : tableRows(m_document, "Close outcomes")) {
        ASSERT_GE(row.size(), 2u);
        documented.insert(row[0]);
    }
    EXPECT_EQ(documented, code);
}

TEST_F(HelperProtocolDocTest, StatusesMatchTheCode)
{
    const std::map<int, std::string> code = {
        {static_cast<int>(Status::Null), "null"},
        {static_cast<int>(Status::Text), "text"},
        {static_cast<int>(Status::Refused), "refused"},
        {static_cast<int>(Status::BadRequest), "bad request"},
        {static_cast<int>(Status::Busy), "busy"},
    };
    std::map<int, std::string> documented;
    for (const auto& row : tableRows(m_document, "Statuses")) {
        ASSERT_GE(row.size(), 2u);
        documented[std::stoi(row[0])] = row[1];
    }
    EXPECT_EQ(documented, code);
    // A status the doc does not list must not decode.
    DecodeError error;
    EXPECT_FALSE(
        decodeReply({kProtocolVersion, 2, static_cast<std::uint8_t>(code.size())}, &error));
}

} // namespace

#include "helper/cvhelpertool.h"
#include "privileged/helperprotocol.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
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
        {"reply header size", kReplyHeaderSize},
        {"max request frame", kMaxRequestFrame},
        {"max reply frame", kMaxReplyFrame},
        {"request timeout ms", static_cast<unsigned long long>(kRequestTimeout.count())},
        {"idle timeout ms", static_cast<unsigned long long>(kIdleTimeout.count())},
        {"reply timeout ms", static_cast<unsigned long long>(kReplyTimeout.count())},
        {"lsof timeout ms", static_cast<unsigned long long>(kLsofTimeout.count())},
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

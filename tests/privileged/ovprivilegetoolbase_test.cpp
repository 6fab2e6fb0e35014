#include "privileged/authorizationform.h"
#include "privileged/ovprivilegetoolbase.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// A daemon built on the base that guards one command with a right.
class GuardedTool final : public OVPrivilegeToolBase {
public:
    explicit GuardedTool(std::optional<RightsTable> table)
        : OVPrivilegeToolBase(Options{}), m_table(std::move(table))
    {
    }
    std::string machServiceName() const override { return "test.Guarded"; }
    std::vector<HelperProtocol::Operation> machServiceProtocol() const override
    {
        return {HelperProtocol::Operation::GetVersion};
    }
    std::optional<RightsTable> commandsRightInfo() const override
    {
        ++calls;
        return m_table;
    }
    mutable int calls = 0;

private:
    std::optional<RightsTable> m_table;
};

OVPrivilegeToolBase::RightEntry right(const std::string& name)
{
    return std::map<std::string, std::string>{{"authRightName", name},
                                              {"authRightDefault", "auth_admin"},
                                              {"authRightDescription", "List <every> socket"}};
}

class TempDir {
public:
    TempDir()
    {
        char pattern[] = "/tmp/corvina-rights-XXXXXX";
        m_path = ::mkdtemp(pattern);
    }
    ~TempDir() { fs::remove_all(m_path); }
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

TEST(OVPrivilegeToolBase, BaseWithoutSubclassRaisesNamedExceptions)
{
    OVPrivilegeToolBase base(OVPrivilegeToolBase::Options{});
    try {
        base.machServiceName();
        FAIL();
    } catch (const PrivilegeToolException& e) {
        EXPECT_EQ(e.name(), "MachServiceName does not implement");
        EXPECT_STREQ(e.what(), "MachServiceName is required");
    }
    try {
        base.machServiceProtocol();
        FAIL();
    } catch (const PrivilegeToolException& e) {
        EXPECT_EQ(e.name(), "machServiceProtocol does not implement");
        EXPECT_STREQ(e.what(), "machServiceProtocol is required");
    }
}

TEST(OVPrivilegeToolBase, EmptyRightsTableGuardsNothingAndRegistersNothing)
{
    GuardedTool tool(std::nullopt);
    EXPECT_EQ(tool.authorizationRightForCommand("runLsofWithReply:"), std::nullopt);
    EXPECT_EQ(tool.authorizationRightForCommand(""), std::nullopt);
    TempDir dir;
    tool.setupAuthorizationRights(dir.path());
    EXPECT_TRUE(fs::is_empty(dir.path()));
    EXPECT_EQ(tool.calls, 1) << "the table is computed once";
}

TEST(OVPrivilegeToolBase, RightsAreRegisteredOnceAndNeverOverwritten)
{
    GuardedTool tool(
        OVPrivilegeToolBase::RightsTable{{"runLsofWithReply:", right("test.Guarded.lsof")},
                                         {"otherWithReply:", right("test.Guarded.other")}});
    EXPECT_EQ(tool.authorizationRightForCommand("runLsofWithReply:"), "test.Guarded.lsof");
    EXPECT_EQ(tool.authorizationRightForCommand("missingWithReply:"), std::nullopt);

    TempDir dir;
    const fs::path edited = fs::path(dir.path()) / "test.Guarded.lsof.policy";
    std::ofstream(edited) << "administrator's edit";
    tool.setupAuthorizationRights(dir.path());

    std::ifstream keep(edited);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(keep), {}), "administrator's edit");
    std::ifstream created(fs::path(dir.path()) / "test.Guarded.other.policy");
    const std::string policy(std::istreambuf_iterator<char>(created), {});
    EXPECT_NE(policy.find("<action id=\"test.Guarded.other\">"), std::string::npos);
    EXPECT_NE(policy.find("<allow_active>auth_admin</allow_active>"), std::string::npos);
    EXPECT_NE(policy.find("List &lt;every&gt; socket"), std::string::npos);
    EXPECT_EQ(tool.calls, 1);
}

TEST(OVPrivilegeToolBaseDeathTest, MalformedRightsEntriesEndTheDaemonNamingTheCheck)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    struct Case {
        OVPrivilegeToolBase::RightEntry entry;
        const char* assertion;
    };
    const auto without = [](const std::string& key) {
        auto entry = right("x");
        entry->erase(key);
        return entry;
    };
    const std::vector<Case> cases = {
        {std::nullopt, "\\[commandDict isKindOfClass:\\[NSDictionary class\\]\\]"},
        {without("authRightName"), "\\[authRightName isKindOfClass:\\[NSString class\\]\\]"},
        {without("authRightDefault"), "authRightDefault != nil"},
        {without("authRightDescription"), "\\[authRightDesc isKindOfClass:\\[NSString class\\]\\]"},
    };
    for (const Case& c : cases) {
        GuardedTool tool(OVPrivilegeToolBase::RightsTable{{"cmd:", c.entry}});
        EXPECT_DEATH(tool.enumerateRightsUsingBlock([](auto&, auto&, auto&) {}), c.assertion);
    }
    GuardedTool tool(std::nullopt);
    EXPECT_DEATH(tool.setupAuthorizationRights(""), "authRef != NULL");
    EXPECT_DEATH(tool.checkAuthorization(nullptr, 0, nullptr), "command != nil");
    const auto form = AuthorizationForm{1, 2, 3}.toBytes();
    EXPECT_DEATH(tool.checkAuthorization(form.data(), form.size(), "unguarded:"),
                 "oneRight.name != NULL");
}

TEST(OVPrivilegeToolBase, CheckAuthorizationRefusesBadFormsBeforeAskingPolkit)
{
    GuardedTool tool(OVPrivilegeToolBase::RightsTable{{"guarded:", right("test.Guarded.g")}});
    const auto mine = AuthorizationForm::forCurrentProcess();
    ASSERT_TRUE(mine);
    const auto bytes = mine->toBytes();
    std::vector<std::uint8_t> longer(bytes.begin(), bytes.end());
    longer.push_back(0);

    const std::pair<const std::uint8_t*, std::size_t> malformed[] = {
        {bytes.data(), 31}, {longer.data(), 33}, {nullptr, 0}};
    for (const auto& [data, size] : malformed) {
        const auto error = tool.checkAuthorization(data, size, "guarded:");
        ASSERT_TRUE(error) << size << " bytes";
        EXPECT_EQ(error->code, -50) << size << " bytes";
    }
    // A form borrowed from another process does not match the peer's credentials.
    PeerCredentials other{static_cast<pid_t>(mine->pid + 1), static_cast<uid_t>(mine->uid), 0};
    const auto borrowed = tool.checkAuthorization(bytes.data(), bytes.size(), "guarded:", other);
    ASSERT_TRUE(borrowed);
    EXPECT_EQ(borrowed->code, AuthorizationError::kInvalidReference);
    // A matching form goes to polkit, which, for an action it does not know or on a machine
    // without it, does not allow.
    PeerCredentials self{static_cast<pid_t>(mine->pid), static_cast<uid_t>(mine->uid), 0};
    const auto asked = tool.checkAuthorization(bytes.data(), bytes.size(), "guarded:", self);
    ASSERT_TRUE(asked);
    EXPECT_NE(asked->code, AuthorizationError::kInvalidReference);
}

TEST(PeerPolicy, AdmitsRootAllowedUidsAndGroupMembers)
{
    const PeerPolicy noGroup("corvina-no-such-group", {4242});
    EXPECT_TRUE(noGroup.allows({1, 0, 0}));
    EXPECT_TRUE(noGroup.allows({1, 4242, 4242}));
    EXPECT_FALSE(noGroup.allows({1, 4243, 4243}));

    // Membership by primary group, with a group every Debian system has.
    const PeerPolicy rootGroup("root");
    EXPECT_TRUE(rootGroup.allows({1, 54321, 0}));
    EXPECT_FALSE(rootGroup.allows({1, 54321, 54321}));
    EXPECT_FALSE(PeerPolicy("").allows({1, 54321, 0}));
}

} // namespace

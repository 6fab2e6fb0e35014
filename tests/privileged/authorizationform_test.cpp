#include "privileged/authorizationform.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

TEST(AuthorizationForm, RoundTripsThroughItsThirtyTwoBytes)
{
    const AuthorizationForm form{4194303u, 4294967294u, 0x0123456789ABCDEFull};
    const auto bytes = form.toBytes();
    EXPECT_EQ(bytes[0], 0x00);
    EXPECT_EQ(bytes[1], 0x3F) << "big-endian pid";
    EXPECT_EQ(bytes[8], 0x01) << "big-endian start time";
    const auto back = AuthorizationForm::fromBytes(bytes.data(), bytes.size());
    ASSERT_TRUE(back);
    EXPECT_EQ(*back, form);
}

TEST(AuthorizationForm, RefusesWrongSizesAndDirtyPadding)
{
    const auto bytes = AuthorizationForm{1, 2, 3}.toBytes();
    EXPECT_FALSE(AuthorizationForm::fromBytes(bytes.data(), 31));
    std::vector<std::uint8_t> longer(bytes.begin(), bytes.end());
    longer.push_back(0);
    EXPECT_FALSE(AuthorizationForm::fromBytes(longer.data(), longer.size()));
    EXPECT_FALSE(AuthorizationForm::fromBytes(nullptr, 32));
    auto dirty = bytes;
    dirty[31] = 1;
    EXPECT_FALSE(AuthorizationForm::fromBytes(dirty.data(), dirty.size()));
}

// A command name may hold blanks and parentheses; the start time must still be field 22.
TEST(AuthorizationForm, ReadsStartTimeBehindAnAwkwardCommandName)
{
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        ::prctl(PR_SET_NAME, "a) 1 2 (b", 0, 0, 0);
        [[maybe_unused]] auto ignored = ::write(ready[1], "x", 1);
        ::pause();
        ::_exit(0);
    }
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    const auto mine = AuthorizationForm::processStartTime(::getpid());
    const auto theirs = AuthorizationForm::processStartTime(child);
    double uptimeSeconds = 0;
    std::ifstream("/proc/uptime") >> uptimeSeconds;
    const auto now = static_cast<std::uint64_t>(uptimeSeconds * double(::sysconf(_SC_CLK_TCK))) + 1;
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    ::close(ready[0]);
    ::close(ready[1]);

    ASSERT_TRUE(mine);
    ASSERT_TRUE(theirs);
    EXPECT_LE(*mine, *theirs);
    EXPECT_LE(*theirs, now);
    EXPECT_FALSE(AuthorizationForm::processStartTime(child)) << "a reaped process has no start";
}

} // namespace

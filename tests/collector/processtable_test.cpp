#include "collector/processtable.h"
#include "collectorfakes.h"

#include <gtest/gtest.h>

#include <unistd.h>

using SocketFd = ProcessTable::SocketFd;

namespace {

std::vector<SocketFd> socketsOf(const ProcessTable& table, int pid)
{
    const auto found = table.processes().find(pid);
    return found == table.processes().end() ? std::vector<SocketFd>{} : found->second.sockets;
}

} // namespace

TEST(ProcessTable, readsEachProcessesSocketDescriptors)
{
    FakeProc proc;
    proc.addProcess(100, "a) (b c");
    proc.addSocket(100, 10, 5001);
    proc.addSocket(100, 3, 5000);
    proc.addFile(100, 4, "/dev/null");
    proc.addFile(100, 5, "pipe:[77]");
    proc.addBroken(100, 6);
    proc.addProcess(7, "other", 4242);
    ProcessTable table(proc.root(), proc.clock());

    ASSERT_TRUE(table.refresh());
    ASSERT_EQ(table.processes().size(), 2u);
    const ProcessTable::Process& process = table.processes().at(100);
    EXPECT_EQ(process.command, "a) (b c");
    EXPECT_EQ(process.startTime, 100u);
    EXPECT_EQ(process.uid, getuid());
    EXPECT_TRUE(process.inspectable);
    EXPECT_EQ(process.sockets, (std::vector<SocketFd>{{3, 5000}, {10, 5001}}));
    EXPECT_EQ(table.processes().begin()->second.startTime, 4242u);
}

// A process keeps what was read of it while its CPU clock stands still; it is read again once
// the clock moves, when it has no clock, or when its pid is another process's now.
TEST(ProcessTable, readsAgainProcessesWhoseClockMovedOrIsUnknownOrWhosePidWasReused)
{
    FakeProc proc;
    proc.addProcess(100, "idle");
    proc.addSocket(100, 3, 5000);
    proc.addProcess(200, "busy");
    proc.addProcess(300, "unclocked");
    proc.addSocket(300, 3, 7000);
    ProcessTable table(proc.root(), [clock = proc.clock()](int pid) {
        return pid == 300 ? std::nullopt : clock(pid);
    });
    ASSERT_TRUE(table.refresh());

    proc.addSocket(100, 4, 5001);
    proc.addSocket(200, 3, 6000);
    proc.addSocket(300, 4, 7001);
    proc.run(200);
    ASSERT_TRUE(table.refresh());
    EXPECT_EQ(socketsOf(table, 200), (std::vector<SocketFd>{{3, 6000}}));
    EXPECT_EQ(socketsOf(table, 300), (std::vector<SocketFd>{{3, 7000}, {4, 7001}}));

    // Another process under pid 100, which happens to have used the same CPU time.
    proc.setStartTime(100, "newcomer", 900);
    ASSERT_TRUE(table.refresh());
    EXPECT_EQ(table.processes().at(100).command, "newcomer");
    EXPECT_EQ(socketsOf(table, 100), (std::vector<SocketFd>{{3, 5000}, {4, 5001}}));
}

TEST(ProcessTable, aProcessThatGoesMidScanIsLeftOut)
{
    FakeProc proc;
    for (const int pid : {100, 200, 300, 400}) {
        proc.addProcess(pid, "p");
        proc.addSocket(pid, 3, 5000 + pid);
    }
    ProcessTable table(proc.root(), proc.clock());
    ASSERT_TRUE(table.refresh());
    ASSERT_EQ(table.processes().size(), 4u);

    // Listed, then gone before its stat, or before its descriptors, or gone altogether.
    proc.removeStat(100);
    proc.removeFdDirectory(200);
    proc.run(200);
    proc.removeProcess(300);
    ASSERT_TRUE(table.refresh());
    ASSERT_EQ(table.processes().size(), 1u);
    EXPECT_EQ(table.processes().begin()->first, 400);

    ProcessTable nowhere("/nonexistent/proc", proc.clock());
    EXPECT_FALSE(nowhere.refresh());
}

TEST(ProcessTable, theCpuClockOfARealProcessMovesWhenItRuns)
{
    const std::optional<qint64> before = ProcessTable::processCpuTime(getpid());
    ASSERT_TRUE(before);
    volatile quint64 sum = 0;
    for (quint64 i = 0; i < 1000000; ++i)
        sum = sum + i;
    EXPECT_GT(*ProcessTable::processCpuTime(getpid()), *before);
    EXPECT_FALSE(ProcessTable::processCpuTime(0x3ffffffe));
}

// What a collector keeps from pass to pass never shows: after each kind of change a process can
// make, a collector that has seen the earlier state gives what a fresh one gives.

#include "collector/nativecollector.h"
#include "collector/netlinkdumper.h"
#include "collectorfakes.h"
#include "helperchild.h"
#include "livesockets.h"

#include <gtest/gtest.h>

#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

class KeptState : public ::testing::Test {
protected:
    // The kept collector's records of `pids`, checked against a fresh collector's.
    SocketRecords expectSameAsCold(const QList<pid_t>& pids)
    {
        const SocketRecords warm = recordsOf(m_kept.collect(), pids);
        const SocketRecords cold = recordsOf(NativeCollector().collect(), pids);
        EXPECT_EQ(warm, cold);
        return warm;
    }
    QString deviceOf(const QList<pid_t>& pids, pid_t pid, int fd)
    {
        const SocketRecords records = expectSameAsCold(pids);
        const SocketRecord* record = recordOf(records, pid, fd);
        return record ? record->device : QString();
    }

    NativeCollector m_kept;
    LiveSockets m_sockets;
};

QString inodeText(int fd)
{
    return QString::number(LiveSockets::inode(fd));
}

} // namespace

TEST_F(KeptState, aDescriptorClosedAndReopenedUnderItsNumber)
{
    const int shared = m_sockets.listener("127.0.0.1");
    HelperChild child;
    const int fd = child.receive(shared);
    const QList<pid_t> pids = {child.pid()};
    EXPECT_EQ(deviceOf(pids, child.pid(), fd), inodeText(shared));

    // The old socket lives on in this process, so nothing vanishes from the kernel's dump.
    child.close(fd);
    ASSERT_EQ(child.listen(), fd);
    const QString device = deviceOf(pids, child.pid(), fd);
    EXPECT_FALSE(device.isEmpty());
    EXPECT_NE(device, inodeText(shared));
}

TEST_F(KeptState, aDescriptorDup2edOverBySocketOrFile)
{
    const int shared = m_sockets.listener("127.0.0.1");
    HelperChild child;
    const int socketFd = child.receive(shared);
    const int fileFd = child.openFile();
    const int listener = child.listen();
    const QList<pid_t> pids = {child.pid()};
    const QString listenerDevice = deviceOf(pids, child.pid(), listener);
    EXPECT_TRUE(deviceOf(pids, child.pid(), fileFd).isNull());

    // Over a file: a socket already known (at another descriptor) appears at a new one.
    child.dup2(listener, fileFd);
    EXPECT_EQ(deviceOf(pids, child.pid(), fileFd), listenerDevice);
    // Over a socket another process still holds: the old inode stays in the dump.
    child.dup2(listener, socketFd);
    EXPECT_EQ(deviceOf(pids, child.pid(), socketFd), listenerDevice);
    // A socket replaced by a file.
    child.close(fileFd);
    ASSERT_EQ(child.openFile(), fileFd);
    EXPECT_TRUE(deviceOf(pids, child.pid(), fileFd).isNull());
}

TEST_F(KeptState, aSocketPassedToAnotherProcess)
{
    const auto [client, accepted] = m_sockets.connectedPair(m_sockets.listener("::1"), "::1");
    const QString device = inodeText(accepted);
    HelperChild sender;
    HelperChild receiver;
    const int sent = sender.receive(accepted);
    m_sockets.close(accepted);
    const QList<pid_t> pids = {sender.pid(), receiver.pid()};
    EXPECT_EQ(deviceOf(pids, sender.pid(), sent), device);

    const int back = sender.send(sent);
    const int received = receiver.receive(back);
    ::close(back);
    sender.close(sent);
    EXPECT_TRUE(deviceOf(pids, sender.pid(), sent).isNull());
    EXPECT_EQ(deviceOf(pids, receiver.pid(), received), device);

    // The peer closes: the state moves while the holder sleeps.
    shutdown(client, SHUT_WR);
    ASSERT_TRUE(LiveSockets::waitForState(client, TCP_FIN_WAIT2));
    const SocketRecords records = expectSameAsCold(pids);
    ASSERT_TRUE(recordOf(records, receiver.pid(), received));
    EXPECT_EQ(recordOf(records, receiver.pid(), received)->state, u"CLOSE_WAIT"_s);
}

TEST_F(KeptState, aProcessRenamedOrBecomingAnotherUser)
{
    HelperChild child;
    const int fd = child.listen();
    const QList<pid_t> pids = {child.pid()};
    expectSameAsCold(pids);

    child.rename("renamed");
    EXPECT_EQ(recordOf(expectSameAsCold(pids), child.pid(), fd)->processName, u"renamed"_s);
    if (getuid() != 0)
        GTEST_SKIP() << "only root can make a process another user";
    ASSERT_EQ(child.setUser(65534), 0);
    EXPECT_EQ(recordOf(expectSameAsCold(pids), child.pid(), fd)->user, UserNames().name(65534));
}

TEST_F(KeptState, aProcessThatStartsOrExits)
{
    std::optional<HelperChild> first(std::in_place);
    const pid_t firstPid = first->pid();
    first->listen();
    EXPECT_EQ(expectSameAsCold({firstPid}).size(), 1);

    HelperChild second;
    second.listen();
    first->exit();
    EXPECT_EQ(expectSameAsCold({firstPid, second.pid()}).size(), 1);
}

TEST_F(KeptState, aProcessIdReusedByAnotherProcess)
{
    std::optional<HelperChild> first(std::in_place);
    const pid_t pid = first->pid();
    const int fd = first->listen();
    const QString before = deviceOf({pid}, pid, fd);
    first->exit();

    std::optional<HelperChild> second = HelperChild::withPid(pid);
    if (!second)
        GTEST_SKIP() << "this system does not let a test choose a process id (clone3 set_tid)";
    ASSERT_EQ(second->pid(), pid);
    ASSERT_EQ(second->listen(), fd);
    const QString after = deviceOf({pid}, pid, fd);
    EXPECT_FALSE(after.isEmpty());
    EXPECT_NE(after, before);
}

// Sockets that the dump lists but whose descriptors are gone by the time /proc is read.
TEST(NativeCollectorFaults, noRowForADescriptorOrProcessGoneBetweenDumpAndScan)
{
    LiveSockets sockets;
    const int kept = sockets.listener("127.0.0.1");
    const int closing = sockets.listener("127.0.0.1");
    std::optional<HelperChild> exiting(std::in_place);
    exiting->listen();
    const pid_t exitingPid = exiting->pid();

    auto* replay = new ScriptedDiagSource;
    NetlinkDumper kernel;
    replay->record(kernel, NativeCollector::queries());
    const QString closedDevice = inodeText(closing);
    sockets.close(closing);
    exiting->exit();

    NativeCollector collector({std::unique_ptr<SocketDiagSource>(replay)});
    const SocketRecords records = recordsOf(collector.collect(), {getpid(), exitingPid});
    EXPECT_TRUE(recordOf(records, getpid(), kept));
    for (const SocketRecord& record : records) {
        EXPECT_NE(record.device, closedDevice);
        EXPECT_NE(record.processId, QString::number(exitingPid));
    }
}

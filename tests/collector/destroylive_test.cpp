#include "changes/changedetector.h"
#include "collector/bpfsocketowners.h"
#include "collector/destroylistener.h"
#include "collector/nativecollector.h"
#include "livesockets.h"

#include <gtest/gtest.h>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

namespace {

// A collector that listens, and change detection after it: what the application runs.
struct Watcher {
    explicit Watcher(DestroyListener::Options options = {},
                     std::unique_ptr<SocketOwners> owners = nullptr)
    {
        NativeCollector::Sources sources;
        sources.notices = std::make_unique<DestroyListener>(options);
        sources.owners = std::move(owners);
        collector = std::make_unique<NativeCollector>(std::move(sources));
    }
    LsofItemList pass()
    {
        const SocketRecords records = collector->collect();
        LsofItemList items = detector.match(records, collector->closed());
        detector.detect(items);
        return items;
    }
    std::unique_ptr<NativeCollector> collector;
    ChangeDetector detector;
};

void transfer(int from, int to, size_t bytes)
{
    const std::vector<char> buffer(bytes, 'x');
    ASSERT_EQ(send(from, buffer.data(), bytes, 0), ssize_t(bytes));
    std::vector<char> received(bytes);
    size_t got = 0;
    while (got < bytes) {
        const ssize_t n = recv(to, received.data() + got, bytes - got, 0);
        ASSERT_GT(n, 0);
        got += size_t(n);
    }
}

LsofItemPtr itemOn(const LsofItemList& items, quint16 localPort, quint16 remotePort)
{
    for (const LsofItemPtr& item : items) {
        if (item->localPortNumber() == localPort && item->remotePortNumber() == remotePort)
            return item;
    }
    return nullptr;
}

// The kernel counts the SYN and the FIN as one byte each in what the peer acknowledged, and
// the FIN in what was received.
void expectFinalBytes(const LsofItemPtr& item, qint64 sent, qint64 received)
{
    ASSERT_TRUE(item);
    const LsofItem::Traffic traffic = item->traffic();
    ASSERT_TRUE(traffic.bytesSent && traffic.bytesReceived);
    EXPECT_GE(*traffic.bytesSent, sent);
    EXPECT_LE(*traffic.bytesSent, sent + 2);
    EXPECT_GE(*traffic.bytesReceived, received);
    EXPECT_LE(*traffic.bytesReceived, received + 1);
}

} // namespace

// A connection opened and closed between two passes appears in the second, closed and
// short-lived, with its bytes; the accepting side has its listener's process. One the first
// pass saw gets the bytes it had moved when it closed.
TEST(DestroyNotices, ShortLivedAndClosedConnectionsCarryTheirFinalBytes)
{
    Watcher watcher;
    LiveSockets sockets;
    const int listener = sockets.listener("127.0.0.1");
    const quint16 port = LiveSockets::port(listener);
    const auto [client, accepted] = sockets.connectedPair(listener, "127.0.0.1");
    const quint16 clientPort = LiveSockets::port(client);
    watcher.pass();

    transfer(client, accepted, 3000);
    transfer(accepted, client, 700);
    sockets.close(client);
    sockets.close(accepted);
    const auto [quick, quickAccepted] = sockets.connectedPair(listener, "127.0.0.1");
    const quint16 quickPort = LiveSockets::port(quick);
    transfer(quick, quickAccepted, 5000);
    transfer(quickAccepted, quick, 123);
    sockets.close(quick);
    sockets.close(quickAccepted);
    std::this_thread::sleep_for(200ms);
    const LsofItemList items = watcher.pass();

    const LsofItemPtr seen = itemOn(items, clientPort, port);
    expectFinalBytes(seen, 3000, 700);
    EXPECT_EQ(seen->status(), 3);
    EXPECT_FALSE(seen->isShortLived());
    const LsofItemPtr shortLived = itemOn(items, quickPort, port);
    expectFinalBytes(shortLived, 5000, 123);
    EXPECT_TRUE(shortLived->isShortLived());
    EXPECT_EQ(shortLived->status(), 3);
    EXPECT_EQ(shortLived->state(), u"Closed"_s);
    EXPECT_TRUE(shortLived->processId().isNull()); // it connected from this process, unseen
    const LsofItemPtr served = itemOn(items, port, quickPort);
    expectFinalBytes(served, 123, 5000);
    EXPECT_EQ(served->processId(), QString::number(getpid()));
}

// Thousands of sockets closed at once overflow a small buffer that nobody drains: the pass says
// so, and lists every open socket again; each socket of the last pass is closed exactly once,
// and none comes back as a short-lived phantom.
TEST(DestroyNotices, AMassCloseOverflowIsSaidAndResynchronised)
{
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = std::min<rlim_t>(files.rlim_max, 16384);
    setrlimit(RLIMIT_NOFILE, &files);
    constexpr int pairs = 2500;
    if (files.rlim_cur < 2 * pairs + 100)
        GTEST_SKIP() << "this process may not open " << 2 * pairs << " sockets";
    Watcher watcher({.receiveBuffer = 4096, .ownThread = false});
    LiveSockets sockets;
    const int listener = sockets.listener("127.0.0.1", 4096);
    const quint16 port = LiveSockets::port(listener);
    std::vector<std::pair<int, int>> open;
    for (int i = 0; i < pairs + 3; ++i)
        open.push_back(sockets.connectedPair(listener, "127.0.0.1"));
    const QString pid = QString::number(getpid());
    qsizetype mine = 0;
    for (const LsofItemPtr& item : watcher.pass())
        mine += item->processId() == pid ? 1 : 0;
    ASSERT_EQ(mine, 2 * (pairs + 3) + 1);

    for (int i = 0; i < pairs; ++i) {
        sockets.close(open[size_t(i)].first);
        sockets.close(open[size_t(i)].second);
    }
    std::this_thread::sleep_for(300ms);
    const LsofItemList items = watcher.pass();
    EXPECT_TRUE(watcher.collector->problem().contains(u"were lost"_s))
        << watcher.collector->problem().toStdString();
    qsizetype stillOpen = 0, closed = 0, phantoms = 0;
    for (const LsofItemPtr& item : items) {
        const bool ours = item->localPortNumber() == port || item->remotePortNumber() == port;
        phantoms += ours && item->isShortLived() ? 1 : 0;
        if (item->processId() == pid && !item->isShortLived())
            (item->status() == 3 ? closed : stillOpen) += 1;
    }
    EXPECT_EQ(phantoms, 0);
    EXPECT_EQ(closed, 2 * pairs);
    EXPECT_EQ(stillOpen, 2 * 3 + 1);
}

// With the eBPF program, processes that connect, send and exit before any pass can read /proc
// are still named.
TEST(DestroyNotices, TheEbpfProgramNamesProcessesThatAreGone)
{
    auto owners = std::make_unique<BpfSocketOwners>();
    if (const QString why = owners->start(); !why.isEmpty())
        GTEST_SKIP() << "the eBPF program cannot run here: " << why.toStdString();
    Watcher watcher({}, std::move(owners));
    LiveSockets sockets;
    const int listener = sockets.listener("127.0.0.1", 64);
    const quint16 port = LiveSockets::port(listener);
    watcher.pass();

    QHash<QString, QString> expected; // pid → command
    for (int i = 0; i < 20; ++i) {
        char name[16];
        std::snprintf(name, sizeof(name), "corvkid%02d", i);
        const pid_t child = fork();
        if (child == 0) {
            prctl(PR_SET_NAME, name);
            const int fd = socket(AF_INET, SOCK_STREAM, 0);
            sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
            const bool sent =
                connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
                send(fd, name, sizeof(name), 0) == ssize_t(sizeof(name));
            _exit(sent ? 0 : 1);
        }
        expected.insert(QString::number(child), QString::fromLatin1(name));
    }
    for (int i = 0; i < 20; ++i) {
        const int fd = accept(listener, nullptr, nullptr);
        char buffer[16];
        while (recv(fd, buffer, sizeof(buffer), 0) > 0) {
        }
        ::close(fd);
    }
    int status = 0;
    while (wait(&status) > 0)
        EXPECT_EQ(WEXITSTATUS(status), 0);
    std::this_thread::sleep_for(200ms);

    QHash<QString, QString> listed;
    for (const LsofItemPtr& item : watcher.pass()) {
        if (item->isShortLived() && item->remotePortNumber() == port)
            listed.insert(item->processId(), item->processName());
    }
    EXPECT_EQ(listed, expected);
}

#include "collector/nativecollector.h"
#include "collectorfakes.h"
#include "diagmessages.h"

#include <gtest/gtest.h>

#include <sys/socket.h>

using DiagMessages::encode;
using DiagMessages::ipv4;

namespace {

class ScriptedNotices final : public DestroyNotices {
public:
    int start() override { return 0; }
    Batch take() override { return std::exchange(next, {}); }
    Batch next;
};

class ScriptedOwners final : public SocketOwners {
public:
    QString start() override { return refusal; }
    std::optional<Owner> ownerOf(quint64 cookie) override
    {
        return owners.contains(cookie) ? std::optional(owners.value(cookie)) : std::nullopt;
    }
    QHash<quint64, Owner> owners;
    QString refusal;
};

struct Rig {
    FakeProc proc;
    ScriptedDiagSource* diag = new ScriptedDiagSource;
    ScriptedNotices* notices = new ScriptedNotices;
    ScriptedOwners* owners = new ScriptedOwners;
    NativeCollector collector{{std::unique_ptr<SocketDiagSource>(diag), proc.root(), proc.clock(),
                               "/etc/passwd", std::unique_ptr<DestroyNotices>(notices),
                               std::unique_ptr<SocketOwners>(owners)}};

    SocketRecords pass(const QList<DiagSocket>& dumped, const QList<DiagSocket>& closed,
                       quint64 lost = 0)
    {
        QList<QByteArray> messages;
        for (const DiagSocket& socket : dumped)
            messages << encode(socket);
        diag->answer(AF_INET, IPPROTO_TCP) = {messages, 0};
        notices->next = {{closed.begin(), closed.end()}, lost};
        collector.collect();
        return collector.closed();
    }
};

QStringList cookiesAndOwners(const SocketRecords& records)
{
    QStringList list;
    for (const SocketRecord& r : records)
        list << QString::number(*r.cookie - 0x100000000ull) + u'/' +
                    (r.processId.isNull() ? u"?"_s : r.processId + u' ' + r.processName);
    return list;
}

} // namespace

// A notice is news only for a socket the last pass listed (its final figures) or one no dump
// ever saw (a short-lived connection). Another user's socket, unlisted but dumped, is no
// phantom when it closes; one closing just after the dump that listed it counts next pass.
TEST(ClosedSockets, OnlyTheLastPassesSocketsAndNeverSeenOnesAreNews)
{
    Rig rig;
    const DiagSocket listener = ipv4(IPPROTO_TCP, 10, 502, "0.0.0.0", 80);
    DiagSocket client = ipv4(IPPROTO_TCP, 1, 501, "10.0.0.1", 40000, "198.51.100.7", 443);
    const DiagSocket foreign = ipv4(IPPROTO_TCP, 1, 503, "10.0.0.1", 40001, "198.51.100.7", 443);
    rig.proc.addProcess(20, "server");
    rig.proc.addSocket(20, 3, 502);
    rig.proc.addProcess(3, "client");
    rig.proc.addSocket(3, 4, 501);
    // Before the first dump, the listener hears sockets of unknown age.
    EXPECT_TRUE(
        rig.pass({listener, client, foreign}, {ipv4(IPPROTO_TCP, 7, 0, "10.0.0.1", 1)}).isEmpty());

    client.state = 7;
    client.bytesAcked = 1002;
    const DiagSocket accepted = ipv4(IPPROTO_TCP, 7, 4000, "10.0.0.1", 80, "10.0.0.9", 5555);
    const DiagSocket outgoing = ipv4(IPPROTO_TCP, 7, 4001, "10.0.0.1", 40002, "192.0.2.1", 443);
    const DiagSocket noted = ipv4(IPPROTO_TCP, 7, 4002, "10.0.0.1", 40003, "192.0.2.1", 443);
    rig.owners->owners.insert(noted.cookie, {77, 0, "dig"});
    rig.proc.removeFd(3, 4);
    rig.proc.run(3);
    const SocketRecords closed =
        rig.pass({listener}, {client, foreign, accepted, outgoing, noted, listener});
    EXPECT_EQ(cookiesAndOwners(closed),
              (QStringList{u"501/?"_s, u"4000/20 server"_s, u"4001/?"_s, u"4002/77 dig"_s}));
    EXPECT_EQ(closed.at(0).bytesSent, 1002);
    EXPECT_EQ(closed.at(0).state, u"CLOSE"_s);
    EXPECT_TRUE(rig.collector.problem().isEmpty());

    // The listener's notice came while the dump still listed it; the kernel lost five more.
    rig.proc.removeFd(20, 3);
    rig.proc.run(20);
    EXPECT_EQ(cookiesAndOwners(rig.pass({}, {}, 5)), QStringList{u"502/?"_s});
    EXPECT_TRUE(rig.collector.problem().contains(u"were lost (5,"_s));
}

// An accepted connection is its listener's process's only when one process alone listens there.
// Why no owner was noted is said once, at the first connection left without one.
TEST(ClosedSockets, AListenerSharedByTwoProcessesAttributesNothing)
{
    Rig rig;
    rig.owners->refusal = u"not here"_s;
    const DiagSocket listener = ipv4(IPPROTO_TCP, 10, 502, "10.0.0.1", 80);
    rig.proc.addProcess(20, "server");
    rig.proc.addSocket(20, 3, 502);
    rig.proc.addProcess(21, "server");
    rig.proc.addSocket(21, 3, 502);
    rig.pass({listener}, {});
    const DiagSocket accepted = ipv4(IPPROTO_TCP, 7, 4000, "10.0.0.1", 80, "10.0.0.9", 5555);
    EXPECT_TRUE(rig.collector.problem().isEmpty());
    EXPECT_EQ(cookiesAndOwners(rig.pass({listener}, {accepted})), QStringList{u"4000/?"_s});
    EXPECT_TRUE(rig.collector.problem().endsWith(u"cannot run here (not here)."_s));
    const DiagSocket another = ipv4(IPPROTO_TCP, 7, 4001, "10.0.0.1", 80, "10.0.0.9", 5556);
    EXPECT_EQ(rig.pass({listener}, {another}).size(), 1);
    EXPECT_TRUE(rig.collector.problem().isEmpty());
}

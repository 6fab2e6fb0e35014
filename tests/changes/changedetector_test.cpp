#include "changes/changedetector.h"
#include "support/records.h"

#include <gtest/gtest.h>

#include <unistd.h>

namespace {

SocketRecord tcp(const QString& fd, std::optional<qint64> sent, std::optional<qint64> received)
{
    SocketRecord record = socketRecord(
        u"curl|4242|ann|%1|IPv4|9%1|0t0|TCP|127.0.0.1|4000|127.0.0.1|5000|ESTABLISHED"_s.arg(fd));
    record.bytesSent = sent;
    record.bytesReceived = received;
    return record;
}

} // namespace

// Rates are bytes moved between two passes over the time between them, on the detector's clock.
// Unknown, never 0, on a first sighting, where a count is unknown, or where it went backwards.
TEST(ChangeDetector, RatesComeFromTwoPassesOfTheSameConnection)
{
    auto now = std::chrono::steady_clock::time_point() + 100s;
    ChangeDetector detector([&now] { return now; });
    LsofItemList items = detector.match({tcp(u"3u"_s, 1000, 500), tcp(u"4u"_s, {}, {})});
    detector.detect(items);
    ASSERT_EQ(items.size(), 2);
    EXPECT_EQ(items[0]->traffic().bytesSent, 1000);
    EXPECT_FALSE(items[0]->traffic().sendRate) << "first sighting";

    now += 2s;
    LsofItemList next =
        detector.match({tcp(u"3u"_s, 6000, 500), tcp(u"4u"_s, {}, {}), tcp(u"5u"_s, 10, 10)});
    detector.detect(next);
    ASSERT_EQ(next.size(), 3);
    EXPECT_EQ(next[0], items[0]) << "the same connection keeps its object";
    EXPECT_EQ(next[0]->traffic().sendRate, 2500);
    EXPECT_EQ(next[0]->traffic().receiveRate, 0);
    EXPECT_FALSE(next[1]->traffic().sendRate) << "no counts, no rate";
    EXPECT_FALSE(next[2]->traffic().receiveRate) << "a new connection has no rate yet";

    now += 1s;
    next = detector.match({tcp(u"3u"_s, 10, 500)});
    EXPECT_FALSE(next[0]->traffic().sendRate) << "a count that went backwards";
    EXPECT_EQ(next[0]->traffic().receiveRate, 0);
}

// The kernel's notices of closed sockets: one the previous snapshot had open takes its final
// counts and its last state as old state; one never seen comes last, short-lived and closed,
// with its kernel state as old state. Neither exists on a first snapshot.
TEST(ChangeDetector, ClosedSocketsGiveFinalCountsAndShortLivedItems)
{
    ChangeDetector detector;
    SocketRecord kept = tcp(u"3u"_s, 10, 20), gone = tcp(u"4u"_s, 30, 40);
    kept.cookie = 1;
    gone.cookie = 2;
    SocketRecord shortLived = tcp(u"5u"_s, 7000, 51);
    shortLived.cookie = 3;
    shortLived.processId = shortLived.processName = shortLived.user = QString();
    shortLived.state = u"CLOSED"_s;

    LsofItemList first = detector.match({kept, gone}, {shortLived});
    detector.detect(first);
    EXPECT_EQ(first.size(), 2);
    const LsofItemPtr goneItem = first.at(1);
    gone.bytesSent = 1002;
    gone.bytesReceived = 501;
    // `kept` is still listed: its notice came too early to count, and changes nothing.
    SocketRecord keptNotice = kept;
    keptNotice.bytesSent = 99999;
    LsofItemList second = detector.match({kept}, {keptNotice, gone, shortLived});
    detector.detect(second);

    ASSERT_EQ(second.size(), 3);
    EXPECT_EQ(second.at(0)->traffic().bytesSent, 10);
    EXPECT_EQ(second.at(1), goneItem);
    EXPECT_EQ(goneItem->status(), 3);
    EXPECT_EQ(goneItem->state(), u"Closed"_s);
    EXPECT_EQ(goneItem->oldState(), u"ESTABLISHED"_s);
    EXPECT_EQ(goneItem->traffic().bytesSent, 1002);
    EXPECT_EQ(goneItem->traffic().bytesReceived, 501);
    const LsofItemPtr last = second.at(2);
    EXPECT_TRUE(last->isShortLived());
    EXPECT_EQ(last->status(), 3);
    EXPECT_EQ(last->state(), u"Closed"_s);
    EXPECT_EQ(last->oldState(), u"CLOSED"_s);
    EXPECT_EQ(last->traffic().bytesSent, 7000);
    EXPECT_EQ(detector.unattributed(), 1);

    // Gone with the pass after, like every closed item.
    LsofItemList third = detector.match({kept});
    detector.detect(third);
    EXPECT_EQ(third.size(), 1);
    EXPECT_EQ(detector.unattributed(), 0);
}

// Another machine's items say whose they are, and are not named from this machine's processes.
TEST(ChangeDetector, ItemsOfAnotherHostCarryItsName)
{
    ChangeDetector detector;
    detector.setHost(u"db1"_s);
    SocketRecord record = tcp(u"3u"_s, {}, {});
    record.processId = QString::number(::getpid()); // a process of this machine's, too
    LsofItemList items = detector.match({record, record});
    detector.detect(items);
    items = detector.match({record, record});
    ASSERT_EQ(items.size(), 2);
    for (const LsofItemPtr& item : items) {
        EXPECT_EQ(item->host(), u"db1"_s);
        EXPECT_FALSE(item->runningApplication());
        EXPECT_EQ(item->localizedAppName(), u"curl"_s);
    }
}

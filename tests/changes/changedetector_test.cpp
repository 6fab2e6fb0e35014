#include "changes/changedetector.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

SocketRecord tcp(const QString& fd, std::optional<qint64> sent, std::optional<qint64> received)
{
    SocketRecord record;
    record.processName = u"curl"_s;
    record.processId = u"4242"_s;
    record.user = u"ann"_s;
    record.fileDescriptor = fd;
    record.type = u"IPv4"_s;
    record.device = u"9"_s + fd;
    record.sizeAndOffset = u"0t0"_s;
    record.protocol = u"TCP"_s;
    record.localAddress = u"127.0.0.1"_s;
    record.localPort = u"4000"_s;
    record.remoteAddress = u"127.0.0.1"_s;
    record.remotePort = u"5000"_s;
    record.state = u"ESTABLISHED"_s;
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

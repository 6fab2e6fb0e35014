#include "lsofdata.h"
#include "snapshot/lsoffetcher.h"
#include "snapshot/lsofsnapshotworker.h"
#include "snapshot/lsoftextreader.h"
#include "snapshot/lsoftextwriter.h"
#include "support/itemspec.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <gtest/gtest.h>

#include <mutex>
#include <thread>

using Road = SnapshotSource::Road;

namespace {

struct FakeSystem {
    bool helperInstalled = false;
    QByteArray helperReply; // null: the helper failed
    QByteArray helperCollectorReply;
    int helperCollectorRequests = 0, collects = 0;
    AcquisitionRoads::Collected collected;
    bool sandboxed = false;
    int helperChecks = 0, helperRequests = 0;
    QStringList programsRun;
    QString localOutput;

    AcquisitionRoads roads()
    {
        AcquisitionRoads r;
        r.helperInstalled = [this] {
            ++helperChecks;
            return helperInstalled;
        };
        r.runLsofThroughHelper = [this](const std::function<void(const QByteArray&)>& reply) {
            ++helperRequests;
            reply(helperReply);
        };
        r.runCollectorThroughHelper = [this](const AcquisitionRoads::HelperReply& reply) {
            ++helperCollectorRequests;
            reply(helperCollectorReply);
        };
        r.collect = [this] {
            ++collects;
            return collected;
        };
        r.sandboxed = [this] { return sandboxed; };
        r.scriptPath = [] { return u"/scripts/user_script.sh"_s; };
        r.run = [this](const QString& program, const QStringList& arguments,
                       GACommandRunner::Road) {
            programsRun << program + u' ' + arguments.join(u' ');
            GACommandRunner::SyncResult result;
            result.output = localOutput.toUtf8();
            result.started = true;
            return result;
        };
        return r;
    }
};

class CountingReporter final : public ChangeReporting {
public:
    int passes = 0;
    bool needsNotifyOrLogNewConnections() const override { return true; }
    bool needsNotifyOrLogConnectionStateChange() const override { return false; }
    void notifyNewItems(const LsofItemList&) override { ++passes; }
    void notifyChangedItems(const LsofItemList&) override {}
};

} // namespace

TEST(Acquisition, HelperRoadNeverRunsLsofLocally)
{
    FakeSystem system;
    system.helperInstalled = true;
    system.helperReply = lsofData("sequence-1.txt").toUtf8();
    LsofFetcher fetcher;
    fetcher.setRoads(system.roads());
    int calls = 0;
    LsofItemList received;
    fetcher.getCurrentItemsWithCompletion([&](const LsofItemList& items) {
        ++calls;
        received = items;
    });
    fetcher.getCurrentItemsWithCompletion([&](const LsofItemList&) { ++calls; });
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(received.size(), 5);
    EXPECT_TRUE(system.programsRun.isEmpty());
    EXPECT_EQ(system.helperChecks, 1) << "asked once per run";
    EXPECT_EQ(fetcher.lastRoad(), Road::Helper);
}

TEST(Acquisition, FailedHelperFallsBackWithOneDetectionPass)
{
    FakeSystem system;
    system.helperInstalled = true;
    system.localOutput = lsofData("sequence-1.txt");
    LsofFetcher fetcher;
    fetcher.setRoads(system.roads());
    CountingReporter reporter;
    fetcher.setReporter(&reporter);
    LsofItemList received;
    fetcher.getCurrentItemsWithCompletion([&](const LsofItemList& items) { received = items; });
    EXPECT_EQ(received.size(), 5);
    EXPECT_EQ(reporter.passes, 1);
    EXPECT_EQ(system.helperRequests, 1);
    EXPECT_EQ(system.programsRun.size(), 1);
    EXPECT_EQ(fetcher.lastRoad(), Road::Direct);
}

// Why the helper gave nothing reaches the status bar ahead of the local road's own problem.
TEST(Acquisition, TheHelpersProblemLeadsTheFallBacksProblem)
{
    FakeSystem system;
    system.helperInstalled = true;
    system.localOutput = lsofData("sequence-1.txt");
    AcquisitionRoads roads = system.roads();
    QString helperSays = u"The helper refuses this user."_s;
    roads.helperProblem = [&helperSays] { return helperSays; };
    roads.sandboxed = [] { return true; }; // the script is missing: a problem of its own
    LsofFetcher fetcher;
    fetcher.setRoads(roads);
    LsofItemList received;
    fetcher.getCurrentItemsWithCompletion([&](const LsofItemList& items) { received = items; });
    EXPECT_EQ(received.size(), 5);
    EXPECT_TRUE(fetcher.lastProblem().startsWith(helperSays + u' '))
        << fetcher.lastProblem().toStdString();
    EXPECT_NE(fetcher.lastProblem().indexOf(u"script"_s), -1);

    helperSays.clear();
    roads.sandboxed = [] { return false; };
    fetcher.setRoads(roads);
    fetcher.getCurrentItemsWithCompletion([](const LsofItemList&) {});
    EXPECT_TRUE(fetcher.lastProblem().isEmpty()) << fetcher.lastProblem().toStdString();
}

TEST(Acquisition, LocalRoadIsTheScriptWhenConfinedAndLsofOtherwise)
{
    FakeSystem system;
    system.localOutput = lsofData("sequence-1.txt");
    LsofFetcher fetcher;
    fetcher.setRoads(system.roads());
    fetcher.getCurrentItemsWithCompletion([](const LsofItemList&) {});
    ASSERT_EQ(system.programsRun.size(), 1);
    EXPECT_EQ(system.programsRun[0], GACommandRunner::lsofPath() + u" -i -n -P +c 0"_s);
    EXPECT_EQ(system.helperRequests, 0);

    system.sandboxed = true;
    EXPECT_EQ(fetcher.getLsofItems().size(), 5);
    EXPECT_EQ(system.programsRun[1], u"/scripts/user_script.sh -i -n -P +c 0"_s);
    EXPECT_EQ(fetcher.lastRoad(), Road::Script);
    EXPECT_NE(fetcher.lastProblem().indexOf(u"script"_s), -1) << "the script is not there";
}

// The built-in collector takes the snapshot where it is chosen and the kernel answers, here or
// through the helper. Where the kernel refuses, lsof stands in and the refusal is said once,
// until the collector is chosen again; the user's script always runs lsof.
TEST(Acquisition, TheBuiltInCollectorAndItsFallBack)
{
    FakeSystem system;
    system.localOutput = lsofData("sequence-1.txt");
    system.collected.records = *LsofTextReader::records(lsofData("sequence-2.txt").toUtf8());
    LsofFetcher fetcher;
    fetcher.setRoads(system.roads());
    fetcher.setCollector(SnapshotSource::Collector::Native);
    LsofItemList items = fetcher.getCurrentItems();
    EXPECT_EQ(items.size(), 7);
    EXPECT_EQ(fetcher.lastOrigin().collector, SnapshotSource::Collector::Native);
    EXPECT_TRUE(system.programsRun.isEmpty());

    system.collected = {{}, u"The kernel refused."_s};
    items = fetcher.getCurrentItems();
    EXPECT_EQ(fetcher.lastOrigin().collector, SnapshotSource::Collector::Lsof);
    EXPECT_EQ(fetcher.lastProblem(), u"The kernel refused. Using lsof instead."_s);
    fetcher.getCurrentItems();
    EXPECT_TRUE(fetcher.lastProblem().isEmpty()) << "said once";
    EXPECT_EQ(system.collects, 2) << "not asked again";
    fetcher.setCollector(SnapshotSource::Collector::Native);
    fetcher.getCurrentItems();
    EXPECT_EQ(system.collects, 3);

    system.sandboxed = true;
    fetcher.getCurrentItems();
    EXPECT_EQ(system.collects, 3) << "the script runs lsof";

    FakeSystem helped;
    helped.helperInstalled = true;
    helped.helperCollectorReply = lsofData("sequence-1.txt").toUtf8();
    LsofFetcher throughHelper;
    throughHelper.setRoads(helped.roads());
    throughHelper.setCollector(SnapshotSource::Collector::Native);
    throughHelper.getCurrentItemsWithCompletion([](const LsofItemList&) {});
    EXPECT_EQ(helped.helperCollectorRequests, 1);
    EXPECT_EQ(helped.helperRequests, 0);
    EXPECT_EQ(throughHelper.lastOrigin().road, Road::Helper);
    EXPECT_EQ(throughHelper.lastOrigin().collector, SnapshotSource::Collector::Native);
}

// The daemon's collector runs once per pass and hears no close: this process's listener tells
// what closed since the last pass, given the daemon's records, and both reach detection.
TEST(Acquisition, TheHelpersRecordsMeetThisProcesssNoticesOfClosedSockets)
{
    SocketRecords records = *LsofTextReader::records(lsofData("sequence-1.txt").toUtf8());
    ASSERT_GE(records.size(), 2);
    for (qsizetype i = 0; i < records.size(); ++i)
        records[i].cookie = quint64(100 + i);
    FakeSystem helped;
    helped.helperInstalled = true;
    helped.helperCollectorReply = LsofTextWriter::write(records);
    QList<SocketRecords> listedTo;
    AcquisitionRoads::Collected heard;
    AcquisitionRoads roads = helped.roads();
    roads.closedAmong = [&](const SocketRecords& listed) {
        listedTo << listed;
        return heard;
    };
    LsofFetcher fetcher;
    fetcher.setRoads(roads);
    fetcher.setCollector(SnapshotSource::Collector::Native);
    LsofItemList items;
    const auto pass = [&] {
        fetcher.getCurrentItemsWithCompletion([&](LsofItemList l) { items = l; });
    };
    pass();

    // The first record's socket closes with its last bytes; another opens and closes between.
    SocketRecord gone = records.takeFirst();
    gone.bytesSent = 5000;
    SocketRecord brief = gone;
    brief.cookie = 9;
    brief.localPort = u"41000"_s;
    brief.processId = QString();
    heard = {{}, {}, {gone, brief}, u"Some notices were lost."_s};
    helped.helperCollectorReply = LsofTextWriter::write(records);
    pass();

    ASSERT_EQ(listedTo.size(), 2);
    EXPECT_EQ(listedTo[1].size(), records.size()) << "the helper's records, as read";
    EXPECT_EQ(fetcher.lastProblem(), u"Some notices were lost."_s);
    int closedWithBytes = 0, shortLived = 0;
    for (const LsofItemPtr& item : items) {
        closedWithBytes +=
            item->status() == 3 && !item->isShortLived() && item->traffic().bytesSent == 5000;
        shortLived += item->isShortLived() && item->localPort() == u"41000"_s;
    }
    EXPECT_EQ(closedWithBytes, 1);
    EXPECT_EQ(shortLived, 1);
}

// The application's worker over a fetcher whose lsof prints sequence-1.txt.
class AcquisitionWorker : public testing::Test {
protected:
    AcquisitionWorker()
    {
        system.localOutput = lsofData("sequence-1.txt");
        fetcher.setRoads(system.roads());
        worker.setCollector(SnapshotSource::Collector::Lsof);
    }

    int argc = 0;
    QCoreApplication app{argc, nullptr};
    FakeSystem system;
    LsofFetcher fetcher;
    LsofSnapshotWorker worker{fetcher};
};

TEST_F(AcquisitionWorker, DeliversOncePerRequestAndRefusesOverlaps)
{
    QList<LsofItemList> delivered;
    QObject::connect(&worker, &SnapshotSource::snapshotReady, &worker,
                     [&](const LsofItemList& items) { delivered << items; });

    EXPECT_TRUE(worker.requestSnapshot());
    EXPECT_FALSE(worker.requestSnapshot()) << "the first acquisition has not been delivered";
    QEventLoop loop;
    QTimer::singleShot(5000, &loop, &QEventLoop::quit);
    QObject::connect(&worker, &SnapshotSource::snapshotReady, &loop, &QEventLoop::quit);
    loop.exec();
    ASSERT_EQ(delivered.size(), 1);
    EXPECT_EQ(delivered[0].size(), 5);
    EXPECT_TRUE(worker.requestSnapshot());
}

TEST_F(AcquisitionWorker, SortsACopyInTheOrderAskedWhenRequested)
{
    LsofItemList delivered;
    ItemOrdering deliveredOrder;
    QEventLoop loop;
    QTimer::singleShot(5000, &loop, &QEventLoop::quit);
    QObject::connect(&worker, &SnapshotSource::snapshotReady, &loop,
                     [&](const LsofItemList& items, const QString&, const ItemOrdering& sortedBy) {
                         delivered = items;
                         deliveredOrder = sortedBy;
                         loop.quit();
                     });

    const int localPortColumn = columnOf(LsofItem::Key::localPort);
    const ItemOrdering byPortDown{localPortColumn, Qt::DescendingOrder};
    worker.setOrdering(byPortDown);
    ASSERT_TRUE(worker.requestSnapshot());
    // A later choice is the next request's.
    worker.setOrdering({});
    loop.exec();

    QStringList ports;
    QStringList descriptors;
    for (const LsofItemPtr& item : delivered) {
        ports << item->localPort();
        descriptors << item->fileDescriptor();
    }
    EXPECT_EQ(ports, QStringList({u"58847"_s, u"49664"_s, u"36993"_s, u"36993"_s, u"33956"_s}));
    EXPECT_EQ(descriptors.mid(2, 2), QStringList({u"3u"_s, u"5u"_s})) << "ties in lsof's order";
    EXPECT_TRUE(deliveredOrder == byPortDown);
    // Change detection keeps lsof's order for the next pass.
    QStringList kept;
    for (const LsofItemPtr& item : fetcher.previousSnapshot())
        kept << item->fileDescriptor();
    EXPECT_EQ(kept, QStringList({u"3u"_s, u"4u"_s, u"5u"_s, u"6u"_s, u"7u"_s}));

    // Orderings without a column are one and the same.
    EXPECT_TRUE((ItemOrdering{-1, Qt::DescendingOrder} == ItemOrdering{}));
    EXPECT_TRUE((ItemOrdering{99, Qt::AscendingOrder} == ItemOrdering{}));
    EXPECT_FALSE((ItemOrdering{localPortColumn, Qt::AscendingOrder} == byPortDown));
}

// Quitting while the helper has not answered: the worker stops waiting, and an answer that comes
// after the worker is gone is dropped, touching nothing that went with it.
TEST(AcquisitionShutdown, AReplyAfterTheWorkerIsGoneIsDropped)
{
    int argc = 0;
    QCoreApplication app{argc, nullptr};
    FakeSystem system;
    system.helperInstalled = true;
    AcquisitionRoads roads = system.roads();
    std::function<void(const QByteArray&)> answerLater;
    std::mutex lock;
    roads.runLsofThroughHelper = [&](const AcquisitionRoads::HelperReply& reply) {
        std::lock_guard locker(lock);
        answerLater = reply;
    };
    roads.runCollectorThroughHelper = roads.runLsofThroughHelper;
    auto fetcher = std::make_unique<LsofFetcher>();
    fetcher->setRoads(roads);
    CountingReporter reporter;
    fetcher->setReporter(&reporter);
    {
        LsofSnapshotWorker worker(*fetcher);
        ASSERT_TRUE(worker.requestSnapshot());
        for (int i = 0; i < 200; ++i) {
            std::lock_guard locker(lock);
            if (answerLater)
                break;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    std::thread late([&] {
        std::lock_guard locker(lock);
        ASSERT_TRUE(answerLater);
        answerLater(lsofData("sequence-1.txt").toUtf8());
    });
    late.join();
    EXPECT_EQ(reporter.passes, 0) << "no pass ran after the quit";
}

#include "lsofdata.h"
#include "snapshot/lsoffetcher.h"

#include <gtest/gtest.h>

#include <random>

namespace {

class RecordingReporter final : public ChangeReporting {
public:
    bool wantsNew = true;
    bool wantsChanged = true;
    QList<LsofItemList> newCalls, changedCalls;
    QStringList order;

    bool needsNotifyOrLogNewConnections() const override { return wantsNew; }
    bool needsNotifyOrLogConnectionStateChange() const override { return wantsChanged; }
    void notifyNewItems(const LsofItemList& items) override
    {
        newCalls << items;
        order << u"new"_s;
    }
    void notifyChangedItems(const LsofItemList& items) override
    {
        changedCalls << items;
        order << u"changed"_s;
    }
};

// One lsof output with one TCP line per (fd, state); fds double as identities.
QString output(const QList<std::pair<int, QString>>& sockets)
{
    QString text = kLsofHeader + u'\n';
    for (const auto& [fd, state] : sockets) {
        text += lsofLine(u"app"_s, 42, QString::number(fd) + u'u', u"IPv4"_s, 1000 + fd, u"TCP"_s,
                         u"10.0.0.2:%1->10.0.0.9:443 (%2)"_s.arg(5000 + fd).arg(state)) +
                u'\n';
    }
    return text;
}

QList<int> fds(const LsofItemList& items)
{
    QList<int> result;
    for (const LsofItemPtr& item : items)
        result << item->fileDescriptor().chopped(1).toInt();
    return result;
}

QList<int> statuses(const LsofItemList& items)
{
    QList<int> result;
    for (const LsofItemPtr& item : items)
        result << item->status();
    return result;
}

QList<std::pair<int, QString>> established(const QList<int>& fds)
{
    QList<std::pair<int, QString>> sockets;
    for (int fd : fds)
        sockets << std::pair{fd, u"ESTABLISHED"_s};
    return sockets;
}

// The placement rule written the plain way: look each previous item up in the list as it
// grows, insert at (closed count + last found position).
template <typename T> QList<T> referencePlacement(const QList<T>& previous, QList<T> next)
{
    int closed = 0;
    qsizetype lastFound = 0;
    for (const T& before : previous) {
        const qsizetype at = next.indexOf(before);
        if (at >= 0) {
            lastFound = at;
            continue;
        }
        ++closed;
        next.insert(std::min(closed + lastFound, next.size()), before);
    }
    return next;
}

} // namespace

TEST(ChangeDetection, FirstSnapshotIsAllUnchangedAndUnreported)
{
    LsofFetcher fetcher;
    RecordingReporter reporter;
    fetcher.setReporter(&reporter);
    const LsofItemList items = detectPass(fetcher, lsofData("sequence-1.txt"));
    EXPECT_EQ(statuses(items), QList<int>(5, 0));
    // The reporters are asked, and find nothing new among unchanged items.
    ASSERT_EQ(reporter.newCalls.size(), 1);
    EXPECT_EQ(reporter.order, (QStringList{u"new"_s, u"changed"_s}));
}

TEST(ChangeDetection, RealSequenceMarksNewChangedAndClosedForOnePass)
{
    LsofFetcher fetcher;
    detectPass(fetcher, lsofData("sequence-1.txt"));
    const LsofItemList second = detectPass(fetcher, lsofData("sequence-2.txt"));
    // Listener and UDP sockets unchanged (UDP has no state), the half-closed pair changed,
    // the second pair new.
    EXPECT_EQ(statuses(second), (QList<int>{0, 2, 2, 0, 0, 1, 1}));

    const LsofItemList third = detectPass(fetcher, lsofData("sequence-3.txt"));
    ASSERT_EQ(third.size(), 7);
    EXPECT_EQ(third[5], second[5]);
    EXPECT_EQ(third[6], second[6]);
    EXPECT_EQ(statuses(third), (QList<int>{0, 0, 0, 0, 0, 3, 3}));
    EXPECT_EQ(third[5]->state(), u"Closed"_s);

    const LsofItemList fourth = detectPass(fetcher, lsofData("sequence-3.txt"));
    EXPECT_EQ(fourth.size(), 5) << "closed items stay for exactly one refresh";
    EXPECT_EQ(statuses(fourth), QList<int>(5, 0));
}

TEST(ChangeDetection, EmptyResultKeepsThePreviousSnapshot)
{
    LsofFetcher fetcher;
    RecordingReporter reporter;
    fetcher.setReporter(&reporter);
    const LsofItemList first = detectPass(fetcher, output({{1, u"SYN_SENT"_s}, {2, u"LISTEN"_s}}));
    reporter.newCalls.clear();
    LsofItemList empty;
    fetcher.processLsofItemsChanges(empty);
    EXPECT_TRUE(empty.isEmpty());
    EXPECT_TRUE(reporter.newCalls.isEmpty());
    EXPECT_EQ(fetcher.previousSnapshot(), first);

    // The next good snapshot is compared with the last good one.
    const LsofItemList next =
        detectPass(fetcher, output({{1, u"ESTABLISHED"_s}, {2, u"LISTEN"_s}}));
    EXPECT_EQ(next[0], first[0]);
    EXPECT_EQ(statuses(next), (QList<int>{2, 0}));
}

// A connection listed as before comes out unchanged, its state carried over, whatever its
// status and old state were: a pass that changed it, or a write from elsewhere.
TEST(ChangeDetection, AConnectionListedAsBeforeIsUnchangedWhateverItWasTold)
{
    LsofFetcher fetcher;
    detectPass(fetcher, output({{1, u"ESTABLISHED"_s}}));
    LsofItemList items = detectPass(fetcher, output({{1, u"CLOSE_WAIT"_s}}));
    ASSERT_EQ(items.size(), 1);
    const LsofItemPtr item = items[0];
    EXPECT_EQ(item->status(), 2);
    EXPECT_EQ(item->oldState(), u"ESTABLISHED"_s);

    for (int round = 0; round < 3; ++round) {
        if (round == 1)
            item->setStatus(2);
        if (round == 2)
            item->setOldState(u"SYN_SENT"_s);
        items = detectPass(fetcher, output({{1, u"CLOSE_WAIT"_s}}));
        ASSERT_EQ(items, LsofItemList{item}) << "round " << round;
        EXPECT_EQ(item->status(), 0) << "round " << round;
        EXPECT_EQ(item->state(), u"CLOSE_WAIT"_s) << "round " << round;
        EXPECT_EQ(item->oldState(), u"CLOSE_WAIT"_s) << "round " << round;
    }

    // A state where there was none is no change, but the next pass still carries it over.
    const auto line = [](const QString& name) -> QString {
        return kLsofHeader + u'\n' +
               lsofLine(u"app"_s, 42, u"7u"_s, u"IPv4"_s, 1007, u"TCP"_s, name) + u'\n';
    };
    LsofFetcher other;
    detectPass(other, line(u"10.0.0.2:5007->10.0.0.9:443"_s));
    items = detectPass(other, line(u"10.0.0.2:5007->10.0.0.9:443 (ESTABLISHED)"_s));
    ASSERT_EQ(items.size(), 1);
    EXPECT_EQ(items[0]->status(), 0);
    EXPECT_TRUE(items[0]->oldState().isNull());
    items = detectPass(other, line(u"10.0.0.2:5007->10.0.0.9:443 (ESTABLISHED)"_s));
    ASSERT_EQ(items.size(), 1);
    EXPECT_EQ(items[0]->oldState(), u"ESTABLISHED"_s);
}

// Detection compares with the snapshot it last gave, even when a parse came in between whose
// list it never took (a one-off listing on the same fetcher).
TEST(ChangeDetection, AParseLeftUndetectedChangesNothingForTheNext)
{
    LsofFetcher fetcher;
    const LsofItemList first = detectPass(fetcher, output(established({1, 2, 3})));
    EXPECT_EQ(fetcher.parseLsofResult(output(established({3, 4}))).size(), 2);
    const LsofItemList items = detectPass(fetcher, output(established({1, 2, 3})));
    EXPECT_EQ(fds(items), (QList<int>{1, 2, 3}));
    EXPECT_TRUE(items == first) << "the same objects";
    EXPECT_EQ(statuses(items), (QList<int>{0, 0, 0}));
}

TEST(ChangeDetection, ClosedItemsLandWhereTheNeverResetCounterPutsThem)
{
    struct Case {
        QList<int> previous, next, expected;
    };
    const Case cases[] = {
        {{1, 2, 3, 4}, {1, 3}, {1, 2, 3, 4}},
        {{1, 2, 3}, {9, 1}, {9, 1, 2, 3}},
        {{1, 2, 3, 4, 5, 6}, {1, 4, 6, 7, 8, 9}, {1, 2, 3, 4, 6, 7, 5, 8, 9}},
        {{1, 2}, {3, 4, 5}, {3, 1, 2, 4, 5}},
    };
    for (const Case& c : cases) {
        LsofFetcher fetcher;
        detectPass(fetcher, output(established(c.previous)));
        const LsofItemList items = detectPass(fetcher, output(established(c.next)));
        EXPECT_EQ(fds(items), c.expected);
        EXPECT_EQ(fds(items), referencePlacement(c.previous, c.next));
    }
}

TEST(ChangeDetection, ReportersSeeTheWholeListOnlyWhenAsked)
{
    LsofFetcher fetcher;
    RecordingReporter reporter;
    reporter.wantsNew = false;
    fetcher.setReporter(&reporter);
    detectPass(fetcher, output({{1, u"ESTABLISHED"_s}}));
    const LsofItemList items = detectPass(fetcher, output({{2, u"ESTABLISHED"_s}}));
    EXPECT_TRUE(reporter.newCalls.isEmpty());
    ASSERT_EQ(reporter.changedCalls.size(), 2);
    EXPECT_EQ(reporter.changedCalls.last(), items);
    EXPECT_EQ(statuses(items), (QList<int>{1, 3}));
}

// Many passes over a small pool of connections that open, change state, close, reopen and are
// sometimes listed twice; now and then detection is handed a list the parser did not make.
// Every pass is checked against the rules applied the plain way: the identifier map built
// afresh from the previous snapshot, statuses from that map and the two states, and closed
// items placed by searching the growing list.
TEST(ChangeDetection, LongRunsAgreeWithThePlainRules)
{
    std::mt19937 random(4242);
    const QStringList states = {u"ESTABLISHED"_s, u"CLOSE_WAIT"_s, u"FIN_WAIT1"_s};
    LsofFetcher fetcher;
    for (int round = 0; round < 400; ++round) {
        LsofItemList open;
        for (const LsofItemPtr& item : fetcher.previousSnapshot()) {
            if (item->status() != 3)
                open << item;
        }
        QHash<QString, LsofItemPtr> plainMap;
        for (const LsofItemPtr& item : open)
            plainMap.insert(item->identifier(), item);

        QList<std::pair<int, QString>> sockets;
        for (int fd = 1; fd <= 12; ++fd) {
            if (random() % 5 < 3)
                sockets << std::pair{fd, states[random() % states.size()]};
            if (random() % 10 == 0)
                sockets << std::pair{fd, states[random() % states.size()]};
        }
        std::shuffle(sockets.begin(), sockets.end(), random);

        LsofItemList items = fetcher.parseLsofResult(output(sockets));
        ASSERT_EQ(fetcher.detector().identifierCount(), plainMap.size()) << "round " << round;
        for (auto it = plainMap.cbegin(); it != plainMap.cend(); ++it)
            ASSERT_EQ(fetcher.detector().previousItem(it.key()), it.value()) << "round " << round;
        if (items.isEmpty())
            continue;

        QList<int> expectedStatuses;
        for (const LsofItemPtr& item : items) {
            const QString now = item->state(), before = item->oldState();
            const bool changed = !now.isNull() && !before.isNull() && now != before;
            expectedStatuses << (!plainMap.contains(item->identifier()) ? 1 : changed ? 2 : 0);
        }
        if (round % 5 == 0) {
            std::reverse(items.begin(), items.end());
            std::reverse(expectedStatuses.begin(), expectedStatuses.end());
        }
        const LsofItemList expectedOrder = referencePlacement(open, items);

        const LsofItemList parsed = items;
        fetcher.processLsofItemsChanges(items);
        ASSERT_EQ(items, expectedOrder) << "round " << round;
        if (open.isEmpty())
            continue;
        ASSERT_EQ(statuses(parsed), expectedStatuses) << "round " << round;
        for (const LsofItemPtr& item : items) {
            if (!parsed.contains(item)) {
                ASSERT_TRUE(item->status() == 3 && item->state() == u"Closed"_s);
            }
        }
    }
}

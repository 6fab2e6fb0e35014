#include "ui/window/connectiontablemodel.h"
#include "uitestsupport.h"

#include "snapshot/hostnameresolver.h"
#include "snapshot/itemcolumns.h"
#include "snapshot/itemordering.h"

#include <QAbstractItemModelTester>
#include <QSignalSpy>

#include <gtest/gtest.h>

TEST(ConnectionTableModel, PassesTheModelTesterThroughResetsAndRepaints)
{
    ConnectionTableModel model;
    QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
    const LsofItemList first{makeItem({u"Firefox"_s, u"10"_s}), makeItem({u"curl"_s, u"11"_s})};
    model.setItems(first);
    first.at(0)->setTraffic({1000, 2000, 10, 20, 0.5});
    model.setItems(first);
    model.setItems({first.at(1)});
    model.setItems({});
    EXPECT_EQ(model.rowCount(), 0);
    EXPECT_EQ(model.columnCount(), int(itemColumns().size()));
}

TEST(ConnectionTableModel, KeptConnectionsRepaintWhenTheirStatusStateOrTrafficChange)
{
    ConnectionTableModel model;
    LsofItemList items;
    for (int i = 0; i < 6; ++i)
        items.append(makeItem({u"app"_s, QString::number(i + 1)}));
    items.at(1)->setTraffic({5000, 7000, 100, 200, 1.5});
    model.setItems(items);
    QSignalSpy resets(&model, &QAbstractItemModel::modelReset);
    QSignalSpy changes(&model, &QAbstractItemModel::dataChanged);
    const auto repainted = [&](int row) {
        return std::any_of(changes.cbegin(), changes.cend(), [row](const QList<QVariant>& range) {
            return range.at(0).toModelIndex().row() <= row &&
                   row <= range.at(1).toModelIndex().row() &&
                   range.at(0).toModelIndex().column() == 0 &&
                   range.at(1).toModelIndex().column() == int(itemColumns().size()) - 1;
        });
    };

    // Figures move on every pass of the kernel's collector.
    items.at(1)->setTraffic({9000, 7000, 4000, 200, 1.5});
    items.at(3)->setState(u"CLOSE_WAIT"_s);
    items.at(5)->setStatus(3);
    model.setItems(items);
    EXPECT_EQ(resets.size(), 0) << "the rows stay, and with them the selection";
    for (int row : {1, 3, 5})
        EXPECT_TRUE(repainted(row)) << row;
    EXPECT_EQ(model.index(1, columnOf(LsofItem::Key::sendRate)).data().toString(), u"4.0 kB/s"_s);

    // Equal content in other objects is another snapshot: the rows are rebuilt.
    LsofItemList other = items;
    other[0] = makeItem({u"app"_s, u"1"_s});
    model.setItems(other);
    EXPECT_EQ(resets.size(), 1);
}

TEST(ConnectionTableModel, ColoursRowsByStatus)
{
    ConnectionTableModel model;
    ConnectionTableModel::Colors colors;
    colors.list = QColor(250, 250, 250);
    colors.fresh = QColor(10, 200, 10);
    colors.changed = QColor(240, 240, 20);
    colors.closed = QColor(220, 20, 20);
    // Light text chosen for a dark list stays so on every row, strong backgrounds included.
    colors.text = QColor(240, 240, 240);
    model.setColors(colors);
    const QList<std::pair<qint32, QColor>> cases{{0, colors.list},    {1, colors.fresh},
                                                 {2, colors.changed}, {3, colors.closed},
                                                 {4, colors.list},    {-1, colors.list}};
    LsofItemList items;
    for (const auto& [status, expected] : cases) {
        ItemSpec spec{u"app"_s, QString::number(items.size() + 1)};
        spec.status = status;
        items.append(makeItem(spec));
    }
    model.setItems(items);
    for (int row = 0; row < cases.size(); ++row) {
        for (int col : {0, 5, int(itemColumns().size()) - 1}) {
            EXPECT_EQ(model.index(row, col).data(Qt::BackgroundRole).value<QColor>(),
                      cases.at(row).second)
                << "status " << cases.at(row).first << " column " << col;
            EXPECT_EQ(model.index(row, col).data(Qt::ForegroundRole).value<QColor>(), colors.text);
        }
    }
}

TEST(ConnectionTableModel, RefreshingAndSortingStartNoHostNameLookUps)
{
    // An address no other test uses. Only a painted cell may ask DNS for its name; resets,
    // quiet refreshes and sorting read the cache. Any look-up, answered or failed, would
    // leave an entry in the cache.
    const QString address = u"198.51.100.213"_s;
    HostnameResolver::setEnabled(true);
    LsofItemList items{peer(u"curl"_s, u"4242"_s, address, u"443"_s),
                       makeItem({u"sshd"_s, u"1"_s})};

    ConnectionTableModel model;
    model.setItems(items);
    items.at(0)->setStatus(2);
    model.setItems(items);
    ItemOrdering{columnOf(LsofItem::Key::remoteHostname), Qt::AscendingOrder}.apply(items);

    HostnameResolver& resolver = HostnameResolver::sharedResolver();
    ASSERT_TRUE(resolver.waitForIdle(30000)) << "look-ups still running";
    EXPECT_FALSE(resolver.cache().objectForKey(address).isValid());
}

TEST(ConnectionTableModel, RepaintsAShownRowWhenItsHostNameLands)
{
    // The one address whose name the hosts file answers without DNS on most machines.
    const QString address = u"127.0.0.1"_s;
    HostnameResolver::setEnabled(true);
    HostnameResolver& resolver = HostnameResolver::sharedResolver();
    if (resolver.cache().objectForKey(address).isValid())
        GTEST_SKIP() << "the name is known already";
    const LsofItemList items{makeItem({u"sshd"_s, u"1"_s}),
                             peer(u"curl"_s, u"7"_s, address, u"8080"_s),
                             peer(u"curl"_s, u"7"_s, address, u"8080"_s)};
    ConnectionTableModel model;
    model.setItems(items);
    const int host = columnOf(LsofItem::Key::remoteHostname);
    EXPECT_EQ(model.index(1, host).data().toString(), QString()) << "asked, not known yet";
    ASSERT_TRUE(resolver.waitForIdle(10000));
    const QString name = resolver.cache().objectForKey(address).toString();
    if (name.isEmpty())
        GTEST_SKIP() << "no name for " << address.toStdString() << " on this machine";

    // The row that showed no name is repainted with it.
    QSignalSpy changes(&model, &QAbstractItemModel::dataChanged);
    model.setItems(items);
    ASSERT_FALSE(changes.isEmpty());
    EXPECT_LE(changes.at(0).at(0).toModelIndex().row(), 1);
    EXPECT_GE(changes.at(0).at(1).toModelIndex().row(), 1);
    EXPECT_EQ(model.index(1, host).data().toString(), name);
}

TEST(ConnectionTableModel, ExposesDisplayTextAndRawSortValue)
{
    ConnectionTableModel model;
    ItemSpec spec{u"sshd"_s, u"812"_s};
    spec.remoteAddress = u"10.0.0.7"_s;
    spec.remotePort = u"22"_s;
    model.setItems({makeItem(spec)});
    const QModelIndex port = model.index(0, columnOf(LsofItem::Key::remotePort));
    EXPECT_EQ(port.data().toString(), u"22"_s);
    EXPECT_EQ(port.data(ConnectionTableModel::RawValueRole).toLongLong(), 22);
    const QModelIndex pid = model.index(0, columnOf(LsofItem::Key::processId));
    EXPECT_EQ(pid.data(ConnectionTableModel::RawValueRole).toLongLong(), 812);
    // Absent fields show empty.
    EXPECT_EQ(model.index(0, columnOf(LsofItem::Key::state)).data().toString(), QString());
    EXPECT_EQ(model.headerData(columnOf(LsofItem::Key::remoteHostname), Qt::Horizontal).toString(),
              u"Remote Host"_s);
    // Numbers and their titles align right together; text keeps the header's own alignment.
    for (int column = 0; column < itemColumns().size(); ++column) {
        SCOPED_TRACE(itemColumns().at(column).title.toStdString());
        const QVariant header = model.headerData(column, Qt::Horizontal, Qt::TextAlignmentRole);
        EXPECT_EQ(header.isValid(), itemColumns().at(column).numeric);
        if (header.isValid()) {
            EXPECT_TRUE(header.value<Qt::Alignment>() & Qt::AlignRight);
            EXPECT_EQ(header.value<Qt::Alignment>(),
                      model.index(0, column).data(Qt::TextAlignmentRole).value<Qt::Alignment>());
        }
    }
}

TEST(ConnectionTableModel, ShowsTrafficInHumanUnitsSortsItByValueAndLeavesUnknownEmpty)
{
    ConnectionTableModel model;
    const LsofItemPtr counted = makeItem({u"curl"_s, u"5"_s});
    counted->setTraffic({1'400'000, 999, 12'000, std::nullopt, 0.25});
    model.setItems({counted, makeItem({u"lsof-only"_s, u"6"_s})});
    struct Case {
        LsofItem::Key key;
        QString shown;
        QVariant raw;
    };
    const QList<Case> cases{{LsofItem::Key::bytesSent, u"1.4 MB"_s, qint64(1'400'000)},
                            {LsofItem::Key::bytesReceived, u"999 B"_s, qint64(999)},
                            {LsofItem::Key::sendRate, u"12.0 kB/s"_s, qint64(12'000)},
                            {LsofItem::Key::receiveRate, QString(), QVariant()},
                            {LsofItem::Key::rtt, u"0.25 ms"_s, 0.25}};
    for (const Case& c : cases) {
        const int column = columnOf(c.key);
        SCOPED_TRACE(model.headerData(column, Qt::Horizontal).toString().toStdString());
        EXPECT_EQ(model.index(0, column).data().toString(), c.shown);
        EXPECT_EQ(model.index(0, column).data(ConnectionTableModel::RawValueRole), c.raw);
        // lsof counts nothing: empty, never 0.
        EXPECT_EQ(model.index(1, column).data().toString(), QString());
        EXPECT_FALSE(model.index(1, column).data(ConnectionTableModel::RawValueRole).isValid());
    }
}

// A connection that opened and closed between two refreshes says so where the user points.
TEST(ConnectionTableModel, AShortLivedRowSaysItOpenedAndClosedBetweenRefreshes)
{
    ConnectionTableModel model;
    ItemSpec spec{u"curl"_s, u"5"_s};
    spec.status = 3;
    const LsofItemPtr brief = makeItem(spec);
    brief->setShortLived(true);
    model.setItems({brief, makeItem({u"sshd"_s, u"6"_s})});
    EXPECT_TRUE(
        model.index(0, 0).data(Qt::ToolTipRole).toString().contains(u"between two refreshes"_s));
    EXPECT_FALSE(model.index(1, 0).data(Qt::ToolTipRole).toString().contains(u"between"_s));
}

#include "ui/window/applicationtreemodel.h"
#include "uitestsupport.h"

#include <QAbstractItemModelTester>

#include <gtest/gtest.h>

namespace {

// Process ids above the kernel's limit: no /proc entry names them, so each groups by its name.
LsofItemPtr conn(const QString& app, const QString& pid, qint32 status = 0,
                 std::optional<qint64> sendRate = std::nullopt)
{
    const LsofItemPtr item = tcp(app, pid, status);
    if (sendRate)
        item->setTraffic({*sendRate * 10, *sendRate * 20, *sendRate, *sendRate * 2, 1.0});
    return item;
}

struct Grouped {
    QString name;
    qint32 status;
    QString sendRate;
};

// Every application row against what is expected of it, and every connection row against the
// flat table's row of the same connection, cell by cell.
void expectRows(const ApplicationTreeModel& tree, const ConnectionTableModel& flat,
                const QList<Grouped>& expected)
{
    ASSERT_EQ(tree.rowCount(), expected.size());
    const int name = columnOf(LsofItem::Key::localizedAppName);
    const int rate = columnOf(LsofItem::Key::sendRate);
    qsizetype children = 0;
    for (int row = 0; row < tree.rowCount(); ++row) {
        const QModelIndex app = tree.index(row, 0);
        SCOPED_TRACE(expected.at(row).name.toStdString());
        EXPECT_EQ(tree.index(row, name).data().toString(), expected.at(row).name);
        EXPECT_EQ(app.data(ConnectionTableModel::StatusRole).toInt(), expected.at(row).status);
        EXPECT_EQ(tree.index(row, rate).data().toString(), expected.at(row).sendRate);
        EXPECT_EQ(tree.index(row, rate).data(ConnectionTableModel::RawValueRole).isValid(),
                  !expected.at(row).sendRate.isEmpty())
            << "unknown sums stay unknown";
        for (int child = 0; child < tree.rowCount(app); ++child) {
            const LsofItemPtr item = tree.itemAt(tree.index(child, 0, app));
            const int flatRow = int(flat.items().indexOf(item));
            ASSERT_GE(flatRow, 0);
            for (int column = 0; column < tree.columnCount(); ++column) {
                for (int role : {int(Qt::DisplayRole), int(ConnectionTableModel::RawValueRole),
                                 int(Qt::BackgroundRole)})
                    EXPECT_EQ(tree.index(child, column, app).data(role),
                              flat.index(flatRow, column).data(role));
            }
            ++children;
        }
    }
    EXPECT_EQ(children, flat.rowCount()) << "every connection once";
}

} // namespace

TEST(ApplicationTreeModel, GroupsTheFlatRowsWithTheirSumsAndStatusesThroughThreeSnapshots)
{
    ConnectionTableModel flat;
    ApplicationTreeModel tree(flat);
    QAbstractItemModelTester tester(&tree, QAbstractItemModelTester::FailureReportingMode::Fatal);
    const auto show = [&](const LsofItemList& items, const ItemOrdering& ordering = {}) {
        flat.setItems(items);
        tree.setItems(items, ordering);
    };

    // Two processes of one application, one without figures (lsof's), a quiet one.
    const LsofItemPtr firefoxA = conn(u"firefox"_s, u"4999001"_s, 0, 1000);
    const LsofItemPtr firefoxB = conn(u"firefox"_s, u"4999001"_s, 0, 500);
    const LsofItemPtr firefoxC = conn(u"firefox"_s, u"4999002"_s, 0, 2000);
    const LsofItemPtr curl = conn(u"curl"_s, u"4999003"_s);
    const LsofItemPtr sshd = conn(u"sshd"_s, u"4999004"_s, 0, 0);
    show({curl, firefoxA, sshd, firefoxB, firefoxC});
    expectRows(tree, flat,
               {{u"curl (1)"_s, 0, QString()},
                {u"firefox (3)"_s, 0, u"3.5 kB/s"_s},
                {u"sshd (1)"_s, 0, u"0 B/s"_s}});
    const QModelIndex firefoxRow = tree.indexOfApplication(tree.applications().at(1).key);
    EXPECT_EQ(tree.applications().at(1).pids, (QList<qint64>{4999001, 4999002}));
    EXPECT_TRUE(firefoxRow.data(Qt::ToolTipRole).toString().contains(u"4999001, 4999002"_s));

    // Sorted by a summed column, applications follow their sums; unknown is the lowest.
    const int rate = columnOf(LsofItem::Key::sendRate);
    show({curl, firefoxA, sshd, firefoxB, firefoxC}, {rate, Qt::DescendingOrder});
    expectRows(tree, flat,
               {{u"firefox (3)"_s, 0, u"3.5 kB/s"_s},
                {u"sshd (1)"_s, 0, u"0 B/s"_s},
                {u"curl (1)"_s, 0, QString()}});

    // Added and changed: an application of new connections only is new; one with some
    // changes is changed.
    firefoxB->setStatus(2);
    const LsofItemPtr curl2 = conn(u"curl"_s, u"4999003"_s, 1, 300);
    const LsofItemPtr bird = conn(u"thunderbird"_s, u"4999005"_s, 1, 40);
    show({curl, curl2, firefoxA, firefoxB, firefoxC, sshd, bird});
    expectRows(tree, flat,
               {{u"curl (2)"_s, 2, u"300 B/s"_s},
                {u"firefox (3)"_s, 2, u"3.5 kB/s"_s},
                {u"sshd (1)"_s, 0, u"0 B/s"_s},
                {u"thunderbird (1)"_s, 1, u"40 B/s"_s}});

    // Closed: an application whose connections all closed is closed.
    curl2->setStatus(0);
    firefoxB->setStatus(0);
    firefoxA->setStatus(3);
    bird->setStatus(3);
    show({curl, curl2, firefoxA, firefoxB, firefoxC, sshd, bird});
    expectRows(tree, flat,
               {{u"curl (2)"_s, 0, u"300 B/s"_s},
                {u"firefox (3)"_s, 2, u"3.5 kB/s"_s},
                {u"sshd (1)"_s, 0, u"0 B/s"_s},
                {u"thunderbird (1)"_s, 3, u"40 B/s"_s}});
}

#include "windowtestsupport.h"

#include "ui/window/applicationtreemodel.h"
#include "ui/window/applicationtreeview.h"
#include "ui/window/groupedview.h"
#include "ui/window/trafficgraph.h"
#include "ui/window/traffichistory.h"

#include <QChart>
#include <QClipboard>
#include <QGuiApplication>
#include <QLabel>
#include <QLineSeries>
#include <QScrollBar>
#include <QValueAxis>

namespace {

// Process ids above the kernel's limit: no /proc entry names them, so each groups by its name.
// The names of process ids are cached: each test has ids of its own.
LsofItemPtr counted(const QString& app, const QString& pid, qint64 sendRate, qint64 receiveRate)
{
    const LsofItemPtr item = tcp(app, pid);
    item->setTraffic({sendRate * 60, receiveRate * 60, sendRate, receiveRate, 12.5});
    return item;
}

QString trafficLabel(const CVWindowController& window)
{
    for (const QLabel* label : window.findChildren<QLabel*>()) {
        if (!label->isHidden() && label->text().contains(u'\u2191'))
            return label->text();
    }
    return {};
}

} // namespace

TEST_F(WindowTest, GroupingByApplicationIsRememberedAndKeepsWhatWasExpandedAndSelected)
{
    const LsofItemPtr a1 = tcp(u"firefox"_s, u"4999101"_s), a2 = tcp(u"firefox"_s, u"4999101"_s),
                      b = tcp(u"curl"_s, u"4999102"_s), u = udp(u"avahi"_s, u"4999103"_s);
    const QString firefoxKey = ApplicationTreeModel::applicationKey(*a1);
    {
        auto window = makeWindow();
        refresh(*window, {a1, b, a2, u});
        window->tableView()->selectRowNumbers({1});
        window->groupByApplicationAction()->trigger();
        ASSERT_TRUE(window->isGroupedByApplication());
        GroupedView* grouped = window->groupedView();
        ApplicationTreeModel* tree = grouped->model();
        EXPECT_EQ(tree->rowCount(), 3);
        EXPECT_EQ(grouped->selectedConnections(), LsofItemList{b}) << "its application";

        grouped->view()->expand(tree->indexOfApplication(firefoxKey));
        grouped->view()->selectionModel()->select(tree->indexOfItem(a2.get()),
                                                  QItemSelectionModel::ClearAndSelect |
                                                      QItemSelectionModel::Rows);
        refresh(*window, {tcp(u"ssh"_s, u"4999104"_s, 1), a2, u, a1});
        EXPECT_EQ(tree->rowCount(), 3);
        EXPECT_TRUE(grouped->view()->isExpanded(tree->indexOfApplication(firefoxKey)));
        EXPECT_EQ(grouped->selectedConnections(), LsofItemList{a2});

        // Both views share one column layout: sorting from either header, hiding from the menu.
        const int rate = columnOf(LsofItem::Key::sendRate);
        grouped->view()->header()->setSortIndicator(rate, Qt::DescendingOrder);
        EXPECT_EQ(window->tableView()->horizontalHeader()->sortIndicatorSection(), rate);
        window->tableHeaderMenu()->tableHeaderViewContextMenuSelected(
            window->tableHeaderMenu()->itemForTitle(u"PID"_s));
        EXPECT_TRUE(grouped->view()->header()->isSectionHidden(columnOf(LsofItem::Key::processId)));

        // Filters apply to the grouped rows; back in the table the connection stays selected.
        window->protocolControl()->setSelected(false, 1);
        window->refreshTableViewData();
        EXPECT_EQ(tree->rowCount(), 2);
        window->groupByApplicationAction()->trigger();
        ASSERT_FALSE(window->isGroupedByApplication());
        EXPECT_EQ(window->tableView()->selectedRowNumbers(),
                  QList<int>{int(window->items().indexOf(a2))});
        window->setGroupedByApplication(true);
    }
    settings.reopen();
    auto window = makeWindow();
    EXPECT_TRUE(window->isGroupedByApplication());
    EXPECT_TRUE(window->groupByApplicationAction()->isChecked());
}

TEST_F(WindowTest, TheGroupedViewStaysWhereTheUserWasWhenAnApplicationComes)
{
    auto window = makeWindow();
    window->resize(1000, 400);
    window->show();
    LsofItemList items;
    for (int i = 0; i < 200; ++i)
        items.append(tcp(u"big"_s, u"4999800"_s));
    for (int i = 0; i < 30; ++i)
        items.append(tcp(u"app%1"_s.arg(i), QString::number(4999801 + i)));
    refresh(*window, items);
    window->setGroupedByApplication(true);
    GroupedView* grouped = window->groupedView();
    const QModelIndex big = grouped->model()->index(0, 0);
    grouped->view()->expand(big);
    grouped->view()->verticalScrollBar()->setValue(150);
    grouped->view()->setCurrentIndex(grouped->model()->index(160, 3, big));

    // A new application: the rows are rebuilt, deep inside an open one.
    items.append(tcp(u"zzz"_s, u"4999790"_s));
    refresh(*window, items);
    EXPECT_TRUE(grouped->view()->isExpanded(big));
    EXPECT_EQ(grouped->view()->verticalScrollBar()->value(), 150);
    EXPECT_EQ(grouped->view()->currentIndex(), grouped->model()->index(160, 3, big));
}

TEST_F(WindowTest, StatusBarSumsTheTrafficOfTheRowsShownAndShowsNoneWhereNoneIsKnown)
{
    auto window = makeWindow();
    refresh(*window, {counted(u"firefox"_s, u"4999201"_s, 1500, 250'000),
                      counted(u"curl"_s, u"4999202"_s, 500, 0), udp(u"avahi"_s, u"4999203"_s)});
    EXPECT_EQ(trafficLabel(*window),
              u"\u2191 2.0 kB/s  \u2193 250 kB/s  \u00b7  120 kB sent  \u00b7  15.0 MB received"_s);
    window->searchField()->setText(u"curl"_s);
    EXPECT_EQ(trafficLabel(*window), u"\u2191 500 B/s  \u2193 0 B/s  \u00b7  30.0 kB sent  "
                                     u"\u00b7  0 B received"_s);
    window->searchField()->setText(u"avahi"_s);
    EXPECT_EQ(trafficLabel(*window), QString()) << "lsof's rows count nothing: no 0 is shown";
}

TEST_F(WindowTest, AnApplicationRowsMenuActsOnItsProcessOrSaysWhyNot)
{
    auto window = makeWindow();
    const LsofItemPtr f1 = tcp(u"firefox"_s, u"4999301"_s), f2 = tcp(u"firefox"_s, u"4999302"_s),
                      s = tcp(u"ssh"_s, u"4999303"_s);
    refresh(*window, {f1, f2, s});
    window->setGroupedByApplication(true);
    QStringList asked;
    window->setConfirmTerminateHandler([&](const QString& name, const ProcessIdentity& process) {
        asked.append(name + u' ' + QString::number(process.pid));
        return false;
    });
    QStringList errors;
    window->setErrorHandler([&](const QString& message) { errors.append(message); });
    ApplicationTreeView* view = window->groupedView()->view();
    ApplicationTreeModel* tree = window->groupedView()->model();
    const auto openMenuOn = [&](const QModelIndex& index) {
        view->setClickedIndex(index);
        Q_EMIT view->contextMenuWanted(QPoint(10, 10));
        window->tableContextMenu()->hide();
    };

    // Which of two processes the user means cannot be told.
    openMenuOn(tree->indexOfApplication(ApplicationTreeModel::applicationKey(*f1)));
    RowCommands* rows = window->rowCommands();
    EXPECT_FALSE(rows->terminateAction()->isEnabled());
    EXPECT_TRUE(rows->terminateAction()->toolTip().contains(u"2 processes"_s));
    EXPECT_FALSE(rows->ipInformationAction()->isEnabled()) << "an application has many peers";
    window->terminateSelectedApp();
    EXPECT_TRUE(asked.isEmpty());
    EXPECT_EQ(errors.size(), 1);

    openMenuOn(tree->indexOfApplication(ApplicationTreeModel::applicationKey(*s), 0));
    EXPECT_TRUE(rows->terminateAction()->isEnabled());
    window->terminateSelectedApp();
    EXPECT_EQ(asked, QStringList{u"ssh 4999303"_s});

    // A connection row beneath acts on that connection.
    openMenuOn(tree->indexOfItem(f2.get()));
    EXPECT_EQ(window->clickedItem(), f2);
    EXPECT_TRUE(rows->ipInformationAction()->isEnabled());

    // Copying an application row copies what it shows.
    view->selectionModel()->select(
        tree->indexOfApplication(ApplicationTreeModel::applicationKey(*s)),
        QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    window->copySelectedLines();
    EXPECT_TRUE(QGuiApplication::clipboard()->text().startsWith(u"ssh (1)\t4999303\t"_s))
        << QGuiApplication::clipboard()->text().toStdString();
}

TEST(TrafficHistory, KeepsTenMinutesAtMostSixHundredSamplesAndNoUnknownOnes)
{
    TrafficHistory history;
    for (qint64 second = 0; second < 700; ++second)
        history.append(second * 1000, second, 2 * second);
    EXPECT_EQ(history.samples().size(), 600u);
    EXPECT_EQ(history.samples().front().time, 100'000);
    EXPECT_EQ(history.peak(), 2 * 699);

    history.clear();
    for (qint64 second = 0; second <= 15 * 60; second += 2)
        history.append(second * 1000, 10, std::nullopt);
    EXPECT_EQ(history.samples().size(), 300u) << "ten minutes at one sample every 2 s";
    history.append(902'000, std::nullopt, std::nullopt);
    EXPECT_EQ(history.samples().back().time, 900'000);

    for (const auto& [peak, unit] : {std::pair{qint64(999), u"B/s"_s},
                                     {1000, u"kB/s"_s},
                                     {2'500'000, u"MB/s"_s},
                                     {5'000'000'000'000, u"GB/s"_s}})
        EXPECT_EQ(RateScale::forPeak(peak).unit, unit) << peak;
}

TEST_F(WindowTest, TheTrafficGraphPlotsTheSelectionOrTheWholeMachineAndIsRemembered)
{
    {
        auto window = makeWindow();
        window->show();
        TrafficGraph* graph = window->trafficGraph();
        EXPECT_TRUE(graph->isHidden()) << "hidden at first";
        window->trafficGraphAction()->trigger();
        ASSERT_TRUE(graph->isVisible());

        const LsofItemPtr big = counted(u"firefox"_s, u"4999501"_s, 2'000'000, 400'000);
        const LsofItemPtr small = counted(u"curl"_s, u"4999502"_s, 500'000, 100'000);
        for (int pass = 0; pass < 2; ++pass) {
            refresh(*window, {big, small});
        }
        EXPECT_TRUE(graph->chart()->title().contains(u"whole machine"_s));
        EXPECT_EQ(graph->rateAxis()->titleText(), u"Rate (MB/s)"_s);
        ASSERT_EQ(graph->sendSeries()->count(), 2);
        EXPECT_DOUBLE_EQ(graph->sendSeries()->at(1).y(), 2.5);
        EXPECT_DOUBLE_EQ(graph->receiveSeries()->at(1).y(), 0.5);

        // The selection's history starts when it is made.
        window->tableView()->selectRowNumbers({1});
        EXPECT_TRUE(graph->chart()->title().contains(u"curl"_s));
        EXPECT_EQ(graph->sendSeries()->count(), 0);
        refresh(*window, {big, small});
        EXPECT_EQ(graph->rateAxis()->titleText(), u"Rate (kB/s)"_s);
        ASSERT_EQ(graph->sendSeries()->count(), 1);
        EXPECT_DOUBLE_EQ(graph->sendSeries()->at(0).y(), 500);

        window->tableView()->clearSelection();
        EXPECT_EQ(graph->sendSeries()->count(), 3) << "the machine's history was kept";
    }
    settings.reopen();
    auto window = makeWindow();
    EXPECT_FALSE(window->trafficGraph()->isHidden());
}

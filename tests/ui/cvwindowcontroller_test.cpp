#include "windowtestsupport.h"

#include "persistence/sqlitepersistentobject.h"

#include "ui/window/maintoolbar.h"
#include "ui/window/ownprocessesbar.h"

#include <QComboBox>
#include <QImage>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

TEST_F(WindowTest, SetUpAsksForTheFirstSnapshotAndAReloadWaitsForTheAcquisition)
{
    CVWindowController window(source, *settings.prefs);
    ASSERT_TRUE(source.pending());
    window.reloadTableViewData();
    EXPECT_EQ(source.requests(), 1) << "skipped while the acquisition runs";
    const LsofItemList snapshot{tcp(u"curl"_s, u"20"_s, 1), udp(u"avahi"_s, u"7"_s)};
    source.deliver(snapshot);
    EXPECT_EQ(window.originalItems(), snapshot);
    EXPECT_EQ(window.items(), snapshot);
    EXPECT_EQ(window.tableModel()->rowCount(), 2);
    window.reloadTableViewData();
    EXPECT_EQ(source.requests(), 2);
}

// The period takes effect when the pop-up's action runs (the preferences window's control runs
// it too), not when the setting changes underneath.
TEST_F(WindowTest, TheTimerFollowsThePeriodWhenThePopUpsActionRuns)
{
    defaults().setObject(u"CV:AutoRefreshSetting"_s, 0);
    auto window = makeWindow();
    EXPECT_EQ(window->autoRefreshTimer(), nullptr);
    QComboBox* popup = window->refreshIntervalButton();

    defaults().setObject(u"CV:AutoRefreshSetting"_s, 10);
    EXPECT_EQ(window->autoRefreshTimer(), nullptr) << "not on the settings notification";
    window->autoRefreshClicked();
    ASSERT_NE(window->autoRefreshTimer(), nullptr);
    EXPECT_EQ(window->autoRefreshTimer()->interval(), 10000);
    EXPECT_TRUE(window->autoRefreshTimer()->isActive());
    EXPECT_EQ(popup->currentData().toInt(), 10);

    defaults().setObject(u"CV:AutoRefreshSetting"_s, -3);
    window->autoRefreshClicked();
    EXPECT_EQ(window->autoRefreshTimer(), nullptr);
    EXPECT_EQ(popup->currentData().toInt(), 0);

    // The pop-up writes the setting and restarts the timer.
    const int fiveSeconds = popup->findData(5);
    ASSERT_GE(fiveSeconds, 0);
    popup->setCurrentIndex(fiveSeconds);
    Q_EMIT popup->activated(fiveSeconds);
    EXPECT_EQ(defaults().integerForKey(u"CV:AutoRefreshSetting"_s), 5);
    ASSERT_NE(window->autoRefreshTimer(), nullptr);
    EXPECT_EQ(window->autoRefreshTimer()->interval(), 5000);
}

TEST_F(WindowTest, KeepsTheSelectedConnectionsAcrossSnapshots)
{
    auto window = makeWindow();
    const LsofItemPtr a = tcp(u"a"_s, u"1"_s), b = tcp(u"b"_s, u"2"_s), c = tcp(u"c"_s, u"3"_s);
    refresh(*window, {a, b, c});
    window->selectItems({b});
    EXPECT_EQ(window->tableView()->selectedRowNumbers(), QList<int>{1});

    // The connection moves down; its object is the same, so the selection follows it.
    const LsofItemPtr d = tcp(u"d"_s, u"4"_s, 1);
    refresh(*window, {d, a, c, b});
    EXPECT_EQ(window->selectedItems(), LsofItemList{b});
    EXPECT_EQ(window->tableView()->selectedRowNumbers(), QList<int>{3});

    // Closed: still listed once more, still selected; then gone and deselected.
    b->setStatus(3);
    refresh(*window, {a, b, c, d});
    EXPECT_EQ(window->selectedItems(), LsofItemList{b});
    refresh(*window, {a, c, d});
    EXPECT_TRUE(window->selectedItems().isEmpty());

    // Several at once, handed over in any order.
    window->selectItems({d, a});
    refresh(*window, {c, d, a});
    EXPECT_EQ(window->tableView()->selectedRowNumbers(), (QList<int>{1, 2}));

    // An equal connection in a new object is another connection.
    window->selectItems({a});
    refresh(*window, {tcp(u"a"_s, u"1"_s), c, d});
    EXPECT_TRUE(window->selectedItems().isEmpty());
}

TEST_F(WindowTest, SelectionUnderAFilterMapsThroughTheFullSnapshot)
{
    auto window = makeWindow();
    const LsofItemPtr a = tcp(u"a"_s, u"1"_s), b = udp(u"b"_s, u"2"_s), c = tcp(u"c"_s, u"3"_s);
    refresh(*window, {a, b, c});
    window->protocolControl()->setSelected(false, 1); // hide UDP
    window->refreshTableViewData();
    ASSERT_EQ(window->items(), LsofItemList({a, c}));

    // Row 1 shows c, but the selection is read from the full list: b.
    window->tableView()->selectRowNumbers({1});
    EXPECT_EQ(window->selectedItems(), LsofItemList{b});
    refresh(*window, {a, b, c});
    EXPECT_EQ(window->tableView()->selectedRowNumbers(), QList<int>{1});

    // Selecting c puts the mark on row 2, which the filtered table does not have.
    window->selectItems({c});
    EXPECT_TRUE(window->tableView()->selectedRowNumbers().isEmpty());
}

TEST_F(WindowTest, ColoursAndRowHeightFollowTheSettings)
{
    auto window = makeWindow();
    refresh(*window, {tcp(u"a"_s, u"1"_s, 0), tcp(u"b"_s, u"2"_s, 1), tcp(u"c"_s, u"3"_s, 2),
                      tcp(u"d"_s, u"4"_s, 3)});
    ConnectionTableModel* model = window->tableModel();
    auto background = [&](int row) {
        return model->index(row, 1).data(Qt::BackgroundRole).value<QColor>();
    };
    EXPECT_EQ(background(0), QColor(Qt::white));
    EXPECT_EQ(background(1), QColor(Qt::green));
    EXPECT_EQ(background(2), QColor(Qt::yellow));
    EXPECT_EQ(background(3), QColor(Qt::red));
    EXPECT_EQ(window->tableView()->verticalHeader()->defaultSectionSize(), 15);

    defaults().setObject(u"CV:NewConnectionBackgroundColor"_s, u"#ff3366cc"_s);
    defaults().setObject(u"CV:ListFontSize"_s, 14);
    EXPECT_EQ(background(1), QColor(0x33, 0x66, 0xcc));
    EXPECT_EQ(background(0), QColor(Qt::white));
    EXPECT_EQ(window->tableView()->verticalHeader()->defaultSectionSize(), 18);
    EXPECT_EQ(window->tableView()->palette().color(QPalette::Base), QColor(Qt::white));
    defaults().removeObjectForKey(u"CV:NewConnectionBackgroundColor"_s);
    EXPECT_EQ(background(1), QColor(Qt::green)) << "a reset colour is the factory one again";
}

TEST_F(WindowTest, ColumnsWidthsAndTheSortOrderComeBackAfterARestart)
{
    {
        // A fresh window shows the built-in set; the menu offers the rest.
        auto window = makeWindow();
        QHeaderView* header = window->tableView()->horizontalHeader();
        const QStringList offered{u"Type"_s, u"FD"_s,       u"Device"_s, u"Path"_s,
                                  u"Sent"_s, u"Received"_s, u"RTT"_s};
        ASSERT_EQ(window->tableModel()->columnCount(), 21);
        for (int column = 0; column < 21; ++column) {
            const QString title =
                window->tableModel()->headerData(column, Qt::Horizontal).toString();
            EXPECT_EQ(header->isSectionHidden(column), offered.contains(title)) << column;
            EXPECT_EQ(window->tableHeaderMenu()->itemForTitle(title)->isChecked(),
                      !offered.contains(title));
        }
        // Widths and the sort order are kept, but not under the keys the preferences window
        // edits.
        header->resizeSection(8, 233);
        header->setSortIndicator(1, Qt::DescendingOrder);
        EXPECT_FALSE(defaults().objectForKey(u"CV:ColumnsUserDefault"_s).isValid());

        window->tableHeaderMenu()->tableHeaderViewContextMenuSelected(
            window->tableHeaderMenu()->itemForTitle(u"PID"_s));
        EXPECT_TRUE(header->isSectionHidden(1));
        const QStringList saved = savedColumnTitles(defaults());
        EXPECT_EQ(saved.size(), 13);
        EXPECT_FALSE(saved.contains(u"PID"_s));
        const QVariantMap first =
            defaults().objectForKey(u"CV:ColumnsUserDefault"_s).toList().first().toMap();
        EXPECT_EQ(first.value(u"title"_s).toString(), u"Application"_s);
        EXPECT_GT(first.value(u"width"_s).toDouble(), 0.0);
    }
    settings.reopen();
    {
        auto window = makeWindow();
        QHeaderView* header = window->tableView()->horizontalHeader();
        EXPECT_EQ(header->sectionSize(8), 233);
        EXPECT_EQ(header->sortIndicatorSection(), 1);
        EXPECT_EQ(header->sortIndicatorOrder(), Qt::DescendingOrder);
        EXPECT_TRUE(header->isSectionHidden(1));
        QAction* pid = window->tableHeaderMenu()->itemForTitle(u"PID"_s);
        EXPECT_FALSE(pid->isChecked());

        // Shown again, it goes to the right end, and is saved there.
        window->tableHeaderMenu()->tableHeaderViewContextMenuSelected(pid);
        EXPECT_FALSE(header->isSectionHidden(1));
        EXPECT_EQ(header->visualIndex(1), 20);
        EXPECT_EQ(savedColumnTitles(defaults()).last(), u"PID"_s);
    }
    settings.reopen();
    {
        // Saved order is not applied at start: layout order it is.
        auto window = makeWindow();
        EXPECT_EQ(window->tableView()->horizontalHeader()->visualIndex(1), 1);
        // One column left stays the only one.
        for (QAction* item : window->tableHeaderMenu()->actions()) {
            if (item->isChecked() && item->text() != u"Remote Address"_s)
                window->tableHeaderMenu()->tableHeaderViewContextMenuSelected(item);
        }
    }
    settings.reopen();
    EXPECT_EQ(makeWindow()->tableHeaderMenu()->shownColumns(), QList<int>{8});
}

TEST_F(WindowTest, BecomingActiveReloadsSavedSearchesAndRunsTheScriptCheck)
{
    auto window = makeWindow();
    int checks = 0;
    window->setBecameMainHandler([&] { ++checks; });
    QSignalSpy reloads(settings.prefs.get(), &CVPrefsHelper::filterProfilesChanged);
    QEvent activate(QEvent::WindowActivate);
    QCoreApplication::sendEvent(window.get(), &activate);
    EXPECT_EQ(checks, 1);
    EXPECT_EQ(reloads.size(), 1);
}

TEST_F(WindowTest, ClosingHandsTheWindowToTheApplicationAndKeepsRefreshing)
{
    auto window = makeWindow();
    int closes = 0;
    window->setCloseHandler([&] { ++closes; });
    window->show();
    EXPECT_FALSE(window->close());
    EXPECT_EQ(closes, 1);
    ASSERT_NE(window->autoRefreshTimer(), nullptr);
    EXPECT_TRUE(window->autoRefreshTimer()->isActive());
}

TEST_F(WindowTest, StatusBarCountsRowsAndShowsAProblemWithoutBlocking)
{
    auto window = makeWindow();
    refresh(*window, {}, u"lsof is not installed."_s);
    EXPECT_TRUE(statusSays(*window, u"lsof is not installed."_s));
    refresh(*window, {tcp(u"a"_s, u"1"_s), udp(u"b"_s, u"2"_s)});
    EXPECT_FALSE(statusSays(*window, u"lsof is not installed."_s));
    window->searchField()->setText(u"udp"_s);
    EXPECT_TRUE(statusSays(*window, u"1 of 2"_s));
}

TEST_F(WindowTest, ClickingAHeaderSortsTheWholeSnapshot)
{
    auto window = makeWindow();
    window->show();
    const LsofItemPtr a = tcp(u"zeta"_s, u"100"_s), b = udp(u"Alpha"_s, u"9"_s),
                      c = tcp(u"beta"_s, u"10"_s);
    refresh(*window, {a, b, c});
    QHeaderView* header = window->tableView()->horizontalHeader();
    const QPoint pidHeader(header->sectionViewportPosition(1) + 10, header->height() / 2);
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, pidHeader);
    ASSERT_EQ(header->sortIndicatorSection(), 1);
    const Qt::SortOrder first = header->sortIndicatorOrder();
    const LsofItemList ascending{b, c, a};
    const LsofItemList descending{a, c, b};
    EXPECT_EQ(window->originalItems(), first == Qt::AscendingOrder ? ascending : descending);

    QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, pidHeader);
    EXPECT_EQ(window->originalItems(), first == Qt::AscendingOrder ? descending : ascending);

    // The order holds for the next snapshot, and under a filter the rows keep it.
    window->protocolControl()->setSelected(false, 1);
    refresh(*window, {c, b, a});
    EXPECT_EQ(window->items().size(), 2);
    EXPECT_EQ(window->originalItems(), first == Qt::AscendingOrder ? descending : ascending);
}

TEST_F(WindowTest, AsksTheSourceToSortAndSortsOnlyWhatCameInAnotherOrder)
{
    auto window = makeWindow();
    const LsofItemPtr a = tcp(u"zeta"_s, u"100"_s), b = udp(u"Alpha"_s, u"9"_s),
                      c = tcp(u"beta"_s, u"10"_s);
    QHeaderView* header = window->tableView()->horizontalHeader();
    header->setSortIndicator(1, Qt::AscendingOrder);
    window->reloadTableViewData();
    const ItemOrdering byPid{1, Qt::AscendingOrder};
    EXPECT_TRUE(source.requestedOrdering() == byPid);
    // What the source sorted is shown as it came: the work is not done twice.
    source.deliver({c, a, b}, {}, byPid);
    EXPECT_EQ(window->originalItems(), LsofItemList({c, a, b}));

    // The indicator moved while lsof ran: the snapshot is sorted again here.
    window->reloadTableViewData();
    header->setSortIndicator(1, Qt::DescendingOrder);
    source.deliver({b, c, a}, {}, byPid);
    EXPECT_EQ(window->originalItems(), LsofItemList({a, c, b}));
    window->reloadTableViewData();
    EXPECT_TRUE((source.requestedOrdering() == ItemOrdering{1, Qt::DescendingOrder}));
}

TEST_F(WindowTest, AnOrdinaryUserIsToldWhyTheListIsThinUntilTheyDismissIt)
{
    {
        auto window = makeWindow();
        window->setPrivileged(true);
        EXPECT_TRUE(window->ownProcessesBar()->isHidden()) << "root sees everything";

        int installs = 0;
        window->setInstallHelperHandler([&] {
            ++installs;
            return true;
        });
        window->setPrivileged(false);
        EXPECT_FALSE(window->ownProcessesBar()->isHidden());
        window->ownProcessesBar()->installButton()->click();
        EXPECT_EQ(installs, 1);
        EXPECT_TRUE(window->ownProcessesBar()->installButton()->isHidden());

        window->ownProcessesBar()->dismissButton()->click();
        EXPECT_TRUE(window->ownProcessesBar()->isHidden());
    }
    settings.reopen();
    auto window = makeWindow();
    window->setPrivileged(false);
    EXPECT_TRUE(window->ownProcessesBar()->isHidden()) << "\"Don't show again\" is remembered";
}

TEST_F(WindowTest, AFreshWindowsColumnsFitTwelveHundredAndEightyPixelsAndRefreshLooksLive)
{
    auto window = makeWindow();
    const QHeaderView* header = window->tableView()->horizontalHeader();
    int width = 0;
    for (int column : window->tableHeaderMenu()->shownColumns())
        width += header->sectionSize(column);
    // The frame and the vertical scroll bar take the rest.
    EXPECT_LE(width, 1240);
    EXPECT_EQ(window->tableHeaderMenu()->shownColumns().size(), 14);

    // The refresh button's icon is coloured: a grey one reads as a disabled button.
    const QImage icon = window->toolbar()->refreshAction()->icon().pixmap(24, 24).toImage();
    int saturated = 0;
    for (int y = 0; y < icon.height(); ++y) {
        for (int x = 0; x < icon.width(); ++x) {
            const QColor c = icon.pixelColor(x, y);
            if (c.alpha() > 128 && c.hsvSaturation() > 100)
                ++saturated;
        }
    }
    EXPECT_GT(saturated, 20);
}

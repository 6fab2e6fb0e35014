#include "ui/window/cvwindowcontroller.h"
#include "uitestsupport.h"

#include "persistence/sqlitepersistentobject.h"
#include "prefs/cvfilterprofileinfo.h"
#include "prefs/userdefaults.h"

#include "ui/window/connectiontablemodel.h"
#include "ui/window/connectiontableview.h"
#include "ui/window/savesearchdialog.h"
#include "ui/window/searchfield.h"
#include "ui/window/segmentedcontrol.h"
#include "ui/window/tablecolumnsmenu.h"

#include <QComboBox>
#include <QFile>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

class WindowTest : public testing::Test {
protected:
    std::unique_ptr<CVWindowController> makeWindow()
    {
        auto window = std::make_unique<CVWindowController>(source, *settings.prefs);
        if (source.pending())
            source.deliver({});
        return window;
    }
    UserDefaults& defaults() { return *settings.defaults; }

    TestSettings settings;
    FakeSnapshotSource source;
};

LsofItemPtr tcp(const QString& app, const QString& pid, qint32 status = 0)
{
    ItemSpec spec{app, pid};
    spec.remoteAddress = u"93.184.216.34"_s;
    spec.remotePort = u"443"_s;
    spec.state = u"ESTABLISHED"_s;
    spec.status = status;
    return makeItem(spec);
}

LsofItemPtr udp(const QString& app, const QString& pid)
{
    ItemSpec spec{app, pid};
    spec.protocol = u"UDP"_s;
    return makeItem(spec);
}

QStringList savedColumnTitles(const UserDefaults& defaults)
{
    QStringList titles;
    for (const QVariant& entry : defaults.objectForKey(u"CV:ColumnsUserDefault"_s).toList())
        titles.append(entry.toMap().value(u"title"_s).toString());
    return titles;
}

} // namespace

TEST_F(WindowTest, SetUpAsksForTheFirstSnapshotAndShowsIt)
{
    CVWindowController window(source, *settings.prefs);
    ASSERT_TRUE(source.pending());
    EXPECT_EQ(source.requests(), 1);
    const LsofItemList snapshot{tcp(u"curl"_s, u"20"_s, 1), udp(u"avahi"_s, u"7"_s)};
    source.deliver(snapshot);
    EXPECT_EQ(window.originalItems(), snapshot);
    EXPECT_EQ(window.items(), snapshot);
    EXPECT_EQ(window.tableModel()->rowCount(), 2);
}

TEST_F(WindowTest, SkipsAReloadWhileTheAcquisitionRuns)
{
    auto window = makeWindow();
    window->reloadTableViewData();
    window->reloadTableViewData();
    EXPECT_EQ(source.requests(), 2);
    source.deliver({tcp(u"a"_s, u"1"_s)});
    window->reloadTableViewData();
    EXPECT_EQ(source.requests(), 3);
}

TEST_F(WindowTest, TimerFollowsTheIntervalOnlyWhenTheRefreshControlAsks)
{
    defaults().setObject(u"CV:AutoRefreshSetting"_s, 0);
    auto window = makeWindow();
    EXPECT_EQ(window->autoRefreshTimer(), nullptr);

    defaults().setObject(u"CV:AutoRefreshSetting"_s, 2);
    EXPECT_EQ(window->autoRefreshTimer(), nullptr) << "a settings change alone starts nothing";
    window->autoRefreshClicked();
    ASSERT_NE(window->autoRefreshTimer(), nullptr);
    EXPECT_EQ(window->autoRefreshTimer()->interval(), 2000);
    EXPECT_TRUE(window->autoRefreshTimer()->isActive());

    defaults().setObject(u"CV:AutoRefreshSetting"_s, -3);
    EXPECT_EQ(window->autoRefreshTimer()->interval(), 2000);
    window->autoRefreshClicked();
    EXPECT_EQ(window->autoRefreshTimer(), nullptr);

    // The pop-up writes the setting and restarts the timer.
    QComboBox* popup = window->refreshIntervalButton();
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
    window->reloadTableViewData();
    source.deliver({a, b, c});
    window->selectItems({b});
    EXPECT_EQ(window->tableView()->selectedRowNumbers(), QList<int>{1});

    // The connection moves down; its object is the same, so the selection follows it.
    const LsofItemPtr d = tcp(u"d"_s, u"4"_s, 1);
    window->reloadTableViewData();
    source.deliver({d, a, c, b});
    EXPECT_EQ(window->selectedItems(), LsofItemList{b});
    EXPECT_EQ(window->tableView()->selectedRowNumbers(), QList<int>{3});

    // Closed: still listed once more, still selected; then gone and deselected.
    b->setStatus(3);
    window->reloadTableViewData();
    source.deliver({a, b, c, d});
    EXPECT_EQ(window->selectedItems(), LsofItemList{b});
    window->reloadTableViewData();
    source.deliver({a, c, d});
    EXPECT_TRUE(window->selectedItems().isEmpty());

    // Several at once, handed over in any order.
    window->selectItems({d, a});
    window->reloadTableViewData();
    source.deliver({c, d, a});
    EXPECT_EQ(window->tableView()->selectedRowNumbers(), (QList<int>{1, 2}));

    // An equal connection in a new object is another connection.
    window->selectItems({a});
    window->reloadTableViewData();
    source.deliver({tcp(u"a"_s, u"1"_s), c, d});
    EXPECT_TRUE(window->selectedItems().isEmpty());
}

TEST_F(WindowTest, ANewSnapshotIsLaidOutBeforeTheFirstRepaint)
{
    auto window = makeWindow();
    window->resize(800, 400);
    window->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    LsofItemList items;
    for (int i = 0; i < 300; ++i)
        items.append(tcp(u"app"_s, QString::number(i + 1)));
    window->reloadTableViewData();
    source.deliver(items);
    // No event processed yet: the scroll range already covers the rows, so the repaint that
    // follows is the only one.
    EXPECT_GT(window->tableView()->verticalScrollBar()->maximum(), 0);
}

TEST_F(WindowTest, SelectionUnderAFilterMapsThroughTheFullSnapshot)
{
    auto window = makeWindow();
    const LsofItemPtr a = tcp(u"a"_s, u"1"_s), b = udp(u"b"_s, u"2"_s), c = tcp(u"c"_s, u"3"_s);
    window->reloadTableViewData();
    source.deliver({a, b, c});
    window->protocolControl()->setSelected(false, 1); // hide UDP
    window->refreshTableViewData();
    ASSERT_EQ(window->items(), LsofItemList({a, c}));

    // Row 1 shows c, but the selection is read from the full list: b.
    window->tableView()->selectRowNumbers({1});
    EXPECT_EQ(window->selectedItems(), LsofItemList{b});
    window->reloadTableViewData();
    source.deliver({a, b, c});
    EXPECT_EQ(window->tableView()->selectedRowNumbers(), QList<int>{1});

    // Selecting c puts the mark on row 2, which the filtered table does not have.
    window->selectItems({c});
    EXPECT_TRUE(window->tableView()->selectedRowNumbers().isEmpty());
}

TEST_F(WindowTest, ColoursAndRowHeightFollowTheSettings)
{
    auto window = makeWindow();
    window->reloadTableViewData();
    source.deliver({tcp(u"a"_s, u"1"_s, 0), tcp(u"b"_s, u"2"_s, 1), tcp(u"c"_s, u"3"_s, 2),
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
}

TEST_F(WindowTest, HiddenColumnsAreSavedAndComeBackHiddenAfterARestart)
{
    {
        auto window = makeWindow();
        EXPECT_FALSE(defaults().objectForKey(u"CV:ColumnsUserDefault"_s).isValid());
        QHeaderView* header = window->tableView()->horizontalHeader();
        for (int column = 0; column < 16; ++column)
            EXPECT_FALSE(header->isSectionHidden(column));

        QAction* pid = window->tableHeaderMenu()->itemForTitle(u"PID"_s);
        ASSERT_NE(pid, nullptr);
        EXPECT_TRUE(pid->isChecked());
        window->tableHeaderMenu()->tableHeaderViewContextMenuSelected(pid);
        EXPECT_FALSE(pid->isChecked());
        EXPECT_TRUE(header->isSectionHidden(1));
        const QStringList saved = savedColumnTitles(defaults());
        EXPECT_EQ(saved.size(), 15);
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
        EXPECT_TRUE(header->isSectionHidden(1));
        QAction* pid = window->tableHeaderMenu()->itemForTitle(u"PID"_s);
        EXPECT_FALSE(pid->isChecked());

        // Shown again, it goes to the right end, and is saved there.
        window->tableHeaderMenu()->tableHeaderViewContextMenuSelected(pid);
        EXPECT_FALSE(header->isSectionHidden(1));
        EXPECT_EQ(header->visualIndex(1), 15);
        EXPECT_EQ(savedColumnTitles(defaults()).last(), u"PID"_s);
    }
    settings.reopen();
    {
        // Saved order is not applied at start: layout order it is.
        auto window = makeWindow();
        EXPECT_EQ(window->tableView()->horizontalHeader()->visualIndex(1), 1);
    }
}

TEST_F(WindowTest, OneColumnLeftStaysTheOnlyColumnAfterARestart)
{
    {
        auto window = makeWindow();
        for (QAction* item : window->tableHeaderMenu()->actions()) {
            if (item->text() != u"Remote Address"_s)
                window->tableHeaderMenu()->tableHeaderViewContextMenuSelected(item);
        }
    }
    settings.reopen();
    auto window = makeWindow();
    EXPECT_EQ(window->tableHeaderMenu()->shownColumns(), QList<int>{8});
}

TEST_F(WindowTest, ToolbarStateIsSavedAfterARefreshAndRestoredAtStart)
{
    {
        auto window = makeWindow();
        window->typeControl()->setSelected(false, 0);
        window->protocolControl()->setSelected(false, 2);
        window->searchField()->setText(u"firefox,ssh"_s); // refreshes, which saves
        EXPECT_EQ(defaults().stringForKey(u"CVToolbarTypeItemState"_s), u"1"_s);
        EXPECT_EQ(defaults().stringForKey(u"CVToolbarProtocolItemState"_s), u"0,1"_s);
        EXPECT_EQ(defaults().stringForKey(u"CVToolbarAddressAndPortItemState"_s), u""_s);
        EXPECT_EQ(defaults().stringForKey(u"CVToolbarSearchItemState"_s), u"firefox,ssh"_s);
        EXPECT_FALSE(defaults().objectForKey(u"CVToolbarRefreshItemState"_s).isValid());
    }
    defaults().setObject(u"CVToolbarProtocolItemState"_s, u"1,7"_s);
    settings.reopen();
    auto window = makeWindow();
    EXPECT_EQ(window->typeControl()->stateText(), u"1"_s);
    EXPECT_EQ(window->protocolControl()->stateText(), u"1"_s);
    EXPECT_EQ(window->searchField()->text(), u"firefox,ssh"_s);
}

TEST_F(WindowTest, RemoteOnlyToggleInvertsTheLastSavedState)
{
    auto window = makeWindow();
    const LsofItemPtr remote = tcp(u"a"_s, u"1"_s), local = udp(u"b"_s, u"2"_s);
    window->reloadTableViewData();
    source.deliver({remote, local});
    SegmentedControl* control = window->hasRemoteAddressControl();

    // Nothing saved reads as "on", so the toggle turns the segment on whatever the click did.
    defaults().removeObjectForKey(u"CVToolbarAddressAndPortItemState"_s);
    control->setSelected(false, 0);
    window->toggleHasRemoteAddress();
    EXPECT_TRUE(control->isSelectedForSegment(0));
    EXPECT_EQ(window->items(), LsofItemList{remote});
    EXPECT_EQ(defaults().stringForKey(u"CVToolbarAddressAndPortItemState"_s), u"0"_s);

    control->setSelected(true, 0);
    window->toggleHasRemoteAddress();
    EXPECT_FALSE(control->isSelectedForSegment(0));
    EXPECT_EQ(window->items().size(), 2);
    EXPECT_EQ(defaults().stringForKey(u"CVToolbarAddressAndPortItemState"_s), u""_s);
}

TEST_F(WindowTest, SearchMenuSwitchesExpressionModeInLiveMenuAndTemplate)
{
    auto window = makeWindow();
    QMenu* menuTemplate = window->searchField()->searchMenuTemplate();
    QAction* expression = SearchField::itemWithTag(menuTemplate, 100);
    QAction* save = SearchField::itemWithTag(menuTemplate, 101);
    ASSERT_TRUE(expression && save);
    EXPECT_EQ(expression->text(), u"Use Search Expression"_s);
    EXPECT_EQ(save->text(), u"Save Search…"_s);
    EXPECT_TRUE(expression->isCheckable());
    EXPECT_FALSE(save->isEnabled());

    std::unique_ptr<QMenu> live(window->searchField()->buildPopUpMenu());
    SearchField::itemWithTag(live.get(), 100)->trigger();
    EXPECT_TRUE(window->usesSearchExpression());
    EXPECT_TRUE(SearchField::itemWithTag(live.get(), 100)->isChecked());
    EXPECT_TRUE(SearchField::itemWithTag(live.get(), 101)->isEnabled());
    EXPECT_TRUE(expression->isChecked());
    EXPECT_TRUE(save->isEnabled());
    EXPECT_EQ(source.requests(), 2) << "the switch reloads the list";

    source.deliver({});
    std::unique_ptr<QMenu> next(window->searchField()->buildPopUpMenu());
    EXPECT_TRUE(SearchField::itemWithTag(next.get(), 100)->isChecked());
    SearchField::itemWithTag(next.get(), 100)->trigger();
    EXPECT_FALSE(window->usesSearchExpression());
    EXPECT_FALSE(expression->isChecked());
    EXPECT_FALSE(save->isEnabled());
    EXPECT_FALSE(SearchField::itemWithTag(next.get(), 101)->isEnabled());
}

TEST_F(WindowTest, SavingASearchNeedsTextAndAName)
{
    auto window = makeWindow();
    SaveSearchDialog* sheet = window->saveSearchWindow();
    window->saveCurrentSearch();
    EXPECT_FALSE(sheet->isVisible()) << "an empty search field opens nothing";

    window->searchField()->setText(u"remotePort == \"443\""_s);
    window->saveCurrentSearch();
    ASSERT_TRUE(sheet->isVisible());
    EXPECT_EQ(sheet->nameField()->text(), u"remotePort == \"443\""_s);
    EXPECT_EQ(sheet->nameField()->selectedText(), sheet->nameField()->text());
    EXPECT_EQ(sheet->expressionField()->text(), u"remotePort == \"443\""_s);

    QSignalSpy reloads(settings.prefs.get(), &CVPrefsHelper::filterProfilesChanged);
    sheet->nameField()->clear();
    window->confirmSaveSearchClicked();
    EXPECT_TRUE(sheet->isVisible());
    EXPECT_EQ(reloads.size(), 0);

    sheet->nameField()->setText(u"HTTPS"_s);
    window->confirmSaveSearchClicked();
    EXPECT_FALSE(sheet->isVisible());
    EXPECT_EQ(reloads.size(), 1);
    QComboBox* popup = window->filterProfileButton();
    ASSERT_EQ(popup->count(), 2);
    EXPECT_EQ(popup->itemText(0), u"No Saved Search"_s);
    EXPECT_EQ(popup->itemText(1), u"HTTPS"_s);

    window->saveCurrentSearch();
    window->cancelSaveSearchClicked();
    EXPECT_FALSE(sheet->isVisible());
    EXPECT_EQ(popup->count(), 2);
}

TEST_F(WindowTest, RebuiltSavedSearchPopUpKeepsTheChoiceOnlyForTheSameObject)
{
    auto window = makeWindow();
    auto make = [](const QString& name) {
        auto profile = CVFilterProfileInfo::create();
        profile->setProfileName(name);
        profile->setSearchExpression(u"protocol == \"UDP\""_s);
        profile->save();
        return profile;
    };
    auto web = make(u"Web"_s);
    auto mail = make(u"Mail"_s);
    settings.prefs->reloadFilterProfiles();
    QComboBox* popup = window->filterProfileButton();
    ASSERT_EQ(popup->count(), 3);
    popup->setCurrentIndex(2);
    EXPECT_EQ(window->chosenFilterProfile(), mail);

    settings.prefs->reloadFilterProfiles();
    EXPECT_EQ(popup->currentIndex(), 2);
    EXPECT_EQ(window->chosenFilterProfile(), mail);

    // Deleted elsewhere and saved again under the same name: another object, not the choice.
    mail->deleteObject();
    auto copy = make(u"Mail"_s);
    settings.prefs->reloadFilterProfiles();
    EXPECT_EQ(popup->count(), 3);
    EXPECT_EQ(popup->currentIndex(), 0);
    EXPECT_EQ(window->chosenFilterProfile(), nullptr);
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
    window->reloadTableViewData();
    source.deliver({}, u"lsof is not installed."_s);
    const auto labels = window->findChildren<QLabel*>();
    auto shows = [&](const QString& text) {
        return std::any_of(labels.begin(), labels.end(), [&](QLabel* label) {
            return !label->isHidden() && label->text().contains(text);
        });
    };
    EXPECT_TRUE(shows(u"lsof is not installed."_s));
    window->reloadTableViewData();
    source.deliver({tcp(u"a"_s, u"1"_s), udp(u"b"_s, u"2"_s)});
    EXPECT_FALSE(shows(u"lsof is not installed."_s));
    window->searchField()->setText(u"udp"_s);
    EXPECT_TRUE(shows(u"1 of 2"_s));
}

TEST_F(WindowTest, ClickingAHeaderSortsTheWholeSnapshot)
{
    auto window = makeWindow();
    window->show();
    const LsofItemPtr a = tcp(u"zeta"_s, u"100"_s), b = udp(u"Alpha"_s, u"9"_s),
                      c = tcp(u"beta"_s, u"10"_s);
    window->reloadTableViewData();
    source.deliver({a, b, c});
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
    window->reloadTableViewData();
    source.deliver({c, b, a});
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

TEST_F(WindowTest, LongListsFilterAfterAPauseInTyping)
{
    auto window = makeWindow();
    LsofItemList many;
    for (int i = 0; i < 2500; ++i)
        many.append(i == 7 ? udp(u"needle"_s, u"7"_s) : tcp(u"hay"_s, QString::number(i)));
    window->reloadTableViewData();
    source.deliver(many);
    window->searchField()->setText(u"needle"_s);
    EXPECT_EQ(window->items().size(), 2500);
    EXPECT_TRUE(QTest::qWaitFor([&] { return window->items().size() == 1; }, 2000));
}

TEST_F(WindowTest, RemembersColumnWidthsAndSortOrderAcrossARestart)
{
    {
        auto window = makeWindow();
        QHeaderView* header = window->tableView()->horizontalHeader();
        header->resizeSection(8, 233);
        header->setSortIndicator(1, Qt::DescendingOrder);
    }
    settings.reopen();
    auto window = makeWindow();
    QHeaderView* header = window->tableView()->horizontalHeader();
    EXPECT_EQ(header->sectionSize(8), 233);
    EXPECT_EQ(header->sortIndicatorSection(), 1);
    EXPECT_EQ(header->sortIndicatorOrder(), Qt::DescendingOrder);
    // None of this is kept under the keys the preferences window edits.
    EXPECT_FALSE(defaults().objectForKey(u"CV:ColumnsUserDefault"_s).isValid());
}

TEST_F(WindowTest, FeedsTheFilterFromTheProfileTheFieldAndTheSegments)
{
    auto window = makeWindow();
    const LsofItemPtr web = tcp(u"firefox"_s, u"1"_s), dns = udp(u"resolved"_s, u"2"_s);
    window->reloadTableViewData();
    source.deliver({web, dns});

    // Keyword mode: a hidden column's value still matches, capitals or not.
    window->tableHeaderMenu()->tableHeaderViewContextMenuSelected(
        window->tableHeaderMenu()->itemForTitle(u"Application"_s));
    window->searchField()->setText(u"FIREFOX,nothing"_s);
    EXPECT_EQ(window->items(), LsofItemList{web});

    // Expression mode reads the field; an expression that does not parse shows everything.
    std::unique_ptr<QMenu> menu(window->searchField()->buildPopUpMenu());
    SearchField::itemWithTag(menu.get(), 100)->trigger();
    source.deliver({web, dns});
    window->searchField()->setText(u"protocol == \"UDP\""_s);
    EXPECT_EQ(window->items(), LsofItemList{dns});
    window->protocolControl()->setSelected(false, 1);
    window->refreshTableViewData();
    EXPECT_EQ(window->items(), LsofItemList{dns}) << "segments do not apply to expressions";
    window->searchField()->setText(u"protocol =="_s);
    EXPECT_EQ(window->items().size(), 2);

    // A chosen saved search wins over the field.
    auto profile = CVFilterProfileInfo::create();
    profile->setProfileName(u"Web"_s);
    profile->setSearchExpression(u"remotePort == \"443\""_s);
    profile->save();
    settings.prefs->reloadFilterProfiles();
    window->filterProfileButton()->setCurrentIndex(1);
    Q_EMIT window->filterProfileButton()->activated(1);
    source.deliver({web, dns});
    EXPECT_EQ(window->items(), LsofItemList{web});
    window->searchField()->setText(u"protocol == \"UDP\""_s);
    EXPECT_EQ(window->items(), LsofItemList{web});
}

TEST_F(WindowTest, ASearchThatCannotBeStoredKeepsTheSheetOpen)
{
    auto window = makeWindow();
    QStringList errors;
    window->setErrorHandler([&](const QString& message) { errors.append(message); });
    // The database would lie inside a regular file: it cannot be opened.
    QFile blocker(settings.dir.filePath(u"blocker"_s));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    SQLiteInstanceManager broken(u"corvina.sqlite3"_s, blocker.fileName() + u"/corvina.sqlite3"_s);
    SQLitePersistentObject::setManager(&broken);

    window->searchField()->setText(u"state == \"LISTEN\""_s);
    window->saveCurrentSearch();
    window->saveSearchWindow()->nameField()->setText(u"Listening"_s);
    window->confirmSaveSearchClicked();
    EXPECT_TRUE(window->saveSearchWindow()->isVisible());
    EXPECT_EQ(window->saveSearchWindow()->nameField()->text(), u"Listening"_s);
    ASSERT_EQ(errors.size(), 1);
    EXPECT_TRUE(errors.first().startsWith(u"The search could not be saved"_s));

    // Becoming active with an unreadable database still works.
    QEvent activate(QEvent::WindowActivate);
    QCoreApplication::sendEvent(window.get(), &activate);
    SQLitePersistentObject::setManager(settings.database.get());
}

#include "windowtestsupport.h"

#include "persistence/sqlitepersistentobject.h"
#include "support/profiles.h"
#include "ui/app/cvappdelegate.h"
#include "ui/app/desktopnotifier.h"
#include "ui/app/ovmodule.h"
#include "ui/prefs/colorwell.h"
#include "ui/prefs/cvpreferencescolumnsdatasource.h"
#include "ui/prefs/cvpreferencescontroller.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QItemSelectionModel>
#include <QScopeGuard>
#include <QSystemTrayIcon>
#include <QTableView>

namespace {

class AppDelegateTest : public ::testing::Test {
protected:
    TestSettings settings;
    FakeSnapshotSource source;
    CVAppDelegate delegate{source, *settings.prefs};

    int rowOfColumn(const QString& title) const
    {
        const QList<QAction*> items = delegate.tableHeaderMenu()->actions();
        for (int row = 0; row < items.size(); ++row) {
            if (items[row]->text() == title)
                return row;
        }
        return -1;
    }
};

TEST_F(AppDelegateTest, ThePreferencesWindowIsMadeOnceAndKeepsItsState)
{
    EXPECT_EQ(delegate.preferencesController(), nullptr);
    delegate.showPreferences();
    CVPreferencesController* first = delegate.preferencesController();
    ASSERT_NE(first, nullptr);
    first->showPane(CVPreferencesController::SavedSearches);
    first->hide();
    delegate.showPreferences();
    EXPECT_EQ(delegate.preferencesController(), first);
    EXPECT_TRUE(first->isVisible());
    EXPECT_EQ(first->currentPane(), CVPreferencesController::SavedSearches);
}

TEST_F(AppDelegateTest, TheHelpMenuGainsTheMakersEntriesAboveItsOwnAndHidesUpdates)
{
    delegate.applicationDidFinishLaunching();
    QStringList titles;
    for (const QAction* item : delegate.helpMenu()->actions()) {
        if (item->isVisible())
            titles << (item->isSeparator() ? u"---"_s : item->text());
    }
    // The test application carries no store product identifier.
    EXPECT_EQ(titles, (QStringList{u"Send Feedback"_s, u"---"_s,
                                   u"Visit "_s + OVModule::kMakerDomain, u"Follow Us on Twitter"_s,
                                   u"---"_s, u"Corvina &Help"_s, u"---"_s, u"&About Corvina"_s}));
    EXPECT_FALSE(delegate.checkForUpdatesMenuItem()->isVisible());
    delegate.checkForUpdatesMenuItem()->trigger();
    EXPECT_TRUE(delegate.window().isVisible());

    // About names the version, the licence and where the project lives.
    const QString about = CVAppDelegate::aboutText();
    EXPECT_TRUE(about.contains(u"Corvina "_s + QStringLiteral(CORVINA_VERSION)));
    EXPECT_TRUE(about.contains(u"Proprietary"_s));
    EXPECT_TRUE(about.contains(OVModule::kHomePage));
}

TEST_F(AppDelegateTest, AMailClientOrBrowserThatDoesNotStartIsReportedInTheStatusBar)
{
    OVModule& module = OVModule::sharedModule();
    module.setUrlOpener([](const QUrl&) { return false; });
    const auto restore = qScopeGuard([&] { module.setUrlOpener({}); });
    module.sendFeedback();
    EXPECT_TRUE(delegate.window().statusBar()->currentMessage().startsWith(u"No program"_s))
        << delegate.window().statusBar()->currentMessage().toStdString();
}

TEST_F(AppDelegateTest, ThePreferencesWindowsControlsApplyToTheMainWindowAtOnce)
{
    CVPreferencesController preferences(*settings.prefs, delegate.tableHeaderMenu(),
                                        delegate.preferencesServices());
    CVWindowController& window = delegate.window();

    // The refresh period: the timer and the toolbar follow.
    QComboBox* period = preferences.refreshPeriodButton();
    const int tenSeconds = period->findData(10);
    period->setCurrentIndex(tenSeconds);
    Q_EMIT period->activated(tenSeconds);
    ASSERT_NE(window.autoRefreshTimer(), nullptr);
    EXPECT_EQ(window.autoRefreshTimer()->interval(), 10000);
    EXPECT_EQ(window.refreshIntervalButton()->currentData().toInt(), 10);

    // The collector: the next request asks for the one chosen.
    QComboBox* collector = preferences.collectorButton();
    const int lsof = collector->findData(u"lsof"_s);
    collector->setCurrentIndex(lsof);
    Q_EMIT collector->activated(lsof);
    EXPECT_EQ(source.collector(), SnapshotSource::Collector::Lsof);

    // Switches: the copy the next pass reads. (Colours and the font go through the settings
    // store, whose changes the window's own tests follow.)
    preferences.switchFor(PrefKeys::NotifyNewConnections)->click();
    EXPECT_FALSE(settings.prefs->notifyNewConnections());
}

TEST_F(AppDelegateTest, ClosingToTheTraySaysOnceThatCorvinaKeepsRunning)
{
    QList<DesktopNotifier::Notification> sent;
    delegate.notifier()->setSender(
        [&](const DesktopNotifier::Notification& n, std::function<void(uint)>) { sent << n; });
    delegate.showMainWindow();
    delegate.trayIcon()->show();
    ASSERT_TRUE(delegate.trayIcon()->isVisible());
    EXPECT_FALSE(delegate.window().close());
    EXPECT_FALSE(delegate.window().isVisible());
    ASSERT_EQ(sent.size(), 1);
    EXPECT_TRUE(sent.first().body.contains(u"Quit"_s));

    delegate.showMainWindow();
    delegate.window().close();
    // A later start reads the same settings.
    CVAppDelegate later{source, *settings.prefs};
    later.notifier()->setSender(
        [&](const DesktopNotifier::Notification& n, std::function<void(uint)>) { sent << n; });
    later.trayIcon()->show();
    later.showMainWindow();
    later.window().close();
    EXPECT_EQ(sent.size(), 1) << "said once, not at every close nor at every start";
}

TEST_F(AppDelegateTest, ColumnBoxesDriveTheMainWindowAndFollowItsMenu)
{
    delegate.showPreferences();
    CVPreferencesColumnsDataSource* columns = delegate.preferencesController()->columnsDataSource();
    const int row = rowOfColumn(u"PID"_s);
    const int column = columnOf(LsofItem::Key::processId);
    ASSERT_GE(row, 0);
    QHeaderView* header = delegate.window().tableView()->horizontalHeader();
    ASSERT_FALSE(header->isSectionHidden(column));
    EXPECT_EQ(columns->rowCount(), delegate.tableHeaderMenu()->actions().size());

    ASSERT_TRUE(columns->setData(columns->index(row), Qt::Unchecked, Qt::CheckStateRole));
    EXPECT_TRUE(header->isSectionHidden(column));
    EXPECT_EQ(columns->index(row).data(Qt::CheckStateRole).value<Qt::CheckState>(), Qt::Unchecked);
    const QStringList saved = savedColumnTitles(*settings.defaults);
    EXPECT_FALSE(saved.contains(u"PID"_s));
    EXPECT_TRUE(saved.contains(u"Application"_s));

    // Chosen in the main window's own header menu, the column comes back in the list too.
    delegate.tableHeaderMenu()->actions().at(row)->trigger();
    EXPECT_FALSE(header->isSectionHidden(column));
    EXPECT_EQ(columns->index(row).data(Qt::CheckStateRole).value<Qt::CheckState>(), Qt::Checked);
}

TEST_F(AppDelegateTest, DeletingTwoSavedSearchesTakesThemOutOfTheMainWindowsMenu)
{
    for (const QString& name : {u"Web"_s, u"Mail"_s, u"Dns"_s})
        saveProfile(name, u"remotePort == \"1\""_s);
    settings.prefs->reloadFilterProfiles();
    QComboBox* menu = delegate.window().filterProfileButton();
    ASSERT_GE(menu->findText(u"Web"_s), 0);

    delegate.showPreferences();
    CVPreferencesController* prefs = delegate.preferencesController();
    QItemSelectionModel* selection = prefs->filterProfileView()->selectionModel();
    const QAbstractItemModel* table = prefs->filterProfileView()->model();
    for (int row = 0; row < table->rowCount(); ++row) {
        if (table->index(row, 0).data().toString() != u"Mail")
            selection->select(table->index(row, 0),
                              QItemSelectionModel::Select | QItemSelectionModel::Rows);
    }
    prefs->deleteFilterProfile();

    EXPECT_EQ(menu->findText(u"Web"_s), -1);
    EXPECT_EQ(menu->findText(u"Dns"_s), -1);
    EXPECT_GE(menu->findText(u"Mail"_s), 0);
}

} // namespace

#include "prefsuitestsupport.h"

#include "cli/helpercommand.h"
#include "support/profiles.h"
#include "ui/prefs/colorwell.h"
#include "ui/prefs/cvpreferencescolumnsdatasource.h"
#include "ui/prefs/cvpreferencesexcludeappsdatasource.h"
#include "ui/prefs/excludedappspane.h"
#include "ui/prefs/filterprofiletablemodel.h"

#include <QAbstractItemModelTester>
#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QDir>
#include <QEvent>
#include <QFile>
#include <QIcon>
#include <QImage>
#include <QItemSelectionModel>
#include <QLabel>
#include <QListView>
#include <QMenu>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTableView>

#include <sqlite3.h>

namespace {

const QStringList kDisplayKeys = {
    PrefKeys::ListFontSize,
    PrefKeys::ListBackgroundColor,
    PrefKeys::ListTextColor,
    PrefKeys::NewConnectionBackgroundColor,
    PrefKeys::StateChangedConnectionBackgroundColor,
    PrefKeys::ClosedConnectionBackgroundColor,
};

TEST_F(PreferencesTest, ResettingDisplayOptionsRestoresExactlyFontSizeAndColours)
{
    for (const QString& key : kDisplayKeys.mid(1))
        m_store->setString(key, u"#80123456"_s);
    m_store->setInteger(PrefKeys::ListFontSize, 17);
    m_store->setInteger(PrefKeys::AutoRefreshSetting, 5);
    m_store->setBool(PrefKeys::NotifyNewConnections, false);
    m_store->setBool(PrefKeys::CSVFilesLogSplitEveryDay, false);
    m_prefs->addExcludeAppForGrowNotification(u"/usr/bin/ssh"_s);

    window().resetDisplayOptions();

    // The factory values come back, and the window follows the change it made.
    for (const QString& key : kDisplayKeys)
        EXPECT_FALSE(m_store->hasStoredValue(key)) << key.toStdString();
    for (const QString& key : kDisplayKeys.mid(1))
        EXPECT_EQ(window().colorWell(key)->color().name(QColor::HexArgb).toUpper(),
                  m_prefs->colorForKey(key)->toText());
    EXPECT_EQ(window().fontSizeBox()->value(), 11);

    EXPECT_EQ(m_store->integerForKey(PrefKeys::AutoRefreshSetting), 5);
    EXPECT_FALSE(m_store->boolForKey(PrefKeys::NotifyNewConnections));
    EXPECT_FALSE(m_store->boolForKey(PrefKeys::CSVFilesLogSplitEveryDay));
    EXPECT_EQ(m_prefs->excludeAppsForGrowl(), QStringList{u"/usr/bin/ssh"_s});
}

TEST_F(PreferencesTest, ControlsWriteTheirSettingsAndFollowChangesMadeElsewhere)
{
    QCheckBox* consoleLog = window().switchFor(PrefKeys::LogNewConnectionToSystemConsole);
    ASSERT_NE(consoleLog, nullptr);
    EXPECT_FALSE(consoleLog->isChecked());
    consoleLog->click();
    EXPECT_TRUE(m_store->boolForKey(PrefKeys::LogNewConnectionToSystemConsole));

    m_store->setBool(PrefKeys::LogNewConnectionToSystemConsole, false);
    EXPECT_FALSE(consoleLog->isChecked());

    window().fontSizeBox()->setValue(14);
    EXPECT_EQ(m_store->integerForKey(PrefKeys::ListFontSize), 14);
    m_store->setInteger(PrefKeys::ListFontSize, 9);
    EXPECT_EQ(window().fontSizeBox()->value(), 9);

    // The periods read as words, and one the list does not offer, set from the command line,
    // is shown as it is.
    QComboBox* periods = window().refreshPeriodButton();
    EXPECT_EQ(periods->itemText(periods->findData(0)), u"Off"_s);
    EXPECT_EQ(periods->itemText(periods->findData(1)), u"Every second"_s);
    EXPECT_EQ(periods->itemText(periods->findData(2)), u"Every 2 seconds"_s);
    m_store->setInteger(PrefKeys::AutoRefreshSetting, 7);
    EXPECT_EQ(window().refreshPeriodButton()->currentData().toInt(), 7);
    EXPECT_EQ(window().refreshPeriodButton()->currentText(), u"Every 7 seconds"_s);
    m_store->setInteger(PrefKeys::AutoRefreshSetting, 0);
    EXPECT_EQ(window().refreshPeriodButton()->currentData().toInt(), 0);

    // All seven switches and the daily split have a control.
    for (const QString& key :
         {PrefKeys::NotifyNewConnections, PrefKeys::NotifyConnectionsStateChange,
          PrefKeys::ResolveRemoteAddressInGrowl, PrefKeys::LogNewConnectionToCSVFiles,
          PrefKeys::LogConnectionStateChangeToCSVFiles, PrefKeys::LogNewConnectionToSystemConsole,
          PrefKeys::LogConnectionStateChangeToSystemConsole, PrefKeys::CSVFilesLogSplitEveryDay}) {
        ASSERT_NE(window().switchFor(key), nullptr) << key.toStdString();
        EXPECT_EQ(window().switchFor(key)->isChecked(), m_store->boolForKey(key));
    }
}

TEST_F(PreferencesTest, AChosenColourKeepsItsAlpha)
{
    m_chosenColor = QColor(0x12, 0x34, 0x56, 0x40);
    window().colorWell(PrefKeys::ClosedConnectionBackgroundColor)->click();
    EXPECT_EQ(m_store->stringForKey(PrefKeys::ClosedConnectionBackgroundColor), u"#40123456"_s);
    EXPECT_EQ(window().colorWell(PrefKeys::ClosedConnectionBackgroundColor)->color().alpha(), 0x40);

    // A cancelled dialog changes nothing.
    m_chosenColor.reset();
    window().colorWell(PrefKeys::ListTextColor)->click();
    EXPECT_FALSE(m_store->hasStoredValue(PrefKeys::ListTextColor));
}

TEST_F(PreferencesTest, ExcludedApplicationsAreAddedAndRemovedThroughTheSelection)
{
    CVPreferencesExcludeAppsDataSource* apps = window().excludeAppsDataSource();
    QAbstractItemModelTester tester(apps, QAbstractItemModelTester::FailureReportingMode::Warning);

    m_chosenApplication = u"/usr/bin/curl"_s;
    window().addExcludeAppForGrowl();
    m_chosenApplication = u"/opt/gone/bin/vanished"_s;
    window().addExcludeAppForGrowl();
    m_chosenApplication.clear(); // cancelled
    window().addExcludeAppForGrowl();
    ASSERT_EQ(apps->rowCount(), 2);
    EXPECT_EQ(apps->data(apps->index(1)).toString(), u"/opt/gone/bin/vanished"_s);

    // Nothing selected: nothing removed.
    window().removeExcludeAppForGrowl();
    EXPECT_EQ(m_prefs->excludeAppsForGrowl().size(), 2);

    window().excludeAppsView()->selectionModel()->select(apps->index(0),
                                                         QItemSelectionModel::ClearAndSelect);
    window().removeExcludeAppForGrowl();
    EXPECT_EQ(m_prefs->excludeAppsForGrowl(), QStringList{u"/opt/gone/bin/vanished"_s});
    EXPECT_EQ(apps->rowCount(), 1);

    // The list follows a change made elsewhere.
    m_prefs->addExcludeAppForGrowNotification(u"/usr/bin/wget"_s);
    EXPECT_EQ(apps->rowCount(), 2);
}

TEST_F(PreferencesTest, AddOffersTheListedApplicationsAndAFileChooser)
{
    m_listed = {{u"curl"_s, u"/usr/bin/curl"_s, QString()},
                {u"Firefox"_s, u"/usr/lib/firefox/firefox"_s, u"firefox"_s}};
    m_prefs->addExcludeAppForGrowNotification(u"/usr/bin/curl"_s);
    QMenu* menu = window().excludedAppsPane()->addMenu();
    QStringList titles;
    QAction* firefox = nullptr;
    QAction* chooser = nullptr;
    for (QAction* item : menu->actions()) {
        if (item->isSeparator() && item->text().isEmpty())
            continue;
        titles << item->text();
        if (item->text() == u"Firefox"_s)
            firefox = item;
        if (item->text().startsWith(u"Choose"_s))
            chooser = item;
    }
    EXPECT_EQ(titles, (QStringList{u"Applications in the List"_s, u"curl"_s, u"Firefox"_s,
                                   u"Choose a Program…"_s}));
    EXPECT_FALSE(menu->actions().at(1)->isEnabled()) << "curl is already left out";
    ASSERT_NE(firefox, nullptr);
    ASSERT_NE(chooser, nullptr);
    firefox->trigger();
    EXPECT_EQ(m_prefs->excludeAppsForGrowl(),
              (QStringList{u"/usr/bin/curl"_s, u"/usr/lib/firefox/firefox"_s}));
    m_chosenApplication = u"/usr/bin/wget"_s;
    chooser->trigger();
    EXPECT_EQ(m_prefs->excludeAppsForGrowl().last(), u"/usr/bin/wget"_s);
}

TEST_F(PreferencesTest, AnExcludedProgramThatNoLongerExistsShowsTheGenericIcon)
{
    // A theme of our own, so the answer does not depend on the machine's icons.
    const QDir themes(m_dir.filePath(u"icons"_s));
    ASSERT_TRUE(themes.mkpath(u"testtheme/48x48/mimetypes"_s));
    QFile index(themes.filePath(u"testtheme/index.theme"_s));
    ASSERT_TRUE(index.open(QIODevice::WriteOnly));
    index.write("[Icon Theme]\nName=testtheme\nDirectories=48x48/mimetypes\n\n"
                "[48x48/mimetypes]\nSize=48\nType=Fixed\n");
    index.close();
    QImage image(48, 48, QImage::Format_ARGB32);
    image.fill(Qt::darkGray);
    ASSERT_TRUE(
        image.save(themes.filePath(u"testtheme/48x48/mimetypes/application-x-executable.png"_s)));
    const QStringList oldPaths = QIcon::themeSearchPaths();
    const QString oldTheme = QIcon::themeName();
    // Theme icons are looked up when drawn, so the theme stays until the checks are done.
    const auto restore = qScopeGuard([&] {
        QIcon::setThemeName(oldTheme);
        QIcon::setThemeSearchPaths(oldPaths);
    });
    QIcon::setThemeSearchPaths({themes.path()});
    QIcon::setThemeName(u"testtheme"_s);

    const QIcon gone = CVPreferencesExcludeAppsDataSource::iconForPath(u"/opt/gone/bin/vanished"_s);
    m_prefs->addExcludeAppForGrowNotification(u"/opt/gone/bin/vanished"_s);
    const QModelIndex row = window().excludeAppsDataSource()->index(0);
    const QIcon shown = row.data(Qt::DecorationRole).value<QIcon>();

    EXPECT_FALSE(gone.isNull());
    EXPECT_EQ(gone.name(), u"application-x-executable"_s);
    EXPECT_EQ(shown.name(), u"application-x-executable"_s);
    EXPECT_EQ(row.data(Qt::DisplayRole).toString(), u"/opt/gone/bin/vanished"_s);
}

TEST_F(PreferencesTest, LogCommandsSayWhenThereIsNothingToOpenYet)
{
    m_store->setBool(PrefKeys::CSVFilesLogSplitEveryDay, false);
    window().openLogFolder();
    window().openTodayLog();
    ASSERT_EQ(m_alerts.size(), 2);
    EXPECT_EQ(m_alerts[0].title, u"Open Log Folder"_s);
    EXPECT_TRUE(m_alerts[0].message.contains(m_prefs->logFolder()));
    EXPECT_TRUE(m_alerts[1].message.contains(u"CorvinaLog.csv"_s));
    EXPECT_FALSE(QFileInfo::exists(m_prefs->logFolder())) << "nothing may be created";
    EXPECT_TRUE(m_openedFolders.isEmpty());
    EXPECT_TRUE(m_revealed.isEmpty());

    ASSERT_TRUE(QDir().mkpath(m_prefs->logFolder()));
    QFile log(QDir(m_prefs->logFolder()).filePath(u"CorvinaLog.csv"_s));
    ASSERT_TRUE(log.open(QIODevice::WriteOnly));
    log.close();
    window().openLogFolder();
    window().openTodayLog();
    EXPECT_EQ(m_alerts.size(), 2);
    EXPECT_EQ(m_openedFolders, QStringList{m_prefs->logFolder()});
    EXPECT_EQ(m_revealed, QStringList{log.fileName()});
}

TEST_F(PreferencesTest, HelperCommandsShowTheirMessagesWhateverTheOutcome)
{
    EXPECT_EQ(window().helperInfoLabel()->text(), u"Helper not installed"_s);
    EXPECT_TRUE(window().helperToolBox()->isHidden());

    window().installHelper();
    EXPECT_EQ(m_installs, 1);
    window().removeHelper();
    ASSERT_EQ(m_alerts.size(), 2);
    EXPECT_EQ(m_alerts[0].title, u"Install Helper"_s);
    EXPECT_EQ(m_alerts[0].message,
              u"Install helper tool successfully, restart Corvina to take effects."_s);
    EXPECT_EQ(m_alerts[1].title, u"Remove Helper"_s);
    EXPECT_EQ(m_alerts[1].message, u"Please run following command in Terminal:\n\n"_s +
                                       helperRemoveCommands().join(u'\n') + u"\n"_s);
    EXPECT_TRUE(m_alerts[1].message.contains(u"systemctl disable --now"_s));

    m_window.reset();
    m_helperInstalled = true;
    EXPECT_EQ(window().helperInfoLabel()->text(), u"Helper installed"_s);
}

TEST_F(PreferencesTest, DeletingTwoSavedSearchesRemovesBothFromTheDatabaseAndTheList)
{
    saveProfile(u"Web"_s, u"remotePort == \"443\""_s);
    saveProfile(u"Mail"_s, u"remotePort == \"993\""_s);
    saveProfile(u"Dns"_s, u"remotePort == \"53\""_s);
    int listChanges = 0;
    QObject::connect(m_prefs, &CVPrefsHelper::filterProfilesChanged, [&] { ++listChanges; });
    m_prefs->reloadFilterProfiles();
    FilterProfileTableModel* table = window().filterProfileArrayController();
    QAbstractItemModelTester tester(table, QAbstractItemModelTester::FailureReportingMode::Warning);
    ASSERT_EQ(table->rowCount(), 3);

    QItemSelectionModel* selection = window().filterProfileView()->selectionModel();
    selection->select(table->index(0, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
    selection->select(table->index(2, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
    window().deleteFilterProfile();

    EXPECT_EQ(listChanges, 2);
    ASSERT_EQ(table->rowCount(), 1);
    EXPECT_EQ(table->index(0, 0).data().toString(), u"Mail"_s);
    SQLitePersistentObject::clearCache();
    const auto stored = CVFilterProfileInfo::allObjects();
    ASSERT_EQ(stored.size(), 1);
    EXPECT_EQ(stored.front()->profileName(), u"Mail"_s);

    // Nothing selected: nothing deleted.
    window().deleteFilterProfile();
    EXPECT_EQ(CVFilterProfileInfo::allObjects().size(), 1);
}

TEST_F(PreferencesTest, AnEditedSavedSearchIsStoredAtOnce)
{
    const auto web = saveProfile(u"Web"_s, u"remotePort == \"443\""_s);
    m_prefs->reloadFilterProfiles();
    FilterProfileTableModel* table = window().filterProfileArrayController();

    EXPECT_TRUE(table->setData(table->index(0, FilterProfileTableModel::NameColumn), u"HTTPS"_s));
    EXPECT_TRUE(table->setData(table->index(0, FilterProfileTableModel::ExpressionColumn),
                               u"remotePortNumber == 443"_s));
    EXPECT_TRUE(m_alerts.isEmpty());

    SQLitePersistentObject::clearCache();
    const auto reread = CVFilterProfileInfo::findByPK(web->pk());
    ASSERT_NE(reread, nullptr);
    EXPECT_NE(reread.get(), web.get());
    EXPECT_EQ(reread->profileName(), u"HTTPS"_s);
    EXPECT_EQ(reread->searchExpression(), u"remotePortNumber == 443"_s);
}

TEST_F(PreferencesTest, AStoredExpressionThatDoesNotParseIsMarked)
{
    saveProfile(u"Web"_s, u"remotePort == \"443\""_s);
    saveProfile(u"Broken"_s, u"remotePort == AND"_s);
    m_prefs->reloadFilterProfiles();
    FilterProfileTableModel* table = window().filterProfileArrayController();
    const auto cell = [&](int row, int column, int role) {
        return table->index(row, column).data(role);
    };
    const int expression = FilterProfileTableModel::ExpressionColumn;
    EXPECT_FALSE(cell(0, expression, Qt::DecorationRole).isValid());
    EXPECT_EQ(cell(0, expression, Qt::ToolTipRole).toString(), u"remotePort == \"443\""_s);
    EXPECT_TRUE(cell(1, expression, Qt::DecorationRole).isValid());
    EXPECT_TRUE(cell(1, expression, Qt::ToolTipRole).toString().contains(u"(at character "_s));
    EXPECT_EQ(cell(1, expression, Qt::DisplayRole).toString(), u"remotePort == AND"_s);
    EXPECT_FALSE(cell(1, FilterProfileTableModel::NameColumn, Qt::DecorationRole).isValid());

    // Mended in place, the mark goes.
    EXPECT_TRUE(table->setData(table->index(1, expression), u"remotePortNumber > 1000"_s));
    EXPECT_FALSE(cell(1, expression, Qt::DecorationRole).isValid());
}

TEST_F(PreferencesTest, AnEditTheDatabaseRefusesIsReportedAndUndone)
{
    saveProfile(u"Web"_s, u"remotePort == \"443\""_s);
    m_prefs->reloadFilterProfiles();
    FilterProfileTableModel* table = window().filterProfileArrayController();

    // Another program holds the database locked for writing.
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open(m_dir.filePath(u"corvina.sqlite3"_s).toUtf8().constData(), &other),
              SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
    const bool taken =
        table->setData(table->index(0, FilterProfileTableModel::NameColumn), u"HTTPS"_s);
    sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr);
    sqlite3_close(other);

    EXPECT_FALSE(taken);
    ASSERT_EQ(m_alerts.size(), 1);
    EXPECT_TRUE(m_alerts[0].message.contains(u"Web"_s));
    EXPECT_EQ(table->index(0, 0).data().toString(), u"Web"_s);
    SQLitePersistentObject::clearCache();
    EXPECT_EQ(CVFilterProfileInfo::allObjects().front()->profileName(), u"Web"_s);
}

TEST_F(PreferencesTest, BecomingActiveReloadsTheSavedSearches)
{
    window();
    saveProfile(u"Web"_s, u"remotePort == \"443\""_s);
    EXPECT_EQ(window().filterProfileArrayController()->rowCount(), 0);
    QEvent activate(QEvent::WindowActivate);
    QCoreApplication::sendEvent(&window(), &activate);
    EXPECT_EQ(window().filterProfileArrayController()->rowCount(), 1);
}

// A column menu like the main window's: choosing an item flips its column and saves the shown
// titles under the columns key.
class ColumnMenu {
public:
    explicit ColumnMenu(UserDefaults& store) : m_store(store)
    {
        for (const QString& title : {u"Application"_s, u"PID"_s, u"State"_s}) {
            QAction* item = m_menu.addAction(title);
            item->setCheckable(true);
            item->setChecked(true);
            QObject::connect(item, &QAction::triggered, [this, item] {
                ++m_chosen;
                m_chosenTitles << item->text();
                save();
            });
        }
    }
    void save()
    {
        QStringList shown;
        for (const QAction* item : m_menu.actions()) {
            if (item->isChecked())
                shown << item->text();
        }
        m_store.setObject(PrefKeys::ColumnsUserDefault, shown);
    }

    UserDefaults& m_store;
    QMenu m_menu;
    int m_chosen = 0;
    QStringList m_chosenTitles;
};

TEST_F(PreferencesTest, ColumnRowsAreTheMenusItemsAndCheckingOneChoosesIt)
{
    ColumnMenu columns(*m_store);
    CVPreferencesColumnsDataSource list(*m_store, &columns.m_menu);
    QAbstractItemModelTester tester(&list, QAbstractItemModelTester::FailureReportingMode::Warning);
    ASSERT_EQ(list.rowCount(), 3);
    EXPECT_EQ(list.index(1).data().toString(), u"PID"_s);
    EXPECT_EQ(list.index(1).data(Qt::CheckStateRole).value<Qt::CheckState>(), Qt::Checked);

    QSignalSpy reloaded(&list, &QAbstractItemModel::modelReset);
    // The value asked for does not matter: the item's command decides.
    EXPECT_TRUE(list.setData(list.index(1), Qt::Checked, Qt::CheckStateRole));
    EXPECT_EQ(columns.m_chosen, 1);
    EXPECT_EQ(columns.m_chosenTitles, QStringList{u"PID"_s});
    EXPECT_EQ(list.index(1).data(Qt::CheckStateRole).value<Qt::CheckState>(), Qt::Unchecked);
    EXPECT_GE(reloaded.count(), 1) << "the saved column set reloads the list";
    EXPECT_EQ(m_store->stringArrayForKey(PrefKeys::ColumnsUserDefault),
              (QStringList{u"Application"_s, u"State"_s}));

    // A change made in the menu itself shows in the list.
    columns.m_menu.actions().at(2)->trigger();
    EXPECT_EQ(list.index(2).data(Qt::CheckStateRole).value<Qt::CheckState>(), Qt::Unchecked);

    // Only the check box edits, and a disabled item cannot be chosen.
    EXPECT_FALSE(list.setData(list.index(0), u"x"_s, Qt::EditRole));
    columns.m_menu.actions().at(0)->setEnabled(false);
    EXPECT_FALSE(list.setData(list.index(0), Qt::Unchecked, Qt::CheckStateRole));
    EXPECT_FALSE(list.flags(list.index(0)).testFlag(Qt::ItemIsEnabled));
    EXPECT_EQ(columns.m_chosen, 2);
}

TEST_F(PreferencesTest, TheColumnListIsEmptyWithoutAMenuAndFollowsOneThatArrivesOrGoes)
{
    CVPreferencesColumnsDataSource list(*m_store, nullptr);
    EXPECT_EQ(list.rowCount(), 0);
    EXPECT_FALSE(list.setData(list.index(0), Qt::Checked, Qt::CheckStateRole));
    {
        ColumnMenu columns(*m_store);
        list.setTableHeaderMenu(&columns.m_menu);
        EXPECT_EQ(list.rowCount(), 3);
    }
    // The menu went with its window.
    QSignalSpy reloaded(&list, &QAbstractItemModel::modelReset);
    EXPECT_EQ(list.rowCount(), 0);
    EXPECT_TRUE(reloaded.wait(1000));
}

} // namespace

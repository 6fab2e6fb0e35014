#include "uitestsupport.h"

#include "persistence/sqlitepersistentobject.h"
#include "prefs/cvfilterprofileinfo.h"
#include "ui/app/cvappdelegate.h"
#include "ui/app/ovmodule.h"
#include "ui/prefs/cvpreferencescolumnsdatasource.h"
#include "ui/prefs/cvpreferencescontroller.h"
#include "ui/window/connectiontableview.h"
#include "ui/window/cvwindowcontroller.h"
#include "ui/window/tablecolumnsmenu.h"

#include <QAction>
#include <QComboBox>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QMenu>
#include <QTableView>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

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
    int logicalColumn(const QString& title) const
    {
        const QAbstractItemModel* model = delegate.window().tableView()->model();
        for (int column = 0; column < model->columnCount(); ++column) {
            if (model->headerData(column, Qt::Horizontal).toString() == title)
                return column;
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
    EXPECT_EQ(titles,
              (QStringList{u"Send Feedback"_s, u"---"_s, u"Visit "_s + OVModule::kMakerDomain,
                           u"Follow Us on Twitter"_s, u"---"_s, u"Corvina &Help"_s}));
    EXPECT_FALSE(delegate.checkForUpdatesMenuItem()->isVisible());
    delegate.checkForUpdatesMenuItem()->trigger();
    EXPECT_TRUE(delegate.window().isVisible());
}

TEST_F(AppDelegateTest, ColumnBoxesDriveTheMainWindowAndFollowItsMenu)
{
    delegate.showPreferences();
    CVPreferencesColumnsDataSource* columns = delegate.preferencesController()->columnsDataSource();
    const int row = rowOfColumn(u"PID"_s);
    const int column = logicalColumn(u"PID"_s);
    ASSERT_GE(row, 0);
    ASSERT_GE(column, 0);
    QHeaderView* header = delegate.window().tableView()->horizontalHeader();
    ASSERT_FALSE(header->isSectionHidden(column));
    EXPECT_EQ(columns->rowCount(), delegate.tableHeaderMenu()->actions().size());

    ASSERT_TRUE(columns->setData(columns->index(row), Qt::Unchecked, Qt::CheckStateRole));
    EXPECT_TRUE(header->isSectionHidden(column));
    EXPECT_EQ(columns->index(row).data(Qt::CheckStateRole).value<Qt::CheckState>(), Qt::Unchecked);
    QStringList saved;
    for (const QVariant& entry :
         settings.defaults->objectForKey(PrefKeys::ColumnsUserDefault).toList())
        saved << entry.toMap().value(u"title"_s).toString();
    EXPECT_FALSE(saved.contains(u"PID"_s));
    EXPECT_TRUE(saved.contains(u"Application"_s));

    // Chosen in the main window's own header menu, the column comes back in the list too.
    delegate.tableHeaderMenu()->actions().at(row)->trigger();
    EXPECT_FALSE(header->isSectionHidden(column));
    EXPECT_EQ(columns->index(row).data(Qt::CheckStateRole).value<Qt::CheckState>(), Qt::Checked);
}

TEST_F(AppDelegateTest, DeletingTwoSavedSearchesTakesThemOutOfTheMainWindowsMenu)
{
    for (const QString& name : {u"Web"_s, u"Mail"_s, u"Dns"_s}) {
        auto profile = CVFilterProfileInfo::create();
        profile->setProfileName(name);
        profile->setSearchExpression(u"remotePort == \"1\""_s);
        profile->save();
    }
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
    SQLitePersistentObject::clearCache();
    ASSERT_EQ(CVFilterProfileInfo::allObjects().size(), 1);
}

} // namespace

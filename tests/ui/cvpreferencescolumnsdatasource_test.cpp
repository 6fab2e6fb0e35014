#include "prefsuitestsupport.h"

#include "ui/prefs/cvpreferencescolumnsdatasource.h"

#include <QAbstractItemModelTester>
#include <QAction>
#include <QMenu>
#include <QSignalSpy>

using namespace Qt::StringLiterals;

namespace {

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

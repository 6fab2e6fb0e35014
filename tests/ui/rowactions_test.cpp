#include "ui/window/cvwindowcontroller.h"
#include "uitestsupport.h"

#include "ui/app/cvshowipinfocontroller.h"
#include "ui/window/connectiontableview.h"
#include "ui/window/desktopactions.h"
#include "ui/window/searchfield.h"
#include "ui/window/segmentedcontrol.h"
#include "ui/window/tablecolumnsmenu.h"

#include <QApplication>
#include <QClipboard>
#include <QGuiApplication>
#include <QMenu>
#include <QProcess>
#include <QTest>
#include <QUrlQuery>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

class RowActionsTest : public testing::Test {
protected:
    void SetUp() override
    {
        DesktopActions::setUrlOpener([this](const QUrl& url) { opened.append(url); });
        window = std::make_unique<CVWindowController>(source, *settings.prefs);
        window->setErrorHandler([this](const QString& message) { errors.append(message); });
        firefox = item(u"Firefox"_s, u"101"_s, u"TCP"_s, u"93.184.216.34"_s, u"443"_s);
        dns = item(u"systemd-resolved"_s, u"55"_s, u"UDP"_s, u"1.1.1.1"_s, u"53"_s);
        ssh = item(u"ssh"_s, u"2020"_s, u"TCP"_s, u"10.0.0.2"_s, u"22"_s);
        source.deliver({firefox, dns, ssh});
    }
    void TearDown() override { DesktopActions::setUrlOpener({}); }

    static LsofItemPtr item(const QString& app, const QString& pid, const QString& protocol,
                            const QString& remote, const QString& port)
    {
        ItemSpec spec{app, pid, protocol};
        spec.remoteAddress = remote;
        spec.remotePort = port;
        spec.state = protocol == u"TCP"_s ? u"ESTABLISHED"_s : QString();
        return makeItem(spec);
    }

    void hideColumn(const QString& title)
    {
        window->tableHeaderMenu()->tableHeaderViewContextMenuSelected(
            window->tableHeaderMenu()->itemForTitle(title));
    }

    QAction* searchItem(int tag)
    {
        for (QAction* action : window->tableContextMenu()->actions()) {
            if (QMenu* sub = action->menu()) {
                for (QAction* entry : sub->actions()) {
                    if (entry->data().toInt() == tag)
                        return entry;
                }
            }
        }
        return nullptr;
    }

    TestSettings settings;
    FakeSnapshotSource source;
    std::unique_ptr<CVWindowController> window;
    LsofItemPtr firefox, dns, ssh;
    QList<QUrl> opened;
    QStringList errors;
};

} // namespace

TEST_F(RowActionsTest, CopiesSelectedRowsOfShownColumnsAsTabSeparatedLines)
{
    for (QAction* column : window->tableHeaderMenu()->actions()) {
        const QString title = column->text();
        if (title != u"Application"_s && title != u"PID"_s && title != u"Remote Port"_s)
            hideColumn(title);
    }
    hideColumn(u"PID"_s);
    hideColumn(u"PID"_s); // shown again: now the last column
    window->tableView()->selectRowNumbers({0, 1, 2});
    window->copySelectedLines();
    EXPECT_EQ(QGuiApplication::clipboard()->text(),
              u"Firefox\t443\t101\nsystemd-resolved\t53\t55\nssh\t22\t2020"_s);
}

TEST_F(RowActionsTest, CopyUnderAFilterUsesTheRowsAsShown)
{
    window->protocolControl()->setSelected(false, 0); // hide TCP
    window->refreshTableViewData();
    ASSERT_EQ(window->items(), LsofItemList{dns});
    window->tableView()->selectRowNumbers({0});
    window->copySelectedLines();
    const QString text = QGuiApplication::clipboard()->text();
    EXPECT_TRUE(text.startsWith(u"systemd-resolved\t55\tada\tUDP"_s)) << text.toStdString();
    EXPECT_FALSE(text.contains(u'\n'));
}

TEST_F(RowActionsTest, ContextCommandsActOnTheClickedRowNotTheSelection)
{
    window->tableView()->selectRowNumbers({0});
    window->tableView()->setClickedCell(2, 8); // ssh, Remote Address
    EXPECT_EQ(window->clickedItem(), ssh);

    window->copyCellContent();
    EXPECT_EQ(QGuiApplication::clipboard()->text(), u"10.0.0.2"_s);
    EXPECT_EQ(window->selectedItems(), LsofItemList{firefox}) << "the selection is left alone";

    searchItem(1)->trigger();
    searchItem(0)->trigger();
    ASSERT_EQ(opened.size(), 2);
    EXPECT_EQ(QUrlQuery(opened.at(0)).queryItemValue(u"q"_s), u"10.0.0.2"_s);
    EXPECT_EQ(QUrlQuery(opened.at(1)).queryItemValue(u"q"_s), u"ssh"_s);
}

TEST_F(RowActionsTest, WebSearchForARemotePortSearchesForTheWordPortAndTheNumber)
{
    window->tableView()->setClickedCell(0, 0);
    searchItem(2)->trigger();
    ASSERT_EQ(opened.size(), 1);
    const QString url = opened.first().toString(QUrl::FullyEncoded);
    EXPECT_TRUE(url.startsWith(u"https://"_s));
    EXPECT_TRUE(url.endsWith(u"/search?sourceid=corvina&ie=UTF-8&q=port%20443"_s))
        << url.toStdString();
    // Signs that would end the query value are escaped too.
    EXPECT_TRUE(DesktopActions::webSearchUrl(u"a&b=c #d"_s)
                    .toString(QUrl::FullyEncoded)
                    .endsWith(u"q=a%26b%3Dc%20%23d"_s));
}

TEST_F(RowActionsTest, CommandsWithoutAClickedRowDoNothing)
{
    for (int row : {-1, 3, 100}) {
        window->tableView()->setClickedCell(row, 0);
        EXPECT_EQ(window->clickedItem(), nullptr);
        for (int tag = 0; tag < 4; ++tag)
            searchItem(tag)->trigger();
        window->showRemoteIPInformation();
        window->terminateSelectedApp();
        window->bringToFront();
        window->showInFinder();
    }
    EXPECT_TRUE(opened.isEmpty());
    EXPECT_TRUE(errors.isEmpty());
    EXPECT_EQ(CVShowIPInfoController::sharedController(), nullptr);
}

TEST_F(RowActionsTest, TerminateAsksFirstAndCancelLeavesTheProcessRunning)
{
    QProcess sleeper;
    sleeper.start(u"sleep"_s, {u"30"_s});
    ASSERT_TRUE(sleeper.waitForStarted());
    const LsofItemPtr victim =
        item(u"sleep"_s, QString::number(sleeper.processId()), u"TCP"_s, u"10.0.0.3"_s, u"80"_s);
    window->reloadTableViewData();
    source.deliver({victim});

    QStringList asked;
    bool answer = false;
    window->setConfirmTerminateHandler([&](const QString& name) {
        asked.append(name);
        return answer;
    });
    window->tableView()->setClickedCell(0, 0);
    window->terminateSelectedApp();
    EXPECT_EQ(asked, QStringList{u"sleep"_s});
    EXPECT_FALSE(sleeper.waitForFinished(300));

    answer = true;
    window->terminateSelectedApp();
    ASSERT_TRUE(sleeper.waitForFinished(5000));
    EXPECT_EQ(sleeper.exitStatus(), QProcess::CrashExit);
    EXPECT_TRUE(errors.isEmpty());

    // Gone by now: the user is told, nothing else happens.
    window->terminateSelectedApp();
    ASSERT_EQ(errors.size(), 1);
    EXPECT_TRUE(errors.first().contains(u"no longer running"_s));
}

TEST_F(RowActionsTest, IPInformationWindowIsReusedAndRecreatedAfterClosing)
{
    window->tableView()->setClickedCell(0, 0);
    window->showRemoteIPInformation();
    CVShowIPInfoController* first = CVShowIPInfoController::sharedController();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->windowTitle(), u"IP Information: 93.184.216.34"_s);

    window->tableView()->setClickedCell(2, 0);
    window->showRemoteIPInformation();
    EXPECT_EQ(CVShowIPInfoController::sharedController(), first);
    EXPECT_EQ(first->windowTitle(), u"IP Information: 10.0.0.2"_s);
    EXPECT_TRUE(first->currentUrl().toString().endsWith(u"/?IP=10.0.0.2"_s));
    EXPECT_EQ(QApplication::topLevelWidgets().count(first), 1);

    first->close();
    EXPECT_EQ(CVShowIPInfoController::sharedController(), nullptr);
    window->showRemoteIPInformation();
    CVShowIPInfoController* second = CVShowIPInfoController::sharedController();
    ASSERT_NE(second, nullptr);
    EXPECT_TRUE(second->isVisible());
    second->close();
}

TEST_F(RowActionsTest, ExcludeFromNotificationsStaysOutOfTheMenu)
{
    ASSERT_NE(window->excludeFromNotificationsAction(), nullptr);
    EXPECT_FALSE(window->excludeFromNotificationsAction()->isVisible());
}

TEST_F(RowActionsTest, FindFocusesTheSearchField)
{
    window->show();
    QApplication::setActiveWindow(window.get());
    window->tableView()->setFocus();
    ASSERT_FALSE(window->searchField()->hasFocus());
    window->searchField()->setText(u"ssh"_s);
    window->performFindPanelAction();
    EXPECT_TRUE(window->searchField()->hasFocus());
    EXPECT_EQ(window->searchField()->selectedText(), u"ssh"_s);
}

TEST_F(RowActionsTest, KeyboardReachesFindCopyAndRefresh)
{
    window->show();
    QApplication::setActiveWindow(window.get());
    window->tableView()->setFocus();
    window->tableView()->selectRowNumbers({2});
    QClipboard* clipboard = QGuiApplication::clipboard();
    clipboard->clear();
    QTest::keyClick(window->tableView(), Qt::Key_C, Qt::ControlModifier);
    EXPECT_TRUE(clipboard->text().startsWith(u"ssh\t2020"_s)) << clipboard->text().toStdString();

    // Delete leaves the rows alone.
    QTest::keyClick(window->tableView(), Qt::Key_Delete);
    EXPECT_EQ(window->items().size(), 3);

    const int requests = source.requests();
    QTest::keyClick(window->tableView(), Qt::Key_R, Qt::ControlModifier);
    EXPECT_EQ(source.requests(), requests + 1);

    QTest::keyClick(window->tableView(), Qt::Key_F, Qt::ControlModifier);
    EXPECT_TRUE(window->searchField()->hasFocus());
}

TEST_F(RowActionsTest, BringToFrontExplainsWhyItCannotWorkWithoutX11)
{
    // The tests run offscreen: no X11 connection to raise windows through.
    ASSERT_FALSE(DesktopActions::bringToFrontUnavailableReason().isEmpty());
    window->tableView()->setClickedCell(1, 0);
    Q_EMIT window->tableView()->contextMenuWanted(QPoint(10, 10));
    QAction* action = window->bringToFrontAction();
    EXPECT_FALSE(action->isEnabled());
    EXPECT_EQ(action->toolTip(), DesktopActions::bringToFrontUnavailableReason());
    window->tableContextMenu()->hide();

    window->bringToFront();
    ASSERT_EQ(errors.size(), 1);
    EXPECT_EQ(errors.first(), DesktopActions::bringToFrontUnavailableReason());
}

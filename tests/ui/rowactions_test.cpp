#include "windowtestsupport.h"

#include "ui/app/cvshowipinfocontroller.h"
#include "ui/window/desktopactions.h"

#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>
#include <QUrlQuery>

namespace {

class RowActionsTest : public WindowTest {
protected:
    void SetUp() override
    {
        DesktopActions::setUrlOpener([this](const QUrl& url) {
            opened.append(url);
            return browserStarts;
        });
        window = std::make_unique<CVWindowController>(source, *settings.prefs);
        // The offscreen screen is 800 pixels wide; the toolbar's search field needs more.
        window->resize(1280, 700);
        window->setErrorHandler([this](const QString& message) { errors.append(message); });
        source.deliver({firefox, dns, ssh});
    }
    void TearDown() override { DesktopActions::setUrlOpener({}); }

    void hideColumn(const QString& title)
    {
        window->tableHeaderMenu()->tableHeaderViewContextMenuSelected(
            window->tableHeaderMenu()->itemForTitle(title));
    }
    QAction* searchItem(int tag)
    {
        for (QAction* action : window->tableContextMenu()->actions()) {
            for (QAction* entry : action->menu() ? action->menu()->actions() : QList<QAction*>()) {
                if (entry->data().toInt() == tag)
                    return entry;
            }
        }
        return nullptr;
    }
    QAction* menuItem(const QString& text)
    {
        for (QAction* action : window->tableContextMenu()->actions()) {
            if (action->text() == text)
                return action;
        }
        return nullptr;
    }
    // A process tree of our own in which process 4242 started at `startTime`.
    void writeStat(const QTemporaryDir& proc, const char* startTime)
    {
        QDir(proc.path()).mkpath(u"4242"_s);
        QFile stat(proc.filePath(u"4242/stat"_s));
        ASSERT_TRUE(stat.open(QIODevice::WriteOnly | QIODevice::Truncate));
        stat.write("4242 (py (x) 3) S 1 4242 4242 0 -1 4194560 1 0 0 0 0 0 0 0 20 0 1 0 ");
        stat.write(startTime);
        stat.write(" 1000 100 18446744073709551615\n");
    }

    std::unique_ptr<CVWindowController> window;
    LsofItemPtr firefox = peer(u"Firefox"_s, u"101"_s, u"93.184.216.34"_s, u"443"_s);
    LsofItemPtr dns = peer(u"systemd-resolved"_s, u"55"_s, u"1.1.1.1"_s, u"53"_s, u"UDP"_s);
    LsofItemPtr ssh = peer(u"ssh"_s, u"2020"_s, u"10.0.0.2"_s, u"22"_s);
    QList<QUrl> opened;
    bool browserStarts = true;
    QStringList errors;
};

} // namespace

TEST_F(RowActionsTest, CopiesSelectedRowsOfShownColumnsAsTabSeparatedLines)
{
    for (QAction* column : window->tableHeaderMenu()->actions()) {
        const QString title = column->text();
        if (column->isChecked() && title != u"Application"_s && title != u"PID"_s &&
            title != u"Remote Port"_s)
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
        peer(u"sleep"_s, QString::number(sleeper.processId()), u"10.0.0.3"_s, u"80"_s);
    refresh(*window, {victim});

    QStringList asked;
    ProcessIdentity shown;
    bool answer = false;
    window->setConfirmTerminateHandler([&](const QString& name, const ProcessIdentity& process) {
        asked.append(name);
        shown = process;
        return answer;
    });
    window->tableView()->setClickedCell(0, 0);
    window->terminateSelectedApp();
    EXPECT_EQ(asked, QStringList{u"sleep"_s});
    EXPECT_EQ(shown.pid, sleeper.processId());
    EXPECT_TRUE(shown.executablePath.endsWith(u"/sleep"_s)) << shown.executablePath.toStdString();
    EXPECT_FALSE(sleeper.waitForFinished(300));

    answer = true;
    window->terminateSelectedApp();
    ASSERT_TRUE(sleeper.waitForFinished(5000));
    EXPECT_EQ(sleeper.exitStatus(), QProcess::CrashExit);
    EXPECT_TRUE(errors.isEmpty());
    EXPECT_TRUE(window->statusBar()->currentMessage().contains(u"process %1"_s.arg(shown.pid)));

    // Gone by now: the user is told, nothing else happens.
    window->terminateSelectedApp();
    ASSERT_EQ(errors.size(), 1);
    EXPECT_TRUE(errors.first().contains(u"no longer running"_s));
}

TEST_F(RowActionsTest, TheMenuActsOnTheConnectionClickedWhateverTheRefreshDid)
{
    QProcess sleeper;
    sleeper.start(u"sleep"_s, {u"30"_s});
    ASSERT_TRUE(sleeper.waitForStarted());
    const qint64 pid = sleeper.processId();
    const LsofItemPtr python = peer(u"python3"_s, QString::number(pid), u"10.9.9.9"_s, u"8080"_s);
    refresh(*window, {firefox, python, dns, ssh});
    window->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));

    // A right click on a row outside the selection selects it, and the menu opens for it.
    ConnectionTableView* table = window->tableView();
    table->selectRowNumbers({0});
    const QPoint cell =
        table->visualRect(table->model()->index(1, columnOf(LsofItem::Key::remoteAddress)))
            .center();
    QTest::mousePress(table->viewport(), Qt::RightButton, {}, cell);
    QContextMenuEvent menuEvent(QContextMenuEvent::Mouse, cell,
                                table->viewport()->mapToGlobal(cell));
    QCoreApplication::sendEvent(table->viewport(), &menuEvent);
    EXPECT_TRUE(window->tableContextMenu()->isVisible());
    EXPECT_EQ(window->selectedItems(), LsofItemList{python});

    // While it is open a refresh reorders the rows and drops the clicked connection.
    refresh(*window, {ssh, dns, firefox});
    ASSERT_EQ(window->items().indexOf(python), -1);

    menuItem(u"Copy Cell"_s)->trigger();
    EXPECT_EQ(QGuiApplication::clipboard()->text(), u"10.9.9.9"_s);

    QList<qint64> signalled;
    window->rowCommands()->setTerminateSender([&](qint64 target, const QString&) {
        signalled.append(target);
        return QString();
    });
    window->setConfirmTerminateHandler([](const QString&, const ProcessIdentity&) { return true; });
    menuItem(u"Terminate Application…"_s)->trigger();
    EXPECT_EQ(signalled, QList<qint64>{pid});
    EXPECT_TRUE(errors.isEmpty());

    // The process has ended since: nothing is sent, and the user is told.
    sleeper.kill();
    ASSERT_TRUE(sleeper.waitForFinished(5000));
    menuItem(u"Terminate Application…"_s)->trigger();
    EXPECT_EQ(signalled.size(), 1);
    ASSERT_EQ(errors.size(), 1);
    EXPECT_TRUE(errors.first().contains(u"no longer running"_s)) << errors.first().toStdString();
    window->tableContextMenu()->hide();
}

TEST_F(RowActionsTest, TerminateSendsNothingToAProcessThatReusedTheNumber)
{
    // The clicked process, then another with the same number.
    QTemporaryDir proc;
    writeStat(proc, "777");
    window->rowCommands()->setProcRoot(proc.path());
    refresh(*window, {peer(u"python3"_s, u"4242"_s, u"10.0.0.9"_s, u"443"_s)});
    window->tableView()->setClickedCell(0, 0);
    ASSERT_EQ(window->rowCommands()->target().process.startTime, 777u);

    QList<qint64> signalled;
    window->rowCommands()->setTerminateSender([&](qint64 target, const QString&) {
        signalled.append(target);
        return QString();
    });
    window->setConfirmTerminateHandler([&](const QString&, const ProcessIdentity&) {
        writeStat(proc, "900"); // it ends and the number is handed out again meanwhile
        return true;
    });
    window->terminateSelectedApp();
    EXPECT_TRUE(signalled.isEmpty());
    ASSERT_EQ(errors.size(), 1);
    EXPECT_TRUE(errors.first().contains(u"another process"_s)) << errors.first().toStdString();
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
    // Big enough to read the address and its link; Escape closes it.
    EXPECT_GE(second->width(), 480);
    EXPECT_GE(second->height(), 160);
    QTest::keyClick(second, Qt::Key_Escape);
    EXPECT_FALSE(second->isVisible());
    EXPECT_EQ(CVShowIPInfoController::sharedController(), nullptr);
}

TEST_F(RowActionsTest, ExcludeFromNotificationsStaysOutOfTheMenu)
{
    ASSERT_NE(window->excludeFromNotificationsAction(), nullptr);
    EXPECT_FALSE(window->excludeFromNotificationsAction()->isVisible());
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

    // Find focuses the search field and selects what it holds.
    window->searchField()->setText(u"ssh"_s);
    ASSERT_FALSE(window->searchField()->hasFocus());
    QTest::keyClick(window->tableView(), Qt::Key_F, Qt::ControlModifier);
    EXPECT_TRUE(window->searchField()->hasFocus());
    EXPECT_EQ(window->searchField()->selectedText(), u"ssh"_s);
}

TEST_F(RowActionsTest, BringToFrontExplainsWhyItCannotWorkWithoutX11)
{
    // The tests run offscreen: no X11 connection to raise windows through.
    ASSERT_FALSE(DesktopActions::bringToFrontUnavailableReason().isEmpty());
    openMenuOn(*window, 1);
    QAction* action = window->bringToFrontAction();
    EXPECT_FALSE(action->isEnabled());
    EXPECT_EQ(action->toolTip(), DesktopActions::bringToFrontUnavailableReason());

    window->bringToFront();
    ASSERT_EQ(errors.size(), 1);
    EXPECT_EQ(errors.first(), DesktopActions::bringToFrontUnavailableReason());
}

TEST_F(RowActionsTest, PeerCommandsNeedARemoteAddressAndFailedOpeningsAreSaid)
{
    refresh(*window, {peer(u"nginx"_s, u"300"_s, QString(), QString()), ssh});
    openMenuOn(*window, 0);
    EXPECT_FALSE(menuItem(u"IP Information"_s)->isEnabled());
    EXPECT_FALSE(searchItem(1)->isEnabled());
    EXPECT_TRUE(searchItem(0)->isEnabled());

    openMenuOn(*window, 1);
    EXPECT_TRUE(menuItem(u"IP Information"_s)->isEnabled());

    browserStarts = false;
    searchItem(0)->trigger();
    EXPECT_TRUE(window->statusBar()->currentMessage().startsWith(u"No web browser"_s))
        << window->statusBar()->currentMessage().toStdString();
}

TEST_F(RowActionsTest, ShiftF10AndTheMenuKeyOpenTheCurrentRowsMenu)
{
    window->show();
    QApplication::setActiveWindow(window.get());
    ConnectionTableView* table = window->tableView();
    table->setFocus();
    table->setCurrentIndex(table->model()->index(2, 0));
    for (const auto& [key, modifiers] :
         {std::pair{Qt::Key_F10, Qt::KeyboardModifiers(Qt::ShiftModifier)},
          std::pair{Qt::Key_Menu, Qt::KeyboardModifiers()}}) {
        window->tableView()->setClickedCell(-1, -1);
        QTest::keyClick(table, key, modifiers);
        EXPECT_TRUE(window->tableContextMenu()->isVisible());
        EXPECT_EQ(window->clickedItem(), ssh);
        window->tableContextMenu()->hide();
    }
}

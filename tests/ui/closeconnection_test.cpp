#include "windowtestsupport.h"

#include "support/records.h"

#include "ui/window/applicationtreemodel.h"
#include "ui/window/groupedview.h"

#include <QTest>

#include <thread>

using SocketDestroyer::Outcome;

namespace {

// A row of the built-in collector, which knows the kernel's cookie of the socket.
LsofItemPtr native(const QString& app, const QString& pid, const QString& localPort,
                   std::optional<quint64> cookie)
{
    SocketRecord record = socketRecord(u"%1|%2|ada|7u|IPv4|-|-|TCP|10.0.0.2|%3|93.184.216.34|443|"
                                       u"ESTABLISHED"_s.arg(app, pid, localPort));
    record.cookie = cookie;
    return LsofItem::fromRecord(record);
}

class CloseConnectionTest : public WindowTest {
protected:
    void SetUp() override
    {
        window = std::make_unique<CVWindowController>(source, *settings.prefs);
        window->setErrorHandler([this](const QString& message) { errors.append(message); });
        window->setConfirmCloseHandler([this](const QString& question) {
            questions.append(question);
            return confirm;
        });
        window->rowCommands()->setCloseSender(
            [this](const SocketIdentity& socket, ConnectionCloser::Reply reply) {
                sent.append(socket);
                if (answerFromAnotherThread)
                    std::thread([reply, answer = answer] { reply(answer); }).join();
                else
                    reply(answer);
            });
        source.deliver({firefox, curl, lsofRow});
    }

    // The menu as it opens on a row: which commands it offers, and why not.
    QAction* menuFor(int row)
    {
        openMenuOn(*window, row);
        return window->rowCommands()->closeConnectionAction();
    }

    std::unique_ptr<CVWindowController> window;
    LsofItemPtr firefox = native(u"firefox"_s, u"101"_s, u"50999"_s, 77);
    LsofItemPtr curl = native(u"curl"_s, u"4242"_s, u"51000"_s, 88);
    LsofItemPtr lsofRow = native(u"wget"_s, u"555"_s, u"51001"_s, std::nullopt);
    QStringList errors;
    QStringList questions;
    bool confirm = true;
    QList<SocketIdentity> sent;
    std::optional<SocketDestroyer::Result> answer = SocketDestroyer::Result{Outcome::Closed, {}};
    bool answerFromAnotherThread = false;
};

} // namespace

TEST_F(CloseConnectionTest, ClosesTheClickedConnectionAndSaysWhatTheKernelAnswered)
{
    ASSERT_TRUE(menuFor(1)->isEnabled()) << menuFor(1)->toolTip().toStdString();

    // A refresh reorders the rows while the menu is open: the clicked connection is closed.
    refresh(*window, {lsofRow, firefox, curl});
    const int requests = source.requests();
    window->rowCommands()->closeConnectionAction()->trigger();
    ASSERT_EQ(sent.size(), 1);
    EXPECT_EQ(sent.first().cookie, 88u);
    EXPECT_EQ(sent.first().localPort, 51000);
    EXPECT_EQ(sent.first().remotePort, 443);
    ASSERT_EQ(questions.size(), 1);
    EXPECT_EQ(questions.first(),
              u"Close the connection from 10.0.0.2:51000 to 93.184.216.34:443 of curl (PID 4242)? "
              "The program keeps running; it sees the connection reset."_s);
    EXPECT_TRUE(window->statusBar()->currentMessage().startsWith(
        u"Closed the connection from 10.0.0.2:51000 to 93.184.216.34:443"_s));
    EXPECT_EQ(source.requests(), requests + 1) << "a refresh shows it closed";

    // Each answer is said; the daemon's comes on its own thread.
    source.deliver({lsofRow, firefox, curl});
    answerFromAnotherThread = true;
    const std::pair<std::optional<SocketDestroyer::Result>, QString> answers[] = {
        {SocketDestroyer::Result{Outcome::NotSupported, {}}, u"this kernel cannot close"_s},
        {SocketDestroyer::Result{Outcome::NotPermitted, "process 9 holds the connection"},
         u"Not permitted: process 9 holds the connection"_s},
        {SocketDestroyer::Result{Outcome::AlreadyGone, {}}, u"Already gone"_s},
        {std::nullopt, u"needs root or the Corvina helper"_s},
    };
    for (const auto& [outcome, text] : answers) {
        answer = outcome;
        window->statusBar()->clearMessage();
        window->closeConnection();
        QTRY_VERIFY_WITH_TIMEOUT(window->statusBar()->currentMessage().contains(text), 2000);
    }
    EXPECT_EQ(source.requests(), requests + 1) << "nothing closed, nothing to refresh";

    confirm = false;
    window->closeConnection();
    EXPECT_EQ(sent.size(), 5) << "cancelled: nothing is sent";
    EXPECT_TRUE(errors.isEmpty());
}

TEST_F(CloseConnectionTest, RowsThatCannotBeClosedSayWhy)
{
    // lsof names no kernel socket: closing by the endpoints alone could hit a later connection.
    QAction* action = menuFor(2);
    EXPECT_FALSE(action->isEnabled());
    EXPECT_TRUE(action->toolTip().contains(u"lsof"_s)) << action->toolTip().toStdString();
    window->closeConnection();
    EXPECT_TRUE(sent.isEmpty());
    ASSERT_EQ(errors.size(), 1);
    EXPECT_EQ(errors.first(), action->toolTip());

    refresh(*window, {makeItem({u"dnsmasq"_s, u"12"_s, u"UDP"_s})});
    EXPECT_TRUE(menuFor(0)->toolTip().contains(u"Only a TCP connection"_s));

    // In the grouped view a connection row can be closed, an application row cannot.
    refresh(*window, {firefox, curl});
    window->setGroupedByApplication(true);
    RowCommands* rows = window->rowCommands();
    const ApplicationTreeModel* tree = window->groupedView()->model();
    const QModelIndex application = tree->index(1, 0);
    rows->captureGroupedRow(application);
    EXPECT_FALSE(rows->closeUnavailableReason().isEmpty());
    rows->captureGroupedRow(tree->index(0, 0, application));
    EXPECT_EQ(rows->closeUnavailableReason(), QString());
    rows->closeConnection();
    ASSERT_EQ(sent.size(), 1);
    EXPECT_EQ(sent.first().cookie, 88u);
}

#include "windowtestsupport.h"

#include "ui/app/connecttohostdialog.h"
#include "ui/app/cvappdelegate.h"

#include <QComboBox>
#include <QCoreApplication>
#include <QLabel>

namespace {

class HostWindowsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        delegate.setHostSourceFactory([this](const HostSpec& host) {
            auto source = std::make_unique<FakeSnapshotSource>();
            sources[host.text()] = source.get();
            return source;
        });
    }

    HostWindows& hosts() { return delegate.hostWindows(); }

    // A socket of this very process, so that looking its process up here would find one.
    static LsofItemPtr remoteRow(const QString& command, const QString& address)
    {
        return peer(command, QString::number(QCoreApplication::applicationPid()), address,
                    u"5432"_s);
    }

    TestSettings settings;
    FakeSnapshotSource source;
    CVAppDelegate delegate{source, *settings.prefs};
    std::map<QString, FakeSnapshotSource*> sources;
};

} // namespace

TEST_F(HostWindowsTest, OneWindowPerHostTitledByItClosedAloneAndTheHostsRemembered)
{
    CVWindowController* db1 = hosts().connectToHost(u"admin@db1"_s);
    ASSERT_NE(db1, nullptr);
    EXPECT_EQ(db1->windowTitle(), u"Corvina — admin@db1"_s);
    EXPECT_TRUE(db1->isVisible());
    EXPECT_EQ(hosts().connectToHost(u" admin@db1 "_s), db1) << "raised, not opened twice";
    EXPECT_EQ(sources.size(), 1u);
    CVWindowController* db2 = hosts().connectToHost(u"db2:2222"_s);
    ASSERT_NE(db2, nullptr);
    EXPECT_NE(db2, db1);

    QString problem;
    EXPECT_EQ(hosts().connectToHost(u"-oProxyCommand=evil"_s, &problem), nullptr);
    EXPECT_FALSE(problem.isEmpty());
    EXPECT_EQ(hosts().windows().size(), 2);

    // Closing a host window ends that watch only.
    delegate.showMainWindow();
    db2->close();
    EXPECT_EQ(hosts().windowFor(u"db2:2222"_s), nullptr);
    EXPECT_TRUE(db1->isVisible());
    EXPECT_TRUE(delegate.window().isVisible());

    // Remembered, most recent first, and offered by the dialog, which checks what is typed.
    EXPECT_EQ(hosts().rememberedHosts(), (QStringList{u"db2:2222"_s, u"admin@db1"_s}));
    settings.defaults->synchronize();
    UserDefaults reread(settings.dir.filePath(u"Corvina.conf"_s)); // what a restart reads
    EXPECT_EQ(reread.objectForKey(u"MainWindow/Hosts"_s).toStringList(),
              (QStringList{u"db2:2222"_s, u"admin@db1"_s}));
    ConnectToHostDialog dialog(hosts().rememberedHosts());
    EXPECT_EQ(dialog.hostField()->count(), 2);
    dialog.hostField()->setEditText(u"root@"_s);
    dialog.accept();
    EXPECT_EQ(dialog.result(), QDialog::Rejected);
    EXPECT_TRUE(dialog.problemLabel()->isVisibleTo(&dialog));
    EXPECT_FALSE(dialog.problemLabel()->text().isEmpty());
    dialog.hostField()->setEditText(u"db3"_s);
    dialog.accept();
    EXPECT_EQ(dialog.result(), QDialog::Accepted);
}

TEST_F(HostWindowsTest, RemoteRowsOfferNoLocalCommandsAndAFailedPassFadesTheLastRows)
{
    delegate.window().searchField()->setText(u"firefox"_s); // typed for this machine
    CVWindowController* window = hosts().connectToHost(u"db1"_s);
    FakeSnapshotSource* db1 = sources.at(u"db1"_s);
    const LsofItemPtr postgres = remoteRow(u"postgres"_s, u"10.1.1.1"_s);
    db1->deliver({postgres, remoteRow(u"sshd"_s, u"10.1.1.2"_s)});

    // This machine's name, icon and path of the process with that id are not the row's.
    const ConnectionTableModel* model = window->tableModel();
    const int application = ConnectionTableModel::applicationColumn();
    ASSERT_EQ(window->items().size(), 2);
    EXPECT_EQ(model->index(0, application).data().toString(), u"postgres"_s);
    EXPECT_FALSE(model->index(0, application).data(Qt::DecorationRole).isValid());
    EXPECT_EQ(model->index(0, columnOf(LsofItem::Key::processPath)).data().toString(), u""_s);

    openMenuOn(*window, 0);
    RowCommands* rows = window->rowCommands();
    for (QAction* local : {rows->showInFileManagerAction(), rows->bringToFrontAction(),
                           rows->terminateAction(), rows->closeConnectionAction()}) {
        EXPECT_FALSE(local->isEnabled()) << local->text().toStdString();
        EXPECT_EQ(local->toolTip(), u"A process on db1, not on this machine."_s);
    }
    EXPECT_TRUE(rows->ipInformationAction()->isEnabled());
    EXPECT_TRUE(rows->copyCellAction()->isEnabled());
    QStringList errors;
    window->setErrorHandler([&](const QString& message) { errors.append(message); });
    rows->setTerminateSender([](qint64, const QString&) {
        ADD_FAILURE() << "a signal sent to a process of this machine";
        return QString();
    });
    window->setConfirmTerminateHandler([](const QString&, const ProcessIdentity&) { return true; });
    window->terminateSelectedApp();
    EXPECT_EQ(errors.size(), 1);

    // A failed pass keeps the rows, faded, and the next ticks wait for the retry.
    const QColor text = model->index(0, 1).data(Qt::ForegroundRole).value<QColor>();
    window->reloadTableViewData();
    db1->deliver({}, u"ssh: connect to host db1 port 22: Connection refused"_s);
    EXPECT_EQ(window->items().size(), 2);
    EXPECT_TRUE(window->isStale());
    EXPECT_NE(model->index(0, 1).data(Qt::ForegroundRole).value<QColor>(), text);
    EXPECT_TRUE(statusSays(*window, u"Connection refused"_s));
    EXPECT_EQ(window->retryDelay(), std::chrono::seconds(1));
    const int requests = db1->requests();
    window->autoRefreshTick();
    EXPECT_EQ(db1->requests(), requests) << "a tick within the wait asks nobody";

    // A passing message hides the problem, also when a pass ends meanwhile, and gives it back.
    window->showStatusMessage(u"Copied."_s);
    window->reloadTableViewData();
    db1->deliver({}, u"ssh: connect to host db1 port 22: Connection refused"_s);
    EXPECT_FALSE(statusSays(*window, u"Connection refused"_s));
    window->statusBar()->clearMessage();
    EXPECT_TRUE(statusSays(*window, u"Connection refused"_s));

    // Refresh asks at once; a good pass brings the colours back and ends the wait.
    EXPECT_EQ(window->retryDelay(), std::chrono::seconds(2));
    window->reloadTableViewData();
    db1->deliver({postgres});
    EXPECT_FALSE(window->isStale());
    EXPECT_EQ(window->retryDelay(), std::chrono::seconds(0));
    EXPECT_EQ(model->index(0, 1).data(Qt::ForegroundRole).value<QColor>(), text);
    EXPECT_FALSE(statusSays(*window, u"Connection refused"_s));
    EXPECT_EQ(window->items(), LsofItemList{postgres});
}

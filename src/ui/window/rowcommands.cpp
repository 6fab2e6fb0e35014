#include "rowcommands.h"

#include "applicationtreemodel.h"
#include "applicationtreeview.h"
#include "collector/socketidentityof.h"
#include "connectiontablemodel.h"
#include "connectiontableview.h"
#include "desktopactions.h"
#include "groupedview.h"
#include "prefs/cvprefshelper.h"
#include "tablecolumnsmenu.h"
#include "ui/app/cvshowipinfocontroller.h"

#include <QClipboard>
#include <QGridLayout>
#include <QGuiApplication>
#include <QMenu>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QThread>

#include <algorithm>

using namespace Qt::StringLiterals;

RowCommands::RowCommands(ConnectionTableView& table, ConnectionTableModel& model,
                         TableColumnsMenu& columns, CVPrefsHelper& prefs, QWidget* dialogParent)
    : QObject(dialogParent), m_table(table), m_model(model), m_columns(columns), m_prefs(prefs),
      m_dialogParent(dialogParent)
{
    m_confirmTerminate = [this](const QString& appName, const ProcessIdentity& process) {
        return confirmTerminateWithDialog(m_dialogParent, appName, process);
    };
    m_sendTerminate = &DesktopActions::terminate;
    m_confirmClose = [this](const QString& question) {
        return confirmCloseWithDialog(m_dialogParent, question);
    };
    m_sendClose = &ConnectionCloser::close;
    m_showError = [this](const QString& message) {
        QMessageBox::warning(m_dialogParent, tr("Corvina"), message);
    };
    buildMenu();
    connect(&m_table, &ConnectionTableView::cellClicked, this, &RowCommands::capture);
    connect(&m_table, &ConnectionTableView::contextMenuWanted, this, &RowCommands::openMenu);
}

void RowCommands::buildMenu()
{
    m_menu = new QMenu(m_dialogParent);
    m_menu->addAction(QIcon::fromTheme(u"edit-copy"_s), tr("Copy"), this,
                      &RowCommands::copySelectedLines);
    m_copyCell = m_menu->addAction(tr("Copy Cell"), this, &RowCommands::copyCellContent);
    m_menu->addSeparator();
    m_showInFileManager =
        m_menu->addAction(QIcon::fromTheme(u"system-file-manager"_s, QIcon::fromTheme(u"folder"_s)),
                          tr("Show in File Manager"), this, &RowCommands::showInFinder);
    m_bringToFront = m_menu->addAction(tr("Bring to Front"), this, &RowCommands::bringToFront);
    m_terminate =
        m_menu->addAction(QIcon::fromTheme(u"process-stop"_s), tr("Terminate Application…"), this,
                          &RowCommands::terminateSelectedApp);
    m_closeConnection = m_menu->addAction(
        QIcon::fromTheme(u"network-wired-disconnected"_s, QIcon::fromTheme(u"network-offline"_s)),
        tr("Close Connection…"), this, &RowCommands::closeConnection);
    m_menu->addSeparator();
    m_ipInformation = m_menu->addAction(QIcon::fromTheme(u"network-server"_s), tr("IP Information"),
                                        this, &RowCommands::showRemoteIPInformation);
    QMenu* search = m_menu->addMenu(QIcon::fromTheme(u"web-browser"_s), tr("Search the Web For"));
    const QStringList searchTitles{tr("Application"), tr("Remote Address"), tr("Remote Port"),
                                   tr("Remote Host")};
    for (int tag = 0; tag < searchTitles.size(); ++tag) {
        QAction* item = search->addAction(searchTitles.at(tag));
        item->setData(tag);
        connect(item, &QAction::triggered, this, [this, item] { searchInGoogle(item); });
        if (tag > 0)
            m_remoteSearches.append(item);
    }
    m_menu->addSeparator();
    m_exclude = m_menu->addAction(tr("Exclude from Notifications"), this,
                                  &RowCommands::excludeForGrowlNotification);
}

void RowCommands::capture(int row, int column)
{
    const LsofItemList& rows = m_model.items();
    if (row < 0 || row >= rows.size()) {
        m_target = {};
        return;
    }
    m_target = {rows.at(row), column, {}, std::nullopt};
    if (m_host.isEmpty())
        m_target.process = ProcessIdentity::read(m_target.item->PID(), m_procRoot);
}

void RowCommands::setGroupedView(GroupedView* grouped)
{
    m_groupedView = grouped;
    connect(grouped->view(), &ApplicationTreeView::cellClicked, this,
            &RowCommands::captureGroupedRow);
    connect(grouped->view(), &ApplicationTreeView::contextMenuWanted, this, &RowCommands::openMenu);
}

void RowCommands::captureGroupedRow(const QModelIndex& index)
{
    const ApplicationTreeModel* model = m_groupedView ? m_groupedView->model() : nullptr;
    const auto* app = model ? model->applicationAt(index) : nullptr;
    if (!app) {
        m_target = {};
        return;
    }
    if (const LsofItemPtr item = model->itemAt(index)) {
        m_target = {item, index.column(), {}, {}};
        if (m_host.isEmpty())
            m_target.process = ProcessIdentity::read(item->PID(), m_procRoot);
        return;
    }
    m_target = {app->connections.constFirst(), index.column(), {}, std::nullopt};
    m_target.application =
        Target::Application{app->name, app->path, app->pids, index.data().toString()};
    if (app->pids.size() == 1 && m_host.isEmpty())
        m_target.process = ProcessIdentity::read(app->pids.constFirst(), m_procRoot);
}

QString RowCommands::localUnavailableReason() const
{
    if (m_host.isEmpty())
        return {};
    return tr("A process on %1, not on this machine.").arg(m_host);
}

QString RowCommands::terminateUnavailableReason() const
{
    if (const QString remote = localUnavailableReason(); !remote.isEmpty())
        return remote;
    if (!m_target.application || m_target.application->pids.size() < 2)
        return {};
    return tr("\"%1\" runs %2 processes: expand its row and terminate one of them from its "
              "connections.")
        .arg(m_target.application->name)
        .arg(m_target.application->pids.size());
}

void RowCommands::openMenu(const QPoint& globalPos)
{
    updateMenu();
    m_menu->popup(globalPos);
}

void RowCommands::updateMenu()
{
    const QString remote = localUnavailableReason();
    QString reason = remote;
    if (reason.isEmpty())
        reason = DesktopActions::bringToFrontUnavailableReason();
    bool reasons = false;
    for (const auto& [action, why] :
         {std::pair{m_showInFileManager, remote}, std::pair{m_bringToFront, reason},
          std::pair{m_terminate, terminateUnavailableReason()},
          std::pair{m_closeConnection, closeUnavailableReason()}}) {
        action->setEnabled(why.isEmpty());
        action->setToolTip(why);
        reasons = reasons || !why.isEmpty();
    }
    m_menu->setToolTipsVisible(reasons);
    // Commands about the peer mean nothing for a listening or unconnected socket, nor for an
    // application's many connections.
    const bool hasRemote =
        m_target.item && !m_target.application && !m_target.item->remoteAddress().isEmpty();
    m_ipInformation->setEnabled(hasRemote);
    for (QAction* item : std::as_const(m_remoteSearches))
        item->setEnabled(hasRemote);
}

void RowCommands::copySelectedLines()
{
    const QList<int> columns = m_columns.shownColumns();
    const LsofItemList& rows = m_model.items();
    QStringList lines;
    if (m_grouped && m_groupedView)
        lines = groupedSelectedLines(columns);
    for (int row : m_grouped ? QList<int>() : m_table.selectedRowNumbers()) {
        if (row >= rows.size())
            continue;
        const LsofItem& item = *rows.at(row);
        QStringList fields;
        fields.reserve(columns.size());
        for (int column : columns)
            fields.append(m_model.cellText(item, column));
        lines.append(fields.join(u'\t'));
    }
    QClipboard* clipboard = QGuiApplication::clipboard();
    clipboard->clear();
    clipboard->setText(lines.join(u'\n'));
}

QStringList RowCommands::groupedSelectedLines(const QList<int>& columns) const
{
    QStringList lines;
    for (const QModelIndex& row : m_groupedView->selectedRows()) {
        const LsofItemPtr item = m_groupedView->model()->itemAt(row);
        QStringList fields;
        fields.reserve(columns.size());
        // An application row copies what it shows; a connection row its fields.
        for (int column : columns)
            fields.append(item ? m_model.cellText(*item, column)
                               : row.siblingAtColumn(column).data().toString());
        lines.append(fields.join(u'\t'));
    }
    return lines;
}

void RowCommands::copyCellContent()
{
    // Offered only from a cell's context menu, so a missing cell is a programming error.
    Q_ASSERT(m_target.item && m_target.column >= 0 && m_target.column < m_model.columnCount());
    if (!m_target.item || m_target.column < 0 || m_target.column >= m_model.columnCount())
        return;
    QClipboard* clipboard = QGuiApplication::clipboard();
    clipboard->clear();
    clipboard->setText(m_target.application ? m_target.application->cellText
                                            : m_model.cellText(*m_target.item, m_target.column));
}

void RowCommands::bringToFront()
{
    const LsofItemPtr item = m_target.item;
    if (!item)
        return;
    QString reason = localUnavailableReason();
    if (reason.isEmpty())
        reason = DesktopActions::bringToFrontUnavailableReason();
    if (!reason.isEmpty()) {
        m_showError(reason);
        return;
    }
    const QList<qint64> pids =
        m_target.application ? m_target.application->pids : QList<qint64>{item->PID()};
    if (!std::any_of(pids.cbegin(), pids.cend(), &DesktopActions::bringToFront))
        Q_EMIT statusMessage(
            tr("\"%1\" has no window to bring forward.").arg(item->localizedAppName()));
}

void RowCommands::showInFinder()
{
    if (!m_target.item)
        return;
    if (const QString reason = localUnavailableReason(); !reason.isEmpty()) {
        m_showError(reason);
        return;
    }
    const QString path =
        m_target.application ? m_target.application->path : m_target.item->processPath();
    if (path.isEmpty())
        return;
    if (!DesktopActions::showInFileManager(path))
        Q_EMIT statusMessage(tr("No file manager could show %1.").arg(path));
}

bool RowCommands::confirmTerminateWithDialog(QWidget* parent, const QString& appName,
                                             const ProcessIdentity& process)
{
    const QString title = tr("Terminate Application");
    QMessageBox box(QMessageBox::Question, title, title, QMessageBox::Ok | QMessageBox::Cancel,
                    parent);
    box.setTextFormat(Qt::PlainText);
    const QString processLine =
        process.executablePath.isEmpty()
            ? tr("Process %1 (its executable cannot be read)").arg(process.pid)
            : tr("Process %1: %2").arg(QString::number(process.pid), process.executablePath);
    box.setInformativeText(tr("Terminate application \"%1\"?").arg(appName) + u"\n\n"_s +
                           processLine);
    box.setDefaultButton(QMessageBox::Ok);
    // A message box is as wide as its text; the window manager would cut the title short.
    if (auto* grid = qobject_cast<QGridLayout*>(box.layout())) {
        const int width = std::max(440, box.fontMetrics().horizontalAdvance(title) + 240);
        grid->addItem(new QSpacerItem(width, 0, QSizePolicy::Minimum, QSizePolicy::Fixed),
                      grid->rowCount(), 0, 1, grid->columnCount());
    }
    return box.exec() == QMessageBox::Ok;
}

void RowCommands::terminateSelectedApp()
{
    const Target target = m_target;
    if (!target.item)
        return;
    if (const QString reason = terminateUnavailableReason(); !reason.isEmpty()) {
        m_showError(reason);
        return;
    }
    const QString name = target.item->localizedAppName();
    if (!m_confirmTerminate(name, target.process))
        return;
    // The process the row showed may have ended, and its id gone to another, while the menu
    // and the question were open.
    const ProcessIdentity now = ProcessIdentity::read(target.process.pid, m_procRoot);
    if (!target.process.exists() || !now.exists()) {
        m_showError(tr("\"%1\" (process %2) is no longer running; nothing was sent.")
                        .arg(name)
                        .arg(target.process.pid));
        return;
    }
    if (!now.isSameProcess(target.process)) {
        m_showError(tr("Process %1 is no longer the \"%2\" the row showed: it has ended and its "
                       "number now belongs to another process. Nothing was sent.")
                        .arg(target.process.pid)
                        .arg(name));
        return;
    }
    const QString error = m_sendTerminate(target.process.pid, name);
    if (!error.isEmpty()) {
        m_showError(error);
        return;
    }
    Q_EMIT statusMessage(
        tr("Asked \"%1\" (process %2) to terminate.").arg(name).arg(target.process.pid));
}

QString RowCommands::closeUnavailableReason() const
{
    if (const QString remote = localUnavailableReason(); !remote.isEmpty())
        return remote;
    const LsofItemPtr& item = m_target.item;
    if (!item)
        return tr("No connection was clicked.");
    if (m_target.application)
        return tr("An application row stands for all its connections: expand it and close one "
                  "of them.");
    if (item->protocol() != u"TCP" || item->remoteAddress().isEmpty())
        return tr("Only a TCP connection with a remote side can be closed.");
    if (item->status() == 3)
        return tr("This connection has closed already.");
    // Without the cookie the kernel could close a later connection between the same endpoints.
    if (!item->cookie())
        return tr("lsof does not tell which of the kernel's sockets this row is, so Corvina "
                  "cannot close it safely. Choose the built-in collector in the Preferences to "
                  "close connections.");
    QString why;
    if (!socketIdentityOf(*item, &why))
        return tr("This connection cannot be closed: %1.").arg(why);
    return {};
}

bool RowCommands::confirmCloseWithDialog(QWidget* parent, const QString& question)
{
    const QString title = tr("Close Connection");
    QMessageBox box(QMessageBox::Question, title, title, QMessageBox::Cancel, parent);
    box.setTextFormat(Qt::PlainText);
    box.setInformativeText(question);
    QPushButton* close = box.addButton(tr("Close Connection"), QMessageBox::DestructiveRole);
    box.setDefaultButton(close);
    if (auto* grid = qobject_cast<QGridLayout*>(box.layout()))
        grid->addItem(new QSpacerItem(460, 0, QSizePolicy::Minimum, QSizePolicy::Fixed),
                      grid->rowCount(), 0, 1, grid->columnCount());
    box.exec();
    return box.clickedButton() == close;
}

void RowCommands::closeConnection()
{
    const LsofItemPtr item = m_target.item;
    if (!item)
        return;
    if (const QString reason = closeUnavailableReason(); !reason.isEmpty()) {
        m_showError(reason);
        return;
    }
    QString why;
    const std::optional<SocketIdentity> socket = socketIdentityOf(*item, &why);
    const QString connection = tr("from %1:%2 to %3:%4")
                                   .arg(item->localAddress(), item->localPort(),
                                        item->remoteAddress(), item->remotePort());
    if (!socket || !m_confirmClose(tr("Close the connection %1 of %2 (PID %3)? The program keeps "
                                      "running; it sees the connection reset.")
                                       .arg(connection, item->localizedAppName())
                                       .arg(item->PID())))
        return;
    // The daemon answers on its connection's thread; the answer is shown from this one, if
    // the window is still there.
    QPointer<RowCommands> self(this);
    m_sendClose(*socket, [self, connection](std::optional<SocketDestroyer::Result> result) {
        auto answer = [self, connection, result] {
            if (self)
                self->closeAnswered(result, connection);
        };
        if (QThread::currentThread() == QCoreApplication::instance()->thread())
            answer();
        else
            QMetaObject::invokeMethod(QCoreApplication::instance(), answer, Qt::QueuedConnection);
    });
}

void RowCommands::closeAnswered(const std::optional<SocketDestroyer::Result>& result,
                                const QString& connection)
{
    Q_EMIT statusMessage(ConnectionCloser::describe(result, connection));
    if (result && result->outcome == SocketDestroyer::Outcome::Closed)
        Q_EMIT connectionClosed();
}

void RowCommands::showRemoteIPInformation()
{
    const LsofItemPtr item = m_target.item;
    if (!item || item->remoteAddress().isEmpty())
        return;
    if (!CVShowIPInfoController::showIPInfo(item->remoteAddress()))
        Q_EMIT statusMessage(tr("No web browser could be started for the IP information of %1.")
                                 .arg(item->remoteAddress()));
}

void RowCommands::searchInGoogle(QAction* sender)
{
    if (!sender)
        return;
    static const LsofItem::Key keys[] = {LsofItem::Key::localizedAppName,
                                         LsofItem::Key::remoteAddress, LsofItem::Key::remotePort,
                                         LsofItem::Key::remoteHostname};
    const int tag = sender->data().toInt();
    Q_ASSERT(tag >= 0 && tag < 4);
    if (tag < 0 || tag >= 4 || !m_target.item || (tag > 0 && m_target.application))
        return;
    QString term = tag == 0 && !m_host.isEmpty() ? m_target.item->processName()
                                                 : m_target.item->text(keys[tag]);
    if (keys[tag] == LsofItem::Key::remotePort)
        term = u"port "_s + term;
    openUrl(DesktopActions::webSearchUrl(term));
}

void RowCommands::openUrl(const QUrl& url)
{
    if (!DesktopActions::openUrl(url))
        Q_EMIT statusMessage(tr("No web browser could open %1.").arg(url.toDisplayString()));
}

void RowCommands::excludeForGrowlNotification()
{
    if (m_target.item && m_host.isEmpty())
        m_prefs.addExcludeAppForGrowNotification(m_target.item->processPath());
}

void RowCommands::setConfirmTerminateHandler(ConfirmTerminate handler)
{
    m_confirmTerminate = std::move(handler);
}

void RowCommands::setTerminateSender(SendTerminate sender)
{
    m_sendTerminate = std::move(sender);
}

void RowCommands::setConfirmCloseHandler(ConfirmClose handler)
{
    m_confirmClose = std::move(handler);
}

void RowCommands::setCloseSender(SendClose sender)
{
    m_sendClose = std::move(sender);
}

void RowCommands::setErrorHandler(std::function<void(const QString&)> handler)
{
    m_showError = std::move(handler);
}

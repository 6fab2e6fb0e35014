#pragma once

#include "connectioncloser.h"
#include "processidentity.h"
#include "snapshot/lsofitem.h"

#include <QObject>

#include <functional>
#include <optional>

class CVPrefsHelper;
class ConnectionTableModel;
class ConnectionTableView;
class GroupedView;
class QAction;
class QMenu;
class QWidget;
class TableColumnsMenu;

// The commands on rows: copying the selection, and the context menu's commands, which act on
// the row that was clicked. The clicked row's item is taken at the click, with its process's
// identity, so a refresh that reorders or removes rows while the menu is open cannot turn a
// command onto another connection or another process.
//
// In the grouped view an application row stands for all its processes: the file manager shows
// its executable, bringing to front raises the first of its processes that has a window, and
// terminating is offered only for an application of one process (which of several the user
// means cannot be told). Commands about a peer are disabled: an application has many.
//
// Rows of another machine keep copying, the IP information and the web searches; the commands
// on a process or a socket of this machine are disabled for them, with the reason.
class RowCommands final : public QObject {
    Q_OBJECT
public:
    // What the context menu's commands act on.
    struct Target {
        LsofItemPtr item; // an application row's first connection
        int column = -1;  // logical column of the clicked cell
        ProcessIdentity process;
        // Set for an application row of the grouped view.
        struct Application {
            QString name;
            QString path;
            QList<qint64> pids;
            QString cellText; // what the clicked cell showed
        };
        std::optional<Application> application;
    };
    // Asks before terminating; true for "OK".
    using ConfirmTerminate =
        std::function<bool(const QString& appName, const ProcessIdentity& process)>;
    // Sends the terminate signal; empty on success, else a sentence for the user.
    using SendTerminate = std::function<QString(qint64 pid, const QString& appName)>;
    // Asks before closing a connection; true to close.
    using ConfirmClose = std::function<bool(const QString& question)>;
    // Closes the connection; the reply may come on any thread (ConnectionCloser::close).
    using SendClose = std::function<void(const SocketIdentity&, ConnectionCloser::Reply)>;

    RowCommands(ConnectionTableView& table, ConnectionTableModel& model, TableColumnsMenu& columns,
                CVPrefsHelper& prefs, QWidget* dialogParent);
    Q_DISABLE_COPY_MOVE(RowCommands)

    QMenu* contextMenu() const { return m_menu; }
    QAction* copyCellAction() const { return m_copyCell; }
    QAction* terminateAction() const { return m_terminate; }
    QAction* closeConnectionAction() const { return m_closeConnection; }
    QAction* showInFileManagerAction() const { return m_showInFileManager; }
    QAction* ipInformationAction() const { return m_ipInformation; }
    QAction* bringToFrontAction() const { return m_bringToFront; }
    QAction* excludeFromNotificationsAction() const { return m_exclude; }

    // Takes the item at `row` of the table's rows as the target; a row outside them clears it.
    void capture(int row, int column);
    // The grouped view's rows; while `grouped` is on, copying reads its selection.
    void setGroupedView(GroupedView* grouped);
    void setGrouped(bool grouped) { m_grouped = grouped; }
    void captureGroupedRow(const QModelIndex& index);
    // The rows are another machine's, named so in sentences; empty: this machine's.
    void setHost(const QString& host) { m_host = host; }
    // Why the clicked application cannot be terminated from its row; empty when it can.
    QString terminateUnavailableReason() const;
    // Why the clicked row's connection cannot be closed; empty when it can.
    QString closeUnavailableReason() const;
    const Target& target() const { return m_target; }

    void copySelectedLines();
    void copyCellContent();
    void bringToFront();
    void showInFinder();
    void terminateSelectedApp();
    // Asks, then closes the clicked row's TCP connection; the answer comes later.
    void closeConnection();
    void showRemoteIPInformation();
    // The item's tag picks the field: 0 application, 1 remote address, 2 remote port,
    // 3 remote host.
    void searchInGoogle(QAction* sender);
    void excludeForGrowlNotification();

    void setConfirmTerminateHandler(ConfirmTerminate handler);
    void setTerminateSender(SendTerminate sender);
    void setConfirmCloseHandler(ConfirmClose handler);
    void setCloseSender(SendClose sender);
    void setErrorHandler(std::function<void(const QString&)> handler);
    // Where process identities are read; tests point it at a folder of their own.
    void setProcRoot(const QString& root) { m_procRoot = root; }

    static bool confirmTerminateWithDialog(QWidget* parent, const QString& appName,
                                           const ProcessIdentity& process);
    static bool confirmCloseWithDialog(QWidget* parent, const QString& question);

Q_SIGNALS:
    // A sentence for the status bar about what a command did.
    void statusMessage(const QString& text);
    // The kernel closed a connection: a refresh shows it gone.
    void connectionClosed();

private:
    // Why a command on a process or socket of this machine does not apply; empty when it does.
    QString localUnavailableReason() const;
    void closeAnswered(const std::optional<SocketDestroyer::Result>& result,
                       const QString& connection);
    void buildMenu();
    void openMenu(const QPoint& globalPos);
    void updateMenu();
    void openUrl(const QUrl& url);
    QStringList groupedSelectedLines(const QList<int>& columns) const;

    ConnectionTableView& m_table;
    ConnectionTableModel& m_model;
    TableColumnsMenu& m_columns;
    GroupedView* m_groupedView = nullptr;
    bool m_grouped = false;
    CVPrefsHelper& m_prefs;
    QWidget* m_dialogParent;
    Target m_target;
    QString m_procRoot = QStringLiteral("/proc");
    QString m_host;

    QMenu* m_menu = nullptr;
    QAction* m_copyCell = nullptr;
    QAction* m_showInFileManager = nullptr;
    QAction* m_terminate = nullptr;
    QAction* m_closeConnection = nullptr;
    QAction* m_ipInformation = nullptr;
    QAction* m_bringToFront = nullptr;
    QAction* m_exclude = nullptr;
    QList<QAction*> m_remoteSearches;

    ConfirmTerminate m_confirmTerminate;
    SendTerminate m_sendTerminate;
    ConfirmClose m_confirmClose;
    SendClose m_sendClose;
    std::function<void(const QString&)> m_showError;
};

#pragma once

#include "processidentity.h"
#include "snapshot/lsofitem.h"

#include <QObject>

#include <functional>

class CVPrefsHelper;
class ConnectionTableModel;
class ConnectionTableView;
class QAction;
class QMenu;
class QWidget;
class TableColumnsMenu;

// The commands on rows: copying the selection, and the context menu's commands, which act on
// the row that was clicked. The clicked row's item is taken at the click, with its process's
// identity, so a refresh that reorders or removes rows while the menu is open cannot turn a
// command onto another connection or another process.
class RowCommands final : public QObject {
    Q_OBJECT
public:
    // What the context menu's commands act on.
    struct Target {
        LsofItemPtr item;
        int column = -1; // logical column of the clicked cell
        ProcessIdentity process;
    };
    // Asks before terminating; true for "OK".
    using ConfirmTerminate =
        std::function<bool(const QString& appName, const ProcessIdentity& process)>;
    // Sends the terminate signal; empty on success, else a sentence for the user.
    using SendTerminate = std::function<QString(qint64 pid, const QString& appName)>;

    RowCommands(ConnectionTableView& table, ConnectionTableModel& model, TableColumnsMenu& columns,
                CVPrefsHelper& prefs, QWidget* dialogParent);
    Q_DISABLE_COPY_MOVE(RowCommands)

    QMenu* contextMenu() const { return m_menu; }
    QAction* copyCellAction() const { return m_copyCell; }
    QAction* terminateAction() const { return m_terminate; }
    QAction* ipInformationAction() const { return m_ipInformation; }
    QAction* bringToFrontAction() const { return m_bringToFront; }
    QAction* excludeFromNotificationsAction() const { return m_exclude; }

    // Takes the item at `row` of the table's rows as the target; a row outside them clears it.
    void capture(int row, int column);
    const Target& target() const { return m_target; }

    void copySelectedLines();
    void copyCellContent();
    void bringToFront();
    void showInFinder();
    void terminateSelectedApp();
    void showRemoteIPInformation();
    // The item's tag picks the field: 0 application, 1 remote address, 2 remote port,
    // 3 remote host.
    void searchInGoogle(QAction* sender);
    void excludeForGrowlNotification();

    void setConfirmTerminateHandler(ConfirmTerminate handler);
    void setTerminateSender(SendTerminate sender);
    void setErrorHandler(std::function<void(const QString&)> handler);
    // Where process identities are read; tests point it at a folder of their own.
    void setProcRoot(const QString& root) { m_procRoot = root; }

    static bool confirmTerminateWithDialog(QWidget* parent, const QString& appName,
                                           const ProcessIdentity& process);

Q_SIGNALS:
    // A sentence for the status bar about what a command did.
    void statusMessage(const QString& text);

private:
    void buildMenu();
    void openMenu(const QPoint& globalPos);
    void updateMenu();
    void openUrl(const QUrl& url);

    ConnectionTableView& m_table;
    ConnectionTableModel& m_model;
    TableColumnsMenu& m_columns;
    CVPrefsHelper& m_prefs;
    QWidget* m_dialogParent;
    Target m_target;
    QString m_procRoot = QStringLiteral("/proc");

    QMenu* m_menu = nullptr;
    QAction* m_copyCell = nullptr;
    QAction* m_terminate = nullptr;
    QAction* m_ipInformation = nullptr;
    QAction* m_bringToFront = nullptr;
    QAction* m_exclude = nullptr;
    QList<QAction*> m_remoteSearches;

    ConfirmTerminate m_confirmTerminate;
    SendTerminate m_sendTerminate;
    std::function<void(const QString&)> m_showError;
};

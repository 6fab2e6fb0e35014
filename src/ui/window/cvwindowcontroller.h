#pragma once

#include "filter/keywordverdicts.h"
#include "filter/predicateerror.h"
#include "remote/hostspec.h"
#include "remote/retrybackoff.h"
#include "rowcommands.h"
#include "savedsearches.h"
#include "snapshot/snapshotsource.h"

#include <QMainWindow>
#include <QPointer>
#include <QTime>
#include <QTimer>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class CVFilterProfileInfo;
class CVPrefsHelper;
class ColumnLayout;
class ConnectionTableModel;
class ConnectionTableView;
class GroupedView;
class OwnProcessesBar;
class QComboBox;
class QMenu;
class QSplitter;
class QStackedWidget;
class MainToolbar;
class SaveSearchDialog;
class SearchField;
class SegmentedControl;
class TableColumnsMenu;
class TrafficGraph;
class WindowStatus;

// The main window: the connection table fed by the refresh cycle, the toolbar's filters and
// saved searches, and the commands on rows. The table can be grouped by application, and a
// graph of the traffic can be shown below it; both choices are remembered.
//
// The table shows `items`, the filtered `originalItems`; the selection is carried across an
// update through `originalItems` by item identity. Under a filter the two lists differ, so a
// kept selection may land on other rows: that is how the selection is meant to behave.
//
// A window can watch another machine instead (setHost): see cvwindowcontrollerhost.cpp.
class CVWindowController final : public QMainWindow {
    Q_OBJECT
public:
    CVWindowController(SnapshotSource& source, CVPrefsHelper& prefs, QWidget* parent = nullptr);
    ~CVWindowController() override;
    Q_DISABLE_COPY_MOVE(CVWindowController)

    // Refresh cycle.
    void toggleAutoRefresh();
    void autoRefreshClicked();
    // The timer's action: a reload, unless another machine is being waited for after failures.
    void autoRefreshTick();
    // Asks for a new snapshot; skipped while the previous acquisition still runs.
    void reloadTableViewData();
    // Re-sorts and re-filters the current snapshot, then saves the toolbar state.
    void refreshTableViewData();
    LsofItemList selectedItems() const;
    void selectItems(const LsofItemList& items);
    LsofItemList filterItems(const LsofItemList& items, const QString& keyword) const;
    // Colours, font and the refresh period follow the settings at once.
    void userDefaultsChanged();
    void filterProfilesChanged();

    // Toolbar and search.
    void toggleUseSearchExpression(QAction* sender);
    void toggleHasRemoteAddress();
    void toggleFilterProfile();
    void saveCurrentSearch();
    void confirmSaveSearchClicked();
    void cancelSaveSearchClicked();
    void saveToolbarItemsState();
    void restoreToolbarItemsState();

    // Row commands (RowCommands). The context menu's commands act on the clicked row as it
    // was when clicked, copying on the selection.
    LsofItemPtr clickedItem() const { return m_rows->target().item; }
    void copySelectedLines() { m_rows->copySelectedLines(); }
    void copyCellContent() { m_rows->copyCellContent(); }
    void performFindPanelAction();
    void bringToFront() { m_rows->bringToFront(); }
    void showInFinder() { m_rows->showInFinder(); }
    void terminateSelectedApp() { m_rows->terminateSelectedApp(); }
    void closeConnection() { m_rows->closeConnection(); }
    void showRemoteIPInformation() { m_rows->showRemoteIPInformation(); }
    void searchInGoogle(QAction* sender) { m_rows->searchInGoogle(sender); }
    void excludeForGrowlNotification() { m_rows->excludeForGrowlNotification(); }

    // A passing sentence in the status bar.
    void showStatusMessage(const QString& text);

    // Another machine, watched through this window's source from now on: its title names it,
    // its rows' processes are not this machine's, and a failed pass keeps the last rows,
    // faded, and is tried again after a growing wait rather than at every tick. The window
    // then leaves the main window's saved layout and toolbar alone.
    void setHost(const HostSpec& host);
    const std::optional<HostSpec>& host() const { return m_host; }
    // Whether the rows shown are those of a pass that has since failed.
    bool isStale() const;
    // The wait after the failed passes so far; 0 when the last pass worked.
    std::chrono::seconds retryDelay() const;

    // Views: one row per application, and the traffic graph.
    void setGroupedByApplication(bool grouped);
    bool isGroupedByApplication() const { return m_groupedShown; }
    void setTrafficGraphShown(bool shown);

    // Hooks the application sets.
    void setBecameMainHandler(std::function<void()> handler);
    void setCloseHandler(std::function<void()> handler);
    void setConfirmTerminateHandler(RowCommands::ConfirmTerminate handler);
    void setConfirmCloseHandler(RowCommands::ConfirmClose handler);
    void setErrorHandler(std::function<void(const QString& message)> handler);
    // Installs the privileged helper for the own-processes bar; true when it worked.
    void setInstallHelperHandler(std::function<bool()> handler);
    // Whether this process sees every process's sockets by itself (it runs as root).
    void setPrivileged(bool privileged);

    // Parts, for the application and for tests.
    ConnectionTableView* tableView() const { return m_table; }
    ConnectionTableModel* tableModel() const { return m_model; }
    const LsofItemList& originalItems() const { return m_originalItems; }
    const LsofItemList& items() const;
    MainToolbar* toolbar() const { return m_toolbar; }
    SearchField* searchField() const { return m_searchField; }
    SegmentedControl* typeControl() const { return m_typeControl; }
    SegmentedControl* protocolControl() const { return m_protocolControl; }
    SegmentedControl* hasRemoteAddressControl() const { return m_remoteControl; }
    QComboBox* filterProfileButton() const { return m_profileButton; }
    QComboBox* refreshIntervalButton() const { return m_refreshButton; }
    TableColumnsMenu* tableHeaderMenu() const { return m_headerMenu; }
    RowCommands* rowCommands() const { return m_rows; }
    QMenu* tableContextMenu() const { return m_rows->contextMenu(); }
    QAction* excludeFromNotificationsAction() const
    {
        return m_rows->excludeFromNotificationsAction();
    }
    QAction* bringToFrontAction() const { return m_rows->bringToFrontAction(); }
    SaveSearchDialog* saveSearchWindow() const { return m_savedSearches->sheet(); }
    OwnProcessesBar* ownProcessesBar() const { return m_ownBar; }
    GroupedView* groupedView() const { return m_grouped; }
    TrafficGraph* trafficGraph() const { return m_graph; }
    QAction* groupByApplicationAction() const;
    QAction* trafficGraphAction() const;
    QAction* connectToHostAction() const { return m_connectToHost; }
    QTimer* autoRefreshTimer() const { return m_autoRefreshTimer.data(); }
    bool usesSearchExpression() const { return m_filterUseSearchExpression; }
    const QList<LsofItem::Key>& lsofItemKeys() const { return m_lsofItemKeys; }
    std::shared_ptr<CVFilterProfileInfo> chosenFilterProfile() const;

Q_SIGNALS:
    // File > Connect to Host…: the application asks which host and opens its window.
    void connectToHostRequested();

protected:
    void closeEvent(QCloseEvent* event) override;
    bool event(QEvent* event) override;

private:
    void applySnapshot(const LsofItemList& items, const QString& problem,
                       const ItemOrdering& sortedBy);
    void showItems(const LsofItemList& sorted, const LsofItemList& selection);
    // The order the header's indicator asks for.
    ItemOrdering ordering() const;
    // The order the source is asked for, and the rows in the order shown.
    ItemOrdering sourceOrdering() const;
    LsofItemList inShownOrder(const LsofItemList& items, const ItemOrdering& sortedBy) const;
    // Another machine's failed pass: true when it was one, its rows kept and the retry set.
    bool keepRowsOfFailedPass(const LsofItemList& items, const QString& problem);
    void setStale(bool stale);
    void buildToolbar();
    void connectSearchField();
    void buildTable();
    void buildMenus();
    void updateStatusBar();
    void updateSearchFeedback();
    void syncRefreshButton();
    void restoreWindowState();
    void saveWindowState();
    void warmUpFirstPaint();
    QWidget* buildViews();
    // The connections highlighted in the view shown, the graph's subject when there are any.
    LsofItemList highlightedConnections() const;
    void updateGraphSubject();
    void feedGraph();

    SnapshotSource& m_source;
    CVPrefsHelper& m_prefs;

    LsofItemList m_originalItems;
    LsofItemList m_pendingSelection;
    QList<LsofItem::Key> m_lsofItemKeys;
    bool m_filterUseSearchExpression = false;
    QString m_lastProblem;
    mutable bool m_filterGaveUp = false;
    // The keyword search's verdicts of the last refresh, for the next.
    mutable KeywordVerdicts m_keywordVerdicts;
    mutable std::optional<PredicateError> m_expressionError;
    mutable QString m_keywordError;
    QPointer<QTimer> m_autoRefreshTimer;
    bool m_privileged = false;
    std::optional<HostSpec> m_host;
    RetryBackoff m_backoff;
    std::chrono::seconds m_retryDelay{0};
    std::chrono::steady_clock::time_point m_retryAt;
    QTime m_lastGoodPass;

    ConnectionTableModel* m_model = nullptr;
    ConnectionTableView* m_table = nullptr;
    GroupedView* m_grouped = nullptr;
    QStackedWidget* m_views = nullptr;
    TrafficGraph* m_graph = nullptr;
    QSplitter* m_split = nullptr;
    bool m_groupedShown = false;
    std::unique_ptr<ColumnLayout> m_columnLayout;
    TableColumnsMenu* m_headerMenu = nullptr;
    RowCommands* m_rows = nullptr;
    OwnProcessesBar* m_ownBar = nullptr;
    WindowStatus* m_status = nullptr;
    MainToolbar* m_toolbar = nullptr;
    QComboBox* m_refreshButton = nullptr;
    SegmentedControl* m_typeControl = nullptr;
    SegmentedControl* m_protocolControl = nullptr;
    SegmentedControl* m_remoteControl = nullptr;
    QComboBox* m_profileButton = nullptr;
    SearchField* m_searchField = nullptr;
    QTimer* m_searchDelay = nullptr;
    SavedSearches* m_savedSearches = nullptr;
    QAction* m_connectToHost = nullptr;

    std::function<void()> m_becameMainHandler;
    std::function<void()> m_closeHandler;
    std::function<void(const QString&)> m_showError;
};

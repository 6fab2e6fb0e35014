#pragma once

#include "snapshot/snapshotsource.h"

#include <QMainWindow>
#include <QPointer>
#include <QTimer>

#include <functional>
#include <memory>

class CVFilterProfileInfo;
class CVPrefsHelper;
class ConnectionTableModel;
class ConnectionTableView;
class QComboBox;
class QLabel;
class QMenu;
class MainToolbar;
class SaveSearchDialog;
class SearchField;
class SegmentedControl;
class TableColumnsMenu;

// The main window: the connection table fed by the refresh cycle, the toolbar's filters and
// saved searches, and the commands on rows.
//
// The table shows `items`, the filtered `originalItems`; the selection is carried across an
// update through `originalItems` by item identity. Under a filter the two lists differ, so a
// kept selection may land on other rows: that is how the selection is meant to behave.
class CVWindowController final : public QMainWindow {
    Q_OBJECT
public:
    CVWindowController(SnapshotSource& source, CVPrefsHelper& prefs, QWidget* parent = nullptr);
    ~CVWindowController() override;
    Q_DISABLE_COPY_MOVE(CVWindowController)

    // Refresh cycle.
    void toggleAutoRefresh();
    void autoRefreshClicked();
    // Asks for a new snapshot; skipped while the previous acquisition still runs.
    void reloadTableViewData();
    // Re-sorts and re-filters the current snapshot, then saves the toolbar state.
    void refreshTableViewData();
    LsofItemList selectedItems() const;
    void selectItems(const LsofItemList& items);
    LsofItemList filterItems(const LsofItemList& items, const QString& keyword) const;
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

    // Row commands. The context menu's commands act on the clicked row, copying on the
    // selection.
    LsofItemPtr clickedItem() const;
    void copySelectedLines();
    void copyCellContent();
    void performFindPanelAction();
    void bringToFront();
    void showInFinder();
    void terminateSelectedApp();
    void showRemoteIPInformation();
    // The item's tag picks the field: 0 application, 1 remote address, 2 remote port,
    // 3 remote host.
    void searchInGoogle(QAction* sender);
    void excludeForGrowlNotification();

    // Hooks the application sets.
    void setBecameMainHandler(std::function<void()> handler);
    void setCloseHandler(std::function<void()> handler);
    // Asks before terminating; answers true for "OK". Replaced by tests.
    void setConfirmTerminateHandler(std::function<bool(const QString& appName)> handler);
    void setErrorHandler(std::function<void(const QString& message)> handler);

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
    QMenu* tableContextMenu() const { return m_contextMenu; }
    QAction* excludeFromNotificationsAction() const { return m_excludeAction; }
    QAction* bringToFrontAction() const { return m_bringToFrontAction; }
    SaveSearchDialog* saveSearchWindow() const { return m_saveSearchWindow; }
    QTimer* autoRefreshTimer() const { return m_autoRefreshTimer.data(); }
    bool usesSearchExpression() const { return m_filterUseSearchExpression; }
    const QList<LsofItem::Key>& lsofItemKeys() const { return m_lsofItemKeys; }
    std::shared_ptr<CVFilterProfileInfo> chosenFilterProfile() const;

protected:
    void closeEvent(QCloseEvent* event) override;
    bool event(QEvent* event) override;

private:
    void applySnapshot(const LsofItemList& items, const QString& problem,
                       const ItemOrdering& sortedBy);
    void showItems(const LsofItemList& sorted, const LsofItemList& selection);
    // The order the header's indicator asks for.
    ItemOrdering ordering() const;
    void buildToolbar();
    void buildTable();
    void buildMenus();
    void buildContextMenu();
    void updateContextMenu();
    void updateStatusBar();
    void syncRefreshButton();
    void restoreWindowState();
    void saveWindowState();
    void warmUpFirstPaint();

    SnapshotSource& m_source;
    CVPrefsHelper& m_prefs;

    LsofItemList m_originalItems;
    LsofItemList m_pendingSelection;
    QList<LsofItem::Key> m_lsofItemKeys;
    bool m_filterUseSearchExpression = false;
    QString m_lastProblem;
    mutable bool m_filterGaveUp = false;
    QPointer<QTimer> m_autoRefreshTimer;

    ConnectionTableModel* m_model = nullptr;
    ConnectionTableView* m_table = nullptr;
    TableColumnsMenu* m_headerMenu = nullptr;
    QMenu* m_contextMenu = nullptr;
    QAction* m_excludeAction = nullptr;
    QAction* m_bringToFrontAction = nullptr;
    MainToolbar* m_toolbar = nullptr;
    QComboBox* m_refreshButton = nullptr;
    SegmentedControl* m_typeControl = nullptr;
    SegmentedControl* m_protocolControl = nullptr;
    SegmentedControl* m_remoteControl = nullptr;
    QComboBox* m_profileButton = nullptr;
    QList<std::shared_ptr<CVFilterProfileInfo>> m_popupProfiles;
    SearchField* m_searchField = nullptr;
    QTimer* m_searchDelay = nullptr;
    SaveSearchDialog* m_saveSearchWindow = nullptr;
    QLabel* m_rowsLabel = nullptr;
    QLabel* m_roadLabel = nullptr;
    QLabel* m_problemLabel = nullptr;

    std::function<void()> m_becameMainHandler;
    std::function<void()> m_closeHandler;
    std::function<bool(const QString&)> m_confirmTerminate;
    std::function<void(const QString&)> m_showError;
};

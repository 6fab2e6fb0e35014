#include "cvwindowcontroller.h"

#include "columnlayout.h"
#include "connectiontablemodel.h"
#include "connectiontableview.h"
#include "filter/itemfilter.h"
#include "groupedview.h"
#include "helper/cvhelperutility.h"
#include "imageandtextcell.h"
#include "maintoolbar.h"
#include "ownprocessesbar.h"
#include "persistence/sqliteerror.h"
#include "prefs/cvfilterprofileinfo.h"
#include "prefs/cvprefshelper.h"
#include "prefs/userdefaults.h"
#include "savedsearches.h"
#include "searchfield.h"
#include "segmentedcontrol.h"
#include "snapshot/hostnameresolver.h"
#include "snapshot/lsoffetcher.h"
#include "snapshot/portservicemap.h"
#include "tablecolumnsmenu.h"
#include "textcell.h"
#include "toolbarstate.h"
#include "windowstatus.h"

#include <QCloseEvent>
#include <QComboBox>
#include <QCoreApplication>
#include <QHeaderView>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QScreen>
#include <QSet>
#include <QStatusBar>
#include <QThreadPool>
#include <QTimer>
#include <QVBoxLayout>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype kImmediateFilterRows = 2000;
constexpr int kStatusMessageMs = 8000;

QColor toQColor(const std::optional<RgbaColor>& color, const QColor& fallback)
{
    return color ? QColor(color->r, color->g, color->b, color->a) : fallback;
}

} // namespace

CVWindowController::CVWindowController(SnapshotSource& source, CVPrefsHelper& prefs,
                                       QWidget* parent)
    : QMainWindow(parent), m_source(source), m_prefs(prefs), m_privileged(geteuid() == 0)
{
    setWindowTitle(tr("Corvina"));
    setWindowIcon(QIcon::fromTheme(u"network-workgroup"_s, QIcon::fromTheme(u"network-wired"_s)));
    connect(&m_prefs, &CVPrefsHelper::filterProfilesChanged, this,
            &CVWindowController::filterProfilesChanged);
    connect(&m_source, &SnapshotSource::snapshotReady, this, &CVWindowController::applySnapshot);
    m_showError = [this](const QString& message) {
        QMessageBox::warning(this, tr("Corvina"), message);
    };

    buildTable();
    buildToolbar();
    buildMenus();

    // Set-up proper, in the order the window depends on.
    m_rows->excludeFromNotificationsAction()->setVisible(false);
    restoreToolbarItemsState();
    m_lsofItemKeys.clear();
    for (int column = 0; column < m_model->columnCount(); ++column)
        m_lsofItemKeys.append(ConnectionTableModel::columnKey(column));
    m_headerMenu->setupTableHeaderViewMenu();
    userDefaultsChanged();
    // The widths are measured in the table's font, which the settings have just given it.
    m_columnLayout->applyInitialWidths();
    restoreWindowState();
    toggleAutoRefresh();
    warmUpFirstPaint();
    // The helper's signal comes after it has dropped its cached colours.
    connect(&m_prefs, &CVPrefsHelper::defaultsChanged, this,
            &CVWindowController::userDefaultsChanged);
    reloadTableViewData();
}

void CVWindowController::warmUpFirstPaint()
{
    // The first rows are drawn in the same pass as they arrive. What that paint would
    // otherwise do first is done now, while lsof runs: the services database for port names
    // is read, the header's glyphs are rendered (the cells' are, with the table font), the
    // host name threads are started, and so are the threads to which the paint engine hands
    // long fills (the scroll bars' first pictures).
    PortServiceMap::sharedMap().loadFallback();
    if (m_table->horizontalHeader()->font() != m_table->font())
        TextCell::warmUp(m_table->horizontalHeader()->font());
    HostnameResolver::sharedResolver().start();
    QThreadPool* pool = QThreadPool::globalInstance();
    for (int i = 0; i < pool->maxThreadCount(); ++i)
        pool->start([] {});
}

CVWindowController::~CVWindowController()
{
    disconnect(&m_prefs, nullptr, this, nullptr);
    saveWindowState();
}

const LsofItemList& CVWindowController::items() const
{
    return m_model->items();
}

void CVWindowController::buildTable()
{
    m_model = new ConnectionTableModel(this);
    m_table = new ConnectionTableView(this);
    m_table->setModel(m_model);
    m_table->setItemDelegate(new TextCell(m_table));
    // After a reset the view lays itself out on a zero timer, after the first repaint, and
    // then paints everything again: once, at once, is enough.
    connect(m_model, &QAbstractItemModel::modelReset, m_table, &QAbstractItemView::doItemsLayout);
    m_table->setItemDelegateForColumn(ConnectionTableModel::applicationColumn(),
                                      new ImageAndTextCell(m_table));
    m_columnLayout = std::make_unique<ColumnLayout>(*m_table, m_prefs.defaultsStore());

    QHeaderView* header = m_table->horizontalHeader();
    connect(header, &QHeaderView::sortIndicatorChanged, this, [this] { refreshTableViewData(); });
    connect(header, &QHeaderView::sectionMoved, this, [this] { m_headerMenu->saveTableColumns(); });
    m_headerMenu = new TableColumnsMenu(*m_table, m_prefs.defaultsStore(), this);
    m_rows = new RowCommands(*m_table, *m_model, *m_headerMenu, m_prefs, this);
    connect(m_rows, &RowCommands::statusMessage, this, &CVWindowController::showStatusMessage);
    connect(m_rows, &RowCommands::connectionClosed, this, [this] { reloadTableViewData(); });
    QWidget* views = buildViews();

    m_ownBar = new OwnProcessesBar(m_prefs.defaultsStore(), this);
    m_ownBar->setInstallHelperHandler(
        [] { return CVHelperUtility::sharedUtility()->installHelper(); });
    auto* central = new QWidget(this);
    auto* layout = new QVBoxLayout(central);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_ownBar);
    layout->addWidget(views, 1);
    setCentralWidget(central);

    m_status = new WindowStatus(*statusBar());
}

void CVWindowController::buildToolbar()
{
    m_toolbar = new MainToolbar(this);
    addToolBar(m_toolbar);
    m_refreshButton = m_toolbar->refreshIntervalButton();
    m_typeControl = m_toolbar->typeControl();
    m_protocolControl = m_toolbar->protocolControl();
    m_remoteControl = m_toolbar->hasRemoteAddressControl();
    m_profileButton = m_toolbar->filterProfileButton();
    m_searchField = m_toolbar->searchField();

    connect(m_toolbar->refreshAction(), &QAction::triggered, this,
            [this] { reloadTableViewData(); });
    connect(m_refreshButton, &QComboBox::activated, this, [this](int index) {
        m_prefs.defaultsStore().setObject(PrefKeys::AutoRefreshSetting,
                                          m_refreshButton->itemData(index).toLongLong());
        autoRefreshClicked();
    });
    connect(m_typeControl, &SegmentedControl::segmentClicked, this,
            [this] { refreshTableViewData(); });
    connect(m_protocolControl, &SegmentedControl::segmentClicked, this,
            [this] { refreshTableViewData(); });
    connect(m_remoteControl, &SegmentedControl::segmentClicked, this,
            &CVWindowController::toggleHasRemoteAddress);
    connect(m_profileButton, &QComboBox::activated, this, &CVWindowController::toggleFilterProfile);
    connectSearchField();
    m_savedSearches = new SavedSearches(*m_toolbar, m_prefs, this);
    m_savedSearches->setErrorHandler(m_showError);
}

void CVWindowController::connectSearchField()
{
    // On a long list every keystroke would re-filter thousands of rows: wait for a pause.
    m_searchDelay = new QTimer(this);
    m_searchDelay->setSingleShot(true);
    m_searchDelay->setInterval(150);
    connect(m_searchDelay, &QTimer::timeout, this, [this] { refreshTableViewData(); });
    connect(m_searchField, &QLineEdit::textChanged, this, [this] {
        if (m_originalItems.size() > kImmediateFilterRows)
            m_searchDelay->start();
        else
            refreshTableViewData();
    });
    connect(m_searchField, &SearchField::menuItemTriggered, this, [this](QAction* item) {
        if (SearchField::tagOfItem(item) == SearchField::UseSearchExpressionTag)
            toggleUseSearchExpression(item);
        else if (SearchField::tagOfItem(item) == SearchField::SaveSearchTag)
            saveCurrentSearch();
    });
}

void CVWindowController::buildMenus()
{
    QMenu* file = menuBar()->addMenu(tr("&File"));
    QAction* refresh = file->addAction(QIcon::fromTheme(u"view-refresh"_s), tr("&Refresh"), this,
                                       [this] { reloadTableViewData(); });
    refresh->setShortcuts({QKeySequence(Qt::CTRL | Qt::Key_R), QKeySequence::Refresh});
    m_connectToHost =
        file->addAction(QIcon::fromTheme(u"network-server"_s), tr("Connect to &Host…"), this,
                        &CVWindowController::connectToHostRequested);
    m_connectToHost->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_H));
    file->addSeparator();
    QAction* close = file->addAction(tr("&Close Window"), this, &QWidget::close);
    close->setShortcut(QKeySequence::Close);
    // quit() would first ask the windows to close, and this one never does.
    QAction* quit = file->addAction(QIcon::fromTheme(u"application-exit"_s), tr("&Quit"), this,
                                    [] { QCoreApplication::exit(0); });
    quit->setShortcut(QKeySequence::Quit);

    QMenu* edit = menuBar()->addMenu(tr("&Edit"));
    QAction* copy = edit->addAction(QIcon::fromTheme(u"edit-copy"_s), tr("&Copy"), this,
                                    &CVWindowController::copySelectedLines);
    copy->setShortcut(QKeySequence::Copy);
    // The search field keeps its own Ctrl+C; the table's copy is this one.
    copy->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    m_table->addAction(copy);
    m_grouped->addAction(copy);
    QAction* find = edit->addAction(QIcon::fromTheme(u"edit-find"_s), tr("&Find"), this,
                                    &CVWindowController::performFindPanelAction);
    find->setShortcut(QKeySequence::Find);

    QMenu* view = menuBar()->addMenu(tr("&View"));
    view->addMenu(m_headerMenu);
    view->addSeparator();
    QAction* group = m_toolbar->groupAction();
    group->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_G));
    QAction* graph = m_toolbar->graphAction();
    graph->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_T));
    view->addActions({group, graph});
    connect(group, &QAction::toggled, this, &CVWindowController::setGroupedByApplication);
    connect(graph, &QAction::toggled, this, &CVWindowController::setTrafficGraphShown);
}

// Refresh cycle.

void CVWindowController::toggleAutoRefresh()
{
    const qint64 seconds = m_prefs.defaultsStore().integerForKey(PrefKeys::AutoRefreshSetting);
    if (m_autoRefreshTimer) {
        m_autoRefreshTimer->stop();
        delete m_autoRefreshTimer.data();
    }
    syncRefreshButton();
    if (seconds < 1)
        return;
    m_autoRefreshTimer = new QTimer(this);
    m_autoRefreshTimer->setInterval(std::chrono::milliseconds(seconds * 1000));
    connect(m_autoRefreshTimer, &QTimer::timeout, this, &CVWindowController::autoRefreshTick);
    m_autoRefreshTimer->start();
}

void CVWindowController::autoRefreshClicked()
{
    toggleAutoRefresh();
}

void CVWindowController::syncRefreshButton()
{
    m_toolbar->showRefreshInterval(
        m_prefs.defaultsStore().integerForKey(PrefKeys::AutoRefreshSetting));
}

void CVWindowController::reloadTableViewData()
{
    const LsofItemList selection = selectedItems();
    m_source.setOrdering(sourceOrdering());
    // A refused request means the previous acquisition still runs: this tick is skipped, and
    // that acquisition's result will be shown with the current filter.
    if (m_source.requestSnapshot())
        m_pendingSelection = selection;
}

ItemOrdering CVWindowController::ordering() const
{
    const QHeaderView* header = m_table->horizontalHeader();
    return {header->sortIndicatorSection(), header->sortIndicatorOrder()};
}

void CVWindowController::applySnapshot(const LsofItemList& items, const QString& problem,
                                       const ItemOrdering& sortedBy)
{
    if (m_host && keepRowsOfFailedPass(items, problem))
        return;
    m_lastProblem = problem;
    const LsofItemList selection = std::exchange(m_pendingSelection, {});
    showItems(inShownOrder(items, sortedBy), selection);
}

void CVWindowController::refreshTableViewData()
{
    const LsofItemList selection = selectedItems();
    showItems(inShownOrder(m_originalItems, {}), selection);
    saveToolbarItemsState();
}

void CVWindowController::showItems(const LsofItemList& sorted, const LsofItemList& selection)
{
    m_originalItems = sorted;
    m_model->setItems(filterItems(m_originalItems, m_searchField->text()));
    if (m_groupedShown)
        m_grouped->setItems(items(), ordering());
    selectItems(selection);
    updateStatusBar();
    feedGraph();
    updateSearchFeedback();
    m_ownBar->update(m_source.lastRoad(), m_privileged);
}

LsofItemList CVWindowController::selectedItems() const
{
    LsofItemList selected;
    for (int row : m_table->selectedRowNumbers()) {
        if (row < m_originalItems.size())
            selected.append(m_originalItems.at(row));
    }
    return selected;
}

void CVWindowController::selectItems(const LsofItemList& items)
{
    // One pass over the snapshot looking for the few wanted objects, rather than an index of
    // every row built on each refresh.
    QSet<const LsofItem*> wanted;
    wanted.reserve(items.size());
    for (const LsofItemPtr& item : items)
        wanted.insert(item.get());
    QList<int> rows;
    for (int i = 0; i < m_originalItems.size() && rows.size() < wanted.size(); ++i) {
        if (wanted.contains(m_originalItems.at(i).get()))
            rows.append(i);
    }
    m_table->selectRowNumbers(rows);
}

LsofItemList CVWindowController::filterItems(const LsofItemList& items,
                                             const QString& keyword) const
{
    ItemFilter filter;
    if (const auto profile = chosenFilterProfile())
        filter.profileExpression = profile->searchExpression();
    filter.useSearchExpression = m_filterUseSearchExpression;
    // Expression mode reads the field itself, keyword mode the text it was given.
    filter.searchText = filter.useSearchExpression ? m_searchField->text() : keyword;
    filter.keywordKeys = m_lsofItemKeys;
    filter.hiddenTypes = m_typeControl->unselectedLabels();
    filter.hiddenProtocols = m_protocolControl->unselectedLabels();
    filter.remoteOnly = m_remoteControl->isSelectedForSegment(0);
    ItemFilter::Result result = filter.apply(items, MatchBudget::kDefaultLimit, &m_keywordVerdicts);
    // The list still shows everything for a bad expression (nothing for a bad pattern), but
    // the window says why; and running out of time leaves rows out, which it says too.
    m_filterGaveUp = result.gaveUp;
    m_expressionError = std::move(result.expressionError);
    m_keywordError = std::move(result.keywordError);
    return std::move(result.items);
}

void CVWindowController::userDefaultsChanged()
{
    // The collector chosen in the preferences takes the next snapshot.
    m_source.setCollector(LsofFetcher::collectorNamed(
                              m_prefs.defaultsStore().stringForKey(PrefKeys::SnapshotCollector))
                              .value_or(SnapshotSource::Collector::Native));

    ConnectionTableModel::Colors colors;
    colors.text = toQColor(m_prefs.colorForKey(PrefKeys::ListTextColor), Qt::black);
    colors.list = toQColor(m_prefs.colorForKey(PrefKeys::ListBackgroundColor), Qt::white);
    colors.fresh = toQColor(m_prefs.colorForKey(PrefKeys::NewConnectionBackgroundColor), Qt::green);
    colors.changed =
        toQColor(m_prefs.colorForKey(PrefKeys::StateChangedConnectionBackgroundColor), Qt::yellow);
    colors.closed =
        toQColor(m_prefs.colorForKey(PrefKeys::ClosedConnectionBackgroundColor), Qt::red);
    m_model->setColors(colors);

    QPalette palette = m_table->palette();
    palette.setColor(QPalette::Base, colors.list);
    palette.setColor(QPalette::Text, colors.text);
    m_table->setPalette(palette);

    // Sizes are taken as pixels, so that rows of size + 4 always hold their text.
    const int size = int(std::clamp<quint64>(m_prefs.listFontSize(), 6, 96));
    QFont font = m_table->font();
    font.setPixelSize(size);
    if (m_table->font() != font) {
        m_table->setFont(font);
        TextCell::warmUp(font);
    }
    m_table->setRowHeight(size + 4);
    m_table->viewport()->update();
    m_grouped->setLook(font, palette, size + 4);

    // The timer is restarted only by the pop-up's action (the preferences window's period
    // control calls it too), not by a change of the setting itself.
    m_ownBar->update(m_source.lastRoad(), m_privileged);
}

void CVWindowController::filterProfilesChanged()
{
    m_savedSearches->rebuildPopUp();
}

std::shared_ptr<CVFilterProfileInfo> CVWindowController::chosenFilterProfile() const
{
    return m_savedSearches->chosen();
}

// Toolbar and search.

void CVWindowController::toggleUseSearchExpression(QAction* sender)
{
    if (!sender)
        return;
    sender->setChecked(!sender->isChecked());
    m_filterUseSearchExpression = sender->isChecked();
    const auto enableSave = [this](const QMenu* menu) {
        if (QAction* save = SearchField::itemWithTag(menu, SearchField::SaveSearchTag))
            save->setEnabled(m_filterUseSearchExpression);
    };
    for (QObject* owner : sender->associatedObjects())
        enableSave(qobject_cast<QMenu*>(owner));
    QMenu* menuTemplate = m_searchField->searchMenuTemplate();
    if (QAction* expression =
            SearchField::itemWithTag(menuTemplate, SearchField::UseSearchExpressionTag))
        expression->setChecked(sender->isChecked());
    enableSave(menuTemplate);
    m_searchField->setPlaceholderText(m_filterUseSearchExpression ? tr("Search expression")
                                                                  : tr("Search"));
    reloadTableViewData();
}

void CVWindowController::toggleHasRemoteAddress()
{
    const QVariant stored =
        m_prefs.defaultsStore().objectForKey(PrefKeys::ToolbarAddressAndPortItemState);
    const bool wasOn = !(stored.typeId() == QMetaType::QString && stored.toString() == u"0"_s);
    // The new state is the opposite of the saved one, whatever the click did to the segment.
    m_remoteControl->setSelected(wasOn, 0);
    refreshTableViewData();
}

void CVWindowController::toggleFilterProfile()
{
    m_savedSearches->showChoice();
    reloadTableViewData();
}

void CVWindowController::saveCurrentSearch()
{
    m_savedSearches->saveCurrentSearch();
}

void CVWindowController::confirmSaveSearchClicked()
{
    m_savedSearches->confirmSaveSearchClicked();
}

void CVWindowController::cancelSaveSearchClicked()
{
    m_savedSearches->cancelSaveSearchClicked();
}

void CVWindowController::saveToolbarItemsState()
{
    // Another machine's window narrows its own list; the saved state is the main window's.
    if (m_host)
        return;
    ToolbarState::save(*m_toolbar, m_prefs.defaultsStore());
}

void CVWindowController::restoreToolbarItemsState()
{
    // Restoring the search text must not start a refresh before the window is set up.
    const QSignalBlocker blocker(m_searchField);
    ToolbarState::restore(*m_toolbar, m_prefs.defaultsStore());
}

// Row commands live in RowCommands; finding belongs to the search field.

void CVWindowController::performFindPanelAction()
{
    m_searchField->setFocus(Qt::ShortcutFocusReason);
    m_searchField->selectAll();
}

// Hooks and window events.

void CVWindowController::setBecameMainHandler(std::function<void()> handler)
{
    m_becameMainHandler = std::move(handler);
}

void CVWindowController::setCloseHandler(std::function<void()> handler)
{
    m_closeHandler = std::move(handler);
}

void CVWindowController::setConfirmTerminateHandler(RowCommands::ConfirmTerminate handler)
{
    m_rows->setConfirmTerminateHandler(std::move(handler));
}

void CVWindowController::setConfirmCloseHandler(RowCommands::ConfirmClose handler)
{
    m_rows->setConfirmCloseHandler(std::move(handler));
}

void CVWindowController::setErrorHandler(std::function<void(const QString&)> handler)
{
    m_showError = handler;
    m_savedSearches->setErrorHandler(handler);
    m_rows->setErrorHandler(std::move(handler));
}

void CVWindowController::setInstallHelperHandler(std::function<bool()> handler)
{
    m_ownBar->setInstallHelperHandler(std::move(handler));
}

void CVWindowController::setPrivileged(bool privileged)
{
    m_privileged = privileged;
    updateStatusBar();
    m_ownBar->update(m_source.lastRoad(), m_privileged);
}

void CVWindowController::showStatusMessage(const QString& text)
{
    statusBar()->showMessage(text, kStatusMessageMs);
}

void CVWindowController::closeEvent(QCloseEvent* event)
{
    // The window is never closed: it steps aside and the refresh cycle goes on.
    event->ignore();
    saveWindowState();
    if (m_closeHandler)
        m_closeHandler();
    else
        showMinimized();
}

bool CVWindowController::event(QEvent* event)
{
    if (event->type() == QEvent::WindowActivate) {
        try {
            m_prefs.reloadFilterProfiles();
        } catch (const SQLiteError& error) {
            statusBar()->showMessage(
                tr("Saved searches could not be read: %1").arg(error.message()), 10000);
        }
        if (m_becameMainHandler)
            m_becameMainHandler();
    }
    return QMainWindow::event(event);
}

#include "cvwindowcontroller.h"

#include "connectiontablemodel.h"
#include "connectiontableview.h"
#include "desktopactions.h"
#include "filter/itemfilter.h"
#include "imageandtextcell.h"
#include "maintoolbar.h"
#include "persistence/sqliteerror.h"
#include "prefs/cvfilterprofileinfo.h"
#include "prefs/cvprefshelper.h"
#include "prefs/userdefaults.h"
#include "savesearchdialog.h"
#include "searchfield.h"
#include "segmentedcontrol.h"
#include "snapshot/hostnameresolver.h"
#include "snapshot/portservicemap.h"
#include "tablecolumnsmenu.h"
#include "textcell.h"
#include "toolbarstate.h"
#include "ui/app/cvshowipinfocontroller.h"

#include <QClipboard>
#include <QCloseEvent>
#include <QComboBox>
#include <QGuiApplication>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QSet>
#include <QStatusBar>
#include <QThreadPool>
#include <QTimer>
#include <QToolBar>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Window state of ours, apart from the settings the description names.
const QString kGeometryKey = u"MainWindow/Geometry"_s;
const QString kColumnWidthsKey = u"MainWindow/ColumnWidths"_s;
const QString kSortKey = u"MainWindow/Sort"_s;
constexpr qsizetype kImmediateFilterRows = 2000;

QColor toQColor(const std::optional<RgbaColor>& color, const QColor& fallback)
{
    return color ? QColor(color->r, color->g, color->b, color->a) : fallback;
}

} // namespace

CVWindowController::CVWindowController(SnapshotSource& source, CVPrefsHelper& prefs,
                                       QWidget* parent)
    : QMainWindow(parent), m_source(source), m_prefs(prefs)
{
    setWindowTitle(tr("Corvina"));
    setWindowIcon(QIcon::fromTheme(u"network-workgroup"_s, QIcon::fromTheme(u"network-wired"_s)));
    connect(&m_prefs, &CVPrefsHelper::filterProfilesChanged, this,
            &CVWindowController::filterProfilesChanged);
    connect(&m_source, &SnapshotSource::snapshotReady, this, &CVWindowController::applySnapshot);
    m_confirmTerminate = [this](const QString& appName) {
        QMessageBox box(QMessageBox::Question, tr("Terminate Application"),
                        tr("Terminate Application"), QMessageBox::Ok | QMessageBox::Cancel, this);
        box.setInformativeText(tr("Terminate application \"%1\"?").arg(appName));
        box.setDefaultButton(QMessageBox::Ok);
        return box.exec() == QMessageBox::Ok;
    };
    m_showError = [this](const QString& message) {
        QMessageBox::warning(this, tr("Corvina"), message);
    };

    buildTable();
    buildToolbar();
    buildContextMenu();
    buildMenus();

    // Set-up proper, in the order the window depends on.
    m_excludeAction->setVisible(false);
    restoreToolbarItemsState();
    m_lsofItemKeys.clear();
    for (int column = 0; column < m_model->columnCount(); ++column)
        m_lsofItemKeys.append(ConnectionTableModel::columnKey(column));
    m_headerMenu->setupTableHeaderViewMenu();
    restoreWindowState();
    userDefaultsChanged();
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
    setCentralWidget(m_table);

    QHeaderView* header = m_table->horizontalHeader();
    const QFontMetrics metrics(header->font());
    for (int column = 0; column < m_model->columnCount(); ++column) {
        const QString title = ConnectionTableModel::columnTitle(column);
        int width = metrics.horizontalAdvance(title) + 36;
        switch (ConnectionTableModel::columnKey(column)) {
        case LsofItem::Key::localizedAppName:
            width = std::max(width, 170);
            break;
        case LsofItem::Key::localAddress:
        case LsofItem::Key::remoteAddress:
            width = std::max(width, 140);
            break;
        case LsofItem::Key::remoteHostname:
        case LsofItem::Key::processPath:
            width = std::max(width, 180);
            break;
        default:
            width = std::max(width, 60);
        }
        header->resizeSection(column, width);
    }
    connect(header, &QHeaderView::sortIndicatorChanged, this, [this] { refreshTableViewData(); });
    connect(header, &QHeaderView::sectionMoved, this, [this] { m_headerMenu->saveTableColumns(); });

    m_headerMenu = new TableColumnsMenu(*m_table, m_prefs.defaultsStore(), this);

    m_rowsLabel = new QLabel(this);
    m_roadLabel = new QLabel(this);
    m_problemLabel = new QLabel(this);
    m_problemLabel->setStyleSheet(u"color: palette(highlighted-text); background: #b3261e; "
                                  "padding: 1px 6px; border-radius: 3px;"_s);
    m_problemLabel->hide();
    statusBar()->addWidget(m_rowsLabel);
    statusBar()->addWidget(m_problemLabel);
    statusBar()->addPermanentWidget(m_roadLabel);
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

    m_saveSearchWindow = new SaveSearchDialog(this);
    connect(m_saveSearchWindow, &SaveSearchDialog::confirmClicked, this,
            &CVWindowController::confirmSaveSearchClicked);
    connect(m_saveSearchWindow, &SaveSearchDialog::cancelClicked, this,
            &CVWindowController::cancelSaveSearchClicked);
}

void CVWindowController::buildMenus()
{
    QMenu* file = menuBar()->addMenu(tr("&File"));
    QAction* refresh = file->addAction(QIcon::fromTheme(u"view-refresh"_s), tr("&Refresh"), this,
                                       [this] { reloadTableViewData(); });
    refresh->setShortcut(QKeySequence::Refresh);
    refresh->setShortcuts({QKeySequence(Qt::CTRL | Qt::Key_R), QKeySequence::Refresh});
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
    QAction* find = edit->addAction(QIcon::fromTheme(u"edit-find"_s), tr("&Find"), this,
                                    &CVWindowController::performFindPanelAction);
    find->setShortcut(QKeySequence::Find);

    QMenu* view = menuBar()->addMenu(tr("&View"));
    view->addMenu(m_headerMenu);
}

void CVWindowController::buildContextMenu()
{
    m_contextMenu = new QMenu(this);
    m_contextMenu->addAction(QIcon::fromTheme(u"edit-copy"_s), tr("Copy"), this,
                             &CVWindowController::copySelectedLines);
    m_contextMenu->addAction(tr("Copy Cell"), this, &CVWindowController::copyCellContent);
    m_contextMenu->addSeparator();
    m_contextMenu->addAction(
        QIcon::fromTheme(u"system-file-manager"_s, QIcon::fromTheme(u"folder"_s)),
        tr("Show in File Manager"), this, &CVWindowController::showInFinder);
    m_bringToFrontAction =
        m_contextMenu->addAction(tr("Bring to Front"), this, &CVWindowController::bringToFront);
    m_contextMenu->addAction(QIcon::fromTheme(u"process-stop"_s), tr("Terminate Application…"),
                             this, &CVWindowController::terminateSelectedApp);
    m_contextMenu->addSeparator();
    m_contextMenu->addAction(QIcon::fromTheme(u"network-server"_s), tr("IP Information"), this,
                             &CVWindowController::showRemoteIPInformation);
    QMenu* search =
        m_contextMenu->addMenu(QIcon::fromTheme(u"web-browser"_s), tr("Search the Web For"));
    const QStringList searchTitles{tr("Application"), tr("Remote Address"), tr("Remote Port"),
                                   tr("Remote Host")};
    for (int tag = 0; tag < searchTitles.size(); ++tag) {
        QAction* item = search->addAction(searchTitles.at(tag));
        item->setData(tag);
        connect(item, &QAction::triggered, this, [this, item] { searchInGoogle(item); });
    }
    m_contextMenu->addSeparator();
    m_excludeAction = m_contextMenu->addAction(tr("Exclude from Notifications"), this,
                                               &CVWindowController::excludeForGrowlNotification);
    connect(m_table, &ConnectionTableView::contextMenuWanted, this, [this](const QPoint& pos) {
        updateContextMenu();
        m_contextMenu->popup(pos);
    });
}

void CVWindowController::updateContextMenu()
{
    const QString reason = DesktopActions::bringToFrontUnavailableReason();
    m_bringToFrontAction->setEnabled(reason.isEmpty());
    m_bringToFrontAction->setToolTip(reason);
    m_contextMenu->setToolTipsVisible(!reason.isEmpty());
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
    connect(m_autoRefreshTimer, &QTimer::timeout, this, [this] { reloadTableViewData(); });
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
    m_source.setOrdering(ordering());
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
    m_lastProblem = problem;
    // Sorted on the worker, unless the header's indicator moved while lsof ran.
    const ItemOrdering wanted = ordering();
    const LsofItemList selection = std::exchange(m_pendingSelection, {});
    showItems(sortedBy == wanted ? items : wanted.sorted(items), selection);
}

void CVWindowController::refreshTableViewData()
{
    const LsofItemList selection = selectedItems();
    showItems(ordering().sorted(m_originalItems), selection);
    saveToolbarItemsState();
}

void CVWindowController::showItems(const LsofItemList& sorted, const LsofItemList& selection)
{
    m_originalItems = sorted;
    m_model->setItems(filterItems(m_originalItems, m_searchField->text()));
    selectItems(selection);
    updateStatusBar();
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
    ItemFilter::Result result = filter.apply(items);
    // A bad expression or pattern stays silent by design; running out of time does not, as
    // rows would be missing without a reason.
    m_filterGaveUp = result.gaveUp;
    return std::move(result.items);
}

void CVWindowController::userDefaultsChanged()
{
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
    palette.setColor(QPalette::Text,
                     ConnectionTableModel::legibleTextColor(colors.text, colors.list));
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
}

void CVWindowController::filterProfilesChanged()
{
    const std::shared_ptr<CVFilterProfileInfo> chosen = chosenFilterProfile();
    const QSignalBlocker blocker(m_profileButton);
    while (m_profileButton->count() > 1)
        m_profileButton->removeItem(m_profileButton->count() - 1);
    m_popupProfiles.clear();
    m_profileButton->setCurrentIndex(0);
    const auto profiles = m_prefs.filterProfiles();
    for (const auto& profile : profiles) {
        m_popupProfiles.append(profile);
        m_profileButton->addItem(profile->profileName());
        if (chosen && profile.get() == chosen.get())
            m_profileButton->setCurrentIndex(m_profileButton->count() - 1);
    }
}

std::shared_ptr<CVFilterProfileInfo> CVWindowController::chosenFilterProfile() const
{
    const int index = m_profileButton->currentIndex();
    if (index < 1 || index > m_popupProfiles.size())
        return {};
    return m_popupProfiles.at(index - 1);
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
    reloadTableViewData();
}

void CVWindowController::saveCurrentSearch()
{
    const QString text = m_searchField->text();
    if (text.isEmpty())
        return;
    m_saveSearchWindow->nameField()->setText(text);
    m_saveSearchWindow->expressionField()->setText(text);
    m_saveSearchWindow->nameField()->selectAll();
    m_saveSearchWindow->nameField()->setFocus();
    m_saveSearchWindow->open();
}

void CVWindowController::confirmSaveSearchClicked()
{
    QLineEdit* name = m_saveSearchWindow->nameField();
    if (name->text().isEmpty()) {
        name->setFocus();
        return;
    }
    try {
        auto profile = CVFilterProfileInfo::create();
        profile->setProfileName(name->text());
        profile->setSearchExpression(m_saveSearchWindow->expressionField()->text());
        profile->save();
        m_prefs.reloadFilterProfiles();
    } catch (const SQLiteError& error) {
        // The sheet stays open with what the user typed.
        m_showError(tr("The search could not be saved: %1").arg(error.message()));
        return;
    }
    m_saveSearchWindow->hide();
    m_saveSearchWindow->setResult(QDialog::Accepted);
}

void CVWindowController::cancelSaveSearchClicked()
{
    m_saveSearchWindow->hide();
    m_saveSearchWindow->setResult(QDialog::Rejected);
}

void CVWindowController::saveToolbarItemsState()
{
    ToolbarState::save(*m_toolbar, m_prefs.defaultsStore());
}

void CVWindowController::restoreToolbarItemsState()
{
    // Restoring the search text must not start a refresh before the window is set up.
    const QSignalBlocker blocker(m_searchField);
    ToolbarState::restore(*m_toolbar, m_prefs.defaultsStore());
}

// Row commands.

LsofItemPtr CVWindowController::clickedItem() const
{
    const int row = m_table->clickedRow();
    if (row >= 0 && row < items().size())
        return items().at(row);
    return {};
}

void CVWindowController::copySelectedLines()
{
    const QList<int> columns = m_headerMenu->shownColumns();
    QStringList lines;
    for (int row : m_table->selectedRowNumbers()) {
        if (row >= items().size())
            continue;
        const LsofItem& item = *items().at(row);
        QStringList fields;
        fields.reserve(columns.size());
        for (int column : columns)
            fields.append(item.text(ConnectionTableModel::columnKey(column)));
        lines.append(fields.join(u'\t'));
    }
    QClipboard* clipboard = QGuiApplication::clipboard();
    clipboard->clear();
    clipboard->setText(lines.join(u'\n'));
}

void CVWindowController::copyCellContent()
{
    const int row = m_table->clickedRow();
    const int column = m_table->clickedColumn();
    // Offered only from a cell's context menu, so a missing cell is a programming error.
    Q_ASSERT(row >= 0 && row < items().size() && column >= 0 && column < m_model->columnCount());
    if (row < 0 || row >= items().size() || column < 0 || column >= m_model->columnCount())
        return;
    QClipboard* clipboard = QGuiApplication::clipboard();
    clipboard->clear();
    clipboard->setText(items().at(row)->text(ConnectionTableModel::columnKey(column)));
}

void CVWindowController::performFindPanelAction()
{
    m_searchField->setFocus(Qt::ShortcutFocusReason);
    m_searchField->selectAll();
}

void CVWindowController::bringToFront()
{
    const LsofItemPtr item = clickedItem();
    if (!item)
        return;
    const QString reason = DesktopActions::bringToFrontUnavailableReason();
    if (!reason.isEmpty()) {
        m_showError(reason);
        return;
    }
    if (!DesktopActions::bringToFront(item->PID()))
        statusBar()->showMessage(
            tr("\"%1\" has no window to bring forward.").arg(item->localizedAppName()), 5000);
}

void CVWindowController::showInFinder()
{
    const LsofItemPtr item = clickedItem();
    if (!item || item->processPath().isEmpty())
        return;
    if (!DesktopActions::showInFileManager(item->processPath()))
        statusBar()->showMessage(tr("No file manager could show %1.").arg(item->processPath()),
                                 5000);
}

void CVWindowController::terminateSelectedApp()
{
    const int row = m_table->clickedRow();
    if (row < 0 || row >= items().size())
        return;
    const LsofItemPtr item = items().at(row);
    if (!m_confirmTerminate(item->localizedAppName()))
        return;
    const QString error = DesktopActions::terminate(item->PID(), item->localizedAppName());
    if (!error.isEmpty())
        m_showError(error);
}

void CVWindowController::showRemoteIPInformation()
{
    const LsofItemPtr item = clickedItem();
    if (item && !item->remoteAddress().isEmpty())
        CVShowIPInfoController::showIPInfo(item->remoteAddress());
}

void CVWindowController::searchInGoogle(QAction* sender)
{
    if (!sender)
        return;
    static const LsofItem::Key keys[] = {LsofItem::Key::localizedAppName,
                                         LsofItem::Key::remoteAddress, LsofItem::Key::remotePort,
                                         LsofItem::Key::remoteHostname};
    const int tag = sender->data().toInt();
    Q_ASSERT(tag >= 0 && tag < 4);
    if (tag < 0 || tag >= 4)
        return;
    const LsofItemPtr item = clickedItem();
    if (!item)
        return;
    QString term = item->text(keys[tag]);
    if (keys[tag] == LsofItem::Key::remotePort)
        term = u"port "_s + term;
    DesktopActions::openUrl(DesktopActions::webSearchUrl(term));
}

void CVWindowController::excludeForGrowlNotification()
{
    if (const LsofItemPtr item = clickedItem())
        m_prefs.addExcludeAppForGrowNotification(item->processPath());
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

void CVWindowController::setConfirmTerminateHandler(std::function<bool(const QString&)> handler)
{
    m_confirmTerminate = std::move(handler);
}

void CVWindowController::setErrorHandler(std::function<void(const QString&)> handler)
{
    m_showError = std::move(handler);
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

void CVWindowController::updateStatusBar()
{
    m_rowsLabel->setText(
        tr("%1 of %n connections", nullptr, int(m_originalItems.size())).arg(items().size()));
    switch (m_source.lastRoad()) {
    case SnapshotSource::Road::Helper:
        m_roadLabel->setText(tr("lsof through the privileged helper"));
        break;
    case SnapshotSource::Road::Script:
        m_roadLabel->setText(tr("lsof through the user script"));
        break;
    case SnapshotSource::Road::Direct:
        // Run by root, lsof sees every process's sockets without any helper.
        m_roadLabel->setText(geteuid() == 0 ? tr("lsof run directly: all processes")
                                            : tr("lsof run directly: your own processes only"));
        break;
    case SnapshotSource::Road::None:
        m_roadLabel->clear();
        break;
    }
    QString problem = m_lastProblem;
    if (m_filterGaveUp) {
        const QString gaveUp = tr("The search took too long; some connections are not shown.");
        problem = problem.isEmpty() ? gaveUp : problem + u' ' + gaveUp;
    }
    m_problemLabel->setText(problem);
    m_problemLabel->setVisible(!problem.isEmpty());
}

void CVWindowController::restoreWindowState()
{
    const UserDefaults& defaults = m_prefs.defaultsStore();
    const QByteArray geometry = defaults.objectForKey(kGeometryKey).toByteArray();
    if (geometry.isEmpty() || !restoreGeometry(geometry))
        resize(1180, 640);
    const QVariantMap widths = defaults.objectForKey(kColumnWidthsKey).toMap();
    QHeaderView* header = m_table->horizontalHeader();
    for (int column = 0; column < m_model->columnCount(); ++column) {
        const int width = widths.value(ConnectionTableModel::columnTitle(column)).toInt();
        if (width >= header->minimumSectionSize())
            header->resizeSection(column, width);
    }
    const QVariantMap sort = defaults.objectForKey(kSortKey).toMap();
    const int sortColumn = sort.value(u"column"_s, -1).toInt();
    if (sortColumn >= 0 && sortColumn < m_model->columnCount()) {
        const QSignalBlocker blocker(header);
        header->setSortIndicator(sortColumn, sort.value(u"descending"_s).toBool()
                                                 ? Qt::DescendingOrder
                                                 : Qt::AscendingOrder);
    }
}

void CVWindowController::saveWindowState()
{
    UserDefaults& defaults = m_prefs.defaultsStore();
    QVariantMap widths;
    const QHeaderView* header = m_table->horizontalHeader();
    for (int column = 0; column < m_model->columnCount(); ++column) {
        if (!header->isSectionHidden(column))
            widths.insert(ConnectionTableModel::columnTitle(column), header->sectionSize(column));
    }
    defaults.setObject(kGeometryKey, saveGeometry());
    defaults.setObject(kColumnWidthsKey, widths);
    defaults.setObject(kSortKey, QVariantMap{{u"column"_s, header->sortIndicatorSection()},
                                             {u"descending"_s, header->sortIndicatorOrder() ==
                                                                   Qt::DescendingOrder}});
}

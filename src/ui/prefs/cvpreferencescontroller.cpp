#include "cvpreferencescontroller.h"

#include "cli/helpercommand.h"
#include "colorwell.h"
#include "cvpreferencescolumnsdatasource.h"
#include "cvpreferencesexcludeappsdatasource.h"
#include "excludedappspane.h"
#include "filterprofiletablemodel.h"
#include "persistence/sqliteerror.h"
#include "prefs/cvfilterprofileinfo.h"
#include "prefs/cvprefshelper.h"
#include "prefs/userdefaults.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QEvent>
#include <QFileInfo>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QListView>
#include <QListWidget>
#include <QPushButton>
#include <QSpinBox>
#include <QStackedWidget>
#include <QTableView>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

// The refresh periods the toolbar offers too, in seconds; 0 is "Off".
constexpr int kRefreshPeriods[] = {0, 1, 2, 3, 5, 10};

// The settings that resetDisplayOptions returns to their defaults, in the order it removes them.
const QStringList& displayOptionKeys()
{
    static const QStringList keys = {
        PrefKeys::ListFontSize,
        PrefKeys::ListBackgroundColor,
        PrefKeys::ListTextColor,
        PrefKeys::NewConnectionBackgroundColor,
        PrefKeys::StateChangedConnectionBackgroundColor,
        PrefKeys::ClosedConnectionBackgroundColor,
    };
    return keys;
}

QColor toQColor(const RgbaColor& color)
{
    return QColor(color.r, color.g, color.b, color.a);
}

RgbaColor toRgba(const QColor& color)
{
    const QColor rgb = color.toRgb();
    return RgbaColor{quint8(rgb.red()), quint8(rgb.green()), quint8(rgb.blue()),
                     quint8(rgb.alpha())};
}

QString periodTitle(qint64 seconds)
{
    if (seconds < 1)
        return CVPreferencesController::tr("Off");
    if (seconds == 1)
        return CVPreferencesController::tr("Every second");
    return CVPreferencesController::tr("Every %1 seconds").arg(seconds);
}

QLabel* hint(const QString& text)
{
    auto* label = new QLabel(text);
    label->setWordWrap(true);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

} // namespace

CVPreferencesController::Services CVPreferencesController::defaultServices()
{
    return PreferencesServices::desktop();
}

CVPreferencesController::CVPreferencesController(CVPrefsHelper& prefs, QMenu* tableHeaderMenu,
                                                 Services services, QWidget* parent)
    : QDialog(parent), m_prefs(prefs), m_services(std::move(services)),
      m_excludeApps(new CVPreferencesExcludeAppsDataSource(prefs, this)),
      m_columns(new CVPreferencesColumnsDataSource(prefs.defaultsStore(), tableHeaderMenu, this)),
      m_profiles(new FilterProfileTableModel(prefs, this))
{
    setWindowTitle(tr("Corvina Preferences"));
    setObjectName(u"CVPreferencesWindow"_s);

    m_sections = new QListWidget;
    m_sections->setIconSize(QSize(22, 22));
    m_sections->setSpacing(1);
    m_sections->setFixedWidth(210);
    m_sections->setFrameShape(QFrame::StyledPanel);
    m_panes = new QStackedWidget;
    addPane(buildGeneralPane(), {u"preferences-system"_s, u"preferences-other"_s}, tr("General"));
    addPane(buildAppearancePane(),
            {u"preferences-desktop-theme"_s, u"preferences-desktop-color"_s,
             u"preferences-desktop-appearance"_s},
            tr("Appearance"));
    addPane(buildNotificationsPane(),
            {u"preferences-desktop-notification"_s, u"preferences-system-notifications"_s,
             u"dialog-information"_s},
            tr("Notifications and Logging"));
    m_excludedAppsPane = new ExcludedAppsPane(*m_excludeApps, [this] {
        return m_services.listedApplications ? m_services.listedApplications()
                                             : QList<PreferencesServices::ApplicationChoice>();
    });
    connect(m_excludedAppsPane, &ExcludedAppsPane::applicationChosen, this,
            [this](const QString& path) { m_prefs.addExcludeAppForGrowNotification(path); });
    connect(m_excludedAppsPane, &ExcludedAppsPane::chooseProgramRequested, this,
            &CVPreferencesController::addExcludeAppForGrowl);
    connect(m_excludedAppsPane, &ExcludedAppsPane::removeRequested, this,
            &CVPreferencesController::removeExcludeAppForGrowl);
    addPane(m_excludedAppsPane, {u"preferences-desktop-apps"_s, u"application-x-executable"_s},
            tr("Excluded Applications"));
    addPane(buildColumnsPane(), {u"view-list-details"_s, u"x-office-spreadsheet"_s}, tr("Columns"));
    addPane(buildSavedSearchesPane(), {u"edit-find"_s, u"system-search"_s}, tr("Saved Searches"));
    connect(m_sections, &QListWidget::currentRowChanged, m_panes, &QStackedWidget::setCurrentIndex);
    m_sections->setCurrentRow(General);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Help | QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(buttons, &QDialogButtonBox::helpRequested, this, &CVPreferencesController::showHelp);

    auto* body = new QHBoxLayout;
    body->setSpacing(12);
    body->addWidget(m_sections);
    body->addWidget(m_panes, 1);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(body, 1);
    layout->addWidget(buttons);
    resize(760, 500);

    // The helper controls stay out of sight; their commands are kept.
    m_helperToolBox->hide();
    m_helperInfoLabel->setText(m_services.checkHelperInstalled && m_services.checkHelperInstalled()
                                   ? u"Helper installed"_s
                                   : u"Helper not installed"_s);

    readSettings();
    connect(&m_prefs, &CVPrefsHelper::defaultsChanged, this,
            &CVPreferencesController::readSettings);
}

CVPreferencesController::~CVPreferencesController() = default;

void CVPreferencesController::addPane(QWidget* pane, const QStringList& iconNames,
                                      const QString& title)
{
    // Icon themes name these icons differently; the first one the theme has is used.
    QIcon icon;
    for (const QString& name : iconNames) {
        if (QIcon::hasThemeIcon(name)) {
            icon = QIcon::fromTheme(name);
            break;
        }
    }
    auto* item = new QListWidgetItem(icon, title, m_sections);
    item->setSizeHint(QSize(0, 34));
    m_panes->addWidget(pane);
}

QListView* CVPreferencesController::excludeAppsView() const
{
    return m_excludedAppsPane->view();
}

void CVPreferencesController::setTableHeaderMenu(QMenu* menu)
{
    m_columns->setTableHeaderMenu(menu);
}

void CVPreferencesController::showPane(Pane pane)
{
    m_sections->setCurrentRow(pane);
}

CVPreferencesController::Pane CVPreferencesController::currentPane() const
{
    return Pane(m_panes->currentIndex());
}

QWidget* CVPreferencesController::buildGeneralPane()
{
    auto* pane = new QWidget;
    auto* refresh = new QGroupBox(tr("Refresh"));
    m_refreshButton = new QComboBox;
    for (const int seconds : kRefreshPeriods)
        m_refreshButton->addItem(periodTitle(seconds), seconds);
    connect(m_refreshButton, &QComboBox::activated, this, [this](int index) {
        m_prefs.defaultsStore().setInteger(PrefKeys::AutoRefreshSetting,
                                           m_refreshButton->itemData(index).toLongLong());
        if (m_services.refreshPeriodChosen)
            m_services.refreshPeriodChosen();
    });
    auto* form = new QFormLayout(refresh);
    form->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
    form->addRow(tr("Refresh the connection list:"), m_refreshButton);
    m_collectorButton = new QComboBox;
    m_collectorButton->addItem(tr("Built-in (asks the kernel)"), u"native"_s);
    m_collectorButton->addItem(tr("lsof"), u"lsof"_s);
    connect(m_collectorButton, &QComboBox::activated, this, [this](int index) {
        m_prefs.defaultsStore().setString(PrefKeys::SnapshotCollector,
                                          m_collectorButton->itemData(index).toString());
    });
    form->addRow(tr("Collect connections with:"), m_collectorButton);
    form->addRow(hint(tr("The built-in collector asks the kernel directly and also gives each "
                         "connection's traffic; lsof takes it where the kernel refuses. A "
                         "longer period costs less; closed connections stay listed until the "
                         "next refresh.")));

    m_helperToolBox = new QGroupBox(tr("Privileged Helper"));
    m_helperInfoLabel = new QLabel;
    auto* install = new QPushButton(tr("Install Helper…"));
    auto* remove = new QPushButton(tr("Remove Helper…"));
    connect(install, &QPushButton::clicked, this, &CVPreferencesController::installHelper);
    connect(remove, &QPushButton::clicked, this, &CVPreferencesController::removeHelper);
    auto* helperRow = new QHBoxLayout(m_helperToolBox);
    helperRow->addWidget(m_helperInfoLabel, 1);
    helperRow->addWidget(install);
    helperRow->addWidget(remove);

    auto* layout = new QVBoxLayout(pane);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(refresh);
    layout->addWidget(m_helperToolBox);
    layout->addStretch(1);
    return pane;
}

QWidget* CVPreferencesController::buildAppearancePane()
{
    auto* pane = new QWidget;
    auto* list = new QGroupBox(tr("Connection List"));
    auto* form = new QFormLayout(list);
    form->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
    m_fontSizeBox = new QSpinBox;
    m_fontSizeBox->setRange(6, 48);
    m_fontSizeBox->setSuffix(tr(" pt"));
    connect(m_fontSizeBox, &QSpinBox::valueChanged, this, [this](int size) {
        if (m_prefs.defaultsStore().integerForKey(PrefKeys::ListFontSize) != size)
            m_prefs.defaultsStore().setInteger(PrefKeys::ListFontSize, size);
    });
    form->addRow(tr("Font size:"), m_fontSizeBox);

    const QList<std::pair<QString, QString>> colors = {
        {PrefKeys::ListBackgroundColor, tr("Background:")},
        {PrefKeys::ListTextColor, tr("Text:")},
        {PrefKeys::NewConnectionBackgroundColor, tr("New connection:")},
        {PrefKeys::StateChangedConnectionBackgroundColor, tr("State changed:")},
        {PrefKeys::ClosedConnectionBackgroundColor, tr("Closed connection:")},
    };
    for (const auto& [key, title] : colors) {
        auto* well = new ColorWell;
        well->setObjectName(key);
        well->setAccessibleName(title);
        const QString dialogTitle = title.chopped(1);
        connect(well, &ColorWell::clicked, this,
                [this, key = key, dialogTitle] { chooseColor(key, dialogTitle); });
        m_colorWells.insert(key, well);
        form->addRow(title, well);
    }

    auto* reset = new QPushButton(tr("Reset Display Options"));
    connect(reset, &QPushButton::clicked, this, &CVPreferencesController::resetDisplayOptions);
    auto* resetRow = new QHBoxLayout;
    resetRow->addStretch(1);
    resetRow->addWidget(reset);

    auto* layout = new QVBoxLayout(pane);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(list);
    layout->addWidget(hint(tr("New, state-changed and closed connections keep their colour for "
                              "one refresh. Colours may be translucent.")));
    layout->addLayout(resetRow);
    layout->addStretch(1);
    return pane;
}

QCheckBox* CVPreferencesController::addSwitch(const QString& key, const QString& title)
{
    auto* box = new QCheckBox(title);
    box->setObjectName(key);
    connect(box, &QCheckBox::toggled, this, [this, key](bool on) {
        if (m_prefs.defaultsStore().boolForKey(key) != on)
            m_prefs.defaultsStore().setBool(key, on);
    });
    m_switches.insert(key, box);
    return box;
}

QWidget* CVPreferencesController::buildNotificationsPane()
{
    auto* pane = new QWidget;
    auto* notify = new QGroupBox(tr("Desktop Notifications"));
    auto* notifyLayout = new QVBoxLayout(notify);
    notifyLayout->addWidget(addSwitch(PrefKeys::NotifyNewConnections, tr("New connections")));
    notifyLayout->addWidget(
        addSwitch(PrefKeys::NotifyConnectionsStateChange, tr("Connection state changes")));
    notifyLayout->addWidget(addSwitch(PrefKeys::ResolveRemoteAddressInGrowl,
                                      tr("Show remote host names instead of addresses")));

    auto* log = new QGroupBox(tr("Logging"));
    auto* grid = new QGridLayout(log);
    grid->addWidget(new QLabel(tr("CSV files")), 0, 1, Qt::AlignHCenter);
    grid->addWidget(new QLabel(tr("System log")), 0, 2, Qt::AlignHCenter);
    grid->addWidget(new QLabel(tr("New connections")), 1, 0);
    grid->addWidget(new QLabel(tr("State changes")), 2, 0);
    const auto cell = [this](const QString& key, const QString& title) {
        QCheckBox* box = addSwitch(key, QString());
        box->setAccessibleName(title);
        box->setToolTip(title);
        return box;
    };
    grid->addWidget(
        cell(PrefKeys::LogNewConnectionToCSVFiles, tr("Log new connections to CSV files")), 1, 1,
        Qt::AlignHCenter);
    grid->addWidget(cell(PrefKeys::LogNewConnectionToSystemConsole,
                         tr("Log new connections to the system log")),
                    1, 2, Qt::AlignHCenter);
    grid->addWidget(
        cell(PrefKeys::LogConnectionStateChangeToCSVFiles, tr("Log state changes to CSV files")), 2,
        1, Qt::AlignHCenter);
    grid->addWidget(cell(PrefKeys::LogConnectionStateChangeToSystemConsole,
                         tr("Log state changes to the system log")),
                    2, 2, Qt::AlignHCenter);
    grid->setColumnStretch(0, 1);
    grid->setColumnMinimumWidth(1, 110);
    grid->setColumnMinimumWidth(2, 110);
    grid->addWidget(
        addSwitch(PrefKeys::CSVFilesLogSplitEveryDay, tr("Start a new CSV file every day")), 3, 0,
        1, 3);
    m_logFolderLabel = new QLabel;
    m_logFolderLabel->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_logFolderLabel->setWordWrap(true);
    m_logFolderLabel->setForegroundRole(QPalette::PlaceholderText);
    grid->addWidget(m_logFolderLabel, 4, 0, 1, 3);

    auto* today = new QPushButton(QIcon::fromTheme(u"text-x-generic"_s), tr("Open Today's Log"));
    auto* folder = new QPushButton(QIcon::fromTheme(u"folder-open"_s), tr("Open Log Folder"));
    connect(today, &QPushButton::clicked, this, &CVPreferencesController::openTodayLog);
    connect(folder, &QPushButton::clicked, this, &CVPreferencesController::openLogFolder);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(today);
    buttons->addWidget(folder);
    grid->addLayout(buttons, 5, 0, 1, 3);

    auto* layout = new QVBoxLayout(pane);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(notify);
    layout->addWidget(log);
    layout->addStretch(1);
    return pane;
}

QWidget* CVPreferencesController::buildColumnsPane()
{
    auto* pane = new QWidget;
    m_displayColumnsBox = new QGroupBox(tr("Columns Shown in the Connection List"));
    m_columnsView = new QListView;
    m_columnsView->setModel(m_columns);
    m_columnsView->setUniformItemSizes(true);
    m_columnsView->setSpacing(2);
    auto* boxLayout = new QVBoxLayout(m_displayColumnsBox);
    boxLayout->addWidget(m_columnsView);
    auto* layout = new QVBoxLayout(pane);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_displayColumnsBox);
    return pane;
}

QWidget* CVPreferencesController::buildSavedSearchesPane()
{
    auto* pane = new QGroupBox(tr("Saved Searches"));
    m_profileView = new QTableView;
    m_profileView->setModel(m_profiles);
    m_profileView->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_profileView->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_profileView->setEditTriggers(QAbstractItemView::DoubleClicked |
                                   QAbstractItemView::EditKeyPressed);
    m_profileView->verticalHeader()->hide();
    m_profileView->horizontalHeader()->setStretchLastSection(true);
    m_profileView->horizontalHeader()->resizeSection(FilterProfileTableModel::NameColumn, 150);
    m_profileView->setAlternatingRowColors(true);
    connect(m_profiles, &FilterProfileTableModel::editFailed, this, [this](const QString& message) {
        if (m_services.alert)
            m_services.alert(this, tr("Saved Searches"), message);
    });

    auto* remove = new QPushButton(QIcon::fromTheme(u"edit-delete"_s), tr("Delete"));
    m_deleteProfileButton = remove;
    connect(remove, &QPushButton::clicked, this, &CVPreferencesController::deleteFilterProfile);
    connect(m_profileView->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &CVPreferencesController::updateButtons);
    connect(m_profiles, &QAbstractItemModel::modelReset, this,
            &CVPreferencesController::updateButtons);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(remove);
    buttons->addStretch(1);

    auto* layout = new QVBoxLayout(pane);
    layout->addWidget(hint(tr("Double-click a name or an expression to change it. New searches "
                              "are saved from the search field's menu in the main window.")));
    layout->addWidget(m_profileView, 1);
    layout->addLayout(buttons);
    return pane;
}

void CVPreferencesController::readSettings()
{
    const UserDefaults& store = m_prefs.defaultsStore();
    const qint64 period = store.integerForKey(PrefKeys::AutoRefreshSetting);
    int index = m_refreshButton->findData(qMax<qint64>(0, period));
    if (index < 0) {
        // A period set elsewhere (the command line) that the list does not offer.
        m_refreshButton->addItem(periodTitle(period), period);
        index = m_refreshButton->count() - 1;
    }
    m_refreshButton->setCurrentIndex(index);
    m_collectorButton->setCurrentIndex(
        qMax(0, m_collectorButton->findData(store.stringForKey(PrefKeys::SnapshotCollector))));

    const QSignalBlocker blockFont(m_fontSizeBox);
    m_fontSizeBox->setValue(int(store.integerForKey(PrefKeys::ListFontSize)));
    for (auto it = m_colorWells.cbegin(); it != m_colorWells.cend(); ++it) {
        const std::optional<RgbaColor> color = m_prefs.colorForKey(it.key());
        it.value()->setColor(color ? toQColor(*color) : QColor());
    }
    for (auto it = m_switches.cbegin(); it != m_switches.cend(); ++it) {
        const QSignalBlocker block(it.value());
        it.value()->setChecked(store.boolForKey(it.key()));
    }
    m_logFolderLabel->setText(
        tr("Logs are kept in %1").arg(QDir::toNativeSeparators(m_prefs.logFolder())));
    updateButtons();
}

void CVPreferencesController::updateButtons()
{
    m_deleteProfileButton->setEnabled(m_profileView->selectionModel()->hasSelection());
}

void CVPreferencesController::chooseColor(const QString& key, const QString& title)
{
    if (!m_services.chooseColor)
        return;
    const std::optional<RgbaColor> current = m_prefs.colorForKey(key);
    const std::optional<QColor> chosen =
        m_services.chooseColor(this, current ? toQColor(*current) : QColor(Qt::white), title);
    if (chosen && chosen->isValid())
        m_prefs.defaultsStore().setString(key, toRgba(*chosen).toText());
}

bool CVPreferencesController::event(QEvent* event)
{
    if (event->type() == QEvent::WindowActivate)
        m_prefs.reloadFilterProfiles();
    return QDialog::event(event);
}

void CVPreferencesController::addExcludeAppForGrowl()
{
    if (!m_services.chooseApplication)
        return;
    const QString path = m_services.chooseApplication(this, tr("Select Application to Exclude"));
    if (!path.isEmpty())
        m_prefs.addExcludeAppForGrowNotification(path);
}

void CVPreferencesController::removeExcludeAppForGrowl()
{
    m_excludeApps->removeSelectedApp();
}

void CVPreferencesController::resetDisplayOptions()
{
    for (const QString& key : displayOptionKeys())
        m_prefs.defaultsStore().removeObjectForKey(key);
}

void CVPreferencesController::openTodayLog()
{
    const QString path = QDir(m_prefs.logFolder()).filePath(m_prefs.logFileName());
    if (!QFileInfo::exists(path)) {
        m_services.alert(this, tr("Open Today's Log"),
                         tr("There is no log file %1 yet. It is written when the first "
                            "connection is logged to CSV files.")
                             .arg(QDir::toNativeSeparators(path)));
        return;
    }
    if (!m_services.revealFile(path))
        m_services.alert(this, tr("Open Today's Log"),
                         tr("No file manager could show %1.").arg(QDir::toNativeSeparators(path)));
}

void CVPreferencesController::openLogFolder()
{
    const QString folder = m_prefs.logFolder();
    if (!QFileInfo(folder).isDir()) {
        m_services.alert(this, tr("Open Log Folder"),
                         tr("The log folder %1 does not exist yet. It is created when the first "
                            "connection is logged to CSV files.")
                             .arg(QDir::toNativeSeparators(folder)));
        return;
    }
    if (!m_services.openFolder(folder))
        m_services.alert(
            this, tr("Open Log Folder"),
            tr("No file manager could open %1.").arg(QDir::toNativeSeparators(folder)));
}

void CVPreferencesController::deleteFilterProfile()
{
    QList<std::shared_ptr<CVFilterProfileInfo>> doomed;
    const QModelIndexList rows = m_profileView->selectionModel()->selectedRows();
    for (const QModelIndex& row : rows) {
        if (auto profile = m_profiles->profileAt(row.row()))
            doomed.append(profile);
    }
    if (doomed.isEmpty())
        return;
    try {
        for (const auto& profile : std::as_const(doomed))
            profile->deleteObject();
    } catch (const SQLiteError& error) {
        m_services.alert(this, tr("Saved Searches"),
                         tr("The saved searches could not be deleted: %1").arg(error.message()));
    }
    m_prefs.reloadFilterProfiles();
}

void CVPreferencesController::showHelp()
{
    if (m_services.showHelp)
        m_services.showHelp();
}

void CVPreferencesController::installHelper()
{
    // The result is not looked at: the message is the same either way.
    if (m_services.installHelper)
        m_services.installHelper();
    m_services.alert(this, tr("Install Helper"),
                     tr("Install helper tool successfully, restart Corvina to take effects."));
}

QString CVPreferencesController::removeHelperMessage()
{
    return u"%1\n\n%2\n"_s.arg(tr("Please run following command in Terminal:"),
                               helperRemoveCommands().join(u'\n'));
}

void CVPreferencesController::removeHelper()
{
    m_services.alert(this, tr("Remove Helper"), removeHelperMessage());
}

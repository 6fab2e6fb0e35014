#include "cvappdelegate.h"

#include "cvinstalluserscriptcontroller.h"
#include "cvshowhelpwindowcontroller.h"
#include "desktopnotifier.h"
#include "ovmodule.h"
#include "prefs/cvprefshelper.h"
#include "prefs/userdefaults.h"
#include "suupdater.h"
#include "ui/prefs/cvpreferencescontroller.h"
#include "ui/window/cvwindowcontroller.h"
#include "ui/window/tablecolumnsmenu.h"

#include <QApplication>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QSet>
#include <QSystemTrayIcon>

using namespace Qt::StringLiterals;

namespace {

// Said once per account: closing the window does not end the program.
const QString kTrayNoticeShownKey = u"MainWindow/TrayNoticeShown"_s;

} // namespace

CVAppDelegate::CVAppDelegate(SnapshotSource& source, CVPrefsHelper& prefs, QObject* parent)
    : QObject(parent), m_window(std::make_unique<CVWindowController>(source, prefs)),
      m_notifier(new DesktopNotifier(this)), m_prefs(prefs), m_updater(new SUUpdater(this))
{
    m_window->setCloseHandler([this] { closeMainWindow(); });
    if (!QApplication::windowIcon().isNull())
        m_window->setWindowIcon(QApplication::windowIcon());
    m_window->setBecameMainHandler(
        [this] { CVInstallUserScriptController::checkAndInstallScript(m_window.get()); });
    connect(&OVModule::sharedModule(), &OVModule::openFailed, m_window.get(),
            [this](const QUrl& url) {
                m_window->showStatusMessage(
                    tr("No program could be started to open %1.").arg(url.toDisplayString()));
            });
    m_helpMenu = buildShellMenus(*m_window);
    m_checkForUpdatesMenuItem =
        m_helpMenu->addAction(tr("Check for Updates…"), m_updater, &SUUpdater::checkForUpdates);
    // Updates come from the system's package manager; the command is never offered.
    m_checkForUpdatesMenuItem->setVisible(false);
    m_helpMenu->addSeparator();
    m_aboutMenuItem = m_helpMenu->addAction(QIcon::fromTheme(u"help-about"_s), tr("&About Corvina"),
                                            this, &CVAppDelegate::showAbout);
    m_aboutMenuItem->setMenuRole(QAction::AboutRole);
    buildTray();

    m_hostWindows = new HostWindows(
        prefs,
        [this](CVWindowController& window) {
            window.setWindowIcon(m_window->windowIcon());
            QMenu* help = buildShellMenus(window);
            help->addSeparator();
            help->addAction(QIcon::fromTheme(u"help-about"_s), tr("&About Corvina"), this,
                            &CVAppDelegate::showAbout);
            OVModule::sharedModule().setupHelpMenu(help);
            connect(&window, &CVWindowController::connectToHostRequested, this,
                    [this, &window] { m_hostWindows->showConnectDialog(&window); });
        },
        this);
    connect(m_window.get(), &CVWindowController::connectToHostRequested, this,
            [this] { m_hostWindows->showConnectDialog(m_window.get()); });
}

void CVAppDelegate::setHostSourceFactory(HostWindows::SourceFactory factory)
{
    m_hostWindows->setSourceFactory(std::move(factory));
}

void CVAppDelegate::buildTray()
{
    m_trayMenu = new QMenu();
    m_trayMenu->addAction(tr("Show Corvina"), this, &CVAppDelegate::showMainWindow);
    m_trayMenu->addAction(QIcon::fromTheme(u"view-refresh"_s), tr("Refresh"), m_window.get(),
                          &CVWindowController::reloadTableViewData);
    m_trayMenu->addSeparator();
    // quit() would first ask the windows to close, and the main window never does.
    m_trayMenu->addAction(QIcon::fromTheme(u"application-exit"_s), tr("Quit"), qApp,
                          [] { QCoreApplication::exit(0); });
    m_tray = new QSystemTrayIcon(m_window->windowIcon(), this);
    m_tray->setToolTip(tr("Corvina"));
    m_tray->setContextMenu(m_trayMenu);
    connect(m_tray, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger || reason == QSystemTrayIcon::DoubleClick)
                    showMainWindow();
            });
    // With a tray the application lives on while its window is hidden.
    const bool available = QSystemTrayIcon::isSystemTrayAvailable();
    m_tray->setVisible(available);
    QApplication::setQuitOnLastWindowClosed(!available);
}

CVAppDelegate::~CVAppDelegate()
{
    // Before the main window: host windows may outlive it by no more than this.
    delete m_hostWindows;
    delete m_preferencesController;
    delete m_trayMenu;
}

QMenu* CVAppDelegate::buildShellMenus(CVWindowController& window)
{
    QMenuBar* bar = window.menuBar();
    QMenu* edit = nullptr;
    for (QAction* entry : bar->actions()) {
        if (entry->menu() && entry->text() == CVWindowController::tr("&Edit"))
            edit = entry->menu();
    }
    if (edit) {
        edit->addSeparator();
        QAction* preferences =
            edit->addAction(QIcon::fromTheme(u"preferences-system"_s), tr("&Preferences…"), this,
                            &CVAppDelegate::showPreferences);
        // Most Linux desktops define no standard key for it; Ctrl+, is the common one.
        QList<QKeySequence> keys = QKeySequence::keyBindings(QKeySequence::Preferences);
        if (keys.isEmpty())
            keys.append(QKeySequence(Qt::CTRL | Qt::Key_Comma));
        preferences->setShortcuts(keys);
        preferences->setMenuRole(QAction::PreferencesRole);
    }
    QMenu* help = bar->addMenu(tr("&Help"));
    QAction* contents = help->addAction(QIcon::fromTheme(u"help-contents"_s), tr("Corvina &Help"),
                                        this, &CVAppDelegate::showHelp);
    contents->setShortcut(QKeySequence::HelpContents);
    return help;
}

QString CVAppDelegate::aboutText()
{
    return tr("<h3>Corvina %1</h3>"
              "<p>Watches the network connections of this computer.</p>"
              "<p>Copyright © Brindle Labs. Proprietary software: all rights reserved.</p>"
              "<p><a href=\"%2\">%2</a></p>")
        .arg(QStringLiteral(CORVINA_VERSION), OVModule::kHomePage);
}

void CVAppDelegate::showAbout()
{
    QMessageBox::about(m_window.get(), tr("About Corvina"), aboutText());
}

void CVAppDelegate::applicationDidFinishLaunching()
{
    OVModule::sharedModule().setupHelpMenu(m_helpMenu);
    showMainWindow();
}

void CVAppDelegate::showPreferences()
{
    if (!m_preferencesController) {
        m_preferencesController =
            new CVPreferencesController(m_prefs, tableHeaderMenu(), preferencesServices());
    }
    m_preferencesController->show();
    m_preferencesController->raise();
    m_preferencesController->activateWindow();
}

PreferencesServices CVAppDelegate::preferencesServices()
{
    CVPreferencesController::Services services = CVPreferencesController::defaultServices();
    services.listedApplications = [this] { return listedApplications(); };
    services.refreshPeriodChosen = [this] { window().autoRefreshClicked(); };
    return services;
}

void CVAppDelegate::showHelp()
{
    CVShowHelpWindowController::showHelp();
}

QList<PreferencesServices::ApplicationChoice> CVAppDelegate::listedApplications() const
{
    QList<PreferencesServices::ApplicationChoice> choices;
    QSet<QString> seen;
    for (const LsofItemPtr& item : m_window->originalItems()) {
        const QString path = item->processPath();
        if (path.isEmpty() || seen.contains(path))
            continue;
        seen.insert(path);
        choices.append({item->localizedAppName(), path, item->processIcon()});
    }
    std::sort(choices.begin(), choices.end(), [](const auto& a, const auto& b) {
        return a.name.compare(b.name, Qt::CaseInsensitive) < 0;
    });
    return choices;
}

QMenu* CVAppDelegate::tableHeaderMenu() const
{
    return m_window->tableHeaderMenu();
}

void CVAppDelegate::deliverNotification(const QStringList& lines)
{
    m_notifier->deliverNotification(lines);
}

void CVAppDelegate::setBecameMainHandler(std::function<void()> handler)
{
    if (!QApplication::windowIcon().isNull())
        m_window->setWindowIcon(QApplication::windowIcon());
    m_window->setBecameMainHandler(std::move(handler));
}

void CVAppDelegate::showMainWindow()
{
    if (m_window->isMinimized())
        m_window->showNormal();
    else
        m_window->show();
    m_window->raise();
    m_window->activateWindow();
}

void CVAppDelegate::closeMainWindow()
{
    if (!m_tray || !m_tray->isVisible()) {
        m_window->showMinimized();
        return;
    }
    m_window->hide();
    UserDefaults& defaults = m_prefs.defaultsStore();
    if (defaults.boolForKey(kTrayNoticeShownKey))
        return;
    defaults.setBool(kTrayNoticeShownKey, true);
    m_notifier->deliverMessage(tr("Corvina keeps running"),
                               tr("Corvina goes on watching connections from its icon in the "
                                  "tray. To end it, choose Quit from that icon's menu or from "
                                  "the File menu."));
}

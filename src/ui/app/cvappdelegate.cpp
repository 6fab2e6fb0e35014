#include "cvappdelegate.h"

#include "cvinstalluserscriptcontroller.h"
#include "cvshowhelpwindowcontroller.h"
#include "desktopnotifier.h"
#include "ovmodule.h"
#include "suupdater.h"
#include "ui/prefs/cvpreferencescontroller.h"
#include "ui/window/cvwindowcontroller.h"
#include "ui/window/tablecolumnsmenu.h"

#include <QApplication>
#include <QMenu>
#include <QMenuBar>
#include <QSystemTrayIcon>

using namespace Qt::StringLiterals;

CVAppDelegate::CVAppDelegate(SnapshotSource& source, CVPrefsHelper& prefs, QObject* parent)
    : QObject(parent), m_window(std::make_unique<CVWindowController>(source, prefs)),
      m_notifier(new DesktopNotifier(this)), m_prefs(prefs), m_updater(new SUUpdater(this))
{
    m_window->setCloseHandler([this] { closeMainWindow(); });
    if (!QApplication::windowIcon().isNull())
        m_window->setWindowIcon(QApplication::windowIcon());
    m_window->setBecameMainHandler(
        [this] { CVInstallUserScriptController::checkAndInstallScript(m_window.get()); });
    buildShellMenus();

    if (QSystemTrayIcon::isSystemTrayAvailable()) {
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
                    if (reason == QSystemTrayIcon::Trigger ||
                        reason == QSystemTrayIcon::DoubleClick)
                        showMainWindow();
                });
        m_tray->show();
    }
    // With a tray the application lives on while its window is hidden.
    QApplication::setQuitOnLastWindowClosed(m_tray == nullptr);
}

CVAppDelegate::~CVAppDelegate()
{
    delete m_preferencesController;
    delete m_trayMenu;
}

void CVAppDelegate::buildShellMenus()
{
    QMenuBar* bar = m_window->menuBar();
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
        preferences->setShortcut(QKeySequence::Preferences);
        preferences->setMenuRole(QAction::PreferencesRole);
    }
    m_helpMenu = bar->addMenu(tr("&Help"));
    QAction* help = m_helpMenu->addAction(QIcon::fromTheme(u"help-contents"_s), tr("Corvina &Help"),
                                          this, &CVAppDelegate::showHelp);
    help->setShortcut(QKeySequence::HelpContents);
    // Updates come from the system's package manager; the command is never offered.
    m_checkForUpdatesMenuItem =
        m_helpMenu->addAction(tr("Check for Updates…"), m_updater, &SUUpdater::checkForUpdates);
    m_checkForUpdatesMenuItem->setVisible(false);
}

void CVAppDelegate::applicationDidFinishLaunching()
{
    OVModule::sharedModule().setupHelpMenu(m_helpMenu);
    showMainWindow();
}

void CVAppDelegate::showPreferences()
{
    if (!m_preferencesController)
        m_preferencesController = new CVPreferencesController(
            m_prefs, tableHeaderMenu(), CVPreferencesController::defaultServices());
    m_preferencesController->show();
    m_preferencesController->raise();
    m_preferencesController->activateWindow();
}

void CVAppDelegate::showHelp()
{
    CVShowHelpWindowController::showHelp();
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
    if (m_tray && m_tray->isVisible())
        m_window->hide();
    else
        m_window->showMinimized();
}

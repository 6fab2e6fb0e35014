#include "cvappdelegate.h"

#include "desktopnotifier.h"
#include "ui/window/cvwindowcontroller.h"
#include "ui/window/tablecolumnsmenu.h"

#include <QApplication>
#include <QMenu>
#include <QSystemTrayIcon>

using namespace Qt::StringLiterals;

CVAppDelegate::CVAppDelegate(SnapshotSource& source, CVPrefsHelper& prefs, QObject* parent)
    : QObject(parent), m_window(std::make_unique<CVWindowController>(source, prefs)),
      m_notifier(new DesktopNotifier(this))
{
    m_window->setCloseHandler([this] { closeMainWindow(); });

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
    delete m_trayMenu;
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

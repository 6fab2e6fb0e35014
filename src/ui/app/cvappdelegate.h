#pragma once

#include "hostwindows.h"
#include "ui/prefs/preferencesservices.h"

#include <QObject>

#include <functional>
#include <memory>

class CVPreferencesController;
class CVPrefsHelper;
class CVWindowController;
class DesktopNotifier;
class QAction;
class QMenu;
class QSystemTrayIcon;
class SUUpdater;
class SnapshotSource;

// The desktop application: the main window, the tray icon that takes it when it is closed,
// the windows of other machines, and desktop notifications.
class CVAppDelegate final : public QObject {
    Q_OBJECT
public:
    CVAppDelegate(SnapshotSource& source, CVPrefsHelper& prefs, QObject* parent = nullptr);
    ~CVAppDelegate() override;
    Q_DISABLE_COPY_MOVE(CVAppDelegate)

    CVWindowController& window() const { return *m_window; }
    QMenu* tableHeaderMenu() const;
    void deliverNotification(const QStringList& lines);
    // Run whenever the main window becomes active (the user-script check).
    void setBecameMainHandler(std::function<void()> handler);

    void showMainWindow();

    // Once the event loop is about to run: the maker's Help menu entries, then the main window
    // in front.
    void applicationDidFinishLaunching();
    // One preferences window for the run, made on first use.
    void showPreferences();
    void showHelp();
    void showAbout();
    // The About box's text: version, licence and the project's address.
    static QString aboutText();
    CVPreferencesController* preferencesController() const { return m_preferencesController; }
    // What the preferences window is given: the desktop's services, tied to this main window.
    PreferencesServices preferencesServices();
    QMenu* helpMenu() const { return m_helpMenu; }
    QAction* checkForUpdatesMenuItem() const { return m_checkForUpdatesMenuItem; }
    QAction* aboutMenuItem() const { return m_aboutMenuItem; }
    QSystemTrayIcon* trayIcon() const { return m_tray; }
    DesktopNotifier* notifier() const { return m_notifier; }

    // Hides the window to the tray when there is one; the first time, says so.
    void closeMainWindow();

    // The windows of other machines (File > Connect to Host…).
    HostWindows& hostWindows() const { return *m_hostWindows; }
    // Where host windows get their snapshots; by default ssh. Tests use stand-ins.
    void setHostSourceFactory(HostWindows::SourceFactory factory);

private:
    // Preferences in Edit, and the Help menu; answers the Help menu.
    QMenu* buildShellMenus(CVWindowController& window);
    void buildTray();
    // The programs of the listed connections, for the exclusion list's "Add" menu.
    QList<PreferencesServices::ApplicationChoice> listedApplications() const;

    std::unique_ptr<CVWindowController> m_window;
    QSystemTrayIcon* m_tray = nullptr;
    QMenu* m_trayMenu = nullptr;
    DesktopNotifier* m_notifier = nullptr;
    CVPrefsHelper& m_prefs;
    CVPreferencesController* m_preferencesController = nullptr;
    SUUpdater* m_updater = nullptr;
    QMenu* m_helpMenu = nullptr;
    QAction* m_checkForUpdatesMenuItem = nullptr;
    QAction* m_aboutMenuItem = nullptr;
    HostWindows* m_hostWindows = nullptr;
};

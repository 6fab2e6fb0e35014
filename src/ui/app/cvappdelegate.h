#pragma once

#include <QObject>

#include <functional>
#include <memory>

class CVPrefsHelper;
class CVWindowController;
class DesktopNotifier;
class QMenu;
class QSystemTrayIcon;
class SnapshotSource;

// The desktop application: the main window, the tray icon that takes it when it is closed,
// and desktop notifications.
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

private:
    void closeMainWindow();

    std::unique_ptr<CVWindowController> m_window;
    QSystemTrayIcon* m_tray = nullptr;
    QMenu* m_trayMenu = nullptr;
    DesktopNotifier* m_notifier = nullptr;
};

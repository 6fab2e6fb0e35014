#pragma once

#include <QString>
#include <QUrl>

#include <functional>

// What the row commands ask of the desktop: revealing a file, raising and quitting another
// application, opening web pages.
class DesktopActions final {
public:
    // Web search for one term, the term escaped as a query value.
    static QUrl webSearchUrl(const QString& term);

    // Shows the file selected in the file manager (FileManager1 over D-Bus), else opens its
    // folder. False when neither worked.
    static bool showInFileManager(const QString& path);

    // Empty when raising another application's windows is possible here, else why not.
    static QString bringToFrontUnavailableReason();
    // Activates every top-level window whose _NET_WM_PID is `pid`; false when there is none.
    static bool bringToFront(qint64 pid);

    // Asks the process to quit (SIGTERM). Empty on success, else a sentence for the user.
    static QString terminate(qint64 pid, const QString& appName);

    // False when no program could be started for it.
    static bool openUrl(const QUrl& url);
    // Tests capture URLs instead of starting a browser; an empty function restores the default.
    static void setUrlOpener(std::function<bool(const QUrl&)> opener);
};

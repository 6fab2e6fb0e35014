#pragma once

#include "platform/desktopentry.h"

#include <QDateTime>
#include <QHash>
#include <QMutex>
#include <QStringList>

#include <chrono>
#include <memory>

// Every application desktop entry of a list of folders, indexed by the names a process can be
// matched on. The folders are scanned once; a query re-reads them only when one of the folders'
// modification times changed, and checks that at most once per `recheckInterval`.
class DesktopEntryIndex final {
public:
    using EntryPtr = std::shared_ptr<const DesktopEntry>;

    // `applicationDirs` in order of precedence: an entry id found in an earlier folder hides the
    // same id in later ones.
    explicit DesktopEntryIndex(QStringList applicationDirs,
                               std::chrono::milliseconds recheckInterval = std::chrono::seconds(5));
    Q_DISABLE_COPY_MOVE(DesktopEntryIndex)

    // The application's index over defaultApplicationDirs().
    static DesktopEntryIndex& sharedIndex();
    // $XDG_DATA_HOME/applications, then each of $XDG_DATA_DIRS/applications, then the Flatpak
    // export folders (per user, then system-wide) when XDG_DATA_DIRS does not name them.
    static QStringList defaultApplicationDirs();

    // The entry for a program: matched on TryExec, then Exec's program, then StartupWMClass
    // (ignoring case), then the entry id; each against `programName` ("firefox-esr").
    EntryPtr entryForProgram(const QString& programName);
    // The entry whose id or X-Flatpak key is the Flatpak app id ("org.mozilla.firefox").
    EntryPtr entryForFlatpakApp(const QString& appId);

    QStringList applicationDirs() const { return m_dirs; }
    // How many times the folders were read (a test and diagnostics aid).
    int scanCount() const;

private:
    struct Index {
        QList<EntryPtr> entries;
        QHash<QString, EntryPtr> byTryExec;
        QHash<QString, EntryPtr> byExec;
        QHash<QString, EntryPtr> byWMClass; // lower case
        QHash<QString, EntryPtr> byId;
        QHash<QString, EntryPtr> byFlatpakApp;
    };

    void refreshIfStale();
    QList<QDateTime> folderTimes() const;
    Index scan() const;

    const QStringList m_dirs;
    const std::chrono::milliseconds m_recheckInterval;
    mutable QMutex m_lock;
    Index m_index;
    QList<QDateTime> m_times;
    std::chrono::steady_clock::time_point m_lastCheck;
    bool m_scanned = false;
    int m_scanCount = 0;
};

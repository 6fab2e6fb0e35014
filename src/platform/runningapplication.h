#pragma once

#include <QString>
#include <QStringList>

#include <memory>

class DesktopEntryIndex;

// What the desktop knows about a running process: read from /proc/<pid> and matched with the
// process's XDG desktop entry. Fields the caller may not read (another user's process) stay
// null; the process is still described by its name.
class RunningApplication final {
public:
    // Where a record is read from; tests point these at fixtures.
    struct Sources {
        QString procRoot = QStringLiteral("/proc");
        DesktopEntryIndex* desktopEntries = nullptr; // null: the shared index
        QString locale;                              // empty: the user's message locale
        QStringList flatpakInstallations = defaultFlatpakInstallations();
    };

    // The process's record, or null when /proc/<pid> does not exist. A record found is kept for
    // a few seconds while the process stays the same (its start time), so the many items of one
    // process read /proc once per refresh at most; a miss is asked again at the next call.
    static std::shared_ptr<const RunningApplication>
    runningApplicationWithProcessIdentifier(qint64 pid);
    static std::shared_ptr<const RunningApplication>
    runningApplicationWithProcessIdentifier(qint64 pid, const Sources& sources);
    // Reads the record now, without the cache.
    static std::shared_ptr<const RunningApplication> read(qint64 pid, const Sources& sources);

    static QStringList defaultFlatpakInstallations();
    // LC_ALL, LC_MESSAGES or LANG, the way desktop entries are localized.
    static QString messageLocale();

    qint64 processIdentifier() const { return m_pid; }
    // Kernel command name (at most 15 characters).
    QString processName() const { return m_processName; }
    // Null when the exe link is unreadable.
    QString executablePath() const { return m_executablePath; }
    QStringList commandLine() const { return m_commandLine; }
    // Clock ticks after boot; 0 when unknown.
    quint64 startTime() const { return m_startTime; }

    // The desktop entry's name in the user's locale; null without a matching entry.
    QString localizedName() const { return m_localizedName; }
    // Icon name or absolute icon path of the desktop entry; null without one.
    QString iconName() const { return m_iconName; }
    QString desktopEntryPath() const { return m_desktopEntryPath; }
    // The Flatpak app folder (".../flatpak/app/<id>") or the AppImage file; null otherwise.
    QString bundlePath() const { return m_bundlePath; }
    QString flatpakAppId() const { return m_flatpakAppId; }

private:
    RunningApplication() = default;
    void readFlatpakInfo(const QString& processDir, const QStringList& installations);
    void matchDesktopEntry(DesktopEntryIndex& index, const QString& locale);

    qint64 m_pid = 0;
    QString m_processName;
    QString m_executablePath;
    QStringList m_commandLine;
    quint64 m_startTime = 0;
    QString m_localizedName;
    QString m_iconName;
    QString m_desktopEntryPath;
    QString m_bundlePath;
    QString m_flatpakAppId;
};

#pragma once

#include <QString>

// A process told apart from a later one that reuses its id: the id with the start time
// (field 22 of /proc/<pid>/stat, clock ticks after boot) and the executable.
struct ProcessIdentity {
    qint64 pid = 0;
    // 0: the process could not be read (gone, or no process id).
    quint64 startTime = 0;
    // Null when the exe link is unreadable (another user's process).
    QString executablePath;

    bool exists() const { return startTime != 0; }
    // The same process: same id and same start time. The path is not compared, since an
    // exec() keeps the process.
    bool isSameProcess(const ProcessIdentity& other) const
    {
        return exists() && pid == other.pid && startTime == other.startTime;
    }

    static ProcessIdentity read(qint64 pid, const QString& procRoot = QStringLiteral("/proc"));
};

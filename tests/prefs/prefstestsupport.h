#pragma once

#include "platform/systemlog.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QMutex>
#include <QStringList>
#include <QThread>

#include <functional>

// The store watches its file, which needs an event loop.
inline void ensureCoreApplication()
{
    static int argc = 1;
    static char name[] = "corvina_tests_prefs";
    static char* argv[] = {name, nullptr};
    if (!QCoreApplication::instance())
        new QCoreApplication(argc, argv);
}

// Runs the event loop until `done` holds or `ms` pass; answers whether it held.
inline bool spinUntil(const std::function<bool()>& done, int ms = 5000)
{
    QDeadlineTimer deadline(ms);
    while (!done()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return true;
}

// Collects the system-log lines written while it lives.
class LogCapture {
public:
    LogCapture()
    {
        SystemLog::setEcho([this](const QString& line) {
            QMutexLocker locker(&m_lock);
            m_lines << line;
        });
    }
    ~LogCapture() { SystemLog::setEcho({}); }

    QStringList lines() const
    {
        QMutexLocker locker(&m_lock);
        return m_lines;
    }
    qsizetype count(const QString& line) const { return lines().count(line); }

private:
    mutable QMutex m_lock;
    QStringList m_lines;
};

inline void writeWholeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.write(bytes);
}

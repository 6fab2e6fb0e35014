#include "systemlog.h"

#include <QMutex>

#include <syslog.h>

namespace {

QMutex echoLock;
std::function<void(const QString&)> echoSink;

void openOnce()
{
    static const bool opened = [] {
        openlog("Corvina", LOG_PID, LOG_USER);
        return true;
    }();
    Q_UNUSED(opened);
}

} // namespace

void SystemLog::write(const QString& message, bool echo)
{
    openOnce();
    syslog(LOG_NOTICE, "%s", message.toUtf8().constData());
    QMutexLocker locker(&echoLock);
    if (echo && echoSink)
        echoSink(message);
}

void SystemLog::setEcho(std::function<void(const QString&)> echo)
{
    QMutexLocker locker(&echoLock);
    echoSink = std::move(echo);
}

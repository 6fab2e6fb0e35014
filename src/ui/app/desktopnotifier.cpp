#include "desktopnotifier.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QPointer>
#include <QTimer>
#include <QVariantMap>

using namespace Qt::StringLiterals;

namespace {

const QString kNewTitle = u"New Connections"_s;

// Connections are the indented lines; an unindented one names their application.
int connectionCount(const QStringList& lines)
{
    int count = 0;
    for (const QString& line : lines) {
        if (line.startsWith(u' '))
            ++count;
    }
    return count;
}

} // namespace

DesktopNotifier::DesktopNotifier(QObject* parent)
    : QObject(parent), m_sender(&DesktopNotifier::sendOverDBus), m_timer(new QTimer(this))
{
    m_timer->setSingleShot(true);
    connect(m_timer, &QTimer::timeout, this, &DesktopNotifier::flush);
    auto clock = std::make_shared<QElapsedTimer>();
    clock->start();
    m_now = [clock] { return clock->elapsed(); };
}

void DesktopNotifier::deliverNotification(const QStringList& lines)
{
    if (lines.size() < 2)
        return;
    const int count = connectionCount(lines.mid(1));
    if (lines.first() == kNewTitle)
        m_newCount += count;
    else
        m_changedCount += count;
    m_pendingLines += lines.mid(1);
    const qint64 now = m_now();
    const qint64 due = m_lastDelivery < 0 ? now : m_lastDelivery + kMinimumGapMs;
    if (now >= due)
        flush();
    else if (!m_timer->isActive())
        m_timer->start(int(due - now));
}

void DesktopNotifier::flush()
{
    m_timer->stop();
    if (m_pendingLines.isEmpty())
        return;
    QStringList counts;
    if (m_newCount > 0)
        counts << (m_newCount == 1 ? tr("1 new connection")
                                   : tr("%1 new connections").arg(m_newCount));
    if (m_changedCount > 0)
        counts << (m_changedCount == 1 ? tr("1 state change")
                                       : tr("%1 state changes").arg(m_changedCount));
    QStringList shown = m_pendingLines.mid(0, kShownLines);
    if (m_pendingLines.size() > kShownLines)
        shown << tr("… and %1 more").arg(m_pendingLines.size() - kShownLines);
    Notification notification{tr("Corvina: %1").arg(counts.join(u", "_s)),
                              shown.join(u'\n').toHtmlEscaped(), m_lastId};
    m_pendingLines.clear();
    m_newCount = 0;
    m_changedCount = 0;
    m_lastDelivery = m_now();
    send(notification, true);
}

void DesktopNotifier::deliverMessage(const QString& summary, const QString& body)
{
    send({summary, body.toHtmlEscaped(), 0}, false);
}

void DesktopNotifier::send(const Notification& notification, bool replacing)
{
    QPointer<DesktopNotifier> self(this);
    m_sender(notification, [self, replacing](uint id) {
        if (self && replacing)
            self->m_lastId = id;
    });
}

void DesktopNotifier::sendOverDBus(const Notification& notification,
                                   std::function<void(uint)> delivered)
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        u"org.freedesktop.Notifications"_s, u"/org/freedesktop/Notifications"_s,
        u"org.freedesktop.Notifications"_s, u"Notify"_s);
    call << u"Corvina"_s << notification.replacesId << u"network-workgroup"_s
         << notification.summary << notification.body << QStringList() << QVariantMap() << int(-1);
    // The answer carries the id that the next bubble replaces; no server, no answer.
    auto* watcher =
        new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call), nullptr);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [delivered = std::move(delivered)](QDBusPendingCallWatcher* finished) {
                         const QDBusPendingReply<uint> reply = *finished;
                         if (!reply.isError())
                             delivered(reply.value());
                         finished->deleteLater();
                     });
}

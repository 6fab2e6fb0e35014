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
    addLines(lines.mid(1));
    const qint64 now = m_now();
    const qint64 due = m_lastDelivery < 0 ? now : m_lastDelivery + kMinimumGapMs;
    if (now >= due)
        flush();
    else if (!m_timer->isActive())
        m_timer->start(int(due - now));
}

void DesktopNotifier::addLines(const QStringList& lines)
{
    QStringList* connections = nullptr;
    for (const QString& line : lines) {
        if (!line.startsWith(u' ')) {
            auto found = std::find_if(m_pending.begin(), m_pending.end(),
                                      [&](const auto& app) { return app.first == line; });
            if (found == m_pending.end())
                found = m_pending.insert(m_pending.end(), {line, {}});
            connections = &found->second;
        } else if (connections && !connections->contains(line)) {
            // The same peer in several passes is shown once.
            connections->append(line);
        }
    }
}

QString DesktopNotifier::pendingBody() const
{
    QStringList shown;
    int hidden = 0;
    for (const auto& [app, connections] : m_pending) {
        if (shown.size() + 1 >= kShownLines) {
            hidden += int(connections.size());
            continue;
        }
        shown << app;
        for (const QString& connection : connections) {
            if (shown.size() < kShownLines)
                shown << connection;
            else
                ++hidden;
        }
    }
    if (hidden > 0)
        shown << (hidden == 1 ? tr("… and 1 more") : tr("… and %1 more").arg(hidden));
    return shown.join(u'\n').toHtmlEscaped();
}

void DesktopNotifier::flush()
{
    m_timer->stop();
    if (m_pending.isEmpty())
        return;
    QStringList counts;
    if (m_newCount > 0)
        counts << (m_newCount == 1 ? tr("1 new connection")
                                   : tr("%1 new connections").arg(m_newCount));
    if (m_changedCount > 0)
        counts << (m_changedCount == 1 ? tr("1 state change")
                                       : tr("%1 state changes").arg(m_changedCount));
    const Notification notification{tr("Corvina: %1").arg(counts.join(u", "_s)), pendingBody(),
                                    m_lastId};
    m_pending.clear();
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

#include "desktopnotifier.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QVariantMap>

using namespace Qt::StringLiterals;

QString DesktopNotifier::summaryOf(const QStringList& lines)
{
    return lines.isEmpty() ? QString() : lines.first();
}

QString DesktopNotifier::bodyOf(const QStringList& lines)
{
    // The body is markup to most servers: escape what could be read as a tag.
    return lines.mid(1).join(u'\n').toHtmlEscaped();
}

void DesktopNotifier::deliverNotification(const QStringList& lines)
{
    if (lines.isEmpty())
        return;
    QDBusMessage call = QDBusMessage::createMethodCall(
        u"org.freedesktop.Notifications"_s, u"/org/freedesktop/Notifications"_s,
        u"org.freedesktop.Notifications"_s, u"Notify"_s);
    call << u"Corvina"_s << uint(0) << u"network-workgroup"_s << summaryOf(lines) << bodyOf(lines)
         << QStringList() << QVariantMap() << int(-1);
    QDBusConnection::sessionBus().asyncCall(call);
}

#pragma once

#include <QObject>
#include <QStringList>

// Desktop notifications through org.freedesktop.Notifications: the announcement of a pass,
// its first line as the summary and the rest as the body.
class DesktopNotifier final : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;
    Q_DISABLE_COPY_MOVE(DesktopNotifier)

    // Does not wait for the notification server; no server means no notification.
    void deliverNotification(const QStringList& lines);

    static QString summaryOf(const QStringList& lines);
    static QString bodyOf(const QStringList& lines);
};

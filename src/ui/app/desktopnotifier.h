#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QStringList>

#include <functional>

class QTimer;

// Desktop notifications through org.freedesktop.Notifications. Announcements of passes are
// coalesced: at most one bubble every 10 seconds, each replacing the one before, with the
// counts of what happened since and its first few lines, each application named once. A
// refresh every second would otherwise stack a bubble per pass.
class DesktopNotifier final : public QObject {
    Q_OBJECT
public:
    struct Notification {
        QString summary;
        QString body;
        uint replacesId = 0;
    };
    // Sends one notification; `delivered` receives the server's id for it (never called when
    // there is no server).
    using Sender = std::function<void(const Notification&, std::function<void(uint)> delivered)>;

    static constexpr int kMinimumGapMs = 10000;
    static constexpr int kShownLines = 6;

    explicit DesktopNotifier(QObject* parent = nullptr);
    Q_DISABLE_COPY_MOVE(DesktopNotifier)

    // An announcement of a pass: its title ("New Connections", "State Changed") then its
    // lines, an application name followed by its indented connections.
    void deliverNotification(const QStringList& lines);
    // A message of the application's own, at once and on its own.
    void deliverMessage(const QString& summary, const QString& body);

    // Tests send elsewhere and keep their own time.
    void setSender(Sender sender) { m_sender = std::move(sender); }
    void setClock(std::function<qint64()> msecsNow) { m_now = std::move(msecsNow); }
    // Delivers what is pending now, whatever the time (the timer's action).
    void flush();
    bool hasPending() const { return !m_pending.isEmpty(); }
    QTimer* pendingTimer() const { return m_timer; }

private:
    void addLines(const QStringList& lines);
    QString pendingBody() const;
    void send(const Notification& notification, bool replacing);
    static void sendOverDBus(const Notification& notification, std::function<void(uint)> delivered);

    Sender m_sender;
    std::function<qint64()> m_now;
    QTimer* m_timer;
    // What happened since the last bubble: per application, in order of arrival, its
    // connections' lines.
    QList<std::pair<QString, QStringList>> m_pending;
    int m_newCount = 0;
    int m_changedCount = 0;
    qint64 m_lastDelivery = -1;
    uint m_lastId = 0;
};

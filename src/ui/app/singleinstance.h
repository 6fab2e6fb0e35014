#pragma once

#include <QObject>
#include <QString>

class QSocketNotifier;

// One Corvina per desktop login. The first instance listens on a local socket in the user's
// runtime folder; a later start finds it there, asks it to show its window, and exits.
class SingleInstance final : public QObject {
    Q_OBJECT
public:
    // `socketPath` empty: the user's runtime folder's "corvina.socket".
    explicit SingleInstance(QString socketPath = {}, QObject* parent = nullptr);
    ~SingleInstance() override;
    Q_DISABLE_COPY_MOVE(SingleInstance)

    static QString defaultSocketPath();
    const QString& socketPath() const { return m_socketPath; }

    // True when a running instance took the request to show itself: this one should exit.
    bool activateRunningInstance() const;
    // Becomes the running instance; false when the socket cannot be made.
    bool listen();

Q_SIGNALS:
    // A later start asked the window to come forward.
    void activationRequested();

private:
    void acceptClients();

    QString m_socketPath;
    int m_listener = -1;
    QSocketNotifier* m_notifier = nullptr;
};

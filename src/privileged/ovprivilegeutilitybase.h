#pragma once

#include "helperconnection.h"

#include <QByteArray>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>

// A subclass that leaves out a required operation; `name()` is the exception's name.
class PrivilegeUtilityException final : public std::runtime_error {
public:
    explicit PrivilegeUtilityException(const QString& name)
        : std::runtime_error(name.toStdString()), m_name(name)
    {
    }
    const QString& name() const { return m_name; }

private:
    QString m_name;
};

// Where the install offer remembers the version it last offered. The application connects it
// to its preferences store.
struct HelperSettingsAccess {
    std::function<QString(const QString& key)> read;
    std::function<void(const QString& key, const QString& value)> write;
};

// The application side of a privileged daemon: installs it, tells whether it is installed,
// keeps one connection to it and sends it requests.
class OVPrivilegeUtilityBase : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(OVPrivilegeUtilityBase)

public:
    using TextReply = std::function<void(std::optional<QString>)>;
    // A reply kept as the bytes the daemon sent (UTF-8): a big one is not decoded for nothing.
    using BytesReply = std::function<void(std::optional<QByteArray>)>;

    struct Environment {
        QString socketPath;
        // The daemon binary that installHelper hands to `elevateProgram ... --install`.
        QString helperExecutable;
        QString elevateProgram = QStringLiteral("pkexec");
        // Whether the daemon's socket unit is present and enabled; unset asks systemctl.
        std::function<bool()> installedProbe;
        HelperSettingsAccess settings;
        // Queue the once-per-version installation offer when the instance is created.
        bool offerInstall = true;
        std::chrono::milliseconds replyTimeout = HelperProtocol::kReplyTimeout;
    };

    explicit OVPrivilegeUtilityBase(Environment environment, QObject* parent = nullptr);
    ~OVPrivilegeUtilityBase() override;

    // The daemon's service name (its systemd unit's name); the base has none.
    virtual QString helperToolServiceName() const;
    virtual QString bundledHelperVersion() const;
    virtual bool promptForInstallingHelper() { return true; }
    // Spelled so deliberately: the name is part of the interface subclasses override.
    virtual void promtpForRemoveHelper() {}

    void checkAndPromptInstallHelper();
    bool installHelper();
    bool removeHelper();
    bool checkHelperInstalled() const;
    void getVersion(TextReply reply);

    // Main thread only. The current connection, created when there is none or it was invalidated.
    std::shared_ptr<HelperConnection> connectToHelperTool();

    // Once the daemon has refused this user: its reason. No request goes to the daemon then
    // (each answers null at once, on the caller's thread) until forgetRefusal().
    std::optional<QString> refusal() const;
    // Lets the next request ask the daemon again: the settings changed, or it was reinstalled.
    void forgetRefusal();
    // What a refused user can do about it, in a sentence.
    static QString refusalAdvice();

    QString smJobLabel() const { return helperToolServiceName(); }
    QString lastOfferedVersionKey() const;
    QByteArray authorization() const;
    std::optional<QString> helperVersion() const;
    const Environment& environment() const { return m_environment; }

    static QString defaultSocketPath();
    static QString defaultHelperExecutable();

protected:
    // Sends one request; `reply` gets the answer or, after "connect error" is logged, null.
    // On a failure `onError` runs first. They run on the connection's thread; once the daemon
    // has refused this user, at once on the caller's, with nothing logged.
    void sendRequest(const HelperProtocol::Request& request, TextReply reply,
                     std::function<void()> onError = {});
    void sendBytesRequest(const HelperProtocol::Request& request, BytesReply reply,
                          std::function<void()> onError = {});

private:
    void dropConnection(const std::shared_ptr<HelperConnection>& connection);
    void noteFailure(const HelperConnection::Failure& failure);

    Environment m_environment;
    QByteArray m_authorization;
    mutable std::mutex m_lock;
    std::shared_ptr<HelperConnection> m_connection;
    std::optional<QString> m_helperVersion;
    std::optional<QString> m_refusal;
    // The refusal is logged once per run, however often it is forgotten and met again.
    bool m_refusalLogged = false;
};

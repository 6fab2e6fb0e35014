#pragma once

#include "collector/socketdestroyer.h"
#include "privileged/ovprivilegeutilitybase.h"

// Corvina's client of its privileged daemon.
class CVHelperUtility final : public OVPrivilegeUtilityBase {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(CVHelperUtility)

public:
    explicit CVHelperUtility(Environment environment, QObject* parent = nullptr)
        : OVPrivilegeUtilityBase(std::move(environment), parent)
    {
    }

    // The application's one instance, made on the first call from `environment` (ignored on
    // later calls). Without settings access it never offers installation by itself.
    static CVHelperUtility* sharedUtility(const Environment& environment = {});

    QString helperToolServiceName() const override;
    QString bundledHelperVersion() const override;

    // `reply` runs exactly once, with lsof's output (UTF-8) or with null on any failure, on
    // the connection's thread rather than the GUI thread.
    void runLsofWithReply(BytesReply reply);
    // As runLsofWithReply, with the built-in collector's snapshot as the daemon's corvina-sockets
    // prints it (lsof's text and "#corvina socket" lines), or null: a daemon without it, or
    // whose run failed, answers null, and the caller falls back.
    void runCollectorWithReply(BytesReply reply);

    // Null when the daemon could not be asked (missing, refused, busy) or answered nothing
    // that names an outcome.
    using CloseReply = std::function<void(std::optional<SocketDestroyer::Result>)>;
    // Asks the daemon to close a TCP connection. `reply` runs exactly once, on the connection's
    // thread; the daemon closes only connections of the user's own processes (root: any).
    void closeConnection(const SocketIdentity& request, CloseReply reply);
};

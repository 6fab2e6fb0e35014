#pragma once

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
};

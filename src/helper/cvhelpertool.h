#pragma once

#include "privileged/helperinstallation.h"
#include "privileged/ovprivilegetoolbase.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

// Corvina's privileged daemon: runs lsof as root for the application.
class CVHelperTool final : public OVPrivilegeToolBase {
public:
    static constexpr const char* kServiceName = HelperInstallation::kServiceName;
    static constexpr const char* kVersion = "1.0";

    // `lsofPath` empty: the first of the system's lsof locations. Tests name a fake one.
    explicit CVHelperTool(Options options, std::string lsofPath = {},
                          std::chrono::milliseconds lsofTimeout = HelperProtocol::kLsofTimeout);

    std::string machServiceName() const override { return kServiceName; }
    std::vector<HelperProtocol::Operation> machServiceProtocol() const override;
    std::optional<std::string> bundleVersion() const override { return std::string(kVersion); }

    void runLsofWithReply(const ReplyHandler& reply) const;

    static const std::vector<std::string>& lsofCandidates();
    static const std::vector<std::string>& lsofArguments();

protected:
    void perform(HelperProtocol::Operation operation, const ReplyHandler& reply) override;

private:
    // One lsof run and the requests that share its answer.
    struct LsofBatch {
        std::optional<std::string> text;
        bool done = false;
    };

    std::optional<std::string> runLsof() const;

    std::string m_lsofPath;
    std::chrono::milliseconds m_lsofTimeout;

    // At most one lsof runs at a time, however many clients ask: a request joins the batch
    // whose run starts next, so every answer comes from a run begun after the request came.
    mutable std::mutex m_batchLock;
    mutable std::condition_variable m_batchDone;
    mutable std::shared_ptr<LsofBatch> m_runningBatch;
    mutable std::shared_ptr<LsofBatch> m_nextBatch;
};

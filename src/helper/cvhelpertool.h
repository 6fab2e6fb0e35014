#pragma once

#include "privileged/helperinstallation.h"
#include "privileged/ovprivilegetoolbase.h"

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
    std::string m_lsofPath;
    std::chrono::milliseconds m_lsofTimeout;
};

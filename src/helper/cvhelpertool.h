#pragma once

#include "ownerlookup.h"
#include "privileged/helperinstallation.h"
#include "privileged/ovprivilegetoolbase.h"
#include "sharedrun.h"

#include <string>

// Corvina's privileged daemon: runs lsof or the built-in collector (corvina-sockets) as root
// for the application, closes connections for their owners, and tells which process owned a
// socket that has closed.
class CVHelperTool final : public OVPrivilegeToolBase {
public:
    static constexpr const char* kServiceName = HelperInstallation::kServiceName;
    static constexpr const char* kVersion = "1.0";

    // The programs the daemon runs and their bounds. Empty paths: the installed ones; tests
    // name fakes.
    struct Programs {
        std::string lsofPath;
        std::chrono::milliseconds lsofTimeout = HelperProtocol::kLsofTimeout;
        std::string socketsPath;
        std::chrono::milliseconds collectTimeout = HelperProtocol::kCollectTimeout;
        // Off: the daemon answers every socketOwners request as a build without eBPF does.
        bool socketOwners = true;
    };

    explicit CVHelperTool(Options options);
    CVHelperTool(Options options, Programs programs);

    std::string machServiceName() const override { return kServiceName; }
    std::vector<HelperProtocol::Operation> machServiceProtocol() const override;
    std::optional<std::string> bundleVersion() const override { return std::string(kVersion); }

    void runLsofWithReply(const ReplyHandler& reply);
    void runCollectorWithReply(const ReplyHandler& reply);
    // Closes `socket` when `peer` is root or every process holding it is the peer's own.
    void closeConnectionWithReply(const SocketIdentity& socket, const PeerCredentials& peer,
                                  const ReplyHandler& reply) const;
    // The owners of `cookies` noted since the first such request (see OwnerLookup).
    void socketOwnersWithReply(const std::vector<std::uint64_t>& cookies,
                               const ReplyHandler& reply);

    static const std::vector<std::string>& lsofCandidates();
    static const std::vector<std::string>& lsofArguments();

protected:
    void perform(const HelperProtocol::Request& request, const PeerCredentials& peer,
                 const ReplyHandler& reply) override;

private:
    std::optional<std::string> runLsof() const;
    std::optional<std::string> runCollector() const;

    Programs m_programs;
    // At most one lsof and one corvina-sockets run at a time, each shared by the requests
    // that wait for it.
    SharedRun m_lsofRuns;
    SharedRun m_collectRuns;
    OwnerLookup m_owners;
};

#pragma once

#include "helperprotocol.h"
#include "peerpolicy.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// A subclass that leaves out a required class operation. `name()` is the exception's name,
// `what()` its reason.
class PrivilegeToolException final : public std::runtime_error {
public:
    PrivilegeToolException(std::string name, const std::string& reason)
        : std::runtime_error(reason), m_name(std::move(name))
    {
    }
    const std::string& name() const { return m_name; }

private:
    std::string m_name;
};

// An authorization failure in the domain of authorization statuses.
struct AuthorizationError {
    static constexpr const char* kDomain = "OSStatus";
    static constexpr int kParameterError = -50;
    static constexpr int kInvalidReference = -60002;
    int code = 0;
};

// Ends the process with the failed expression's text when `condition` is false. The daemon's
// programming errors are not recoverable: a half-configured root daemon must not go on.
void privilegeAssert(bool condition, const char* expression);

// The generic privileged daemon: listens on a Unix socket, admits the peers its policy allows,
// serves each connection in order on a thread of its own, and owns the command-rights table.
class OVPrivilegeToolBase {
public:
    // Nullopt stands for an entry that is not a dictionary; a missing key for a missing value.
    using RightEntry = std::optional<std::map<std::string, std::string>>;
    using RightsTable = std::map<std::string, RightEntry>;
    using ReplyHandler = std::function<void(std::optional<std::string>)>;
    using RightVisitor = std::function<void(const std::string& name, const std::string& rule,
                                            const std::string& description)>;

    struct Options {
        PeerPolicy policy;
        std::chrono::milliseconds requestTimeout = HelperProtocol::kRequestTimeout;
        std::chrono::milliseconds idleTimeout = HelperProtocol::kIdleTimeout;
        std::size_t maxConnections = HelperProtocol::kMaxConnections;
        std::size_t maxConnectionsPerPeer = HelperProtocol::kMaxConnectionsPerPeer;
        std::size_t rootReservedConnections = HelperProtocol::kRootReservedConnections;
    };

    explicit OVPrivilegeToolBase(Options options);
    virtual ~OVPrivilegeToolBase();
    OVPrivilegeToolBase(const OVPrivilegeToolBase&) = delete;
    OVPrivilegeToolBase& operator=(const OVPrivilegeToolBase&) = delete;

    virtual std::string machServiceName() const;
    // The operations exported on every connection.
    virtual std::vector<HelperProtocol::Operation> machServiceProtocol() const;
    // Rights of the commands that need one, keyed by command name; nullopt for none.
    virtual std::optional<RightsTable> commandsRightInfo() const { return std::nullopt; }
    // What getVersionWithReply answers; nullopt gives a null reply.
    virtual std::optional<std::string> bundleVersion() const { return std::nullopt; }

    // Computed once from commandsRightInfo() and kept for the life of the tool.
    const RightsTable& _commandInfo() const;
    std::optional<std::string> authorizationRightForCommand(std::string_view command) const;
    void enumerateRightsUsingBlock(const RightVisitor& block) const;
    // Writes a polkit action file into `policyDirectory` for every right that has none yet;
    // an existing file is never changed, so an administrator's edits survive.
    void setupAuthorizationRights(const std::string& policyDirectory) const;
    // Nullopt when allowed. `peer`, when given, must match the pid and uid inside the form.
    std::optional<AuthorizationError>
    checkAuthorization(const std::uint8_t* data, std::size_t size, const char* command,
                       const std::optional<PeerCredentials>& peer = std::nullopt) const;

    // Takes over a listening socket (from systemd or from listenOn).
    void adoptListener(int fd);
    // Creates, binds and listens on `path`, replacing a stale socket file there.
    bool listenOn(const std::string& path, std::string* error);
    std::string listenerPath() const;
    // Serves until requestStop(); returns after every connection has ended.
    void run();
    // Safe to call from a signal handler.
    void requestStop();

    void connectWithEndpointReply(const ReplyHandler& reply) const;
    void getVersionWithReply(const ReplyHandler& reply) const;

protected:
    // Performs one exported operation for `peer`; subclasses handle theirs and pass the rest
    // here.
    virtual void perform(const HelperProtocol::Request& request, const PeerCredentials& peer,
                         const ReplyHandler& reply);

private:
    void serveConnection(int fd);
    void acceptOne();
    // Whether a new connection of `uid` may be served now; m_lock held.
    bool hasSlotFor(uid_t uid) const;
    // Waits for the first byte of the next request, at most the idle time-out.
    bool awaitRequest(int fd) const;

    Options m_options;
    int m_listener = -1;
    std::string m_listenerPath;
    bool m_ownsSocketFile = false;
    int m_stopPipe[2] = {-1, -1};
    std::atomic<bool> m_stopping{false};

    std::mutex m_lock;
    std::condition_variable m_changed;
    // Each connection served, with its peer's uid.
    std::map<int, uid_t> m_connections;

    mutable std::once_flag m_commandInfoOnce;
    mutable RightsTable m_commandInfo;
};

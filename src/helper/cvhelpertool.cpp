#include "cvhelpertool.h"

#include "lsofrunner.h"
#include "socketholders.h"

#include <algorithm>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

using HelperProtocol::Operation;
using SocketDestroyer::Outcome;

namespace {

const char* describe(LsofRunner::Outcome outcome)
{
    static const char* const kReasons[] = {"ok",      "could not be started", "timed out",
                                           "crashed", "printed too much",     "printed non-UTF-8"};
    return kReasons[static_cast<int>(outcome)];
}

// Root runs only a program that root (or the daemon's own user, for a daemon of one's own)
// owns and nobody else may change.
bool isTrustworthy(const std::string& path)
{
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    const bool ownedRight = status.st_uid == 0 || status.st_uid == ::geteuid();
    return ownedRight && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// Why `uid` may not close `socket`, or nullopt when every process holding it is the uid's own.
std::optional<SocketDestroyer::Result> ownershipRefusal(const SocketIdentity& socket, uid_t uid)
{
    SocketDestroyer::Result failure;
    const auto owner = SocketDestroyer::lookup(socket, &failure);
    if (!owner)
        return failure;
    const std::vector<SocketHolders::Holder> holders = SocketHolders::of(owner->inode);
    if (holders.empty())
        return SocketDestroyer::Result{Outcome::NotPermitted,
                                       "no process holds the connection; only root may close it"};
    for (const SocketHolders::Holder& holder : holders) {
        if (std::any_of(holder.uids.begin(), holder.uids.end(),
                        [uid](uid_t id) { return id != uid; }))
            return SocketDestroyer::Result{Outcome::NotPermitted,
                                           "process " + std::to_string(holder.pid) +
                                               " holds the connection and is not yours"};
    }
    return std::nullopt;
}

} // namespace

CVHelperTool::CVHelperTool(Options options) : CVHelperTool(std::move(options), Programs{}) {}

CVHelperTool::CVHelperTool(Options options, Programs programs)
    : OVPrivilegeToolBase(std::move(options)), m_programs(std::move(programs)),
      m_lsofRuns([this] { return runLsof(); }), m_collectRuns([this] { return runCollector(); }),
      m_owners(m_programs.socketOwners)
{
}

const std::vector<std::string>& CVHelperTool::lsofCandidates()
{
    static const std::vector<std::string> candidates = {"/usr/sbin/lsof", "/usr/bin/lsof"};
    return candidates;
}

const std::vector<std::string>& CVHelperTool::lsofArguments()
{
    static const std::vector<std::string> arguments = {"-i", "-n", "-P", "+c", "0"};
    return arguments;
}

std::vector<Operation> CVHelperTool::machServiceProtocol() const
{
    using enum Operation;
    return {ConnectWithEndpoint, GetVersion, RunLsof, RunCollector, CloseConnection, SocketOwners};
}

void CVHelperTool::perform(const HelperProtocol::Request& request, const PeerCredentials& peer,
                           const ReplyHandler& reply)
{
    switch (request.operation) {
    case Operation::RunLsof:
        runLsofWithReply(reply);
        return;
    case Operation::RunCollector:
        runCollectorWithReply(reply);
        return;
    case Operation::CloseConnection:
        closeConnectionWithReply(request.socket, peer, reply);
        return;
    case Operation::SocketOwners:
        socketOwnersWithReply(request.cookies, reply);
        return;
    default:
        OVPrivilegeToolBase::perform(request, peer, reply);
    }
}

void CVHelperTool::runLsofWithReply(const ReplyHandler& reply)
{
    m_lsofRuns.answer(reply);
}

void CVHelperTool::runCollectorWithReply(const ReplyHandler& reply)
{
    m_collectRuns.answer(reply);
}

std::optional<std::string> CVHelperTool::runLsof() const
{
    LsofRunner::Options options;
    options.program = m_programs.lsofPath.empty() ? LsofRunner::firstExecutable(lsofCandidates())
                                                  : m_programs.lsofPath;
    options.arguments = lsofArguments();
    options.timeout = m_programs.lsofTimeout;
    // The reply's header and the text must fit in the frame the client accepts.
    options.maxOutput = HelperProtocol::kMaxReplyFrame - HelperProtocol::kReplyHeaderSize;
    const LsofRunner::Result result = LsofRunner::run(options);
    if (result.outcome != LsofRunner::Outcome::Ok)
        syslog(LOG_WARNING, "lsof run failed: %s", describe(result.outcome));
    return result.text();
}

std::optional<std::string> CVHelperTool::runCollector() const
{
    LsofRunner::Options options;
    options.program = m_programs.socketsPath.empty() ? HelperInstallation::kSocketsProgram
                                                     : m_programs.socketsPath;
    if (!isTrustworthy(options.program)) {
        syslog(LOG_WARNING, "%s is missing, or others than root may change it; not run",
               options.program.c_str());
        return std::nullopt;
    }
    options.timeout = m_programs.collectTimeout;
    options.maxOutput = HelperProtocol::kMaxReplyFrame - HelperProtocol::kReplyHeaderSize;
    const LsofRunner::Result result = LsofRunner::run(options);
    // It exits 1 when the kernel refuses to list sockets: no text to pass on then.
    if (result.outcome == LsofRunner::Outcome::Ok && !result.output.empty())
        return result.output;
    syslog(LOG_WARNING, "corvina-sockets run failed: %s",
           result.outcome == LsofRunner::Outcome::Ok ? "printed nothing"
                                                     : describe(result.outcome));
    return std::nullopt;
}

void CVHelperTool::closeConnectionWithReply(const SocketIdentity& socket,
                                            const PeerCredentials& peer,
                                            const ReplyHandler& reply) const
{
    std::optional<SocketDestroyer::Result> result;
    if (peer.uid != 0)
        result = ownershipRefusal(socket, peer.uid);
    if (!result)
        result = SocketDestroyer::destroy(socket);
    // Closing another's connection is an act worth a trace, whoever asked.
    syslog(LOG_NOTICE, "close of a TCP connection (ports %u and %u) for uid %u, pid %d: %s",
           unsigned(socket.localPort), unsigned(socket.remotePort), unsigned(peer.uid),
           int(peer.pid), SocketDestroyer::describe(*result).c_str());
    reply(HelperProtocol::closeOutcomeText(*result));
}

void CVHelperTool::socketOwnersWithReply(const std::vector<std::uint64_t>& cookies,
                                         const ReplyHandler& reply)
{
    reply(m_owners.answer(cookies));
}

#include "cvhelpertool.h"

#include "lsofrunner.h"

#include <syslog.h>

using HelperProtocol::Operation;

CVHelperTool::CVHelperTool(Options options, std::string lsofPath,
                           std::chrono::milliseconds lsofTimeout)
    : OVPrivilegeToolBase(std::move(options)), m_lsofPath(std::move(lsofPath)),
      m_lsofTimeout(lsofTimeout)
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
    return {Operation::ConnectWithEndpoint, Operation::GetVersion, Operation::RunLsof};
}

void CVHelperTool::perform(Operation operation, const ReplyHandler& reply)
{
    if (operation == Operation::RunLsof)
        runLsofWithReply(reply);
    else
        OVPrivilegeToolBase::perform(operation, reply);
}

void CVHelperTool::runLsofWithReply(const ReplyHandler& reply) const
{
    std::unique_lock lock(m_batchLock);
    if (!m_nextBatch)
        m_nextBatch = std::make_shared<LsofBatch>();
    const std::shared_ptr<LsofBatch> batch = m_nextBatch;
    while (!batch->done) {
        if (m_runningBatch) {
            m_batchDone.wait(lock);
            continue;
        }
        // Nothing runs: the first of the batch's requests to notice runs it for all of them.
        m_nextBatch.reset();
        m_runningBatch = batch;
        lock.unlock();
        std::optional<std::string> text = runLsof();
        lock.lock();
        batch->text = std::move(text);
        batch->done = true;
        m_runningBatch.reset();
        m_batchDone.notify_all();
    }
    lock.unlock();
    // A finished batch is never written again, so its text is read without the lock.
    reply(batch->text);
}

std::optional<std::string> CVHelperTool::runLsof() const
{
    LsofRunner::Options options;
    options.program =
        m_lsofPath.empty() ? LsofRunner::firstExecutable(lsofCandidates()) : m_lsofPath;
    options.arguments = lsofArguments();
    options.timeout = m_lsofTimeout;
    // The reply's header and the text must fit in the frame the client accepts.
    options.maxOutput = HelperProtocol::kMaxReplyFrame - HelperProtocol::kReplyHeaderSize;
    const LsofRunner::Result result = LsofRunner::run(options);
    if (result.outcome != LsofRunner::Outcome::Ok) {
        static const char* const kReasons[] = {
            "ok",      "could not be started", "timed out",
            "crashed", "printed too much",     "printed non-UTF-8"};
        syslog(LOG_WARNING, "lsof run failed: %s", kReasons[static_cast<int>(result.outcome)]);
    }
    return result.text();
}

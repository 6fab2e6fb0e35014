#include "lsoffetcher.h"

#include <QFileInfo>

#include <sys/resource.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

using namespace Qt::StringLiterals;
using Road = SnapshotSource::Road;
using Collector = SnapshotSource::Collector;

namespace {

// How long a pass waits for the helper: its own bounds (lsof's ten seconds) and a margin.
constexpr auto kHelperWait = std::chrono::seconds(15);

// CPU time of this thread and of the children waited for (a local lsof), in milliseconds.
double cpuMsNow()
{
    const auto ms = [](const timeval& t) { return double(t.tv_sec) * 1e3 + t.tv_usec / 1e3; };
    rusage self{}, children{};
    getrusage(RUSAGE_THREAD, &self);
    getrusage(RUSAGE_CHILDREN, &children);
    return ms(self.ru_utime) + ms(self.ru_stime) + ms(children.ru_utime) + ms(children.ru_stime);
}

// One reply from another thread, waited for on this one. The reply may come after the waiter
// gave up; it then lands here and is dropped.
struct PendingReply {
    std::mutex lock;
    std::condition_variable arrived;
    std::optional<QByteArray> bytes;
};

} // namespace

std::optional<Collector> LsofFetcher::collectorNamed(const QString& name)
{
    if (name == u"native")
        return Collector::Native;
    if (name == u"lsof")
        return Collector::Lsof;
    return std::nullopt;
}

void LsofFetcher::cancel()
{
    m_cancelled.store(true);
}

LsofItemList LsofFetcher::getLsofItems()
{
    const bool script = m_roads.sandboxed();
    const QString program = script ? m_roads.scriptPath() : GACommandRunner::lsofPath();
    m_lastOrigin.road = script ? Road::Script : Road::Direct;
    m_lastOrigin.collector = Collector::Lsof;
    const GACommandRunner::SyncResult result =
        m_roads.run(program, GACommandRunner::lsofArguments(),
                    script ? GACommandRunner::Road::Script : GACommandRunner::Road::Shell);
    m_lastProblem = result.problem;
    if (!script && !QFileInfo(program).isExecutable())
        m_lastProblem = u"lsof is not installed (looked for /usr/sbin/lsof and /usr/bin/lsof); "
                        u"install the lsof package to see connections."_s;
    else if (script && !QFileInfo::exists(program))
        m_lastProblem = u"The lsof script is not installed at %1."_s.arg(program);
    return parseLsofOutput(result.output);
}

LsofItemList LsofFetcher::collectLocally()
{
    if (m_collector == Collector::Native && m_roads.collect && !m_roads.sandboxed() &&
        m_nativeRefusal.isEmpty()) {
        AcquisitionRoads::Collected collected = m_roads.collect();
        if (collected.refusal.isEmpty()) {
            m_lastOrigin = {Road::Direct, Collector::Native, 0};
            m_lastProblem = collected.problem;
            return matchRecords(collected.records, collected.closed);
        }
        // Said once: the passes after this one take lsof without a word.
        m_nativeRefusal = collected.refusal;
        LsofItemList items = getLsofItems();
        m_lastProblem = m_nativeRefusal + u" Using lsof instead."_s +
                        (m_lastProblem.isEmpty() ? QString() : u' ' + m_lastProblem);
        return items;
    }
    return getLsofItems();
}

LsofItemList LsofFetcher::getCurrentItems()
{
    LsofItemList items = collectLocally();
    processLsofItemsChanges(items);
    return items;
}

void LsofFetcher::getCurrentItemsWithCompletion(const std::function<void(LsofItemList)>& completion)
{
    const double startMs = cpuMsNow();
    LsofItemList items = acquire();
    processLsofItemsChanges(items);
    m_lastOrigin.costMs = cpuMsNow() - startMs;
    m_lastOrigin.unattributed = lastUnattributed();
    completion(items);
}

LsofItemList LsofFetcher::acquire()
{
    if (m_roads.runRemote) {
        const AcquisitionRoads::Remote remote = m_roads.runRemote();
        m_lastOrigin = {Road::Remote, Collector::None, 0};
        m_lastProblem = remote.problem;
        return parseLsofOutput(remote.output);
    }
    std::call_once(m_helperChecked, [this] { m_helperInstalled = m_roads.helperInstalled(); });
    if (!m_helperInstalled)
        return collectLocally();
    const bool native = m_collector == Collector::Native && m_roads.runCollectorThroughHelper;
    const QByteArray output =
        waitForHelper(native ? m_roads.runCollectorThroughHelper : m_roads.runLsofThroughHelper);
    if (m_cancelled.load())
        return {};
    if (output.isNull()) {
        LsofItemList items = collectLocally();
        // Why the helper gave nothing comes first: it is why the local road ran.
        const QString why = m_roads.helperProblem ? m_roads.helperProblem() : QString();
        if (!why.isEmpty())
            m_lastProblem = m_lastProblem.isEmpty() ? why : why + u' ' + m_lastProblem;
        return items;
    }
    m_lastOrigin = {Road::Helper, native ? Collector::Native : Collector::Lsof, 0};
    m_lastProblem.clear();
    if (!native || !m_roads.closedAmong)
        return parseLsofOutput(output);
    if (!m_reader.read(output))
        return {};
    const AcquisitionRoads::Collected heard = m_roads.closedAmong(m_reader.records());
    m_lastProblem = heard.problem;
    return matchRecords(m_reader.records(), m_reader.closed() + heard.closed);
}

// The reply is awaited here, on the acquisition's own thread, so that parsing and change
// detection never run on the thread the reply comes on (which may outlive the application's
// objects at quit). A cancelled fetcher stops waiting.
QByteArray
LsofFetcher::waitForHelper(const std::function<void(AcquisitionRoads::HelperReply)>& request)
{
    auto pending = std::make_shared<PendingReply>();
    request([pending](const QByteArray& bytes) {
        std::lock_guard locker(pending->lock);
        if (!pending->bytes)
            pending->bytes = bytes;
        pending->arrived.notify_all();
    });
    std::unique_lock locker(pending->lock);
    const auto deadline = std::chrono::steady_clock::now() + kHelperWait;
    while (!pending->bytes && !m_cancelled.load() && std::chrono::steady_clock::now() < deadline)
        pending->arrived.wait_for(locker, std::chrono::milliseconds(50));
    return pending->bytes.value_or(QByteArray());
}

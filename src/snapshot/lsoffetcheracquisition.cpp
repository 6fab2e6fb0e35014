#include "lsoffetcher.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

LsofItemList LsofFetcher::getLsofItems()
{
    const bool script = m_roads.sandboxed();
    const QString program = script ? m_roads.scriptPath() : GACommandRunner::lsofPath();
    m_lastRoad = script ? SnapshotSource::Road::Script : SnapshotSource::Road::Direct;
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

LsofItemList LsofFetcher::getCurrentItems()
{
    LsofItemList items = getLsofItems();
    processLsofItemsChanges(items);
    return items;
}

void LsofFetcher::getCurrentItemsWithCompletion(const std::function<void(LsofItemList)>& completion)
{
    std::call_once(m_helperChecked, [this] { m_helperInstalled = m_roads.helperInstalled(); });
    if (!m_helperInstalled) {
        completion(getCurrentItems());
        return;
    }
    m_roads.runLsofThroughHelper([this, completion](const QByteArray& output) {
        if (output.isNull()) {
            LsofItemList items = getCurrentItems();
            // Why the helper gave nothing comes first: it is why the local road ran.
            const QString why = m_roads.helperProblem ? m_roads.helperProblem() : QString();
            if (!why.isEmpty())
                m_lastProblem = m_lastProblem.isEmpty() ? why : why + u' ' + m_lastProblem;
            completion(items);
            return;
        }
        m_lastRoad = SnapshotSource::Road::Helper;
        m_lastProblem.clear();
        LsofItemList items = parseLsofOutput(output);
        processLsofItemsChanges(items);
        completion(items);
    });
}

// A window that watches another machine over ssh: what changes when the rows' processes are
// not this machine's, and how failed passes are waited out.
#include "cvwindowcontroller.h"

#include "applicationtreemodel.h"
#include "connectiontablemodel.h"
#include "groupedview.h"
#include "prefs/cvprefshelper.h"
#include "prefs/prefkeys.h"
#include "prefs/userdefaults.h"
#include "searchfield.h"
#include "snapshot/itemcolumns.h"

#include <QStatusBar>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// This machine's names for the processes of another would order another machine's rows: the
// window sorts those by command name itself.
bool sortsByProcess(const ItemOrdering& ordering)
{
    if (!ordering.sorts())
        return false;
    const LsofItem::Key key = itemColumns().at(ordering.column).key;
    return key == LsofItem::Key::localizedAppName || key == LsofItem::Key::processPath;
}

LsofItemList sortedByCommandName(LsofItemList items, Qt::SortOrder order)
{
    std::stable_sort(
        items.begin(), items.end(), [order](const LsofItemPtr& a, const LsofItemPtr& b) {
            const int compared = a->processName().compare(b->processName(), Qt::CaseInsensitive);
            return order == Qt::AscendingOrder ? compared < 0 : compared > 0;
        });
    return items;
}

} // namespace

void CVWindowController::setHost(const HostSpec& host)
{
    m_host = host;
    setWindowTitle(tr("Corvina — %1").arg(host.text()));
    m_model->setRemote(true);
    m_rows->setHost(host.host());
    // The command name stands for the application there, and no path is known.
    m_lsofItemKeys.removeAll(LsofItem::Key::processPath);
    std::replace(m_lsofItemKeys.begin(), m_lsofItemKeys.end(), LsofItem::Key::localizedAppName,
                 LsofItem::Key::processName);
    // The search restored from the main window's was typed for this machine's rows.
    m_searchField->clear();
    // Until the first pass ends, however long ssh takes to give up.
    statusBar()->showMessage(tr("Connecting to %1…").arg(host.text()));
}

bool CVWindowController::isStale() const
{
    return m_model->isStale();
}

std::chrono::seconds CVWindowController::retryDelay() const
{
    return m_retryDelay;
}

void CVWindowController::autoRefreshTick()
{
    // After failed passes another machine is asked again once its wait is over.
    if (m_host && std::chrono::steady_clock::now() < m_retryAt)
        return;
    reloadTableViewData();
}

ItemOrdering CVWindowController::sourceOrdering() const
{
    const ItemOrdering wanted = ordering();
    return m_host && sortsByProcess(wanted) ? ItemOrdering{} : wanted;
}

LsofItemList CVWindowController::inShownOrder(const LsofItemList& items,
                                              const ItemOrdering& sortedBy) const
{
    const ItemOrdering wanted = ordering();
    if (m_host && sortsByProcess(wanted))
        return sortedByCommandName(items, wanted.order);
    // Sorted on the worker, unless the header's indicator moved while the pass ran.
    return sortedBy == wanted ? items : wanted.sorted(items);
}

bool CVWindowController::keepRowsOfFailedPass(const LsofItemList& items, const QString& problem)
{
    // The passing message would hide the outcome of the first pass.
    if (statusBar()->currentMessage() == tr("Connecting to %1…").arg(m_host->text()))
        statusBar()->clearMessage();
    // Rows, or no rows and no complaint (a machine without sockets): the pass worked.
    if (problem.isEmpty() || !items.isEmpty()) {
        m_lastGoodPass = QTime::currentTime();
        m_backoff.succeeded();
        m_retryDelay = std::chrono::seconds(0);
        m_retryAt = {};
        setStale(false);
        return false;
    }
    m_retryDelay = m_backoff.failed();
    m_retryAt = std::chrono::steady_clock::now() + m_retryDelay;
    const qint64 period = m_prefs.defaultsStore().integerForKey(PrefKeys::AutoRefreshSetting);
    const QString next = period < 1 ? tr("Refresh to try again.")
                                    : tr("Trying again in %n s.", nullptr,
                                         int(std::max<qint64>(m_retryDelay.count(), period)));
    const bool stale = !m_originalItems.isEmpty();
    m_lastProblem =
        problem + u' ' +
        (stale
             ? tr("The rows shown are from %1.").arg(m_lastGoodPass.toString(u"HH:mm:ss"_s)) + u' '
             : QString()) +
        next;
    m_pendingSelection.clear();
    setStale(stale);
    updateStatusBar();
    return true;
}

void CVWindowController::setStale(bool stale)
{
    if (stale == m_model->isStale())
        return;
    m_model->setStale(stale);
    m_grouped->model()->repaintAll();
}

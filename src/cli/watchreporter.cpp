#include "watchreporter.h"

#include <algorithm>

namespace {

LsofItemList withStatus(const LsofItemList& items, std::initializer_list<qint32> statuses)
{
    LsofItemList selected;
    for (const LsofItemPtr& item : items) {
        if (std::find(statuses.begin(), statuses.end(), item->status()) != statuses.end())
            selected << item;
    }
    return selected;
}

} // namespace

void WatchReporter::notifyNewItems(const LsofItemList& items)
{
    // A short-lived connection opened in this pass too: "new" here, "closed" with the changes.
    LsofItemList opened;
    for (const LsofItemPtr& item : items) {
        if (item->status() == 1 || (item->status() == 3 && item->isShortLived()))
            opened << item;
    }
    m_printer.print(opened, true);
    if (m_settingsReporter && m_settingsReporter->needsNotifyOrLogNewConnections())
        m_settingsReporter->notifyNewItems(items);
}

void WatchReporter::notifyChangedItems(const LsofItemList& items)
{
    m_printer.print(withStatus(items, {2, 3}));
    if (m_settingsReporter && m_settingsReporter->needsNotifyOrLogConnectionStateChange())
        m_settingsReporter->notifyChangedItems(items);
}

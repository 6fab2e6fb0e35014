#pragma once

#include "itemordering.h"
#include "lsofitem.h"

#include <QObject>

// Where the refresh cycle gets its snapshots. The application's source runs lsof, parsing and
// change detection on a worker thread; tests feed scripted snapshots.
class SnapshotSource : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // How the last snapshot was taken, for the status bar: which way it came (the privileged
    // helper, the user's script, this process itself, ssh to another host), which collector
    // gave it, and what the pass cost this process (CPU time, a local lsof's included).
    enum class Road { None, Helper, Script, Direct, Remote };
    enum class Collector { None, Native, Lsof };
    struct Origin {
        Road road = Road::None;
        Collector collector = Collector::None;
        double costMs = 0;
        // Connections that opened and closed since the last pass whose process is not known.
        int unattributed = 0;
    };

    // Starts one acquisition. Answers false, and does nothing, while the previous one is still
    // running: acquisitions never overlap.
    virtual bool requestSnapshot() = 0;
    virtual Origin lastOrigin() const { return {}; }
    Road lastRoad() const { return lastOrigin().road; }

    // The order the window shows rows in, as of the next request. A source that can sorts
    // each snapshot so on its own thread before delivering it: on a big snapshot the sort
    // would otherwise hold up the GUI thread for milliseconds at every refresh.
    void setOrdering(const ItemOrdering& ordering) { m_ordering = ordering; }
    const ItemOrdering& ordering() const { return m_ordering; }
    // The collector the user chose, as of the next request.
    void setCollector(Collector collector) { m_collector = collector; }
    Collector collector() const { return m_collector; }

Q_SIGNALS:
    // Delivered on the thread that owns this object (the GUI thread), once per accepted request.
    // `problem` is empty, or one sentence saying why the snapshot is empty (lsof missing, failed).
    // `sortedBy` is the order `items` are in: the snapshot's own unless the source sorted them.
    void snapshotReady(const LsofItemList& items, const QString& problem,
                       const ItemOrdering& sortedBy = {});

private:
    ItemOrdering m_ordering;
    Collector m_collector = Collector::Native;
};

Q_DECLARE_METATYPE(LsofItemList)

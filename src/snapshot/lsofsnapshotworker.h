#pragma once

#include "lsoffetcher.h"
#include "snapshotsource.h"

#include <QThread>

#include <atomic>

// The application's snapshot source: lsof, parsing, change detection, the processes' records
// and the sort on one worker thread, the result posted back to the thread that owns this
// object. A request made while the previous acquisition is still running is refused, so
// acquisitions never overlap.
class LsofSnapshotWorker final : public SnapshotSource {
    Q_OBJECT
public:
    explicit LsofSnapshotWorker(LsofFetcher& fetcher, QObject* parent = nullptr);
    ~LsofSnapshotWorker() override;
    Q_DISABLE_COPY_MOVE(LsofSnapshotWorker)

    bool requestSnapshot() override;
    Origin lastOrigin() const override { return m_origin; }
    bool isBusy() const { return m_busy.load(); }

private:
    void deliver(const LsofItemList& items, const Origin& origin, const QString& problem,
                 const ItemOrdering& sortedBy);

    LsofFetcher& m_fetcher;
    QThread m_thread;
    QObject* m_context;
    std::atomic<bool> m_busy{false};
    Origin m_origin;
};

#pragma once

#include "remote/hostspec.h"
#include "snapshot/lsoffetcher.h"
#include "snapshot/lsofsnapshotworker.h"

// Another machine's snapshots, taken through the system's ssh on a worker thread of their own,
// with change detection of their own: one per host window. Nothing is reported to the
// notifications or the logs, which are about this machine.
class RemoteSnapshotSource final : public SnapshotSource {
    Q_OBJECT
public:
    explicit RemoteSnapshotSource(const HostSpec& host, QObject* parent = nullptr);
    Q_DISABLE_COPY_MOVE(RemoteSnapshotSource)

    bool requestSnapshot() override;
    Origin lastOrigin() const override { return m_worker.lastOrigin(); }
    // A pass is under way: destroying the source now would wait for it (up to its bound).
    bool isBusy() const { return m_worker.isBusy(); }

private:
    LsofFetcher m_fetcher;
    LsofSnapshotWorker m_worker;
};

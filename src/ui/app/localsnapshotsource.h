#pragma once

#include "snapshot/lsoffetcher.h"
#include "snapshot/snapshotsource.h"

#include <QThread>

// Runs lsof, parsing and change detection on a worker thread, one acquisition at a time.
// A plain stand-in for the application's source with all three roads.
class LocalSnapshotSource final : public SnapshotSource {
    Q_OBJECT
public:
    explicit LocalSnapshotSource(QObject* parent = nullptr);
    ~LocalSnapshotSource() override;
    Q_DISABLE_COPY_MOVE(LocalSnapshotSource)

    bool requestSnapshot() override;
    Road lastRoad() const override { return Road::Direct; }

private:
    LsofFetcher m_fetcher;
    QThread* m_worker = nullptr;
};

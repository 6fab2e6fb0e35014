#pragma once

#include "lsofitem.h"

#include <QObject>

// Where the refresh cycle gets its snapshots. The application's source runs lsof, parsing and
// change detection on a worker thread; tests feed scripted snapshots.
class SnapshotSource : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    // How the last snapshot was taken, for the status bar.
    enum class Road { None, Helper, Script, Direct };

    // Starts one acquisition. Answers false, and does nothing, while the previous one is still
    // running: acquisitions never overlap.
    virtual bool requestSnapshot() = 0;
    virtual Road lastRoad() const { return Road::None; }

Q_SIGNALS:
    // Delivered on the thread that owns this object (the GUI thread), once per accepted request.
    // `problem` is empty, or one sentence saying why the snapshot is empty (lsof missing, failed).
    void snapshotReady(const LsofItemList& items, const QString& problem);
};

Q_DECLARE_METATYPE(LsofItemList)

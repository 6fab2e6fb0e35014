#pragma once

#include "acquisitionroads.h"
#include "changes/changedetector.h"
#include "lsofitem.h"
#include "lsoftextreader.h"
#include "snapshotsource.h"

#include <QHash>
#include <QString>

#include <functional>
#include <mutex>

// Where a change-detection pass hands its outcome: the reporters (console, CSV log,
// notifications) implement this. The two questions are asked before the work is done.
class ChangeReporting {
public:
    virtual ~ChangeReporting() = default;
    virtual bool needsNotifyOrLogNewConnections() const = 0;
    virtual bool needsNotifyOrLogConnectionStateChange() const = 0;
    virtual void notifyNewItems(const LsofItemList& items) = 0;
    virtual void notifyChangedItems(const LsofItemList& items) = 0;
};

// The snapshot service: collects a snapshot's records (lsof's text read by its titles), turns
// them into items matched against the previous snapshot, marks what changed and reports it.
// One instance holds the change detector; parse and change detection always run as a pair on
// one thread at a time.
class LsofFetcher final {
public:
    LsofFetcher() = default;
    Q_DISABLE_COPY_MOVE(LsofFetcher)

    // The application's one instance.
    static LsofFetcher& shared();

    // Cuts the text into items, reusing the earlier object of every connection that is still
    // open (ChangeDetector::match). An output without its header's titles gives no items and
    // changes nothing.
    LsofItemList parseLsofResult(const QString& text);
    // The same from lsof's output as it came, UTF-8: what the application parses.
    LsofItemList parseLsofOutput(QByteArrayView output);
    // The items of a collector's records, as a parse gives them.
    LsofItemList matchRecords(const SocketRecords& records);
    static void parseConnection(const QString& text, LsofItem& item);
    static void parseAddressAndPort(const QString& text, LsofItem& item, const QString& side);
    // Characters [start, start + length) with blanks and line ends trimmed at both ends.
    static QString substring(QStringView text, qsizetype start, qsizetype length);

    // Sets every item's status, inserts the closed items of the previous snapshot, reports,
    // and keeps the list as the new previous snapshot.
    void processLsofItemsChanges(LsofItemList& items);

    // One snapshot by the local road (the user's script when confined, lsof otherwise), parsed
    // but without change detection.
    LsofItemList getLsofItems();
    // getLsofItems followed by change detection.
    LsofItemList getCurrentItems();
    // The snapshot after change detection, through the helper when it is installed (falling back
    // to the local road when it fails). `completion` is called exactly once: at once on this
    // thread on the local road, on the reply's thread on the helper road.
    void getCurrentItemsWithCompletion(const std::function<void(LsofItemList)>& completion);

    void setRoads(AcquisitionRoads roads) { m_roads = std::move(roads); }
    // How the last snapshot was taken, and why it is empty when something went wrong.
    SnapshotSource::Road lastRoad() const { return m_lastRoad; }
    QString lastProblem() const { return m_lastProblem; }

    // Not owned; null means nothing is reported.
    void setReporter(ChangeReporting* reporter) { m_reporter = reporter; }
    ChangeReporting* reporter() const { return m_reporter; }

    // After change detection: the list it gave, closed items included. After a parse: the
    // same without them.
    const LsofItemList& previousSnapshot() const { return m_detector.previousSnapshot(); }
    const ChangeDetector& detector() const { return m_detector; }

private:
    AcquisitionRoads m_roads = AcquisitionRoads::system();
    std::once_flag m_helperChecked;
    bool m_helperInstalled = false;
    SnapshotSource::Road m_lastRoad = SnapshotSource::Road::None;
    QString m_lastProblem;
    LsofTextReader m_reader;
    ChangeDetector m_detector;
    ChangeReporting* m_reporter = nullptr;
};

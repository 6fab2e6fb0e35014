#pragma once

#include "acquisitionroads.h"
#include "changes/changedetector.h"
#include "lsofitem.h"
#include "lsoftextreader.h"
#include "snapshotsource.h"

#include <QHash>
#include <QString>

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>

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
    // The items of a collector's records, as a parse gives them; `closed` are the sockets
    // that closed since the last pass (ChangeDetector::match).
    LsofItemList matchRecords(const SocketRecords& records, const SocketRecords& closed = {});
    static void parseConnection(const QString& text, LsofItem& item);
    static void parseAddressAndPort(const QString& text, LsofItem& item, const QString& side);
    // Characters [start, start + length) with blanks and line ends trimmed at both ends.
    static QString substring(QStringView text, qsizetype start, qsizetype length);

    // Sets every item's status, inserts the closed items of the previous snapshot, reports,
    // and keeps the list as the new previous snapshot.
    void processLsofItemsChanges(LsofItemList& items);

    // One snapshot of lsof by the local road (the user's script when confined, lsof otherwise),
    // parsed but without change detection.
    LsofItemList getLsofItems();
    // A local snapshot (the built-in collector when it is chosen and the kernel answers, lsof
    // otherwise) followed by change detection.
    LsofItemList getCurrentItems();
    // The snapshot after change detection: from the host watched over ssh when there is one,
    // else through the helper when it is installed (falling back to the local road when it
    // fails), else local. `completion` is called exactly once, on this thread: the helper's
    // reply is waited for here.
    void getCurrentItemsWithCompletion(const std::function<void(LsofItemList)>& completion);
    // Stops waiting for the helper, for good: the application is quitting.
    void cancel();

    void setRoads(AcquisitionRoads roads)
    {
        m_detector.setHost(roads.runRemote ? roads.remoteHost : QString());
        m_roads = std::move(roads);
    }
    // The collector the user chose; the built-in one falls back on lsof where the kernel
    // refuses it (said once), and the user's script always runs lsof. Choosing again forgets a
    // refusal.
    void setCollector(SnapshotSource::Collector collector)
    {
        m_collector = collector;
        m_nativeRefusal.clear();
    }
    SnapshotSource::Collector collector() const { return m_collector; }
    // "native" or "lsof", as the settings and the command line spell them; nothing otherwise.
    static std::optional<SnapshotSource::Collector> collectorNamed(const QString& name);
    // How the last snapshot was taken, and why it is empty or partial when something went wrong.
    SnapshotSource::Road lastRoad() const { return m_lastOrigin.road; }
    const SnapshotSource::Origin& lastOrigin() const { return m_lastOrigin; }
    QString lastProblem() const { return m_lastProblem; }
    // The short-lived connections of the last pass whose process is not known (no privileged
    // attribution, and no lone listener that accepted them).
    int lastUnattributed() const { return m_detector.unattributed(); }

    // Not owned; null means nothing is reported.
    void setReporter(ChangeReporting* reporter) { m_reporter = reporter; }
    ChangeReporting* reporter() const { return m_reporter; }

    // After change detection: the list it gave, closed items included. After a parse: the
    // same without them.
    const LsofItemList& previousSnapshot() const { return m_detector.previousSnapshot(); }
    const ChangeDetector& detector() const { return m_detector; }

private:
    LsofItemList acquire();
    LsofItemList collectLocally();
    QByteArray waitForHelper(const std::function<void(AcquisitionRoads::HelperReply)>& request);

    AcquisitionRoads m_roads = AcquisitionRoads::system();
    std::once_flag m_helperChecked;
    bool m_helperInstalled = false;
    std::atomic<bool> m_cancelled{false};
    SnapshotSource::Collector m_collector = SnapshotSource::Collector::Lsof;
    QString m_nativeRefusal;
    SnapshotSource::Origin m_lastOrigin;
    QString m_lastProblem;
    LsofTextReader m_reader;
    ChangeDetector m_detector;
    ChangeReporting* m_reporter = nullptr;
};

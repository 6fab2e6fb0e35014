#pragma once

#include "acquisitionroads.h"
#include "identifiermap.h"
#include "lsofitem.h"
#include "lsoflinecutter.h"
#include "snapshotsource.h"
#include "textpool.h"

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

// The snapshot service: turns lsof's text into items, matches them against the previous
// snapshot and marks what changed. One instance holds the previous snapshot and the
// identifier map; parse and change detection always run as a pair on one thread at a time.
class LsofFetcher final {
public:
    LsofFetcher() = default;
    Q_DISABLE_COPY_MOVE(LsofFetcher)

    // The application's one instance.
    static LsofFetcher& shared();

    // Cuts the text into items, reusing the earlier object of every connection that is still
    // open and leaving behind the identifier map that change detection reads.
    LsofItemList parseLsofResult(const QString& text);
    // The same from lsof's output as it came, UTF-8: what the application parses.
    LsofItemList parseLsofOutput(QByteArrayView output);
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
    LsofItemList previousSnapshot() const;
    const IdentifierMap& identifierMap() const { return m_identifierMap; }

private:
    void markListed(LsofItem& item, qsizetype index, QByteArrayView line, size_t lineHash,
                    QByteArrayView text) const;
    // Brings the identifier map from the previous snapshot to `items`, the new one, after a
    // detection that followed the parse of `items`.
    void updateIdentifierMap(const LsofItemList& closed);

    // The last parse's mark (unique across fetchers, so an item parsed by another one never
    // passes for one of this fetcher's) and its header's title positions: a line whose hash is
    // that of the line of the same connection there, under the same columns, is that
    // connection unchanged.
    quint32 m_parseMark = 0;
    LsofLineCutter::Positions m_lastTitles{};
    // The list the last parse returned, until change detection takes it. A list that shares its
    // data is that very list, untouched, so detection can trust what the parse left on its items.
    LsofItemList m_parseResult;
    AcquisitionRoads m_roads = AcquisitionRoads::system();
    std::once_flag m_helperChecked;
    bool m_helperInstalled = false;
    SnapshotSource::Road m_lastRoad = SnapshotSource::Road::None;
    QString m_lastProblem;
    LsofItemList m_previous;
    // The snapshot before m_previous. When nobody else holds it any longer, the next parse lets
    // go of its items in step with its own walk, while they are in the cache for the lines that
    // list them again; let go at once, a big snapshot's items would be walked cold (here, or
    // on whichever thread drops the list last).
    LsofItemList m_retired;
    // The emptied room of the last snapshot retired, for the next parse's list.
    LsofItemList m_spareList;
    IdentifierMap m_identifierMap;
    // The map no longer follows the previous snapshot (after a detection on a list the last
    // parse did not return); the next parse builds it again.
    bool m_mapStale = false;
    // Where the open items of m_previous stand in it, in order: the previous snapshot once a
    // parse has begun (m_closedDropped), when the closed items are no longer part of it.
    std::vector<qint32> m_openAt;
    // The buffer change detection fills with the next m_openAt; the two trade places.
    std::vector<qint32> m_nextOpenAt;
    bool m_closedDropped = false;
    // Per item of the previous snapshot, where the parse listed it (-1: not listed); and the
    // objects the parse made, in order. Read by the detection that follows.
    std::vector<qint32> m_foundAt;
    LsofItemList m_freshItems;
    // Per gap of the new list, which list of closed items change detection is filling for it
    // (-1: none); kept between passes so that a big snapshot does not ask for it anew.
    std::vector<qint32> m_gapList;
    // Buffers of change detection, kept so that a big snapshot does not ask for them anew.
    std::vector<qint32> m_gapTree;
    LsofItemList m_closed;
    QList<QString> m_identifierBuffers;
    // The lines of a batch that are cut, in UTF-16, and an earlier line cut again; their
    // storage is reused from line to line.
    QList<QString> m_lineBuffers;
    QString m_earlierLine;
    TextPool m_texts;
    ChangeReporting* m_reporter = nullptr;
};

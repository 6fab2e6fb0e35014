#pragma once

#include "lsofitem.h"

#include <QHash>
#include <QString>

#include <functional>

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
    static void parseConnection(const QString& text, LsofItem& item);
    static void parseAddressAndPort(const QString& text, LsofItem& item, const QString& side);
    // Characters [start, start + length) with blanks and line ends trimmed at both ends.
    static QString substring(QStringView text, qsizetype start, qsizetype length);

    // Sets every item's status, inserts the closed items of the previous snapshot, reports,
    // and keeps the list as the new previous snapshot.
    void processLsofItemsChanges(LsofItemList& items);

    // Not owned; null means nothing is reported.
    void setReporter(ChangeReporting* reporter) { m_reporter = reporter; }
    ChangeReporting* reporter() const { return m_reporter; }

    const LsofItemList& previousSnapshot() const { return m_previous; }
    const QHash<QString, LsofItemPtr>& identifierMap() const { return m_identifierMap; }

private:
    LsofItemList m_previous;
    QHash<QString, LsofItemPtr> m_identifierMap;
    ChangeReporting* m_reporter = nullptr;
};

#pragma once

#include "snapshot/lsofitem.h"
#include "snapshot/socketrecord.h"

#include <QHash>
#include <QString>

#include <chrono>
#include <functional>
#include <optional>

// Compares each snapshot with the one before and marks what changed. A connection keeps one
// item object for as long as it stays open; one that closed stays in the list for one more
// snapshot, marked closed, where its neighbours were.
//
// A pass is two steps, always in this order and on one thread at a time:
//  1. match() turns the collector's records into items, handing on the earlier object of every
//     connection still open (with the new state, the earlier one as its old state);
//  2. detect() sets each item's status, puts the closed items back into the list, and keeps the
//     list as the previous snapshot.
class ChangeDetector final {
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    // `clock` times the passes, for the traffic rates; a monotonic clock by default.
    explicit ChangeDetector(Clock clock = std::chrono::steady_clock::now);

    // The items of a new snapshot, in the records' order. The closed items of the previous
    // snapshot have had their extra pass: they leave it here, whatever follows. A connection
    // seen before gets its send and receive rates: the bytes moved since the last match over
    // the time between the two.
    //
    // `closed` are the sockets the kernel said closed since the last pass, known by cookie. An
    // open connection of the previous snapshot that is not in this one takes its final byte
    // counts from its record, and keeps the state it was last seen in as its old state (the
    // kernel's last word on a TCP socket is always CLOSE, which says nothing). Any other is a
    // short-lived connection, opened and closed between the two passes: detect() adds it.
    LsofItemList match(const SocketRecords& records, const SocketRecords& closed = {});

    // Statuses: 1 for an identifier the previous snapshot did not have, 2 for a state that
    // moved from one known state to another, else 0; on the first snapshot, all 0 and no item
    // closed. Then every item of the previous snapshot that is not in the list goes back into
    // it, status 3 and state "Closed". An empty list changes nothing, so the next snapshot is
    // compared with the last good one.
    //
    // The short-lived connections of the match come last, in the kernel's order, status 3 and
    // state "Closed", with their last kernel state as old state. They had no place in the
    // previous snapshot, so no neighbour to stand beside, and at the end they leave the places
    // of the other closed items as they were. On the first snapshot they are dropped, as is
    // every other change there.
    void detect(LsofItemList& items);
    // How many short-lived connections the last detect() added without a process.
    int unattributed() const { return m_unattributed; }

    // The machine the records come from (another host over ssh); empty: this one. The items
    // made from then on carry it.
    void setHost(const QString& host) { m_host = host; }

    // The list detect() last kept (after a match, without its closed items).
    const LsofItemList& previousSnapshot() const { return m_previous; }
    // The previous snapshot's open connections by identifier (of several, the later one), as
    // the last match saw them.
    LsofItemPtr previousItem(const QString& identifier) const;
    qsizetype identifierCount() const { return m_identifiers.size(); }

private:
    struct Known {
        LsofItemPtr item;
        // The state the connection had in the previous snapshot.
        QString previousState;
        // The record that last listed it in this match, if any: a second line of the same
        // identifier yields the object made for the line before it.
        const SocketRecord* listedBy = nullptr;
    };

    void forgetClosedItems();
    void takeClosed(const SocketRecords& closed);
    LsofItemPtr reuse(Known& known, const SocketRecord& record, double seconds);
    // A new item of the record, on the records' host.
    LsofItemPtr itemOf(const SocketRecord& record, const QString& identifier) const;
    void setStatuses(const LsofItemList& items) const;
    void insertClosedItems(LsofItemList& items) const;

    Clock m_clock;
    std::optional<std::chrono::steady_clock::time_point> m_lastMatch;
    QString m_host;
    LsofItemList m_previous;
    QHash<QString, Known> m_identifiers;
    // Made by the last match, added by the next detect.
    LsofItemList m_shortLived;
    int m_unattributed = 0;
};

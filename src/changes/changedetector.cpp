#include "changedetector.h"

#include "gapcounter.h"

#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

// Bytes per second between two counts of the same connection; unknown unless both counts are
// known and the time is.
std::optional<qint64> rate(std::optional<qint64> before, std::optional<qint64> now, double seconds)
{
    if (!before || !now || *now < *before || seconds <= 0)
        return std::nullopt;
    return qint64(double(*now - *before) / seconds + 0.5);
}

} // namespace

ChangeDetector::ChangeDetector(Clock clock) : m_clock(std::move(clock)) {}

LsofItemList ChangeDetector::match(const SocketRecords& records, const SocketRecords& closed)
{
    const auto now = m_clock();
    const double seconds =
        m_lastMatch ? std::chrono::duration<double>(now - *m_lastMatch).count() : 0;
    m_lastMatch = now;
    forgetClosedItems();
    LsofItemList items;
    // Room for the closed items detect() puts back, a few in a hundred.
    items.reserve(records.size() + records.size() / 16);
    QString made; // written over for a record without its identifier
    for (const SocketRecord& record : records) {
        if (record.identifier.isNull())
            LsofItem::writeIdentifier(record, made);
        const QString& identifier = record.identifier.isNull() ? made : record.identifier;
        const auto known = m_identifiers.find(identifier);
        if (known == m_identifiers.end())
            items.append(itemOf(record, &identifier == &made
                                            ? QString(made.constData(), made.size())
                                            : identifier));
        else
            items.append(reuse(*known, record, seconds));
    }
    m_shortLived.clear();
    if (!closed.isEmpty())
        takeClosed(closed);
    return items;
}

void ChangeDetector::takeClosed(const SocketRecords& closed)
{
    QHash<quint64, QList<const Known*>> byCookie;
    for (const Known& known : std::as_const(m_identifiers)) {
        if (const std::optional<quint64> cookie = known.item->cookie())
            byCookie[*cookie].append(&known);
    }
    for (const SocketRecord& record : closed) {
        if (!record.cookie)
            continue;
        const auto found = byCookie.constFind(*record.cookie);
        if (found == byCookie.cend()) {
            LsofItemPtr item = itemOf(record, LsofItem::identifierOf(record));
            item->setShortLived(true);
            item->setOldState(record.state);
            m_shortLived.append(item);
            continue;
        }
        for (const Known* known : *found) {
            // Still listed: the dump saw it before it closed, and the next pass closes it.
            if (known->listedBy)
                continue;
            LsofItem& item = *known->item;
            LsofItem::Traffic traffic = item.traffic();
            traffic.bytesSent = record.bytesSent ? record.bytesSent : traffic.bytesSent;
            traffic.bytesReceived =
                record.bytesReceived ? record.bytesReceived : traffic.bytesReceived;
            item.setTraffic(traffic);
            item.setOldState(item.state());
        }
    }
}

LsofItemPtr ChangeDetector::previousItem(const QString& identifier) const
{
    const auto known = m_identifiers.constFind(identifier);
    return known == m_identifiers.cend() ? LsofItemPtr() : known->item;
}

void ChangeDetector::forgetClosedItems()
{
    m_previous.removeIf([](const LsofItemPtr& item) { return item->status() == 3; });
    m_identifiers.clear();
    m_identifiers.reserve(m_previous.size());
    for (const LsofItemPtr& item : std::as_const(m_previous))
        m_identifiers.insert(item->identifier(), Known{item, item->state()});
}

// The connection goes on in its earlier object, which takes the new state (and traffic
// figures) and keeps the state before as its old state. The rest stays: it is the same socket of
// the same process. A second line of the same identifier in one output yields the object made
// for the line before it, with this line's state.
LsofItemPtr ChangeDetector::reuse(Known& known, const SocketRecord& record, double seconds)
{
    const SocketRecord* const before = std::exchange(known.listedBy, &record);
    LsofItemPtr item = before ? itemOf(*before, known.item->identifier()) : known.item;
    LsofItem::Traffic traffic;
    traffic.bytesSent = record.bytesSent;
    traffic.bytesReceived = record.bytesReceived;
    traffic.rtt = record.rtt;
    if (!before) {
        const LsofItem::Traffic was = item->traffic();
        traffic.sendRate = rate(was.bytesSent, record.bytesSent, seconds);
        traffic.receiveRate = rate(was.bytesReceived, record.bytesReceived, seconds);
    }
    item->relist(record.state, known.previousState, traffic);
    return item;
}

LsofItemPtr ChangeDetector::itemOf(const SocketRecord& record, const QString& identifier) const
{
    LsofItemPtr item = LsofItem::fromRecord(record, identifier);
    item->setHost(m_host);
    return item;
}

void ChangeDetector::detect(LsofItemList& items)
{
    if (items.isEmpty())
        return;
    m_unattributed = 0;
    if (!m_previous.isEmpty()) {
        setStatuses(items);
        insertClosedItems(items);
        for (const LsofItemPtr& item : std::as_const(m_shortLived)) {
            item->setStatus(3);
            item->setState(u"Closed"_s);
            m_unattributed += item->processId().isNull() ? 1 : 0;
            items.append(item);
        }
    }
    m_shortLived.clear();
    m_previous = items;
}

void ChangeDetector::setStatuses(const LsofItemList& items) const
{
    for (const LsofItemPtr& item : items) {
        const auto known = m_identifiers.constFind(item->identifier());
        if (known == m_identifiers.cend()) {
            item->setStatus(1);
            continue;
        }
        const QString now = item->state();
        const bool changed =
            !now.isNull() && !known->previousState.isNull() && now != known->previousState;
        item->setStatus(changed ? 2 : 0);
    }
}

// Walks the previous snapshot in order. A closed item lands at (closed items so far + the
// place of the last previous item found in the list as it grows); the count is never reset,
// so each closed item after the first lands one place further down than right after its former
// neighbour. The table shows this order when no sort is chosen.
void ChangeDetector::insertClosedItems(LsofItemList& items) const
{
    const qsizetype originals = items.size();
    QHash<const LsofItem*, qsizetype> firstPlace;
    firstPlace.reserve(originals);
    for (qsizetype i = originals - 1; i >= 0; --i)
        firstPlace.insert(items.at(i).get(), i);

    GapCounter inserted(originals + 1);
    std::vector<LsofItemList> gaps(size_t(originals + 1));
    qsizetype length = originals;
    qsizetype closedCount = 0;
    qsizetype lastFound = 0;
    for (const LsofItemPtr& before : m_previous) {
        if (const auto found = firstPlace.constFind(before.get()); found != firstPlace.cend()) {
            lastFound = inserted.positionOf(*found);
            continue;
        }
        before->setStatus(3);
        before->setState(u"Closed"_s);
        const qsizetype index = ++closedCount + lastFound;
        qsizetype gap = originals;
        if (index < length) {
            gap = inserted.gapHolding(index);
            const qsizetype gapStart = gap + (gap > 0 ? inserted.prefix(gap - 1) : 0);
            gaps[size_t(gap)].insert(index - gapStart, before);
        } else {
            gaps[size_t(gap)].append(before);
        }
        inserted.add(gap);
        ++length;
    }
    if (closedCount == 0)
        return;

    LsofItemList placed;
    placed.reserve(length);
    for (qsizetype i = 0; i < originals; ++i) {
        placed.append(gaps[size_t(i)]);
        placed.append(items.at(i));
    }
    placed.append(gaps[size_t(originals)]);
    items = std::move(placed);
}

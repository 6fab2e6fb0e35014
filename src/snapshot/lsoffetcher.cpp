#include "lsoffetcher.h"

#include <QRandomGenerator>

#include <array>
#include <atomic>
#include <cstring>
#include <numeric>
#include <optional>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

// Counts, per gap of the new list, how many closed items were inserted into it, and answers
// prefix sums; lets change detection place closed items without shifting the list each time.
class GapCounter {
public:
    // Counts in `tree`, a buffer kept from pass to pass: a big snapshot's would otherwise be
    // asked of the allocator anew each time.
    GapCounter(std::vector<qint32>& tree, qsizetype gaps) : m_tree(tree)
    {
        m_tree.assign(gaps + 1, 0);
    }
    void add(qsizetype gap)
    {
        for (qsizetype i = gap + 1; i < qsizetype(m_tree.size()); i += i & -i)
            ++m_tree[i];
    }
    // Number of inserted items in gaps 0..gap.
    qsizetype prefix(qsizetype gap) const
    {
        qsizetype sum = 0;
        for (qsizetype i = gap + 1; i > 0; i -= i & -i)
            sum += m_tree[i];
        return sum;
    }
    // The first gap g with g + prefix(g) >= target, or the last gap when there is none: one
    // walk down the tree instead of a binary search of prefix sums. g + prefix(g) sums one
    // plus the count of each gap up to g, less one, and a node covering k gaps holds their
    // count.
    qsizetype firstGapReaching(qsizetype target) const
    {
        const qsizetype nodes = qsizetype(m_tree.size()) - 1;
        qsizetype step = 1;
        while (step * 2 <= nodes)
            step *= 2;
        qsizetype position = 0;
        qsizetype rest = target + 1;
        for (; step > 0; step /= 2) {
            const qsizetype next = position + step;
            if (next <= nodes && m_tree[next] + step < rest) {
                position = next;
                rest -= m_tree[next] + step;
            }
        }
        return std::min(position, nodes - 1);
    }

private:
    std::vector<qint32>& m_tree; // counts stay far below 2^31
};

// Where the line that starts at `start` ends: its line feed, or the end of the text.
qsizetype lineEndFrom(QByteArrayView text, qsizetype start)
{
    const void* end = std::memchr(text.data() + start, '\n', size_t(text.size() - start));
    return end ? static_cast<const char*>(end) - text.data() : text.size();
}

// The line that starts at `start`.
QByteArrayView lineAt(QByteArrayView text, qsizetype start)
{
    return text.sliced(start, lineEndFrom(text, start) - start);
}

// The status change detection gives a connection seen before: changed (2) only when both
// states are known and differ.
qint32 reusedStatus(QStringView now, bool nowKnown, const QString& before)
{
    return !nowKnown || before.isNull() || now == before ? 0 : 2;
}

} // namespace

LsofFetcher& LsofFetcher::shared()
{
    static LsofFetcher fetcher;
    return fetcher;
}

void LsofFetcher::parseConnection(const QString& text, LsofItem& item)
{
    LsofLineCutter::parseConnection(text, item);
}

void LsofFetcher::parseAddressAndPort(const QString& text, LsofItem& item, const QString& side)
{
    LsofLineCutter::parseAddressAndPort(text, item, side);
}

QString LsofFetcher::substring(QStringView text, qsizetype start, qsizetype length)
{
    return LsofLineCutter::substring(text, start, length);
}

LsofItemList LsofFetcher::parseLsofResult(const QString& text)
{
    return parseLsofOutput(text.toUtf8());
}

LsofItemList LsofFetcher::parseLsofOutput(QByteArrayView text)
{
    LsofItemList result;
    if (text.isEmpty())
        return result;

    const qsizetype firstEnd = lineEndFrom(text, 0);
    const qsizetype headerEnd = firstEnd < text.size() ? firstEnd : -1; // -1: no data lines
    // Title positions count characters, as the cuts of the lines do.
    const QString header = QString::fromUtf8(text.first(firstEnd));
    const std::optional<LsofLineCutter> found = LsofLineCutter::fromHeader(header);
    if (!found)
        return result;
    const LsofLineCutter& cutter = *found;

    // Closed items have had their one extra pass: from here on the previous snapshot is the
    // stored list's open items, which m_openAt lists. (Copying them out would touch every
    // item of a big snapshot.) The map and the items' places among the open ones are kept up
    // to date by change detection; they are built again only after a detection that could not
    // follow, or after a parse whose list it never took (that parse moved the items' places on).
    if (!m_parseResult.isEmpty())
        m_mapStale = true;
    m_parseResult = LsofItemList();
    m_closedDropped = true;
    if (m_mapStale) {
        m_previous.removeIf([](const LsofItemPtr& item) { return item->status() == 3; });
        m_openAt.resize(size_t(m_previous.size()));
        m_identifierMap.clear();
        m_identifierMap.reserve(m_previous.size());
        for (qsizetype i = 0; i < m_previous.size(); ++i) {
            m_previous.at(i)->identifier(); // made now if it was not yet
            m_identifierMap.insert(m_previous.at(i));
            m_previous.at(i)->m_previousIndex = qint32(i);
            m_openAt[size_t(i)] = qint32(i);
        }
        m_mapStale = false;
    }
    m_foundAt.assign(m_openAt.size(), -1);
    m_freshItems.clear();
    LsofItemList retired = std::exchange(m_retired, LsofItemList());
    if (!retired.isDetached())
        retired.clear(); // another holder lets its items go
    qsizetype retiredDone = 0;

    static std::atomic<quint32> marks{0};
    quint32 nextMark = ++marks;
    if (nextMark == 0) // the mark of an item no parse has listed; reached after 2^32 parses
        nextMark = ++marks;
    const quint32 previousMark = std::exchange(m_parseMark, nextMark);
    const quint32 mark = m_parseMark;
    const bool sameTitles = std::exchange(m_lastTitles, cutter.positions()) == cutter.positions();
    // Lines are known by a seeded hash: a line whose hash is the one the line of a connection
    // had in the last parse, under the same columns, reads as that line did, and its identifier
    // and state are the connection's. Cutting it, building its identifier and comparing that
    // can all be skipped, and the last text need not be kept or read again. The seed is
    // random, so no output can be made to collide on purpose; by chance, two different lines
    // share a 64-bit hash once in about 10^19 comparisons.
    static const size_t lineSeed = QRandomGenerator::system()->generate64();
    const auto unchangedSince = [&](const LsofItem& item, size_t lineHash) {
        return sameTitles && item.m_lineHash == lineHash && item.m_passMark == previousMark &&
               m_identifierMap.listsItem(item);
    };
    qsizetype lineStart = headerEnd < 0 ? text.size() : headerEnd + 1;
    // The list is made, when it can be, in the room of the snapshot the last parse retired: a
    // big list asked of the allocator anew each time costs it a sweep of its free lists and
    // fresh pages. It needs room for about as many lines as last time, and for the closed items
    // change detection puts back in (a refresh closes a few percent of them); a first output is
    // guessed from its length. More lines only cost a copy of the list. (Counting the lines
    // would read a big output twice.)
    result = std::exchange(m_spareList, LsofItemList());
    result.reserve(std::max(qsizetype(m_openAt.size()) * 17 / 16, text.size() / 64) + 16);
    // lsof lists a machine's sockets in much the same order every time, so a line is most
    // often the connection that followed the previous line's in the previous snapshot. That
    // item is tried first, and the map is asked only when it is not the one the map lists
    // under the line's identifier: a hundred thousand look-ups at random places in a table
    // become a walk along the previous snapshot.
    const qsizetype openCount = qsizetype(m_openAt.size());
    qsizetype cursor = 0; // the previous snapshot's open item expected next
    const auto openItem = [&](qsizetype at) -> const LsofItemPtr* {
        return at < openCount ? m_previous.constData() + m_openAt[size_t(at)] : nullptr;
    };
    // The status a line's connection gets: new ones count as new only when there was a
    // snapshot before.
    const qint32 freshStatus = openCount > 0 ? 1 : 0;
    // A connection of the previous snapshot listed again, with `state` as its new state (none:
    // the state it has).
    const auto keep = [&](const LsofItemPtr& kept, QByteArrayView line, size_t lineHash,
                          const QString* state, qint32 status) {
        if (state || status != 0 || !kept->m_settled)
            kept->carryState(state, status);
        if (kept->m_previousIndex >= 0 && kept->m_previousIndex < qsizetype(m_foundAt.size())) {
            m_foundAt[size_t(kept->m_previousIndex)] = qint32(result.size());
            cursor = kept->m_previousIndex + 1;
        }
        markListed(*kept, result.size(), line, lineHash, text);
        result.append(kept);
    };
    const auto take = [&](const LsofLineCutter::Fields& fields, QByteArrayView line,
                          size_t lineHash, const QString& identifier, size_t hash,
                          const LsofItemPtr* likely) {
        const LsofItemPtr* earlier = likely && m_identifierMap.lists(**likely, identifier, hash)
                                         ? likely
                                         : m_identifierMap.find(identifier, hash);
        if (!earlier) {
            auto item = LsofItem::create();
            LsofLineCutter::fillItem(*item, fields, m_texts);
            if (fields.hasState)
                item->setState(m_texts.text(fields.state));
            // A copy of its own: the buffer is written again by a later line.
            item->adoptIdentifier(QString(identifier.constData(), identifier.size()));
            item->m_identifierHash = hash;
            item->m_status = freshStatus;
            markListed(*item, result.size(), line, lineHash, text);
            m_freshItems.append(item);
            result.append(std::move(item));
            return;
        }

        // A connection still open: its earlier object lives on with the new state and keeps
        // the previous one as `oldState`, which change detection compares against. (States
        // are written on this thread only, so reading them here needs no lock.)
        const LsofItemPtr& kept = *earlier;
        if (kept->m_passMark == mark) {
            // Listed again in this output: this line yields the object made for the line
            // before it, carrying this line's state.
            auto item = LsofItem::create();
            LsofLineCutter::widenLine(lineAt(text, kept->m_passLineStart), m_earlierLine);
            LsofLineCutter::fillItem(*item, *cutter.cut(m_earlierLine), m_texts);
            item->setState(fields.hasState ? m_texts.text(fields.state) : QString());
            item->setOldState(kept->m_oldState);
            item->adoptIdentifier(kept->m_identifier);
            item->m_identifierHash = hash;
            item->m_status = reusedStatus(fields.state, fields.hasState, kept->m_oldState);
            kept->m_passLineStart = line.data() - text.data();
            markListed(*item, result.size(), line, lineHash, text);
            m_freshItems.append(item);
            result.append(std::move(item));
            return;
        }
        const QString& previousState = kept->m_state;
        const qint32 status = reusedStatus(fields.state, fields.hasState, previousState);
        if (!fields.hasState) {
            const QString none;
            keep(kept, line, lineHash, &none, status);
        } else if (previousState.isNull() || previousState != fields.state) {
            const QString now = m_texts.text(fields.state);
            keep(kept, line, lineHash, &now, status);
        } else {
            keep(kept, line, lineHash, nullptr, status);
        }
    };

    // Lines go in batches: the look-ups of a whole batch are started (their slots, the items
    // those slots name and their identifiers asked of memory ahead) before the first line is
    // taken, so that on a big snapshot the cache misses of many lines overlap instead of
    // queueing one behind the other.
    struct Pending {
        LsofLineCutter::Fields fields; // views into m_lineBuffers at the batch's place
        QByteArrayView line;
        size_t lineHash = 0;
        size_t hash = 0;
        const LsofItemPtr* likely = nullptr; // the item it is expected to be, hash agreeing
        bool unchanged = false;              // `likely`'s line as it was; fields not cut
    };
    constexpr int kBatch = 16;
    constexpr qsizetype kTextAhead = 4096;
    constexpr qsizetype kRetiredBehind = 1024;
    std::array<Pending, kBatch> batch;
    if (m_identifierBuffers.size() < kBatch)
        m_identifierBuffers.resize(kBatch);
    if (m_lineBuffers.size() < kBatch)
        m_lineBuffers.resize(kBatch);
    while (headerEnd >= 0 && lineStart <= text.size()) {
        int count = 0;
        // Expected for the batch's lines: the items after the cursor, one per line.
        qsizetype expected = cursor;
        bool lost = false;
        // The items a later batch expects: the line that holds their count and bookkeeping
        // arrives while the batches before it are taken (a line that reads as before needs no
        // other). Four batches of such lines take about as long as a miss to memory.
        for (qsizetype ahead = cursor + 4 * kBatch; ahead < cursor + 5 * kBatch; ++ahead) {
            if (const LsofItemPtr* item = openItem(ahead))
                __builtin_prefetch(reinterpret_cast<const char*>(item->get()) - 16, 1);
        }
        while (count < kBatch && lineStart <= text.size()) {
            const qsizetype lineEnd = lineEndFrom(text, lineStart);
            // A big output is read once, in order, from memory: ask for the text a few
            // kilobytes ahead, across page ends, where the processor's own prefetching stops.
            if (const qsizetype ahead = lineEnd + kTextAhead; ahead < text.size()) {
                const char* const bytes = text.data() + ahead;
                for (qsizetype offset = 0; offset < lineEnd - lineStart + 1; offset += 64)
                    __builtin_prefetch(bytes - offset);
            }
            const QByteArrayView line = text.sliced(lineStart, lineEnd - lineStart);
            lineStart = lineEnd + 1;
            const size_t lineHash = qHashBits(line.data(), size_t(line.size()), lineSeed);
            // The expected item; else the one after it (the expected one has closed); and after
            // a line that was neither, the one before (that line was a new connection).
            const LsofItemPtr* same = nullptr;
            qsizetype at = expected;
            for (const qsizetype step : {0, 1, -1}) {
                if (step < 0 && !lost)
                    break;
                at = expected + step;
                const LsofItemPtr* candidate = at >= 0 ? openItem(at) : nullptr;
                if (candidate && unchangedSince(**candidate, lineHash)) {
                    same = candidate;
                    break;
                }
            }
            if (same) {
                // Its fields stay as they were: they are not read.
                Pending& pending = batch[count];
                pending.line = line;
                pending.lineHash = lineHash;
                pending.likely = same;
                pending.unchanged = true;
                expected = at + 1;
                lost = false;
                ++count;
                continue;
            }
            LsofLineCutter::widenLine(line, m_lineBuffers[count]);
            std::optional<LsofLineCutter::Fields> fields = cutter.cut(m_lineBuffers[count]);
            if (!fields)
                continue;
            Pending& pending = batch[count];
            pending.fields = *fields;
            pending.line = line;
            pending.lineHash = lineHash;
            pending.unchanged = false;
            LsofLineCutter::writeIdentifier(pending.fields, m_identifierBuffers[count]);
            pending.hash = IdentifierMap::hashOf(m_identifierBuffers[count]);
            const LsofItemPtr* likely = openItem(expected++);
            pending.likely =
                likely && (*likely)->m_identifierHash == pending.hash ? likely : nullptr;
            lost = !pending.likely;
            if (pending.likely)
                IdentifierMap::prefetchIdentifierField(**pending.likely);
            else
                m_identifierMap.prefetchSlot(pending.hash);
            ++count;
        }
        for (int i = 0; i < count; ++i) {
            if (!batch[i].likely)
                m_identifierMap.prefetchItem(batch[i].hash);
            else if (!batch[i].unchanged)
                IdentifierMap::prefetchIdentifierOf(**batch[i].likely);
        }
        for (int i = 0; i < count; ++i) {
            if (!batch[i].likely)
                m_identifierMap.prefetchIdentifier(batch[i].hash);
        }
        for (int i = 0; i < count; ++i) {
            Pending& pending = batch[i];
            if (pending.unchanged) {
                const LsofItemPtr& kept = *pending.likely;
                if (kept->m_passMark != mark) {
                    keep(kept, pending.line, pending.lineHash, nullptr, 0);
                    continue;
                }
                // Listed twice in this output: the line goes the long way.
                LsofLineCutter::widenLine(pending.line, m_lineBuffers[i]);
                pending.fields = *cutter.cut(m_lineBuffers[i]);
                LsofLineCutter::writeIdentifier(pending.fields, m_identifierBuffers[i]);
                pending.hash = IdentifierMap::hashOf(m_identifierBuffers[i]);
                take(pending.fields, pending.line, pending.lineHash, m_identifierBuffers[i],
                     pending.hash, nullptr);
                continue;
            }
            // A line before it may have moved the cursor past the expected item.
            const LsofItemPtr* likely = pending.likely ? pending.likely : openItem(cursor);
            take(pending.fields, pending.line, pending.lineHash, m_identifierBuffers[i],
                 pending.hash, likely);
        }
        // The retired snapshot lists much the same items in much the same order, so its items
        // some way behind the place this list has reached have just been touched. (Connections
        // that opened or closed shift the two lists against each other a little.)
        if (const qsizetype upTo = std::min(retired.size(), result.size() - kRetiredBehind);
            upTo > retiredDone) {
            releaseItemRange(retired, retiredDone, upTo);
            retiredDone = upTo;
        }
    }
    releaseItemRange(retired, retiredDone, retired.size());
    if (retired.isDetached()) {
        retired.clear(); // keeps its room
        m_spareList = std::move(retired);
    }
    m_parseResult = result;
    return result;
}

void LsofFetcher::markListed(LsofItem& item, qsizetype index, QByteArrayView line, size_t lineHash,
                             QByteArrayView text) const
{
    item.m_previousIndex = qint32(index);
    item.m_passMark = m_parseMark;
    item.m_passLineStart = line.data() - text.data();
    item.m_lineHash = lineHash;
}

void LsofFetcher::processLsofItemsChanges(LsofItemList& items)
{
    if (items.isEmpty())
        return;

    // The previous snapshot: after a parse, the stored list's open items; otherwise all of it.
    const qsizetype previousCount =
        m_closedDropped ? qsizetype(m_openAt.size()) : m_previous.size();
    const auto previousAt = [&](qsizetype p) -> const LsofItemPtr& {
        return m_previous.at(m_closedDropped ? m_openAt[size_t(p)] : p);
    };

    // The list the last parse returned, untouched: the parse has set its statuses and kept
    // account of which previous items it listed where. Any other list is matched anew.
    const bool fromParse =
        items.constData() == m_parseResult.constData() && items.size() == m_parseResult.size();
    m_parseResult = LsofItemList();
    // The closed items, in a list whose room is kept from pass to pass.
    LsofItemList& closed = m_closed;
    // Where the open items will stand in the list given back: made in the buffer of the last
    // pass but one, which a big snapshot would otherwise ask of the allocator anew.
    std::vector<qint32>& openAt = m_nextOpenAt;
    openAt.resize(size_t(items.size()));
    std::iota(openAt.begin(), openAt.end(), 0);
    if (previousCount > 0) {
        for (qsizetype i = 0; !fromParse && i < items.size(); ++i) {
            LsofItem& item = *items.at(i);
            if (!m_identifierMap.contains(item.identifier())) {
                item.setStatus(1);
                continue;
            }
            // The parser left the previous state of a connection still open on its object.
            const QString now = item.state();
            item.setStatus(reusedStatus(now, !now.isNull(), item.oldState()));
        }

        // Closed items go back into the list. Each lands at (closed count so far + position
        // of the last previous item found), the count never being reset: that is the order
        // the table shows when no sort is chosen. Positions are tracked per gap instead of
        // inserting into the list, which keeps a pass linear in the list's length.
        const qsizetype originals = items.size();
        // Where a previous item stands in the new list (its first place), or -1.
        QHash<const LsofItem*, qsizetype> originalIndex;
        if (!fromParse) {
            originalIndex.reserve(originals);
            for (qsizetype i = originals - 1; i >= 0; --i)
                originalIndex.insert(items.at(i).get(), i);
        }
        const auto positionOf = [&](qsizetype previous) -> qsizetype {
            if (fromParse)
                return m_foundAt[size_t(previous)];
            return originalIndex.value(previousAt(previous).get(), -1);
        };

        GapCounter inserted(m_gapTree, originals + 1);
        // The closed items of each gap that received some; a gap's list is found through
        // m_gapList, which is laid out only once a first closed item appears.
        std::vector<LsofItemList> gapItems;
        const auto gapList = [&](qsizetype gap) -> LsofItemList& {
            qint32& at = m_gapList[size_t(gap)];
            if (at < 0) {
                at = qint32(gapItems.size());
                gapItems.emplace_back();
            }
            return gapItems[size_t(at)];
        };
        qsizetype length = originals;
        qint32 closedCount = 0;
        qsizetype lastFound = 0;
        // Current position of the first item of gap g (gap g precedes original item g).
        const auto gapStart = [&](qsizetype g) { return g + (g > 0 ? inserted.prefix(g - 1) : 0); };

        // Where the last previous item found stands now, asked of the counter only when a
        // closed item needs it: nothing is inserted between that item and the closed one.
        qsizetype lastFoundOriginal = -1;
        // A closed item is written below, and on a big snapshot it is cold: the next few closed
        // ones are asked for ahead. They are a few in a hundred, so a fixed distance in places
        // would leave about one in flight.
        constexpr int kClosedAhead = 8;
        qsizetype scout = 0;
        int scouted = 0;
        const auto scoutClosed = [&] {
            for (; fromParse && scouted < kClosedAhead && scout < previousCount; ++scout) {
                if (m_foundAt[size_t(scout)] < 0) {
                    prefetchItem(previousAt(scout));
                    ++scouted;
                }
            }
        };
        scoutClosed();
        for (qsizetype p = 0; p < previousCount; ++p) {
            const qsizetype found = positionOf(p);
            if (found >= 0) {
                lastFoundOriginal = found;
                continue;
            }
            if (fromParse) {
                --scouted;
                scoutClosed();
            }
            if (lastFoundOriginal >= 0) {
                lastFound = lastFoundOriginal + inserted.prefix(lastFoundOriginal);
                lastFoundOriginal = -1;
            }
            const LsofItemPtr& before = previousAt(p);
            if (closedCount == 0)
                m_gapList.assign(size_t(originals + 1), -1);
            ++closedCount;
            before->setStatus(3);
            before->setState(u"Closed"_s);
            closed.append(before);
            const qsizetype index = qsizetype(closedCount) + lastFound;
            qsizetype gap = originals;
            if (index < length) {
                // The gap holding position `index`: the first original item at or after it.
                gap = inserted.firstGapReaching(index);
                gapList(gap).insert(index - gapStart(gap), before);
            } else {
                gapList(gap).append(before);
            }
            inserted.add(gap);
            ++length;
        }

        if (closedCount > 0) {
            const auto gapAt = [&](qsizetype gap) -> const LsofItemList* {
                const qint32 at = m_gapList[size_t(gap)];
                return at >= 0 ? &gapItems[size_t(at)] : nullptr;
            };
            if (items.isDetached()) {
                // Nobody else holds the parser's list: its pointers move back to their places
                // within it, last first, into the room the parser left at its end. Copying
                // them would write to every item's count, and so would freeing that list.
                items.resize(length);
                LsofItemPtr* const data = items.data();
                qsizetype to = length;
                const auto placeGap = [&](qsizetype gap) {
                    if (const LsofItemList* list = gapAt(gap)) {
                        for (qsizetype k = list->size() - 1; k >= 0; --k)
                            data[--to] = list->at(k);
                    }
                };
                placeGap(originals);
                for (qsizetype i = originals - 1; i >= 0; --i) {
                    openAt[size_t(i)] = qint32(--to);
                    if (to != i)
                        data[to] = std::move(data[i]);
                    placeGap(i);
                }
            } else {
                LsofItemList placed;
                placed.reserve(length);
                for (qsizetype i = 0; i < originals; ++i) {
                    if (const LsofItemList* list = gapAt(i))
                        placed.append(*list);
                    openAt[size_t(i)] = qint32(placed.size());
                    placed.append(items.at(i));
                }
                if (const LsofItemList* list = gapAt(originals))
                    placed.append(*list);
                items = std::move(placed);
            }
        }
    }

    if (fromParse)
        updateIdentifierMap(closed);
    else
        m_mapStale = true;
    m_foundAt.clear();
    m_freshItems.clear();
    closed.clear();

    if (m_reporter) {
        if (m_reporter->needsNotifyOrLogNewConnections())
            m_reporter->notifyNewItems(items);
        if (m_reporter->needsNotifyOrLogConnectionStateChange())
            m_reporter->notifyChangedItems(items);
    }
    releaseItems(m_retired);
    m_retired = std::exchange(m_previous, items);
    std::swap(m_openAt, m_nextOpenAt);
    m_closedDropped = false;
}

LsofItemList LsofFetcher::previousSnapshot() const
{
    if (!m_closedDropped || qsizetype(m_openAt.size()) == m_previous.size())
        return m_previous;
    LsofItemList open;
    open.reserve(qsizetype(m_openAt.size()));
    for (const qint32 at : m_openAt)
        open.append(m_previous[at]);
    return open;
}

void LsofFetcher::updateIdentifierMap(const LsofItemList& closed)
{
    // What building the map from the new snapshot would give: every open connection under its
    // identifier, a later item of the same identifier replacing an earlier one. Objects kept
    // from the previous snapshot are in the map already and always precede the objects made
    // for the same identifier in this parse.
    // The slots a few items ahead are asked of memory first: on a big snapshot the table is
    // cold, and each change would wait for its slot in turn.
    constexpr qsizetype kAhead = 8;
    for (qsizetype i = 0; i < closed.size(); ++i) {
        if (i + kAhead < closed.size())
            m_identifierMap.prefetchSlot(closed.at(i + kAhead)->m_identifierHash);
        m_identifierMap.removeItem(closed.at(i));
    }
    for (qsizetype i = 0; i < m_freshItems.size(); ++i) {
        if (i + kAhead < m_freshItems.size())
            m_identifierMap.prefetchSlot(m_freshItems.at(i + kAhead)->m_identifierHash);
        m_identifierMap.insert(m_freshItems.at(i), m_freshItems.at(i)->m_identifierHash);
    }
}

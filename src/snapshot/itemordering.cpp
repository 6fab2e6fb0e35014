#include "itemordering.h"

#include "itemcolumns.h"
#include "textkey.h"

#include <QHash>

#include <algorithm>
#include <numeric>
#include <vector>

bool ItemOrdering::sorts() const
{
    return column >= 0 && column < itemColumns().size();
}

void ItemOrdering::apply(LsofItemList& items) const
{
    if (!sorts() || items.size() < 2)
        return;
    const ItemColumn& spec = itemColumns().at(column);
    // Keys are read once per item: reading a field takes the item's lock, and the derived
    // names are computed on each read. Texts become ranks, so the sort itself moves small
    // plain pairs and compares integers.
    struct Keyed {
        qint64 key;
        qint32 index;
    };
    std::vector<Keyed> keyed(size_t(items.size()));
    // The items lie all over the heap and the column's field is rarely in the cache.
    constexpr qsizetype kAhead = 16;
    const auto askAhead = [&](qsizetype i) {
        if (i + kAhead < items.size())
            items.at(i + kAhead)->prefetchField(spec.sortKey);
    };
    if (spec.numeric) {
        for (qsizetype i = 0; i < items.size(); ++i) {
            askAhead(i);
            keyed[size_t(i)] = {items.at(i)->value(spec.sortKey).toLongLong(), qint32(i)};
        }
    } else {
        // Host names from the cache only: asking for every row would queue a look-up for
        // each address in the snapshot. Names that come from the process are asked once per
        // process (its id and command name, which is what a process without a record is
        // named by): a process has many sockets, and one that has gone would be searched for
        // in /proc for each of them.
        const bool perProcess = spec.sortKey == LsofItem::Key::localizedAppName ||
                                spec.sortKey == LsofItem::Key::processPath;
        // The parser gives a process's sockets one shared copy of its id and command name, so
        // the memo is keyed by where those texts live: hashing two pointers instead of two
        // texts per row. Equal texts apart in memory only make a second entry, of equal value.
        QHash<std::pair<const QChar*, const QChar*>, QString> byProcess;
        const auto textOf = [&](qsizetype i) {
            const LsofItem& item = *items.at(i);
            if (spec.sortKey == LsofItem::Key::remoteHostname)
                return item.cachedRemoteHostname();
            if (!perProcess)
                return item.text(spec.sortKey);
            const QString id = item.processId();
            const QString name = item.processName();
            const std::pair process{id.constData(), name.constData()};
            auto known = byProcess.constFind(process);
            if (known == byProcess.cend())
                known = byProcess.insert(process, item.text(spec.sortKey));
            return *known;
        };
        // Most text columns hold few distinct values (names, states, protocols): each is
        // case-folded and compared with the others once, not once per row.
        QHash<TextKey, qint32> ids;
        std::vector<QString> distinct;
        for (qsizetype i = 0; i < items.size(); ++i) {
            askAhead(i);
            const QString text = textOf(i);
            auto found = ids.constFind(TextKey{text});
            if (found == ids.cend()) {
                found = ids.insert(TextKey{text}, qint32(distinct.size()));
                distinct.push_back(text.toCaseFolded());
            }
            keyed[size_t(i)] = {*found, qint32(i)};
        }
        std::vector<qint32> byText(distinct.size());
        std::iota(byText.begin(), byText.end(), 0);
        std::sort(byText.begin(), byText.end(),
                  [&](qint32 a, qint32 b) { return distinct[size_t(a)] < distinct[size_t(b)]; });
        // Texts equal but for case share a rank, so they keep their snapshot order.
        std::vector<qint64> rank(distinct.size());
        qint64 next = -1;
        for (size_t r = 0; r < byText.size(); ++r) {
            if (r == 0 || distinct[size_t(byText[r - 1])] != distinct[size_t(byText[r])])
                ++next;
            rank[size_t(byText[r])] = next;
        }
        for (Keyed& entry : keyed)
            entry.key = rank[size_t(entry.key)];
    }
    if (order == Qt::AscendingOrder) {
        std::stable_sort(keyed.begin(), keyed.end(),
                         [](const Keyed& a, const Keyed& b) { return a.key < b.key; });
    } else {
        std::stable_sort(keyed.begin(), keyed.end(),
                         [](const Keyed& a, const Keyed& b) { return b.key < a.key; });
    }
    LsofItemList sorted;
    sorted.reserve(items.size());
    for (size_t k = 0; k < keyed.size(); ++k) {
        if (k + kAhead < keyed.size())
            prefetchItem(items.at(keyed[k + kAhead].index));
        sorted.append(items.at(keyed[k].index));
    }
    items = std::move(sorted);
}

#include "itemordering.h"

#include "itemcolumns.h"

#include <QHash>

#include <algorithm>
#include <limits>
#include <vector>

namespace {

// An item's place in the list with the value it sorts by.
struct Keyed {
    double key;
    qsizetype index;
};

// Numbers as numbers (a round-trip time has a fraction); an unknown figure is the lowest of all.
std::vector<Keyed> numericKeys(const LsofItemList& items, LsofItem::Key key)
{
    std::vector<Keyed> keyed;
    keyed.reserve(size_t(items.size()));
    for (qsizetype i = 0; i < items.size(); ++i) {
        const QVariant value = items.at(i)->value(key);
        keyed.push_back(
            {value.isValid() ? value.toDouble() : -std::numeric_limits<double>::infinity(), i});
    }
    return keyed;
}

// The text an item sorts by. Host names come from the cache only: asking for every row would
// queue a look-up for each address in the snapshot.
QString sortText(const LsofItem& item, LsofItem::Key key)
{
    return key == LsofItem::Key::remoteHostname ? item.cachedRemoteHostname() : item.text(key);
}

// Texts become ranks of their case-folded forms: each distinct text (a column holds few:
// names, states, protocols) is folded and compared once, not once per row. Texts equal but for
// case share a rank, so they keep their snapshot order.
std::vector<Keyed> textKeys(const LsofItemList& items, LsofItem::Key key)
{
    QHash<QString, qint64> folded; // folded text -> rank, filled in two steps
    std::vector<QString> ofItem;
    ofItem.reserve(size_t(items.size()));
    // A process has many sockets: names derived from it are asked once per process.
    QHash<QString, QString> byProcess;
    const bool perProcess =
        key == LsofItem::Key::localizedAppName || key == LsofItem::Key::processPath;
    for (const LsofItemPtr& item : items) {
        QString text;
        if (perProcess) {
            const QString process = item->processId() + u'\0' + item->processName();
            auto known = byProcess.constFind(process);
            if (known == byProcess.cend())
                known = byProcess.insert(process, sortText(*item, key).toCaseFolded());
            text = *known;
        } else {
            text = sortText(*item, key).toCaseFolded();
        }
        folded.insert(text, 0);
        ofItem.push_back(std::move(text));
    }
    QStringList distinct = folded.keys();
    std::sort(distinct.begin(), distinct.end());
    for (qsizetype rank = 0; rank < distinct.size(); ++rank)
        folded[distinct.at(rank)] = rank;

    std::vector<Keyed> keyed;
    keyed.reserve(size_t(items.size()));
    for (qsizetype i = 0; i < items.size(); ++i)
        keyed.push_back({double(folded.value(ofItem[size_t(i)])), i});
    return keyed;
}

} // namespace

bool ItemOrdering::sorts() const
{
    return column >= 0 && column < itemColumns().size();
}

void ItemOrdering::apply(LsofItemList& items) const
{
    if (!sorts() || items.size() < 2)
        return;
    // Keys are read once per item: reading a field takes the item's lock, and the derived
    // names are computed on each read.
    const ItemColumn& spec = itemColumns().at(column);
    std::vector<Keyed> keyed =
        spec.numeric ? numericKeys(items, spec.sortKey) : textKeys(items, spec.sortKey);
    const bool ascending = order == Qt::AscendingOrder;
    std::stable_sort(keyed.begin(), keyed.end(), [ascending](const Keyed& a, const Keyed& b) {
        return ascending ? a.key < b.key : b.key < a.key;
    });
    LsofItemList sorted;
    sorted.reserve(items.size());
    for (const Keyed& entry : keyed)
        sorted.append(items.at(entry.index));
    items = std::move(sorted);
}

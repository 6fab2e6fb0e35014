#include "snapshot/itemordering.h"

#include "snapshot/itemcolumns.h"
#include "support/itemspec.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

QStringList column(const LsofItemList& items, LsofItem::Key key)
{
    QStringList values;
    for (const auto& item : items)
        values.append(item->text(key));
    return values;
}

} // namespace

// The comparison with raw values below reads whole numbers: round-trip times sort by their
// fractions, and an unknown figure is the lowest of all. No sort column keeps the snapshot's order.
TEST(ItemOrdering, RoundTripTimesSortByTheirFractionsAndNoColumnKeepsTheOrder)
{
    LsofItemList items;
    for (const QString& pid : {u"1"_s, u"2"_s, u"3"_s, u"4"_s})
        items.append(makeItem({u"app"_s, pid}));
    items[0]->setTraffic({0, 0, 0, 0, 0.8});
    items[1]->setTraffic({0, 0, 0, 0, 0.25});
    items[3]->setTraffic({0, 0, 0, 0, 0.0});
    LsofItemList byRtt = items;
    ItemOrdering{columnOf(LsofItem::Key::rtt), Qt::AscendingOrder}.apply(byRtt);
    EXPECT_EQ(column(byRtt, LsofItem::Key::rtt), QStringList({u""_s, u"0"_s, u"0.25"_s, u"0.8"_s}));

    LsofItemList unsorted = items;
    ItemOrdering{-1, Qt::AscendingOrder}.apply(unsorted);
    EXPECT_EQ(unsorted, items);
}

TEST(ItemOrdering, SortAgreesWithComparingRawValuesOnEveryColumn)
{
    // Many equal values per column, so ties and their order count; process ids and ports whose
    // text order is not their number order, "*" ports, names in either case.
    static const QStringList apps{u"Zeta"_s, u"alpha"_s, u"Alpha"_s, u"beta"_s, u"\u00e9clair"_s};
    static const QStringList states{u"ESTABLISHED"_s, u"LISTEN"_s, u"CLOSE_WAIT"_s, QString()};
    LsofItemList items;
    for (int i = 0; i < 60; ++i) {
        ItemSpec spec{apps.at(i % apps.size()), QString::number(1000 - (i * 37) % 23)};
        spec.localPort = i % 7 == 0 ? u"*"_s : QString::number((i * 7919) % 600);
        if (i % 3 != 0) {
            spec.remoteAddress = u"10.0.%1.%2"_s.arg(i % 4).arg(i % 9);
            spec.remotePort = QString::number(i % 5 == 0 ? 80 : 443);
        }
        spec.state = states.at(i % states.size());
        items.append(makeItem(spec));
    }
    for (int col = 0; col < itemColumns().size(); ++col) {
        const ItemColumn& spec = itemColumns().at(col);
        if (spec.sortKey == LsofItem::Key::remoteHostname)
            continue; // host names depend on DNS
        for (Qt::SortOrder order : {Qt::AscendingOrder, Qt::DescendingOrder}) {
            LsofItemList expected = items;
            std::stable_sort(expected.begin(), expected.end(), [&](const auto& a, const auto& b) {
                const auto& l = order == Qt::AscendingOrder ? a : b;
                const auto& r = order == Qt::AscendingOrder ? b : a;
                if (spec.numeric)
                    return l->value(spec.sortKey).toLongLong() <
                           r->value(spec.sortKey).toLongLong();
                return l->text(spec.sortKey).toCaseFolded() < r->text(spec.sortKey).toCaseFolded();
            });
            LsofItemList sorted = items;
            ItemOrdering{col, order}.apply(sorted);
            EXPECT_EQ(sorted, expected)
                << "column " << spec.title.toStdString() << " order " << int(order);
        }
    }
    // The caller's other copies of the list are left as they were.
    const LsofItemList before = items;
    LsofItemList shared = items;
    ItemOrdering{0, Qt::AscendingOrder}.apply(shared);
    EXPECT_EQ(items, before);
}

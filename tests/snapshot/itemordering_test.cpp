#include "snapshot/itemordering.h"

#include "snapshot/itemcolumns.h"
#include "support/itemspec.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

QStringList column(const LsofItemList& items, LsofItem::Key key)
{
    QStringList values;
    for (const auto& item : items)
        values.append(item->text(key));
    return values;
}

} // namespace

TEST(ItemOrdering, SortsNumbersAsNumbersAndTextIgnoringCase)
{
    LsofItemList items;
    const QList<std::tuple<QString, QString, QString>> rows{{u"zsh"_s, u"100"_s, u"8080"_s},
                                                            {u"Avahi"_s, u"9"_s, u"443"_s},
                                                            {u"beam"_s, u"1000000"_s, u"53"_s},
                                                            {u"avahi"_s, u"10"_s, u"*"_s}};
    for (const auto& [app, pid, port] : rows) {
        ItemSpec spec{app, pid};
        spec.localPort = port;
        items.append(makeItem(spec));
    }

    LsofItemList byPid = items;
    ItemOrdering{columnOf(LsofItem::Key::processId), Qt::AscendingOrder}.apply(byPid);
    EXPECT_EQ(column(byPid, LsofItem::Key::processId),
              QStringList({u"9"_s, u"10"_s, u"100"_s, u"1000000"_s}));

    LsofItemList byPort = items;
    ItemOrdering{columnOf(LsofItem::Key::localPort), Qt::DescendingOrder}.apply(byPort);
    EXPECT_EQ(column(byPort, LsofItem::Key::localPort),
              QStringList({u"8080"_s, u"443"_s, u"53"_s, u"*"_s}));

    // Equal names keep their snapshot order, in both directions.
    for (Qt::SortOrder order : {Qt::AscendingOrder, Qt::DescendingOrder}) {
        LsofItemList byName = items;
        ItemOrdering{columnOf(LsofItem::Key::localizedAppName), order}.apply(byName);
        const QStringList expected = order == Qt::AscendingOrder
                                         ? QStringList{u"Avahi"_s, u"avahi"_s, u"beam"_s, u"zsh"_s}
                                         : QStringList{u"zsh"_s, u"beam"_s, u"Avahi"_s, u"avahi"_s};
        EXPECT_EQ(column(byName, LsofItem::Key::localizedAppName), expected);
    }

    // Round-trip times sort by their fraction; an unknown figure is the lowest of all.
    items[0]->setTraffic({0, 0, 0, 0, 0.8});
    items[1]->setTraffic({0, 0, 0, 0, 0.25});
    items[3]->setTraffic({0, 0, 0, 0, 0.0});
    LsofItemList byRtt = items;
    ItemOrdering{columnOf(LsofItem::Key::rtt), Qt::AscendingOrder}.apply(byRtt);
    EXPECT_EQ(column(byRtt, LsofItem::Key::rtt), QStringList({u""_s, u"0"_s, u"0.25"_s, u"0.8"_s}));

    // No sort column: the snapshot's own order.
    LsofItemList unsorted = items;
    ItemOrdering{-1, Qt::AscendingOrder}.apply(unsorted);
    EXPECT_EQ(unsorted, items);
}

TEST(ItemOrdering, SortAgreesWithComparingRawValuesOnEveryColumn)
{
    // Many equal values per column, so ties and their order count.
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

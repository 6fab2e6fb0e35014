#include "snapshot/identifiermap.h"

#include <gtest/gtest.h>

#include <optional>
#include <random>

using namespace Qt::StringLiterals;

namespace {

LsofItemPtr itemWithIdentifier(const QString& identifier)
{
    auto item = std::make_shared<LsofItem>();
    item->adoptIdentifier(identifier);
    return item;
}

} // namespace

// Random inserts, replacements and removals (removing an object that is no longer the one
// listed must leave the entry alone), checked after every step against a plain hash; the
// table grows many times and reuses emptied slots on the way.
TEST(IdentifierMap, AgreesWithAPlainHashThroughGrowthAndRemovals)
{
    std::mt19937 random(7);
    IdentifierMap map;
    QHash<QString, LsofItemPtr> plain;
    QList<LsofItemPtr> made;
    for (int step = 0; step < 6000; ++step) {
        const QString identifier = u"42-IPv4-TCP-10.0.0.2:"_s + QString::number(random() % 900);
        const unsigned action = random() % 10;
        if (action < 6) {
            const LsofItemPtr item = itemWithIdentifier(identifier);
            made << item;
            map.insert(item);
            plain.insert(identifier, item);
        } else if (!made.isEmpty()) {
            const LsofItemPtr& item = made[qsizetype(random() % made.size())];
            map.removeItem(item);
            if (plain.value(item->identifier()) == item)
                plain.remove(item->identifier());
        }
        ASSERT_EQ(map.size(), plain.size()) << "step " << step;
        if (step % 500 == 0) {
            for (int i = 0; i < 900; ++i) {
                const QString probe = u"42-IPv4-TCP-10.0.0.2:"_s + QString::number(i);
                ASSERT_EQ(map.value(probe), plain.value(probe)) << probe.toStdString();
            }
            // Every object knows whether it is the one listed, without a look-up.
            for (const LsofItemPtr& item : made) {
                const QString& identifier = item->identifier();
                ASSERT_EQ(map.lists(*item, identifier, IdentifierMap::hashOf(identifier)),
                          plain.value(identifier) == item)
                    << identifier.toStdString();
            }
        }
    }
    EXPECT_FALSE(map.contains(u"42-IPv4-TCP-10.0.0.2:"_s));
    const LsofItemPtr listed = plain.begin().value();
    const QString& identifier = listed->identifier();
    EXPECT_FALSE(map.lists(*listed, u"another"_s, IdentifierMap::hashOf(identifier)));
    map.clear();
    EXPECT_TRUE(map.isEmpty());
    EXPECT_FALSE(map.contains(made.front()->identifier()));
    EXPECT_FALSE(map.lists(*listed, identifier, IdentifierMap::hashOf(identifier)))
        << "an emptied map lists nothing";

    // A map that is gone lists nothing either, even one made later in the same place.
    std::optional<IdentifierMap> place;
    place.emplace();
    place->insert(listed);
    EXPECT_TRUE(place->lists(*listed, identifier, IdentifierMap::hashOf(identifier)));
    place.reset();
    place.emplace();
    EXPECT_FALSE(place->lists(*listed, identifier, IdentifierMap::hashOf(identifier)));
}

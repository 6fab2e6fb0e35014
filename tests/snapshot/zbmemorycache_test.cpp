#include "snapshot/zbmemorycache.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

using namespace Qt::StringLiterals;

TEST(ZBMemoryCache, KeepsAnEmptyValueApartFromNoneAndDropsTheOldestStore)
{
    ZBMemoryCache cache(2);
    cache.cacheObject(QVariant(), u"null"_s);
    cache.cacheObject(QString(u""_s), u"empty"_s);
    EXPECT_FALSE(cache.objectForKey(u"null"_s).isValid());
    // An address without a name is remembered as "", which must stay apart from "unknown".
    ASSERT_TRUE(cache.objectForKey(u"empty"_s).isValid());
    EXPECT_TRUE(cache.objectForKey(u"empty"_s).toString().isEmpty());

    // Storing a key again makes it the newest.
    cache.cacheObject(1, u"a"_s);
    cache.cacheObject(2, u"b"_s);
    cache.cacheObject(3, u"a"_s);
    cache.cacheObject(4, u"c"_s);
    EXPECT_FALSE(cache.objectForKey(u"b"_s).isValid());
    EXPECT_EQ(cache.objectForKey(u"a"_s), QVariant(3));
    EXPECT_EQ(cache.objectForKey(u"c"_s), QVariant(4));
    EXPECT_EQ(cache.count(), 2);
}

TEST(ZBMemoryCache, StaysBoundedUnderConcurrentStoresAndLookups)
{
    ZBMemoryCache cache(50);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&cache, t] {
            for (int i = 0; i < 5000; ++i) {
                const QString key = QString::number((i * 7 + t) % 120);
                cache.cacheObject(i, key);
                cache.objectForKey(QString::number(i % 120));
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(cache.count(), 50);
}

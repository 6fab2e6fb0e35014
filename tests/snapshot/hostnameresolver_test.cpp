#include "snapshot/hostnameresolver.h"
#include "snapshot/zbmemorycache.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace {

// A back end that records what it is asked and, while closed, holds every look-up.
class FakeDns {
public:
    HostnameResolver::Backend backend()
    {
        return [this](const QString& address) -> std::optional<QString> {
            std::unique_lock lock(m_mutex);
            m_asked.append(address);
            ++m_running;
            m_maxRunning = std::max(m_maxRunning, m_running);
            m_changed.notify_all();
            m_changed.wait(lock, [this] { return m_open; });
            --m_running;
            if (address.startsWith(u"192.168."_s))
                return u"host-"_s + address.section(u'.', 3);
            return std::nullopt;
        };
    }
    void setOpen(bool open)
    {
        std::lock_guard lock(m_mutex);
        m_open = open;
        m_changed.notify_all();
    }
    // Waits until `count` look-ups are running at once.
    bool waitForRunning(int count)
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, std::chrono::seconds(5),
                                  [&] { return m_running >= count; });
    }
    QStringList asked()
    {
        std::lock_guard lock(m_mutex);
        return m_asked;
    }
    int maxRunning()
    {
        std::lock_guard lock(m_mutex);
        return m_maxRunning;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_open = true;
    int m_running = 0;
    int m_maxRunning = 0;
    QStringList m_asked;
};

// Opens the gate when a test ends early, so the resolver's threads can finish.
struct OpenOnExit {
    FakeDns& dns;
    ~OpenOnExit() { dns.setOpen(true); }
};

struct EnabledGuard {
    ~EnabledGuard() { HostnameResolver::setEnabled(true); }
};

} // namespace

TEST(HostnameResolver, NumericAddressDropsBracketsAndScope)
{
    const struct {
        const char16_t* address;
        const char16_t* numeric;
    } cases[] = {
        {u"192.168.1.10", u"192.168.1.10"},
        {u"[2001:db8::1]", u"2001:db8::1"},
        {u"[fe80::1%eth0]", u"fe80::1"},
        {u"fe80::1%2", u"fe80::1"},
        {u"[::ffff:10.0.0.1]", u"::ffff:10.0.0.1"},
        {u"[::1", u"::1"},
        {u"*", u"*"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(HostnameResolver::numericAddress(QString::fromUtf16(c.address)),
                  QString::fromUtf16(c.numeric));
    // Refused before any query is made.
    EXPECT_FALSE(HostnameResolver::systemLookup(u"not-an-address"_s));
}

TEST(HostnameResolver, CachesNamesAndEmptyTextForAddressesWithoutOne)
{
    FakeDns dns;
    HostnameResolver resolver(dns.backend());

    // Reading the cache alone never starts a look-up.
    EXPECT_TRUE(resolver.cachedHostnameForAddress(u"192.168.1.77"_s).isNull());
    EXPECT_TRUE(resolver.hostnameForAddress(u"192.168.1.10"_s).isNull());
    EXPECT_TRUE(resolver.hostnameForAddress(u"10.20.30.40"_s).isNull());
    ASSERT_TRUE(resolver.waitForIdle(5000));
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(resolver.hostnameForAddress(u"192.168.1.10"_s), u"host-10"_s);
        EXPECT_EQ(resolver.cachedHostnameForAddress(u"192.168.1.10"_s), u"host-10"_s);
        const QString none = resolver.hostnameForAddress(u"10.20.30.40"_s);
        EXPECT_TRUE(none.isEmpty());
        EXPECT_FALSE(none.isNull());
        EXPECT_FALSE(resolver.cachedHostnameForAddress(u"10.20.30.40"_s).isNull());
    }
    EXPECT_TRUE(resolver.cachedHostnameForAddress(u"192.168.1.77"_s).isNull());
    ASSERT_TRUE(resolver.waitForIdle(5000));
    EXPECT_EQ(dns.asked().size(), 2);
}

TEST(HostnameResolver, ShortAddressesAndDisabledLookupsAskNothing)
{
    EnabledGuard restore;
    FakeDns dns;
    HostnameResolver resolver(dns.backend());

    // "1.2.3.4" has 7 characters: below the threshold even when a name is known for it.
    for (const QString& address : {u"1.2.3.4"_s, u"*"_s, QString(), u"[::1]"_s})
        EXPECT_TRUE(resolver.hostnameForAddress(address).isNull());
    resolver.resolveHostname(u"1.2.3.4"_s);
    EXPECT_TRUE(resolver.hostnameForAddress(u"1.2.3.4"_s).isNull());
    EXPECT_EQ(dns.asked(), QStringList{u"1.2.3.4"_s});

    HostnameResolver::setEnabled(false);
    EXPECT_TRUE(resolver.hostnameForAddress(u"192.168.1.20"_s).isNull());
    ASSERT_TRUE(resolver.waitForIdle(5000));
    EXPECT_EQ(dns.asked().size(), 1);
    // Known names are still answered.
    resolver.resolveHostname(u"192.168.1.21"_s);
    EXPECT_EQ(resolver.hostnameForAddress(u"192.168.1.21"_s), u"host-21"_s);
}

TEST(HostnameResolver, AnAddressInFlightIsNotLookedUpAgain)
{
    FakeDns dns;
    dns.setOpen(false);
    HostnameResolver resolver(dns.backend());
    OpenOnExit open{dns};
    for (int i = 0; i < 20; ++i)
        EXPECT_TRUE(resolver.hostnameForAddress(u"192.168.1.30"_s).isNull());
    ASSERT_TRUE(dns.waitForRunning(1));
    for (int i = 0; i < 20; ++i)
        resolver.hostnameForAddress(u"192.168.1.30"_s);
    dns.setOpen(true);
    ASSERT_TRUE(resolver.waitForIdle(5000));
    EXPECT_EQ(dns.asked(), QStringList{u"192.168.1.30"_s});
    EXPECT_EQ(resolver.hostnameForAddress(u"192.168.1.30"_s), u"host-30"_s);
}

TEST(HostnameResolver, PoolAndQueueAreBoundedAndDroppedRequestsComeBack)
{
    FakeDns dns;
    dns.setOpen(false);
    HostnameResolver resolver(dns.backend(),
                              {.threads = 2, .queuedAddresses = 1, .cacheCapacity = 200});
    OpenOnExit open{dns};
    resolver.hostnameForAddress(u"192.168.1.1"_s);
    ASSERT_TRUE(dns.waitForRunning(1));
    resolver.hostnameForAddress(u"192.168.1.2"_s);
    ASSERT_TRUE(dns.waitForRunning(2));
    resolver.hostnameForAddress(u"192.168.1.3"_s); // queued
    resolver.hostnameForAddress(u"192.168.1.4"_s); // queue full: dropped
    dns.setOpen(true);
    ASSERT_TRUE(resolver.waitForIdle(5000));

    QStringList asked = dns.asked();
    asked.sort();
    EXPECT_EQ(asked, (QStringList{u"192.168.1.1"_s, u"192.168.1.2"_s, u"192.168.1.3"_s}));
    EXPECT_EQ(dns.maxRunning(), 2);
    EXPECT_TRUE(resolver.hostnameForAddress(u"192.168.1.4"_s).isNull());
    ASSERT_TRUE(resolver.waitForIdle(5000));
    EXPECT_EQ(resolver.hostnameForAddress(u"192.168.1.4"_s), u"host-4"_s);
}

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

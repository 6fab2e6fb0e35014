#pragma once

#include "snapshot/zbmemorycache.h"

#include <QSet>
#include <QString>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

// Reverse names of remote addresses. A name is answered from a bounded cache; a miss queues
// the address for a small pool of look-up threads and answers null, so the caller (the
// acquisition worker, the GUI) never waits for DNS. The table shows the name at a later refresh.
class HostnameResolver final {
public:
    // The name of an address, or nullopt when it has none.
    using Backend = std::function<std::optional<QString>(const QString& address)>;

    struct Limits {
        int threads = 2;
        int queuedAddresses = 256; // a request beyond this is dropped and asked again later
        quint64 cacheCapacity = 200;
    };
    // Shorter addresses (such as "1.2.3.4" or "*") are never looked up.
    static constexpr qsizetype kMinimumAddressLength = 8;

    explicit HostnameResolver(Backend backend = systemLookup);
    HostnameResolver(Backend backend, Limits limits);
    ~HostnameResolver();
    Q_DISABLE_COPY_MOVE(HostnameResolver)

    // The application's resolver, started on first use.
    static HostnameResolver& sharedResolver();
    // Off turns every resolver into a cache reader that starts no look-ups (--no-resolve).
    static void setEnabled(bool enabled);
    static bool isEnabled();

    // getnameinfo(3) with NI_NAMEREQD on the numeric form of the address.
    static std::optional<QString> systemLookup(const QString& address);
    // The address without IPv6 brackets and "%scope": what getnameinfo is given.
    static QString numericAddress(QStringView address);

    // The cached name ("" for an address without one), or null when not known yet; a miss
    // queues a look-up unless the address is too short or already queued.
    QString hostnameForAddress(const QString& address);
    // The cached name, "" or null like hostnameForAddress, but a miss queues nothing: for
    // readers that go over every row (filtering, change tracking) and must not ask DNS about
    // rows nobody looks at.
    QString cachedHostnameForAddress(const QString& address) const;
    // Starts the look-up threads now rather than with the first look-up, when look-ups are on:
    // the window asks for its first names while it draws its first rows.
    void start();
    // Looks the address up on the calling thread and caches the answer.
    void resolveHostname(const QString& address);
    // Blocks until no look-up is queued or running, or `timeoutMs` passed; true when idle.
    bool waitForIdle(int timeoutMs);

    const ZBMemoryCache& cache() const { return m_cache; }
    // Grows with every name stored: while it stands still, no cached name has changed.
    quint64 generation() const { return m_generation.load(std::memory_order_acquire); }

private:
    void work();
    void startThreads(); // under m_mutex

    Backend m_backend;
    const Limits m_limits;
    ZBMemoryCache m_cache;
    std::atomic<quint64> m_generation{1};

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::condition_variable m_idle;
    std::deque<QString> m_queue;
    QSet<QString> m_inFlight; // queued or running
    bool m_stopping = false;
    std::vector<std::thread> m_threads; // started with the first queued look-up
};

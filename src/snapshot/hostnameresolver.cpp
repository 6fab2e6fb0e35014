#include "hostnameresolver.h"

#include <netdb.h>
#include <sys/socket.h>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <atomic>
#include <chrono>
#include <cstring>

using namespace Qt::StringLiterals;

namespace {

std::atomic<bool> g_enabled{true};

} // namespace

HostnameResolver::HostnameResolver(Backend backend) : HostnameResolver(std::move(backend), Limits())
{
}

HostnameResolver::HostnameResolver(Backend backend, Limits limits)
    : m_backend(std::move(backend)), m_limits(limits), m_cache(limits.cacheCapacity)
{
}

HostnameResolver::~HostnameResolver()
{
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
        m_queue.clear();
    }
    m_wake.notify_all();
    for (auto& thread : m_threads)
        thread.join();
}

HostnameResolver& HostnameResolver::sharedResolver()
{
    // Never destroyed: a look-up blocked in DNS must not hold up the end of the process.
    static auto* resolver = new HostnameResolver();
    return *resolver;
}

void HostnameResolver::setEnabled(bool enabled)
{
    g_enabled.store(enabled, std::memory_order_relaxed);
}

bool HostnameResolver::isEnabled()
{
    return g_enabled.load(std::memory_order_relaxed);
}

QString HostnameResolver::numericAddress(QStringView address)
{
    QStringView host = address.trimmed();
    if (host.startsWith(u'[')) {
        const qsizetype close = host.indexOf(u']');
        host = close > 0 ? host.mid(1, close - 1) : host.mid(1);
    }
    if (const qsizetype percent = host.indexOf(u'%'); percent >= 0)
        host = host.left(percent);
    return host.toString();
}

std::optional<QString> HostnameResolver::systemLookup(const QString& address)
{
    const QByteArray host = numericAddress(address).toLatin1();
    sockaddr_storage storage{};
    socklen_t length = 0;
    auto* v4 = reinterpret_cast<sockaddr_in*>(&storage);
    auto* v6 = reinterpret_cast<sockaddr_in6*>(&storage);
    if (inet_pton(AF_INET, host.constData(), &v4->sin_addr) == 1) {
        v4->sin_family = AF_INET;
        length = sizeof(sockaddr_in);
    } else if (inet_pton(AF_INET6, host.constData(), &v6->sin6_addr) == 1) {
        v6->sin6_family = AF_INET6;
        length = sizeof(sockaddr_in6);
    } else {
        return std::nullopt;
    }
    char name[NI_MAXHOST] = {};
    if (getnameinfo(reinterpret_cast<sockaddr*>(&storage), length, name, sizeof(name), nullptr, 0,
                    NI_NAMEREQD) != 0)
        return std::nullopt;
    return QString::fromUtf8(name);
}

QString HostnameResolver::cachedHostnameForAddress(const QString& address) const
{
    if (address.size() < kMinimumAddressLength)
        return {};
    const QVariant cached = m_cache.objectForKey(address);
    return cached.isValid() ? cached.toString() : QString();
}

QString HostnameResolver::hostnameForAddress(const QString& address)
{
    if (address.size() < kMinimumAddressLength)
        return {};
    const QVariant cached = m_cache.objectForKey(address);
    if (cached.isValid())
        return cached.toString();
    if (!isEnabled())
        return {};

    {
        std::lock_guard lock(m_mutex);
        if (m_stopping || m_inFlight.contains(address) ||
            m_queue.size() >= size_t(std::max(0, m_limits.queuedAddresses)))
            return {};
        // The answer may have landed since the first look: a worker caches before it leaves
        // m_inFlight, so under the lock one of the two tells.
        if (const QVariant landed = m_cache.objectForKey(address); landed.isValid())
            return landed.toString();
        m_inFlight.insert(address);
        m_queue.push_back(address);
        // Threads start with the first look-up, so a run with look-ups off starts none.
        startThreads();
    }
    m_wake.notify_one();
    return {};
}

void HostnameResolver::startThreads()
{
    if (!m_threads.empty() || m_stopping)
        return;
    for (int i = 0; i < std::max(1, m_limits.threads); ++i)
        m_threads.emplace_back([this] { work(); });
}

void HostnameResolver::start()
{
    if (!isEnabled())
        return;
    std::lock_guard lock(m_mutex);
    startThreads();
}

void HostnameResolver::resolveHostname(const QString& address)
{
    const auto name = m_backend ? m_backend(address) : std::nullopt;
    m_cache.cacheObject(name && !name->isEmpty() ? *name : QString(u""_s), address);
    m_generation.fetch_add(1, std::memory_order_release);
}

bool HostnameResolver::waitForIdle(int timeoutMs)
{
    std::unique_lock lock(m_mutex);
    return m_idle.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                           [this] { return m_inFlight.isEmpty(); });
}

void HostnameResolver::work()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_wake.wait(lock, [this] { return m_stopping || !m_queue.empty(); });
        if (m_stopping)
            return;
        const QString address = m_queue.front();
        m_queue.pop_front();
        lock.unlock();
        resolveHostname(address);
        lock.lock();
        // Removed only after the answer is cached, so a caller never sees "not cached and not
        // in flight" for an address that is being answered.
        m_inFlight.remove(address);
        if (m_inFlight.isEmpty())
            m_idle.notify_all();
    }
}

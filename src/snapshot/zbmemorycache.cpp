#include "zbmemorycache.h"

ZBMemoryCache::ZBMemoryCache(quint64 capacity) : m_capacity(capacity) {}

void ZBMemoryCache::cacheObject(const QVariant& value, const QString& key)
{
    QMutexLocker locker(&m_lock);
    auto it = m_objects.find(key);
    if (it != m_objects.end()) {
        m_keys.splice(m_keys.end(), m_keys, it->position);
        it->value = value;
    } else {
        m_keys.push_back(key);
        m_objects.insert(key, Entry{value, std::prev(m_keys.end())});
    }
    // One store adds at most one key, so removing one keeps the bound.
    if (quint64(m_keys.size()) > m_capacity) {
        m_objects.remove(m_keys.front());
        m_keys.pop_front();
    }
}

QVariant ZBMemoryCache::objectForKey(const QString& key) const
{
    QMutexLocker locker(&m_lock);
    const auto it = m_objects.constFind(key);
    return it == m_objects.cend() ? QVariant() : it->value;
}

qsizetype ZBMemoryCache::count() const
{
    QMutexLocker locker(&m_lock);
    return m_objects.size();
}

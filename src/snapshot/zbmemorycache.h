#pragma once

#include <QHash>
#include <QMutex>
#include <QString>
#include <QVariant>

#include <list>

// A bounded key-to-value store that forgets the oldest stored key first. Storing a key again
// makes it the freshest; looking it up does not. Stores and lookups take the cache's lock,
// since host names arrive from the look-up pool while the GUI thread reads.
class ZBMemoryCache final {
public:
    explicit ZBMemoryCache(quint64 capacity);
    Q_DISABLE_COPY_MOVE(ZBMemoryCache)

    // Any value may be stored, a null one included.
    void cacheObject(const QVariant& value, const QString& key);
    // The stored value, or an invalid QVariant when the key is not kept (or a null value was
    // stored: both answer "not known").
    QVariant objectForKey(const QString& key) const;

    quint64 capacity() const { return m_capacity; }
    qsizetype count() const;

private:
    struct Entry {
        QVariant value;
        std::list<QString>::iterator position;
    };

    const quint64 m_capacity;
    mutable QMutex m_lock;
    std::list<QString> m_keys; // oldest first
    QHash<QString, Entry> m_objects;
};

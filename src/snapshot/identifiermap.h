#pragma once

#include "lsofitem.h"

#include <QHash>
#include <QHashSeed>

// Connection items by identifier text: what the parser matches every line of lsof's output
// against. Each key keeps its text's hash beside it, so a probe that lands on another
// connection is turned away without reading that connection's text: on a snapshot of ten
// thousand lines those texts are cold in the cache, and comparing them was a third of a pass.
class IdentifierMap final {
public:
    qsizetype size() const { return m_items.size(); }
    bool isEmpty() const { return m_items.isEmpty(); }
    void clear() { m_items.clear(); }
    void reserve(qsizetype size) { m_items.reserve(size); }

    // The item listed under `identifier`, or null. The text is only read during the call.
    const LsofItemPtr* find(QStringView identifier) const
    {
        const Key probe{hashOf(identifier),
                        QString::fromRawData(identifier.data(), identifier.size())};
        const auto it = m_items.constFind(probe);
        return it == m_items.cend() ? nullptr : &it.value();
    }
    bool contains(QStringView identifier) const { return find(identifier) != nullptr; }
    LsofItemPtr value(QStringView identifier) const
    {
        const LsofItemPtr* item = find(identifier);
        return item ? *item : LsofItemPtr();
    }

    // Replaces what was listed under the same identifier.
    void insert(const QString& identifier, const LsofItemPtr& item)
    {
        m_items.insert(Key{hashOf(identifier), identifier}, item);
    }
    // Removes the entry of `item`'s identifier when it is that very object.
    void removeItem(const LsofItemPtr& item)
    {
        const QString identifier = item->identifier();
        const auto it = m_items.find(Key{hashOf(identifier), identifier});
        if (it != m_items.end() && it.value() == item)
            m_items.erase(it);
    }

private:
    struct Key {
        size_t hash;
        QString text;
        friend bool operator==(const Key& a, const Key& b)
        {
            return a.hash == b.hash && a.text == b.text;
        }
        friend size_t qHash(const Key& key, size_t) { return key.hash; }
    };

    static size_t hashOf(QStringView text) { return qHash(text, QHashSeed::globalSeed()); }

    QHash<Key, LsofItemPtr> m_items;
};

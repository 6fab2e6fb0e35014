#include "identifiermap.h"

#include <QHashFunctions>
#include <QHashSeed>

#include <bit>
#include <optional>

IdentifierMap::~IdentifierMap()
{
    clear();
}

void IdentifierMap::clear()
{
    for (const Slot& slot : m_slots) {
        if (slot.hash > kRemoved && slot.item->m_listedIn == this)
            slot.item->m_listedIn = nullptr;
    }
    m_slots.clear();
    m_size = 0;
    m_removed = 0;
}

void IdentifierMap::reserve(qsizetype size)
{
    if (size * 2 > qsizetype(m_slots.size()))
        grow(size);
}

size_t IdentifierMap::hashOf(QStringView identifier)
{
    const size_t hash = qHash(identifier, QHashSeed::globalSeed());
    return hash <= kRemoved ? hash + 2 : hash;
}

QStringView IdentifierMap::identifierOf(const LsofItem& item)
{
    // Set before an item is listed here and never changed after: no lock needed to read it.
    return item.m_identifier;
}

size_t IdentifierMap::slotFor(QStringView identifier, size_t hash) const
{
    const size_t mask = m_slots.size() - 1;
    size_t index = hash & mask;
    std::optional<size_t> firstRemoved;
    for (;; index = (index + 1) & mask) {
        const Slot& slot = m_slots[index];
        if (slot.hash == kEmpty)
            return firstRemoved.value_or(index);
        if (slot.hash == kRemoved) {
            if (!firstRemoved)
                firstRemoved = index;
        } else if (slot.hash == hash && identifierOf(*slot.item) == identifier) {
            return index;
        }
    }
}

void IdentifierMap::prefetchSlot(size_t hash) const
{
    if (!m_slots.empty())
        __builtin_prefetch(&m_slots[hash & (m_slots.size() - 1)]);
}

const IdentifierMap::Slot* IdentifierMap::homeSlot(size_t hash) const
{
    if (m_slots.empty())
        return nullptr;
    const Slot& slot = m_slots[hash & (m_slots.size() - 1)];
    return slot.hash == hash ? &slot : nullptr;
}

void IdentifierMap::prefetchItem(size_t hash) const
{
    // The object's first lines: its state and where its identifier's characters are.
    if (const Slot* slot = homeSlot(hash)) {
        __builtin_prefetch(slot->item.get());
        __builtin_prefetch(reinterpret_cast<const char*>(slot->item.get()) + 64);
    }
}

void IdentifierMap::prefetchIdentifier(size_t hash) const
{
    if (const Slot* slot = homeSlot(hash))
        prefetchIdentifierOf(*slot->item);
}

void IdentifierMap::prefetchIdentifierField(const LsofItem& item)
{
    const char* const field = reinterpret_cast<const char*>(&item.m_identifier);
    __builtin_prefetch(field);
    __builtin_prefetch(field + sizeof(QString) - 1);
}

void IdentifierMap::prefetchIdentifierOf(const LsofItem& item)
{
    // All of it: an identifier runs over two or three cache lines, and comparing reads them all.
    const QString& identifier = item.m_identifier;
    const char* const begin = reinterpret_cast<const char*>(identifier.constData());
    const char* const end = begin + identifier.size() * qsizetype(sizeof(QChar));
    for (const char* line = begin; line < end; line += 64)
        __builtin_prefetch(line);
}

const LsofItemPtr* IdentifierMap::find(QStringView identifier, size_t hash) const
{
    if (m_size == 0)
        return nullptr;
    const Slot& slot = m_slots[slotFor(identifier, hash)];
    return slot.hash == hash ? &slot.item : nullptr;
}

LsofItemPtr IdentifierMap::value(QStringView identifier) const
{
    const LsofItemPtr* item = find(identifier);
    return item ? *item : LsofItemPtr();
}

void IdentifierMap::insert(const LsofItemPtr& item)
{
    insert(item, hashOf(identifierOf(*item)));
}

void IdentifierMap::insert(const LsofItemPtr& item, size_t hash)
{
    // At most half the slots in use (emptied ones counting): probes stay short.
    if ((m_size + m_removed + 1) * 2 > qsizetype(m_slots.size()))
        grow(m_size + 1);
    Slot& slot = m_slots[slotFor(identifierOf(*item), hash)];
    if (slot.hash != hash) {
        if (slot.hash == kRemoved)
            --m_removed;
        ++m_size;
        slot.hash = hash;
    } else if (slot.item != item && slot.item->m_listedIn == this) {
        slot.item->m_listedIn = nullptr;
    }
    slot.item = item;
    item->m_listedIn = this;
    item->m_identifierHash = hash;
}

void IdentifierMap::removeItem(const LsofItemPtr& item)
{
    if (m_size == 0)
        return;
    const size_t mask = m_slots.size() - 1;
    size_t index = 0;
    if (item->m_listedIn == this) {
        // Its slot holds this very pointer, from its hash on: no text is read, and no hash
        // computed. (A closed connection's identifier is cold by the time it goes.)
        for (index = item->m_identifierHash & mask; m_slots[index].item != item;) {
            if (m_slots[index].hash == kEmpty) {
                item->m_listedIn = nullptr; // not there after all: nothing to remove
                return;
            }
            index = (index + 1) & mask;
        }
    } else {
        // Another map may list it now, while this one still holds it under its identifier.
        const QStringView identifier = identifierOf(*item);
        index = slotFor(identifier, hashOf(identifier));
        if (m_slots[index].item != item)
            return;
    }
    Slot& slot = m_slots[index];
    slot.hash = kRemoved;
    if (item->m_listedIn == this)
        item->m_listedIn = nullptr;
    slot.item.reset();
    --m_size;
    ++m_removed;
}

void IdentifierMap::grow(qsizetype needed)
{
    const size_t capacity = std::bit_ceil(size_t(std::max<qsizetype>(needed, 8)) * 2);
    std::vector<Slot> old = std::exchange(m_slots, std::vector<Slot>(capacity));
    m_removed = 0;
    const size_t mask = capacity - 1;
    for (Slot& slot : old) {
        if (slot.hash <= kRemoved)
            continue;
        size_t index = slot.hash & mask;
        while (m_slots[index].hash != kEmpty)
            index = (index + 1) & mask;
        m_slots[index] = std::move(slot);
    }
}

#pragma once

#include "lsofitem.h"

#include <vector>

// Connection items by identifier text: what the parser matches every line of lsof's output
// against. An open-addressed table of (hash, item) slots: a probe reads one slot, and only a
// slot whose hash agrees makes it read that item's identifier text. On a snapshot of a
// hundred thousand lines the texts and the nodes of a general-purpose hash are cold in the
// cache, and reading them was a third of a pass.
class IdentifierMap final {
public:
    IdentifierMap() = default;
    // Items remember the map that lists them, so a map is never copied or moved.
    Q_DISABLE_COPY_MOVE(IdentifierMap)
    ~IdentifierMap();

    qsizetype size() const { return m_size; }
    bool isEmpty() const { return m_size == 0; }
    void clear();
    void reserve(qsizetype size);

    static size_t hashOf(QStringView identifier);
    // The item listed under `identifier`, or null. The text is only read during the call.
    const LsofItemPtr* find(QStringView identifier) const
    {
        return find(identifier, hashOf(identifier));
    }
    // The same with the identifier's hashOf() at hand.
    const LsofItemPtr* find(QStringView identifier, size_t hash) const;
    // Ask memory ahead for what a find() of this hash will read, each step once the one
    // before has arrived: its first slot, the item that slot names, that item's identifier.
    void prefetchSlot(size_t hash) const;
    void prefetchItem(size_t hash) const;
    void prefetchIdentifier(size_t hash) const;
    // Asks memory for an item's identifier, which comparing with a line reads whole.
    static void prefetchIdentifierOf(const LsofItem& item);
    // Asks memory for where an item's identifier's characters are, without waiting for the
    // item: the step before prefetchIdentifierOf.
    static void prefetchIdentifierField(const LsofItem& item);
    bool contains(QStringView identifier) const { return find(identifier) != nullptr; }
    // Whether find(identifier, hash) would give this very item; reads only the item.
    bool lists(const LsofItem& item, QStringView identifier, size_t hash) const
    {
        return item.m_listedIn == this && item.m_identifierHash == hash &&
               identifierOf(item) == identifier;
    }
    // Whether this very item is listed, under its own identifier; reads only the item.
    bool listsItem(const LsofItem& item) const { return item.m_listedIn == this; }
    LsofItemPtr value(QStringView identifier) const;

    // Lists `item` under its identifier, replacing what was listed there.
    void insert(const LsofItemPtr& item);
    // The same with the identifier's hashOf() at hand.
    void insert(const LsofItemPtr& item, size_t hash);
    // Removes the entry of `item`'s identifier when it is that very object.
    void removeItem(const LsofItemPtr& item);

private:
    // Hashes 0 and 1 mark empty and emptied slots; an identifier's hash is kept above them.
    static constexpr size_t kEmpty = 0;
    static constexpr size_t kRemoved = 1;
    struct Slot {
        size_t hash = kEmpty;
        LsofItemPtr item;
    };

    static QStringView identifierOf(const LsofItem& item);
    // The slot a hash is placed in first, when it holds that hash (the usual case).
    const Slot* homeSlot(size_t hash) const;
    // The slot holding `identifier`, or the empty slot where it would go.
    size_t slotFor(QStringView identifier, size_t hash) const;
    void grow(qsizetype needed);

    std::vector<Slot> m_slots;
    qsizetype m_size = 0;
    qsizetype m_removed = 0;
};

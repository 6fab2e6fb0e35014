#pragma once

#include <QtGlobal>

#include <vector>

// Counts the items inserted into each gap of a list (gap g lies just before the list's item g;
// the last gap is the end) and answers, in logarithmic time, how many lie before a place: change
// detection puts a snapshot's closed items back at positions that move with every insertion,
// and finding each position by shifting or searching the list would be quadratic when many
// connections close at once. (A binary indexed tree.)
class GapCounter final {
public:
    explicit GapCounter(qsizetype gaps);

    void add(qsizetype gap);
    // The number of items inserted into gaps 0..gap.
    qsizetype prefix(qsizetype gap) const;
    // Where the list's item g stands now: g + prefix(g).
    qsizetype positionOf(qsizetype item) const { return item + prefix(item); }
    // The first gap g whose following item stands at or after `position` (the end gap when
    // none does): an item inserted at `position` goes into that gap.
    qsizetype gapHolding(qsizetype position) const;

private:
    // Node i counts the gaps (i - lowbit(i), i], one-based.
    std::vector<qint32> m_tree;
};

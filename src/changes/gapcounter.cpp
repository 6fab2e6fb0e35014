#include "gapcounter.h"

#include <algorithm>

GapCounter::GapCounter(qsizetype gaps) : m_tree(size_t(gaps + 1), 0) {}

void GapCounter::add(qsizetype gap)
{
    for (qsizetype i = gap + 1; i < qsizetype(m_tree.size()); i += i & -i)
        ++m_tree[size_t(i)];
}

qsizetype GapCounter::prefix(qsizetype gap) const
{
    qsizetype sum = 0;
    for (qsizetype i = gap + 1; i > 0; i -= i & -i)
        sum += m_tree[size_t(i)];
    return sum;
}

qsizetype GapCounter::gapHolding(qsizetype position) const
{
    // One walk down the tree: g + prefix(g) sums, over gaps 0..g, one plus the gap's count,
    // less one, so each node stands for the count of its gaps plus their number.
    const qsizetype nodes = qsizetype(m_tree.size()) - 1;
    qsizetype step = 1;
    while (step * 2 <= nodes)
        step *= 2;
    qsizetype gap = 0;
    qsizetype rest = position + 1;
    for (; step > 0; step /= 2) {
        const qsizetype next = gap + step;
        if (next <= nodes && m_tree[size_t(next)] + step < rest) {
            gap = next;
            rest -= m_tree[size_t(next)] + step;
        }
    }
    return std::min(gap, nodes - 1);
}

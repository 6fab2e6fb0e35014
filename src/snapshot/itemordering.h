#pragma once

#include "lsofitem.h"

#include <Qt>

// The order the connection table shows a snapshot in: by one column of itemColumns(),
// ascending or descending, rows of equal value in snapshot order; or, with no column, the
// order lsof listed them in. A plain value, so that the acquisition worker can sort a snapshot
// before the window receives it.
struct ItemOrdering {
    int column = -1; // into itemColumns(); -1 (or any other index outside it): no sort
    Qt::SortOrder order = Qt::AscendingOrder;

    // Whether a column is chosen at all.
    bool sorts() const;
    // Stable sort by the column's raw value: numbers as numbers, texts ignoring case. Other
    // copies of the list are left as they were.
    void apply(LsofItemList& items) const;
    // The same on a copy: a list that needs no sort is handed back as it is, shared.
    LsofItemList sorted(LsofItemList items) const
    {
        apply(items);
        return items;
    }

    // Every ordering without a column is the same one, whatever its direction.
    friend bool operator==(const ItemOrdering& a, const ItemOrdering& b)
    {
        return a.sorts() == b.sorts() &&
               (!a.sorts() || (a.column == b.column && a.order == b.order));
    }
};

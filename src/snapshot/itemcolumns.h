#pragma once

#include "lsofitem.h"

#include <QList>
#include <QString>

// The sixteen columns of the connection table, in layout order. The keyword search, the
// command line's table and CSV output and the GUI all read this one list.
struct ItemColumn {
    LsofItem::Key key;     // the column's identifier
    QString title;         // header title, the column's identity in menus and settings
    LsofItem::Key sortKey; // the value sorting reads (numeric for PID and the two ports)
    bool numeric;
};

const QList<ItemColumn>& itemColumns();

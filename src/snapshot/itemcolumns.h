#pragma once

#include "lsofitem.h"

#include <QList>
#include <QString>

// The columns of the connection table, in layout order. The keyword search, the command line's
// table and CSV output and the GUI all read this one list.
struct ItemColumn {
    LsofItem::Key key;     // the column's identifier
    QString title;         // header title, the column's identity in menus and settings
    LsofItem::Key sortKey; // the value sorting reads (numeric for PID, ports and traffic)
    bool numeric;
    enum class Unit { None, Bytes, BytesPerSecond, Milliseconds };
    Unit unit = Unit::None; // how a number reads in the table
};

const QList<ItemColumn>& itemColumns();

// What a column shows for an item: the field's text, traffic in human units ("1.4 MB",
// "12 kB/s", "0.3 ms"); empty where unknown.
QString displayText(const LsofItem& item, const ItemColumn& column);
// A count of bytes, or bytes per second, in human units (kB, MB, GB: powers of 1000).
QString humanBytes(qint64 bytes);
QString humanRate(qint64 bytesPerSecond);

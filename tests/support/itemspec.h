#pragma once

#include "snapshot/lsofitem.h"

#include <QString>

// A connection item for tests, from the few fields a test cares about.
struct ItemSpec {
    QString app;
    QString pid;
    QString protocol = QStringLiteral("TCP");
    QString type = QStringLiteral("IPv4");
    QString localAddress = QStringLiteral("192.168.1.20");
    QString localPort = QStringLiteral("50000");
    QString remoteAddress = QString();
    QString remotePort = QString();
    QString state = QString();
    qint32 status = 0;
};

LsofItemPtr makeItem(const ItemSpec& spec);

// The connection table's column that shows `key`, or -1.
int columnOf(LsofItem::Key key);

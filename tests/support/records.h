#pragma once

#include "snapshot/socketrecord.h"

#include <QStringList>

// A record from lsof's thirteen fields in lsof's order, "|" between them and "-" for one lsof
// leaves out: "curl|42|ann|3u|IPv4|9|0t0|TCP|10.0.0.2|4000|10.0.0.3|443|ESTABLISHED".
inline SocketRecord socketRecord(const QString& fields)
{
    const QStringList given = fields.split(QLatin1Char('|'));
    SocketRecord r;
    QString* const targets[] = {&r.processName,  &r.processId, &r.user,          &r.fileDescriptor,
                                &r.type,         &r.device,    &r.sizeAndOffset, &r.protocol,
                                &r.localAddress, &r.localPort, &r.remoteAddress, &r.remotePort,
                                &r.state};
    for (qsizetype i = 0; i < given.size() && i < 13; ++i)
        *targets[i] = given[i] == QLatin1String("-") ? QString() : given[i];
    return r;
}

#pragma once

// The prelude of every test (force-included by tests/CMakeLists.txt): Qt's string literals
// (u"text"_s), the chrono ones (5s), and readable failure messages for Qt types.

#include <QString>
#include <QStringList>
#include <QVariant>

#include <chrono>
#include <ostream>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

inline void PrintTo(const QString& text, std::ostream* out)
{
    if (text.isNull())
        *out << "null";
    else
        *out << '"' << text.toStdString() << '"';
}

inline void PrintTo(const QStringList& list, std::ostream* out)
{
    *out << '[';
    for (qsizetype i = 0; i < list.size(); ++i) {
        if (i)
            *out << ", ";
        PrintTo(list[i], out);
    }
    *out << ']';
}

inline void PrintTo(const QVariant& value, std::ostream* out)
{
    if (!value.isValid())
        *out << "invalid";
    else
        *out << value.typeName() << '(' << value.toString().toStdString() << ')';
}

#include "snapshot/socketrecord.h"

inline void PrintTo(const SocketRecord& r, std::ostream* out)
{
    const QStringList fields = {r.processName,  r.processId, r.user,          r.fileDescriptor,
                                r.type,         r.device,    r.sizeAndOffset, r.protocol,
                                r.localAddress, r.localPort, r.remoteAddress, r.remotePort,
                                r.state};
    PrintTo(fields, out);
    if (r.bytesSent || r.bytesReceived)
        *out << " sent " << r.bytesSent.value_or(-1) << " received "
             << r.bytesReceived.value_or(-1);
}

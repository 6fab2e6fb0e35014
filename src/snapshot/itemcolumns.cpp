#include "itemcolumns.h"

#include <cmath>

using namespace Qt::StringLiterals;

const QList<ItemColumn>& itemColumns()
{
    using K = LsofItem::Key;
    static const QList<ItemColumn> columns = {
        {K::localizedAppName, u"Application"_s, K::localizedAppName, false},
        {K::processId, u"PID"_s, K::PID, true},
        {K::user, u"User"_s, K::user, false},
        {K::protocol, u"Protocol"_s, K::protocol, false},
        {K::type, u"Type"_s, K::type, false},
        {K::localAddress, u"Local Address"_s, K::localAddress, false},
        {K::localPort, u"Local Port"_s, K::localPortNumber, true},
        {K::localPortName, u"Local Service"_s, K::localPortName, false},
        {K::remoteAddress, u"Remote Address"_s, K::remoteAddress, false},
        {K::remoteHostname, u"Remote Host"_s, K::remoteHostname, false},
        {K::remotePort, u"Remote Port"_s, K::remotePortNumber, true},
        {K::remotePortName, u"Remote Service"_s, K::remotePortName, false},
        {K::state, u"State"_s, K::state, false},
        {K::sendRate, u"Send Rate"_s, K::sendRate, true, ItemColumn::Unit::BytesPerSecond},
        {K::receiveRate, u"Receive Rate"_s, K::receiveRate, true, ItemColumn::Unit::BytesPerSecond},
        {K::bytesSent, u"Sent"_s, K::bytesSent, true, ItemColumn::Unit::Bytes},
        {K::bytesReceived, u"Received"_s, K::bytesReceived, true, ItemColumn::Unit::Bytes},
        {K::rtt, u"RTT"_s, K::rtt, true, ItemColumn::Unit::Milliseconds},
        {K::fileDescriptor, u"FD"_s, K::fileDescriptor, false},
        {K::device, u"Device"_s, K::device, false},
        {K::processPath, u"Path"_s, K::processPath, false},
    };
    return columns;
}

QString humanBytes(qint64 bytes)
{
    static const char16_t* const units[] = {u"B", u"kB", u"MB", u"GB", u"TB", u"PB"};
    double value = double(bytes);
    int unit = 0;
    while (std::abs(value) >= 1000 && unit < 5) {
        value /= 1000;
        ++unit;
    }
    const int decimals = unit == 0 || value >= 100 ? 0 : 1;
    return QString::number(value, 'f', decimals) + u' ' + QString::fromUtf16(units[unit]);
}

QString humanRate(qint64 bytesPerSecond)
{
    return humanBytes(bytesPerSecond) + u"/s"_s;
}

QString displayText(const LsofItem& item, const ItemColumn& column)
{
    if (column.unit == ItemColumn::Unit::None)
        return item.text(column.key);
    const QVariant value = item.value(column.key);
    if (!value.isValid())
        return QString(u""_s);
    switch (column.unit) {
    case ItemColumn::Unit::Bytes:
        return humanBytes(value.toLongLong());
    case ItemColumn::Unit::BytesPerSecond:
        return humanRate(value.toLongLong());
    case ItemColumn::Unit::Milliseconds:
        return QString::number(value.toDouble(), 'f', value.toDouble() < 10 ? 2 : 1) + u" ms"_s;
    case ItemColumn::Unit::None:
        break;
    }
    return item.text(column.key);
}

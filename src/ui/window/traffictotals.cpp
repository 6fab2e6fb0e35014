#include "traffictotals.h"

namespace {

void addTo(std::optional<qint64>& total, const std::optional<qint64>& figure)
{
    if (figure)
        total = total.value_or(0) + *figure;
}

} // namespace

void TrafficTotals::add(const LsofItem::Traffic& traffic)
{
    addTo(sendRate, traffic.sendRate);
    addTo(receiveRate, traffic.receiveRate);
    addTo(bytesSent, traffic.bytesSent);
    addTo(bytesReceived, traffic.bytesReceived);
}

void TrafficTotals::add(const TrafficTotals& other)
{
    addTo(sendRate, other.sendRate);
    addTo(receiveRate, other.receiveRate);
    addTo(bytesSent, other.bytesSent);
    addTo(bytesReceived, other.bytesReceived);
}

std::optional<qint64> TrafficTotals::value(LsofItem::Key key) const
{
    switch (key) {
    case LsofItem::Key::sendRate:
        return sendRate;
    case LsofItem::Key::receiveRate:
        return receiveRate;
    case LsofItem::Key::bytesSent:
        return bytesSent;
    case LsofItem::Key::bytesReceived:
        return bytesReceived;
    default:
        return std::nullopt;
    }
}

TrafficTotals TrafficTotals::of(const LsofItemList& items)
{
    TrafficTotals totals;
    for (const LsofItemPtr& item : items)
        totals.add(item->traffic());
    return totals;
}

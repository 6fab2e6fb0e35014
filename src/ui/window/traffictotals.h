#pragma once

#include "snapshot/lsofitem.h"

#include <optional>

// Traffic figures summed over connections. A figure no connection knows stays unknown, so a
// sum over lsof's items (which count nothing) shows empty, never 0.
struct TrafficTotals {
    std::optional<qint64> sendRate;
    std::optional<qint64> receiveRate;
    std::optional<qint64> bytesSent;
    std::optional<qint64> bytesReceived;

    void add(const LsofItem::Traffic& traffic);
    void add(const TrafficTotals& other);
    bool isKnown() const { return sendRate || receiveRate || bytesSent || bytesReceived; }
    // The figure of a traffic key (sendRate, receiveRate, bytesSent, bytesReceived).
    std::optional<qint64> value(LsofItem::Key key) const;

    static TrafficTotals of(const LsofItemList& items);
    friend bool operator==(const TrafficTotals&, const TrafficTotals&) = default;
};

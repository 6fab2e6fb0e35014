#include "itemfields.h"

#include <algorithm>

QString ItemFields::text(const LsofItem& item, LsofItem::Key key)
{
    using K = LsofItem::Key;
    switch (key) {
    case K::processName:
        return item.processName();
    case K::processId:
        return item.processId();
    case K::protocol:
        return item.protocol();
    case K::localPort:
        return item.localPort();
    case K::localAddress:
        return item.localAddress();
    case K::remotePort:
        return item.remotePort();
    case K::remoteAddress:
        return item.remoteAddress();
    case K::state:
        return item.state();
    case K::user:
        return item.user();
    case K::type:
        return item.type();
    case K::sizeAndOffset:
        return item.sizeAndOffset();
    case K::device:
        return item.device();
    case K::oldState:
        return item.oldState();
    case K::fileDescriptor:
        return item.fileDescriptor();
    case K::localPortName:
        return item.localPortName();
    case K::remotePortName:
        return item.remotePortName();
    case K::remoteHostname:
        return item.remoteHostname();
    case K::processPath:
        return item.processPath();
    case K::identifier:
        return item.identifier();
    case K::localizedAppName:
        return item.localizedAppName();
    case K::PID: {
        // A process id as lsof prints it is already the number's text.
        const QString id = item.processId();
        const bool plain =
            !id.isEmpty() && id.size() < 16 && (id.size() == 1 || id[0] != u'0') &&
            std::all_of(id.cbegin(), id.cend(), [](QChar c) { return c >= u'0' && c <= u'9'; });
        if (plain)
            return id;
        break;
    }
    case K::shortLived:
        return item.text(key);
    case K::bytesSent:
    case K::bytesReceived:
    case K::sendRate:
    case K::receiveRate:
    case K::rtt:
        return trafficText(item.traffic(), key);
    default:
        break;
    }
    const auto value = number(item, key);
    return value ? QString::number(value->integer) : QString();
}

namespace {

std::optional<PredicateNumber> integer(std::optional<qint64> value)
{
    return value ? std::optional<PredicateNumber>(PredicateNumber{true, *value, 0}) : std::nullopt;
}

} // namespace

std::optional<PredicateNumber> ItemFields::number(const LsofItem& item, LsofItem::Key key)
{
    using K = LsofItem::Key;
    switch (key) {
    case K::status:
        return integer(item.status());
    case K::PID:
        return integer(item.PID());
    case K::localPortNumber:
        return integer(item.localPortNumber());
    case K::remotePortNumber:
        return integer(item.remotePortNumber());
    case K::bytesSent:
        return integer(item.traffic().bytesSent);
    case K::bytesReceived:
        return integer(item.traffic().bytesReceived);
    case K::sendRate:
        return integer(item.traffic().sendRate);
    case K::receiveRate:
        return integer(item.traffic().receiveRate);
    case K::rtt: {
        const std::optional<double> rtt = item.traffic().rtt;
        return rtt ? std::optional<PredicateNumber>(PredicateNumber{false, 0, *rtt}) : std::nullopt;
    }
    case K::shortLived:
        return integer(item.isShortLived() ? 1 : 0);
    default:
        return std::nullopt;
    }
}

bool ItemFields::isNumeric(LsofItem::Key key)
{
    using K = LsofItem::Key;
    switch (key) {
    case K::status:
    case K::PID:
    case K::localPortNumber:
    case K::remotePortNumber:
    case K::bytesSent:
    case K::bytesReceived:
    case K::sendRate:
    case K::receiveRate:
    case K::rtt:
    case K::shortLived:
        return true;
    default:
        return false;
    }
}

bool ItemFields::isTraffic(LsofItem::Key key)
{
    using K = LsofItem::Key;
    return key == K::bytesSent || key == K::bytesReceived || key == K::sendRate ||
           key == K::receiveRate || key == K::rtt;
}

QString ItemFields::trafficText(const LsofItem::Traffic& traffic, LsofItem::Key key)
{
    using K = LsofItem::Key;
    const auto number = [](std::optional<qint64> n) { return n ? QString::number(*n) : QString(); };
    switch (key) {
    case K::bytesSent:
        return number(traffic.bytesSent);
    case K::bytesReceived:
        return number(traffic.bytesReceived);
    case K::sendRate:
        return number(traffic.sendRate);
    case K::receiveRate:
        return number(traffic.receiveRate);
    case K::rtt:
        // As the item prints it.
        return traffic.rtt ? QVariant(*traffic.rtt).toString() : QString();
    default:
        return {};
    }
}

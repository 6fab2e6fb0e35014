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
    case K::status:
    case K::localPortNumber:
    case K::remotePortNumber:
        break;
    }
    const auto value = number(item, key);
    return value ? QString::number(*value) : QString();
}

std::optional<qint64> ItemFields::number(const LsofItem& item, LsofItem::Key key)
{
    using K = LsofItem::Key;
    switch (key) {
    case K::status:
        return item.status();
    case K::PID:
        return item.PID();
    case K::localPortNumber:
        return item.localPortNumber();
    case K::remotePortNumber:
        return item.remotePortNumber();
    default:
        return std::nullopt;
    }
}

bool ItemFields::isNumeric(LsofItem::Key key)
{
    using K = LsofItem::Key;
    return key == K::status || key == K::PID || key == K::localPortNumber ||
           key == K::remotePortNumber;
}

#include "itemcolumns.h"

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
        {K::fileDescriptor, u"FD"_s, K::fileDescriptor, false},
        {K::device, u"Device"_s, K::device, false},
        {K::processPath, u"Path"_s, K::processPath, false},
    };
    return columns;
}

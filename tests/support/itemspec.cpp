#include "itemspec.h"

#include "snapshot/itemcolumns.h"

LsofItemPtr makeItem(const ItemSpec& spec)
{
    auto item = std::make_shared<LsofItem>();
    item->setProcessName(spec.app);
    item->setProcessId(spec.pid);
    item->setUser(QStringLiteral("ada"));
    item->setProtocol(spec.protocol);
    item->setType(spec.type);
    item->setLocalAddress(spec.localAddress);
    item->setLocalPort(spec.localPort);
    item->setLocalPortNumber(LsofItem::integerValue(spec.localPort));
    if (!spec.remoteAddress.isNull()) {
        item->setRemoteAddress(spec.remoteAddress);
        item->setRemotePort(spec.remotePort);
        item->setRemotePortNumber(LsofItem::integerValue(spec.remotePort));
    }
    if (!spec.state.isNull())
        item->setState(spec.state);
    item->setFileDescriptor(QStringLiteral("12u"));
    item->setDevice(QStringLiteral("0x1234"));
    item->setStatus(spec.status);
    return item;
}

int columnOf(LsofItem::Key key)
{
    for (int i = 0; i < itemColumns().size(); ++i) {
        if (itemColumns().at(i).key == key)
            return i;
    }
    return -1;
}

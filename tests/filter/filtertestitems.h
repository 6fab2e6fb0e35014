#pragma once

#include "snapshot/lsofitem.h"

#include <QStringList>

#include <memory>
#include <set>

// An item from its fields, "|" between them and "-" for one that is absent: process name and
// id, user, protocol, type, local address and port, remote address and port, state, device and
// file descriptor.
inline LsofItemPtr fixtureItem(const QString& fields)
{
    const QStringList given = fields.split(QLatin1Char('|'));
    const auto field = [&given](int i) {
        return given.value(i) == QLatin1String("-") ? QString() : given.value(i);
    };
    auto item = std::make_shared<LsofItem>();
    item->setProcessName(field(0));
    item->setProcessId(field(1));
    item->setUser(field(2));
    item->setProtocol(field(3));
    item->setType(field(4));
    item->setLocalAddress(field(5));
    item->setLocalPort(field(6));
    if (!field(6).isNull())
        item->setLocalPortNumber(LsofItem::integerValue(field(6)));
    item->setRemoteAddress(field(7));
    item->setRemotePort(field(8));
    if (!field(8).isNull())
        item->setRemotePortNumber(LsofItem::integerValue(field(8)));
    item->setState(field(9));
    item->setDevice(field(10));
    item->setFileDescriptor(field(11));
    return item;
}

// Four connections that between them exercise every kind of value: a full TCP connection,
// a listening socket without a peer, a UDP socket with a non-ASCII name, an empty remote address
// and no state, and a socket of an unusual protocol whose process name is missing.
inline LsofItemList fixtureItems()
{
    using namespace Qt::StringLiterals;
    return {
        fixtureItem(u"firefox|1234|anna|TCP|IPv4|192.168.1.5|51000|93.184.216.34|443|ESTABLISHED|"
                    u"0xabc1|45u"_s),
        fixtureItem(u"sshd|1|root|TCP|IPv6|[::]|22|-|-|LISTEN|0xdead|3u"_s),
        fixtureItem(u"Café Sync|777|anna|UDP|IPv4|*|5353||-|-|0xabc2|7u"_s),
        fixtureItem(u"-|99999|root|SCTP|IPv6|[::1]|9|-|-|-|0xabc3|8u"_s),
    };
}

// Items are told apart by their process id, which every fixture item has.
inline std::set<QString> idsOf(const LsofItemList& items)
{
    std::set<QString> ids;
    for (const auto& item : items)
        ids.insert(item->processId());
    return ids;
}

#pragma once

#include "snapshot/lsofitem.h"

#include <memory>
#include <set>

// Four connections that between them exercise every kind of value: a full TCP connection,
// a listening socket without a peer, a UDP socket with a non-ASCII name and no state, and a
// socket of an unusual protocol whose process name is missing.
struct FixtureFields {
    QString processName;
    QString processId;
    QString user;
    QString protocol;
    QString type;
    QString localAddress;
    QString localPort;
    QString remoteAddress;
    QString remotePort;
    QString state;
    QString device;
    QString fileDescriptor;
};

inline LsofItemPtr makeItem(const FixtureFields& fields)
{
    auto item = std::make_shared<LsofItem>();
    item->setProcessName(fields.processName);
    item->setProcessId(fields.processId);
    item->setUser(fields.user);
    item->setProtocol(fields.protocol);
    item->setType(fields.type);
    item->setLocalAddress(fields.localAddress);
    item->setLocalPort(fields.localPort);
    if (!fields.localPort.isNull())
        item->setLocalPortNumber(LsofItem::integerValue(fields.localPort));
    item->setRemoteAddress(fields.remoteAddress);
    item->setRemotePort(fields.remotePort);
    if (!fields.remotePort.isNull())
        item->setRemotePortNumber(LsofItem::integerValue(fields.remotePort));
    item->setState(fields.state);
    item->setDevice(fields.device);
    item->setFileDescriptor(fields.fileDescriptor);
    return item;
}

inline LsofItemList fixtureItems()
{
    using namespace Qt::StringLiterals;
    const QString none;
    return {
        makeItem({u"firefox"_s, u"1234"_s, u"anna"_s, u"TCP"_s, u"IPv4"_s, u"192.168.1.5"_s,
                  u"51000"_s, u"93.184.216.34"_s, u"443"_s, u"ESTABLISHED"_s, u"0xabc1"_s,
                  u"45u"_s}),
        makeItem({u"sshd"_s, u"1"_s, u"root"_s, u"TCP"_s, u"IPv6"_s, u"[::]"_s, u"22"_s, none, none,
                  u"LISTEN"_s, u"0xdead"_s, u"3u"_s}),
        makeItem({u"Café Sync"_s, u"777"_s, u"anna"_s, u"UDP"_s, u"IPv4"_s, u"*"_s, u"5353"_s,
                  u""_s, none, none, u"0xabc2"_s, u"7u"_s}),
        makeItem({none, u"99999"_s, u"root"_s, u"SCTP"_s, u"IPv6"_s, u"[::1]"_s, u"9"_s, none, none,
                  none, u"0xabc3"_s, u"8u"_s}),
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

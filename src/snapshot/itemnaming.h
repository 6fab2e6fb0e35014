#pragma once

#include "snapshot/zbmemorycache.h"

class HostnameResolver;
class PortServiceMap;

// The process-wide naming state items share: the port-service table, the host-name resolver
// (whose cache holds 200 names) and the process path and icon caches (100 process ids each).
// Created on first use.
class ItemNaming final {
public:
    static constexpr quint64 kProcessCacheCapacity = 100;

    ItemNaming(PortServiceMap& ports, HostnameResolver& hostnames);
    Q_DISABLE_COPY_MOVE(ItemNaming)

    static ItemNaming& sharedNaming();

    PortServiceMap& ports() const { return m_ports; }
    HostnameResolver& hostnames() const { return m_hostnames; }
    ZBMemoryCache& processPaths() { return m_processPaths; }
    ZBMemoryCache& processIcons() { return m_processIcons; }

private:
    PortServiceMap& m_ports;
    HostnameResolver& m_hostnames;
    ZBMemoryCache m_processPaths{kProcessCacheCapacity};
    ZBMemoryCache m_processIcons{kProcessCacheCapacity};
};

#include "itemnaming.h"

#include "snapshot/hostnameresolver.h"
#include "snapshot/portservicemap.h"

ItemNaming::ItemNaming(PortServiceMap& ports, HostnameResolver& hostnames)
    : m_ports(ports), m_hostnames(hostnames)
{
}

ItemNaming& ItemNaming::sharedNaming()
{
    static auto* naming =
        new ItemNaming(PortServiceMap::sharedMap(), HostnameResolver::sharedResolver());
    return *naming;
}

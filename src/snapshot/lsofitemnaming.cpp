#include "lsofitem.h"

// Derived values of an item. Until the naming services exist these fall back to what lsof
// itself printed.

QString LsofItem::localPortName() const
{
    return {};
}

QString LsofItem::remotePortName() const
{
    return {};
}

QString LsofItem::remoteHostname() const
{
    return {};
}

QString LsofItem::processPath() const
{
    return m_processName;
}

QString LsofItem::localizedAppName() const
{
    return m_processName;
}

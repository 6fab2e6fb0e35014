#pragma once

#include "collector/socketdestroyer.h"
#include "snapshot/lsofitem.h"
#include "snapshot/socketrecord.h"

#include <QString>

#include <optional>

// The kernel's name for the TCP connection a record or an item shows; nullopt, with why, when
// it is no TCP connection with a remote side or lacks its cookie (lsof gives none).
std::optional<SocketIdentity> socketIdentityOf(const SocketRecord& record, QString* why);
std::optional<SocketIdentity> socketIdentityOf(const LsofItem& item, QString* why);

// Whether this process may destroy sockets itself (CAP_NET_ADMIN in its effective set, as
// /proc tells it); otherwise the helper daemon is asked.
bool canDestroySocketsDirectly();

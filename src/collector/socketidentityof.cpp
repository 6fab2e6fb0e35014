#include "socketidentityof.h"

#include <QFile>

#include <arpa/inet.h>
#include <linux/capability.h>

using namespace Qt::StringLiterals;

namespace {

// "[::1]" and "fe80::1%eth0" as inet_pton takes them.
bool parseAddress(const QString& text, int family, std::array<std::uint8_t, 16>* out)
{
    QString address = text;
    if (address.startsWith(u'[') && address.endsWith(u']'))
        address = address.mid(1, address.size() - 2);
    address = address.section(u'%', 0, 0);
    return ::inet_pton(family, address.toLatin1().constData(), out->data()) == 1;
}

bool parsePort(const QString& text, std::uint16_t* out)
{
    bool ok = false;
    const uint port = text.toUInt(&ok);
    *out = static_cast<std::uint16_t>(port);
    return ok && port > 0 && port <= 65535;
}

struct Endpoints {
    QString type;
    QString protocol;
    QString localAddress;
    QString localPort;
    QString remoteAddress;
    QString remotePort;
    std::optional<quint64> cookie;
};

std::optional<SocketIdentity> identityOf(const Endpoints& socket, QString* why)
{
    SocketIdentity identity;
    identity.protocol = IPPROTO_TCP;
    identity.family = socket.type == u"IPv6" ? AF_INET6 : AF_INET;
    if (socket.protocol != u"TCP" || socket.remoteAddress.isEmpty() ||
        !parseAddress(socket.localAddress, identity.family, &identity.localAddress) ||
        !parseAddress(socket.remoteAddress, identity.family, &identity.remoteAddress) ||
        !parsePort(socket.localPort, &identity.localPort) ||
        !parsePort(socket.remotePort, &identity.remotePort)) {
        *why = u"not a TCP connection with a remote side"_s;
        return std::nullopt;
    }
    if (!socket.cookie) {
        *why = u"the kernel gave no cookie for this connection"_s;
        return std::nullopt;
    }
    identity.cookie = *socket.cookie;
    if (const std::string error = identity.validationError(); !error.empty()) {
        *why = QString::fromStdString(error);
        return std::nullopt;
    }
    return identity;
}

} // namespace

std::optional<SocketIdentity> socketIdentityOf(const SocketRecord& record, QString* why)
{
    return identityOf({record.type, record.protocol, record.localAddress, record.localPort,
                       record.remoteAddress, record.remotePort, record.cookie},
                      why);
}

std::optional<SocketIdentity> socketIdentityOf(const LsofItem& item, QString* why)
{
    return identityOf({item.type(), item.protocol(), item.localAddress(), item.localPort(),
                       item.remoteAddress(), item.remotePort(), item.cookie()},
                      why);
}

bool canDestroySocketsDirectly()
{
    QFile status(u"/proc/self/status"_s);
    if (!status.open(QIODevice::ReadOnly))
        return false;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("CapEff:")) {
            bool ok = false;
            const quint64 effective = line.mid(7).trimmed().toULongLong(&ok, 16);
            return ok && (effective >> CAP_NET_ADMIN & 1) != 0;
        }
    }
    return false;
}

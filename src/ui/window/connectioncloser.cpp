#include "connectioncloser.h"

#include "collector/socketidentityof.h"
#include "helper/cvhelperutility.h"

#include <QObject>
#include <QThreadPool>

using Outcome = SocketDestroyer::Outcome;

void ConnectionCloser::close(const SocketIdentity& socket, Reply reply)
{
    if (canDestroySocketsDirectly()) {
        // A netlink round trip: quick, but not the GUI thread's to wait for.
        QThreadPool::globalInstance()->start(
            [socket, reply = std::move(reply)] { reply(SocketDestroyer::destroy(socket)); });
        return;
    }
    CVHelperUtility::sharedUtility()->closeConnection(socket, std::move(reply));
}

QString ConnectionCloser::describe(const std::optional<SocketDestroyer::Result>& result,
                                   const QString& connection)
{
    if (!result)
        return QObject::tr("Not closed: closing a connection needs root or the Corvina helper, "
                           "which did not answer (install it with \"corvina helper install\").");
    const QString detail = QString::fromStdString(result->detail);
    switch (result->outcome) {
    case Outcome::Closed:
        return QObject::tr("Closed the connection %1.").arg(connection);
    case Outcome::NotSupported:
        return QObject::tr("Not closed: this kernel cannot close connections (it lacks "
                           "CONFIG_INET_DIAG_DESTROY).");
    case Outcome::NotPermitted:
        return detail.isEmpty()
                   ? QObject::tr("Not permitted: closing a connection needs CAP_NET_ADMIN.")
                   : QObject::tr("Not permitted: %1.").arg(detail);
    case Outcome::AlreadyGone:
        return QObject::tr("Already gone: the connection %1 had closed.").arg(connection);
    case Outcome::Invalid:
    case Outcome::Failed:
        break;
    }
    return QObject::tr("Not closed: %1")
        .arg(QString::fromStdString(SocketDestroyer::describe(*result)));
}

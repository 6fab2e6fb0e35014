#include "singleinstance.h"

#include <QDir>
#include <QFile>
#include <QSocketNotifier>
#include <QStandardPaths>

#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr char kActivate[] = "activate\n";

// The socket's address; false when the path does not fit one.
bool addressFor(const QString& path, sockaddr_un& address)
{
    const QByteArray encoded = QFile::encodeName(path);
    if (encoded.isEmpty() || size_t(encoded.size()) >= sizeof(address.sun_path))
        return false;
    std::memset(&address, 0, sizeof(address));
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, encoded.constData(), size_t(encoded.size()));
    return true;
}

} // namespace

SingleInstance::SingleInstance(QString socketPath, QObject* parent)
    : QObject(parent),
      m_socketPath(socketPath.isEmpty() ? defaultSocketPath() : std::move(socketPath))
{
}

SingleInstance::~SingleInstance()
{
    if (m_listener >= 0) {
        ::close(m_listener);
        QFile::remove(m_socketPath);
    }
}

QString SingleInstance::defaultSocketPath()
{
    // $XDG_RUNTIME_DIR belongs to one user's login; Qt makes a private one where it is unset.
    return QDir(QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation))
        .filePath(u"corvina.socket"_s);
}

bool SingleInstance::activateRunningInstance() const
{
    sockaddr_un address{};
    if (!addressFor(m_socketPath, address))
        return false;
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return false;
    // Once in the socket's buffer the request is read, even after this process has gone.
    const bool sent =
        ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
        ::send(fd, kActivate, sizeof(kActivate) - 1, MSG_NOSIGNAL) ==
            ssize_t(sizeof(kActivate) - 1);
    ::close(fd);
    return sent;
}

bool SingleInstance::listen()
{
    sockaddr_un address{};
    if (m_listener >= 0 || !addressFor(m_socketPath, address))
        return false;
    m_listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (m_listener < 0)
        return false;
    // Nobody answered there, so a socket file left by a crashed instance is stale.
    ::unlink(address.sun_path);
    const mode_t oldMask = ::umask(077);
    const bool bound =
        ::bind(m_listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    ::umask(oldMask);
    if (!bound || ::listen(m_listener, 4) != 0) {
        ::close(m_listener);
        m_listener = -1;
        return false;
    }
    m_notifier = new QSocketNotifier(m_listener, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &SingleInstance::acceptClients);
    return true;
}

void SingleInstance::acceptClients()
{
    int client = -1;
    while ((client = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0) {
        // The request is written before the client closes: a blocking read with a bound.
        timeval bound{1, 0};
        ::setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &bound, sizeof(bound));
        char request[sizeof(kActivate)] = {};
        const ssize_t got = ::recv(client, request, sizeof(request) - 1, MSG_WAITALL);
        ::close(client);
        if (got == ssize_t(sizeof(kActivate) - 1) && std::strcmp(request, kActivate) == 0)
            Q_EMIT activationRequested();
    }
}

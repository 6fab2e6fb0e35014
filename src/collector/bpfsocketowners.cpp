#include "bpfsocketowners.h"

QString BpfSocketOwners::start()
{
    return QString::fromStdString(m_program.load());
}

std::optional<SocketOwners::Owner> BpfSocketOwners::ownerOf(quint64 cookie)
{
    const auto noted = m_program.ownerOf(cookie);
    if (!noted)
        return std::nullopt;
    return Owner{int(noted->pid), noted->uid, QByteArray::fromStdString(noted->command)};
}

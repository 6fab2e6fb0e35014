#include "usernames.h"

#include <cerrno>
#include <pwd.h>

#include <vector>

UserNames::UserNames(QByteArray passwdPath) : m_passwdPath(std::move(passwdPath)) {}

void UserNames::revalidate()
{
    struct stat now {};
    if (::stat(m_passwdPath.constData(), &now) != 0)
        now = {};
    if (now.st_ino != m_seen.st_ino || now.st_size != m_seen.st_size ||
        now.st_mtim.tv_sec != m_seen.st_mtim.tv_sec ||
        now.st_mtim.tv_nsec != m_seen.st_mtim.tv_nsec)
        m_names.clear();
    m_seen = now;
}

QString UserNames::name(uint uid)
{
    const auto found = m_names.constFind(uid);
    if (found != m_names.cend())
        return *found;
    std::vector<char> buffer(4096);
    passwd entry{};
    passwd* result = nullptr;
    while (getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &result) == ERANGE &&
           buffer.size() < 1 << 20)
        buffer.resize(buffer.size() * 2);
    const QString name = result ? QString::fromLocal8Bit(result->pw_name) : QString::number(uid);
    m_names.insert(uid, name);
    return name;
}

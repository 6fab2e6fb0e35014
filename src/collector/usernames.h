#pragma once

#include <QHash>
#include <QString>

#include <sys/stat.h>

// Login names of user ids, as lsof prints them in USER: the name, or the number for an id
// with no account. Names are kept until the account database changes.
class UserNames final {
public:
    explicit UserNames(QByteArray passwdPath = "/etc/passwd");

    // Forgets every name when the account file changed since the last call.
    void revalidate();
    QString name(uint uid);

private:
    QByteArray m_passwdPath;
    struct stat m_seen {};
    QHash<uint, QString> m_names;
};

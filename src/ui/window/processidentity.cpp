#include "processidentity.h"

#include <QFile>
#include <QFileInfo>

ProcessIdentity ProcessIdentity::read(qint64 pid, const QString& procRoot)
{
    ProcessIdentity identity;
    identity.pid = pid;
    if (pid <= 0)
        return identity;
    const QString dir = procRoot + u'/' + QString::number(pid);
    QFile stat(dir + QStringLiteral("/stat"));
    if (!stat.open(QIODevice::ReadOnly))
        return identity;
    const QByteArray text = stat.read(4096);
    // The command name, in parentheses, may hold blanks and parentheses: fields are counted
    // after the last ')'. Field 3 (the state) comes first there, so starttime is the 20th.
    const qsizetype close = text.lastIndexOf(')');
    if (close < 0)
        return identity;
    const QList<QByteArray> fields = text.mid(close + 1).simplified().split(' ');
    if (fields.size() < 20)
        return identity;
    identity.startTime = fields.at(19).toULongLong();
    identity.executablePath = QFileInfo(dir + QStringLiteral("/exe")).symLinkTarget();
    return identity;
}

#pragma once

#include "snapshot/lsoffetcher.h"

#include <QFile>
#include <QString>

#include <gtest/gtest.h>

// Reads one of the captured or crafted lsof outputs of tests/data.
inline QString lsofData(const char* name)
{
    QFile file(QStringLiteral(CORVINA_TEST_DATA "/") + QString::fromUtf8(name));
    if (!file.open(QIODevice::ReadOnly))
        ADD_FAILURE() << "missing test data " << name;
    return QString::fromUtf8(file.readAll());
}

// One line in the layout lsof uses for short names, under kLsofHeader.
inline const QString kLsofHeader =
    QStringLiteral("COMMAND  PID USER   FD   TYPE DEVICE SIZE/OFF NODE NAME");

inline QString lsofLine(const QString& command, int pid, const QString& fd, const QString& type,
                        int device, const QString& protocol, const QString& name)
{
    return QStringLiteral("%1 %2 root %3  %4 %5      0t0 %6 %7")
        .arg(command, -7)
        .arg(pid, 4)
        .arg(fd, 5)
        .arg(type, 4)
        .arg(device, 6)
        .arg(protocol, -4)
        .arg(name);
}

// A TCP line of process 42 on descriptor `fd` (device 9000 + fd), under kLsofHeader.
inline QString tcpLine(int fd, const QString& name, const QString& command = QStringLiteral("app"))
{
    return lsofLine(command, 42, QString::number(fd) + u'u', QStringLiteral("IPv4"), 9000 + fd,
                    QStringLiteral("TCP"), name);
}

// One refresh's change detection over lsof's `text`: the items as it leaves them.
inline LsofItemList detectPass(LsofFetcher& fetcher, const QString& text)
{
    LsofItemList items = fetcher.parseLsofResult(text);
    fetcher.processLsofItemsChanges(items);
    return items;
}

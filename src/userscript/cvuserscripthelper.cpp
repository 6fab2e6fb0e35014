#include "cvuserscripthelper.h"

#include "platform/sandbox.h"
#include "snapshot/gacommandrunner.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QStandardPaths>
#include <QStringDecoder>

using namespace Qt::StringLiterals;

namespace {

QMutex folderLock;
QString folderOverride;

} // namespace

void CVUserScriptHelper::setScriptsFolderForTesting(const QString& folder)
{
    QMutexLocker locker(&folderLock);
    folderOverride = folder;
}

QString CVUserScriptHelper::scriptsFolder()
{
    {
        QMutexLocker locker(&folderLock);
        if (!folderOverride.isEmpty())
            return folderOverride;
    }
    static const QString folder =
        QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
        u"/Corvina/Scripts"_s;
    return folder;
}

QString CVUserScriptHelper::scriptPath()
{
    return scriptsFolder() + u"/user_script.sh"_s;
}

QString CVUserScriptHelper::scriptContent()
{
    // The lsof of this system: Debian installs it in /usr/bin, others in /usr/sbin.
    return u"#!/bin/sh\n%1 $*\n\n"_s.arg(GACommandRunner::lsofPath());
}

bool CVUserScriptHelper::lsofScriptExists()
{
    const QFileInfo info(scriptPath());
    return info.exists() && !info.isDir();
}

bool CVUserScriptHelper::lsofScriptContentCorrect()
{
    QFile file(scriptPath());
    if (!file.open(QIODevice::ReadOnly))
        return false;
    // Larger than any correct script: no need to read it all.
    const QByteArray bytes = file.read(4096);
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder.decode(bytes);
    return !decoder.hasError() && text == scriptContent();
}

bool CVUserScriptHelper::lsofScriptCorrect()
{
    return lsofScriptExists() && lsofScriptContentCorrect();
}

bool CVUserScriptHelper::writeScriptFile(const QString& path)
{
    QDir().mkpath(scriptsFolder());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    const QByteArray bytes = scriptContent().toUtf8();
    const bool written = file.write(bytes) == bytes.size();
    file.close();
    const bool permitted =
        file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                            QFileDevice::ExeOwner | QFileDevice::ReadGroup | QFileDevice::ExeGroup |
                            QFileDevice::ReadOther | QFileDevice::ExeOther);
    return written && permitted;
}

void CVUserScriptHelper::checkAndInstallScript(const std::function<void()>& showSheet)
{
    if (!Sandbox::isSandboxed() || lsofScriptCorrect())
        return;
    if (showSheet)
        showSheet();
}

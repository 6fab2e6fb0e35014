#include "cvuserscripthelper.h"

#include "platform/sandbox.h"
#include "snapshot/gacommandrunner.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QStandardPaths>
#include <QStringDecoder>

#include <chrono>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

QMutex folderLock;
QString folderOverride;

// The host's answer is kept: the window asks for the content each time it becomes active, and
// the host's lsof does not move while we run.
QMutex hostLock;
CVUserScriptHelper::HostQuery hostQueryOverride;
std::optional<QString> hostLsof;

constexpr auto kHostQueryBound = std::chrono::milliseconds(3000);

const QStringList& lsofCandidates()
{
    static const QStringList candidates = {u"/usr/sbin/lsof"_s, u"/usr/bin/lsof"_s};
    return candidates;
}

// On the script road the runner starts the command on the host (through flatpak-spawn).
QString askHost(const QStringList& command)
{
    const GACommandRunner::SyncResult result = GACommandRunner::runCommandSync(
        command.first(), command.mid(1), GACommandRunner::Road::Script, kHostQueryBound);
    if (!result.started || result.exitCode != 0 || result.output.isNull())
        return {};
    return QString::fromUtf8(result.output);
}

} // namespace

void CVUserScriptHelper::setHostQueryForTesting(HostQuery query)
{
    QMutexLocker locker(&hostLock);
    hostQueryOverride = std::move(query);
    hostLsof.reset();
}

QString CVUserScriptHelper::hostLsofPath()
{
    QMutexLocker locker(&hostLock);
    if (hostLsof)
        return *hostLsof;
    QString test;
    for (const QString& candidate : lsofCandidates())
        test += u"if [ -x %1 ]; then echo %1; exit 0; fi; "_s.arg(candidate);
    const QStringList command = {u"/bin/sh"_s, u"-c"_s, test + u"exit 1"_s};
    const QString answer =
        (hostQueryOverride ? hostQueryOverride(command) : askHost(command)).trimmed();
    // Only a path we asked about is taken: the answer becomes part of a script that runs.
    hostLsof = lsofCandidates().contains(answer) ? answer : lsofCandidates().first();
    return *hostLsof;
}

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
    // Debian installs lsof in /usr/bin, others in /usr/sbin. A Flatpak's script runs on the
    // host, whose lsof may lie elsewhere than the sandbox's (which usually has none).
    const QString lsof =
        Sandbox::kind() == Sandbox::Kind::Flatpak ? hostLsofPath() : GACommandRunner::lsofPath();
    return u"#!/bin/sh\n%1 $*\n\n"_s.arg(lsof);
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

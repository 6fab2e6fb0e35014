#include "lsofitem.h"

#include "platform/runningapplication.h"
#include "snapshot/hostnameresolver.h"
#include "snapshot/itemnaming.h"
#include "snapshot/portservicemap.h"

#include <QCoreApplication>

using namespace Qt::StringLiterals;

namespace {

const QString& genericIcon()
{
    static const QString icon = u"application-x-executable"_s;
    return icon;
}

} // namespace

QString LsofItem::nameForPort(const QString& port, const QString& protocol)
{
    return ItemNaming::sharedNaming().ports().nameForPort(port, protocol);
}

QString LsofItem::descriptionForPort(const QString& port, const QString& protocol)
{
    return ItemNaming::sharedNaming().ports().descriptionForPort(port, protocol);
}

QString LsofItem::localPortName() const
{
    return nameForPort(m_localPort, m_protocol);
}

QString LsofItem::remotePortName() const
{
    return nameForPort(m_remotePort, m_protocol);
}

QString LsofItem::remoteHostname() const
{
    return ItemNaming::sharedNaming().hostnames().hostnameForAddress(m_remoteAddress);
}

QString LsofItem::cachedRemoteHostname() const
{
    return ItemNaming::sharedNaming().hostnames().cachedHostnameForAddress(m_remoteAddress);
}

void LsofItem::resolveHostname(const QString& address) const
{
    ItemNaming::sharedNaming().hostnames().resolveHostname(address);
}

std::shared_ptr<const RunningApplication> LsofItem::runningApplication() const
{
    if (!m_host.isEmpty())
        return nullptr;
    {
        QMutexLocker locker(&m_lock);
        if (m_app)
            return m_app;
    }
    auto app = RunningApplication::runningApplicationWithProcessIdentifier(PID());
    if (app) {
        QMutexLocker locker(&m_lock);
        m_app = app;
    }
    return app;
}

void LsofItem::readProcessRecords(const LsofItemList& items)
{
    // One look-up per process, not per socket: a process without a record would otherwise be
    // looked for once for each of its items.
    QHash<qint64, std::shared_ptr<const RunningApplication>> byPid;
    for (const LsofItemPtr& item : items) {
        if (!item->m_host.isEmpty())
            continue;
        {
            QMutexLocker locker(&item->m_lock);
            if (item->m_app)
                continue;
        }
        const qint64 pid = item->PID();
        auto found = byPid.constFind(pid);
        if (found == byPid.cend())
            found =
                byPid.insert(pid, RunningApplication::runningApplicationWithProcessIdentifier(pid));
        if (*found) {
            QMutexLocker locker(&item->m_lock);
            if (!item->m_app)
                item->m_app = *found;
        }
    }
}

QString LsofItem::processPath() const
{
    if (!m_host.isEmpty())
        return m_processName;
    ZBMemoryCache& paths = ItemNaming::sharedNaming().processPaths();
    if (const QVariant cached = paths.objectForKey(m_processId); cached.isValid())
        return cached.toString();
    QString path;
    if (const auto app = runningApplication()) {
        path = app->bundlePath();
        if (path.isEmpty())
            path = app->executablePath();
    }
    if (path.isEmpty())
        path = m_processName;
    paths.cacheObject(path, m_processId);
    return path;
}

QString LsofItem::processIcon() const
{
    if (!m_host.isEmpty())
        return genericIcon();
    ZBMemoryCache& icons = ItemNaming::sharedNaming().processIcons();
    if (const QVariant cached = icons.objectForKey(m_processId); cached.isValid())
        return cached.toString();
    const auto app = runningApplication();
    const QString icon = app && !app->iconName().isEmpty() ? app->iconName() : genericIcon();
    icons.cacheObject(icon, m_processId);
    return icon;
}

QString LsofItem::localizedAppName() const
{
    const auto app = runningApplication();
    if (app && !app->localizedName().isEmpty())
        return app->localizedName();
    // A connection that closed before its process could be known still needs a name on its row.
    if (m_shortLived && m_processName.isNull() && m_processId.isNull())
        return QCoreApplication::translate("LsofItem", "unknown process");
    return m_processName;
}

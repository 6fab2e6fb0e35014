#include "desktopentryindex.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QSet>

using namespace Qt::StringLiterals;

DesktopEntryIndex::DesktopEntryIndex(QStringList applicationDirs,
                                     std::chrono::milliseconds recheckInterval)
    : m_dirs(std::move(applicationDirs)), m_recheckInterval(recheckInterval)
{
}

DesktopEntryIndex& DesktopEntryIndex::sharedIndex()
{
    static auto* index = new DesktopEntryIndex(defaultApplicationDirs());
    return *index;
}

QStringList DesktopEntryIndex::defaultApplicationDirs()
{
    const QString home = QDir::homePath();
    QString dataHome = qEnvironmentVariable("XDG_DATA_HOME");
    if (dataHome.isEmpty())
        dataHome = home + u"/.local/share"_s;
    QString dataDirs = qEnvironmentVariable("XDG_DATA_DIRS");
    if (dataDirs.isEmpty())
        dataDirs = u"/usr/local/share:/usr/share"_s;

    QStringList dataFolders{dataHome};
    dataFolders += dataDirs.split(u':', Qt::SkipEmptyParts);
    dataFolders +=
        {home + u"/.local/share/flatpak/exports/share"_s, u"/var/lib/flatpak/exports/share"_s};

    QStringList dirs;
    for (const QString& folder : std::as_const(dataFolders)) {
        const QString dir = QDir::cleanPath(folder + u"/applications"_s);
        if (!dirs.contains(dir))
            dirs.append(dir);
    }
    return dirs;
}

int DesktopEntryIndex::scanCount() const
{
    QMutexLocker locker(&m_lock);
    return m_scanCount;
}

QList<QDateTime> DesktopEntryIndex::folderTimes() const
{
    QList<QDateTime> times;
    times.reserve(m_dirs.size());
    for (const QString& dir : m_dirs)
        times.append(QFileInfo(dir).lastModified());
    return times;
}

DesktopEntryIndex::Index DesktopEntryIndex::scan() const
{
    Index index;
    QSet<QString> seenIds;
    for (const QString& dir : m_dirs) {
        QDirIterator it(dir, {u"*.desktop"_s}, QDir::Files | QDir::Readable,
                        QDirIterator::Subdirectories | QDirIterator::FollowSymlinks);
        while (it.hasNext()) {
            const QString path = it.next();
            QString id = QDir(dir).relativeFilePath(path);
            id.chop(8); // ".desktop"
            id.replace(u'/', u'-');
            if (seenIds.contains(id))
                continue;
            seenIds.insert(id);
            auto parsed = DesktopEntry::fromFile(path, id);
            if (!parsed)
                continue;
            auto entry = std::make_shared<const DesktopEntry>(std::move(*parsed));
            index.entries.append(entry);
            // Earlier folders take precedence, so the first entry under a name stays.
            const auto remember = [&entry](QHash<QString, EntryPtr>& map, const QString& key) {
                if (!key.isEmpty() && !map.contains(key))
                    map.insert(key, entry);
            };
            remember(index.byTryExec, entry->tryExecProgram());
            remember(index.byExec, entry->execProgram());
            remember(index.byWMClass, entry->startupWMClass().toLower());
            remember(index.byId, entry->desktopId());
            remember(index.byFlatpakApp, entry->flatpakAppId());
            remember(index.byFlatpakApp, entry->desktopId());
        }
    }
    return index;
}

void DesktopEntryIndex::refreshIfStale()
{
    const auto now = std::chrono::steady_clock::now();
    if (m_scanned && now - m_lastCheck < m_recheckInterval)
        return;
    m_lastCheck = now;
    QList<QDateTime> times = folderTimes();
    if (m_scanned && times == m_times)
        return;
    m_index = scan();
    m_times = std::move(times);
    m_scanned = true;
    ++m_scanCount;
}

DesktopEntryIndex::EntryPtr DesktopEntryIndex::entryForProgram(const QString& programName)
{
    if (programName.isEmpty())
        return {};
    QMutexLocker locker(&m_lock);
    refreshIfStale();
    for (const auto* map : {&m_index.byTryExec, &m_index.byExec}) {
        if (const auto it = map->constFind(programName); it != map->cend())
            return *it;
    }
    if (const auto it = m_index.byWMClass.constFind(programName.toLower());
        it != m_index.byWMClass.cend())
        return *it;
    return m_index.byId.value(programName);
}

DesktopEntryIndex::EntryPtr DesktopEntryIndex::entryForFlatpakApp(const QString& appId)
{
    if (appId.isEmpty())
        return {};
    QMutexLocker locker(&m_lock);
    refreshIfStale();
    return m_index.byFlatpakApp.value(appId);
}

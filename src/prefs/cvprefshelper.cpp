#include "cvprefshelper.h"

#include "persistence/sqliteerror.h"
#include "platform/systemlog.h"
#include "prefs/cvfilterprofileinfo.h"
#include "prefs/userdefaults.h"

#include <QDir>

using namespace Qt::StringLiterals;

CVPrefsHelper::CVPrefsHelper(UserDefaults& defaults, QObject* parent)
    : QObject(parent), m_defaults(defaults), m_clock([] { return QDateTime::currentDateTime(); })
{
    m_defaults.registerDefaults(userDefaults());
    readLiveCopies();
    connect(&m_defaults, &UserDefaults::didChange, this, &CVPrefsHelper::userDefaultsChanged);
}

CVPrefsHelper::~CVPrefsHelper() = default;

CVPrefsHelper& CVPrefsHelper::sharedHelper()
{
    // Created once, under the lock of a function-local static, and kept for the process.
    static CVPrefsHelper* const instance = new CVPrefsHelper(UserDefaults::standardUserDefaults());
    return *instance;
}

QVariantMap CVPrefsHelper::userDefaults()
{
    return {
        {PrefKeys::AutoRefreshSetting, qint64(1)},
        {PrefKeys::ListFontSize, qint64(11)},
        {PrefKeys::ListBackgroundColor, u"#FFFFFFFF"_s},
        {PrefKeys::ListTextColor, u"#FF000000"_s},
        {PrefKeys::NewConnectionBackgroundColor, u"#FF00FF00"_s},
        {PrefKeys::StateChangedConnectionBackgroundColor, u"#FFFFFF00"_s},
        {PrefKeys::ClosedConnectionBackgroundColor, u"#FFFF0000"_s},
        {PrefKeys::NotifyNewConnections, true},
        {PrefKeys::NotifyConnectionsStateChange, false},
        {PrefKeys::ResolveRemoteAddressInGrowl, true},
        {PrefKeys::ExcludeAppsForGrowl, QStringList()},
        {PrefKeys::LogNewConnectionToCSVFiles, true},
        {PrefKeys::LogConnectionStateChangeToCSVFiles, false},
        {PrefKeys::LogNewConnectionToSystemConsole, false},
        {PrefKeys::LogConnectionStateChangeToSystemConsole, false},
        {PrefKeys::CSVFilesLogSplitEveryDay, true},
        {PrefKeys::SnapshotCollector, u"native"_s},
    };
}

void CVPrefsHelper::readLiveCopies()
{
    m_listFontSize = quint64(qMax<qint64>(0, m_defaults.integerForKey(PrefKeys::ListFontSize)));
    m_notifyNewConnections = m_defaults.boolForKey(PrefKeys::NotifyNewConnections);
    m_notifyConnectionsStateChange = m_defaults.boolForKey(PrefKeys::NotifyConnectionsStateChange);
    m_resolveRemoteAddressInGrowl = m_defaults.boolForKey(PrefKeys::ResolveRemoteAddressInGrowl);
}

void CVPrefsHelper::userDefaultsChanged()
{
    readLiveCopies();
    {
        QMutexLocker locker(&m_colorLock);
        m_colorCache.clear();
    }
    emit defaultsChanged();
}

std::optional<RgbaColor> CVPrefsHelper::colorForKey(const QString& key)
{
    {
        QMutexLocker locker(&m_colorLock);
        const auto cached = m_colorCache.constFind(key);
        if (cached != m_colorCache.cend())
            return *cached;
    }
    const QVariant value = m_defaults.objectForKey(key);
    std::optional<RgbaColor> color;
    if (value.typeId() == QMetaType::QString)
        color = RgbaColor::fromText(value.toString());
    if (!color) {
        SystemLog::write(u"nil color key %1"_s.arg(key));
        return std::nullopt;
    }
    QMutexLocker locker(&m_colorLock);
    m_colorCache.insert(key, *color);
    return color;
}

bool CVPrefsHelper::boolForKey(const QString& key) const
{
    return m_defaults.boolForKey(key);
}

QStringList CVPrefsHelper::excludeAppsForGrowl() const
{
    return m_defaults.stringArrayForKey(PrefKeys::ExcludeAppsForGrowl);
}

void CVPrefsHelper::setExcludeAppsForGrowl(const QStringList& paths)
{
    m_defaults.setObject(PrefKeys::ExcludeAppsForGrowl, paths);
}

void CVPrefsHelper::addExcludeAppForGrowNotification(const QString& path)
{
    const QStringList apps = excludeAppsForGrowl();
    if (path.isEmpty() || apps.contains(path))
        return;
    setExcludeAppsForGrowl(apps + QStringList{path});
}

void CVPrefsHelper::removeExcludeAppForGrowlNotification(const QString& path)
{
    QStringList apps = excludeAppsForGrowl();
    apps.removeAll(path);
    setExcludeAppsForGrowl(apps);
}

bool CVPrefsHelper::needsNotifyOrLogNewConnections() const
{
    return m_notifyNewConnections || boolForKey(PrefKeys::LogNewConnectionToCSVFiles) ||
           boolForKey(PrefKeys::LogNewConnectionToSystemConsole);
}

bool CVPrefsHelper::needsNotifyOrLogConnectionStateChange() const
{
    return m_notifyConnectionsStateChange ||
           boolForKey(PrefKeys::LogConnectionStateChangeToCSVFiles) ||
           boolForKey(PrefKeys::LogConnectionStateChangeToSystemConsole);
}

QString CVPrefsHelper::logFolder() const
{
    {
        QMutexLocker locker(&m_logLock);
        if (!m_logFolder.isEmpty())
            return m_logFolder;
    }
    const QString dataHome = qEnvironmentVariable("XDG_DATA_HOME");
    if (!dataHome.isEmpty() && QDir::isAbsolutePath(dataHome))
        return QDir::cleanPath(dataHome) + u"/Corvina/Logs"_s;
    return QDir::homePath() + u"/.local/share/Corvina/Logs"_s;
}

void CVPrefsHelper::setLogFolder(const QString& folder)
{
    QMutexLocker locker(&m_logLock);
    m_logFolder = folder;
}

QString CVPrefsHelper::logFileName() const
{
    if (!boolForKey(PrefKeys::CSVFilesLogSplitEveryDay))
        return u"CorvinaLog.csv"_s;
    QMutexLocker locker(&m_logLock);
    const QString day = m_clock().toLocalTime().toString(u"yyyyMMdd"_s);
    if (m_rememberedDay != day)
        m_rememberedDay = day;
    return u"CorvinaLog-%1.csv"_s.arg(m_rememberedDay);
}

void CVPrefsHelper::setClock(std::function<QDateTime()> clock)
{
    QMutexLocker locker(&m_logLock);
    m_clock = std::move(clock);
}

void CVPrefsHelper::setFilterProfiles(const QList<std::shared_ptr<CVFilterProfileInfo>>& profiles)
{
    m_filterProfiles = profiles;
    emit filterProfilesChanged();
}

void CVPrefsHelper::reloadFilterProfiles()
{
    QList<std::shared_ptr<CVFilterProfileInfo>> profiles;
    try {
        profiles = CVFilterProfileInfo::allObjects();
    } catch (const SQLiteError& error) {
        // Reloads come with every activation of the main window: one line is enough.
        if (!m_profileLoadFailureLogged)
            SystemLog::write(u"cannot load saved searches: %1"_s.arg(error.message()));
        m_profileLoadFailureLogged = true;
        return;
    }
    m_profileLoadFailureLogged = false;
    setFilterProfiles(profiles);
}

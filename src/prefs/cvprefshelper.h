#pragma once

#include "prefs/prefkeys.h"
#include "prefs/rgbacolor.h"

#include <QDateTime>
#include <QHash>
#include <QMutex>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

class CVFilterProfileInfo;
class UserDefaults;

// The one accessor of the user's settings: registers their defaults, keeps live copies of the
// settings read on every refresh, decodes and caches the row colours, keeps the list of
// applications left out of announcements, and names the CSV log's folder and file.
//
// The read accessors used by the acquisition worker (needsNotifyOrLog..., boolForKey,
// excludeAppsForGrowl, resolveRemoteAddressInGrowl, logFolder, logFileName) are safe to call
// while the GUI thread uses the object; everything else belongs to the GUI thread, which must
// also be the first to ask for sharedHelper().
class CVPrefsHelper final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(CVPrefsHelper)

public:
    explicit CVPrefsHelper(UserDefaults& defaults, QObject* parent = nullptr);
    ~CVPrefsHelper() override;

    // The application's instance, over UserDefaults::standardUserDefaults().
    static CVPrefsHelper& sharedHelper();

    // The sixteen registered keys and their factory defaults; colours as "#AARRGGBB".
    static QVariantMap userDefaults();

    UserDefaults& defaultsStore() const { return m_defaults; }

    quint64 listRefreshInterval() const { return m_listRefreshInterval; }
    void setListRefreshInterval(quint64 interval) { m_listRefreshInterval = interval; }

    // Live copies of their settings. Setting one changes only the copy, never the setting.
    quint64 listFontSize() const { return m_listFontSize; }
    void setListFontSize(quint64 size) { m_listFontSize = size; }
    bool notifyNewConnections() const { return m_notifyNewConnections; }
    void setNotifyNewConnections(bool on) { m_notifyNewConnections = on; }
    bool notifyConnectionsStateChange() const { return m_notifyConnectionsStateChange; }
    void setNotifyConnectionsStateChange(bool on) { m_notifyConnectionsStateChange = on; }
    bool resolveRemoteAddressInGrowl() const { return m_resolveRemoteAddressInGrowl; }
    void setResolveRemoteAddressInGrowl(bool on) { m_resolveRemoteAddressInGrowl = on; }

    // The colour under `key`; nothing (and the log line "nil color key <key>") when none.
    std::optional<RgbaColor> colorForKey(const QString& key);
    bool boolForKey(const QString& key) const;

    QStringList excludeAppsForGrowl() const;
    void setExcludeAppsForGrowl(const QStringList& paths);
    // The two spellings differ on purpose; both are part of the interface.
    void addExcludeAppForGrowNotification(const QString& path);
    void removeExcludeAppForGrowlNotification(const QString& path);

    bool needsNotifyOrLogNewConnections() const;
    bool needsNotifyOrLogConnectionStateChange() const;

    // ~/.local/share/Corvina/Logs ($XDG_DATA_HOME honoured), or the folder set for tests.
    QString logFolder() const;
    void setLogFolder(const QString& folder);
    // "CorvinaLog.csv", or "CorvinaLog-yyyyMMdd.csv" for the clock's local day when the log
    // is split by day.
    QString logFileName() const;
    void setClock(std::function<QDateTime()> clock);

    // The saved searches as last loaded; empty until the first reload. Main thread only.
    QList<std::shared_ptr<CVFilterProfileInfo>> filterProfiles() const { return m_filterProfiles; }
    // Replaces the list and tells the observers, even when nothing changed.
    void setFilterProfiles(const QList<std::shared_ptr<CVFilterProfileInfo>>& profiles);
    // Loads every stored profile, in the database's order; loaded records come back as the same
    // objects. When the database cannot be read the list stays as it was and the failure is
    // logged once until a reload succeeds again.
    void reloadFilterProfiles();

public slots:
    void userDefaultsChanged();

signals:
    // After every change of the settings, once the live copies and the colour cache follow it.
    void defaultsChanged();
    // After every assignment of the saved-search list.
    void filterProfilesChanged();

private:
    void readLiveCopies();

    UserDefaults& m_defaults;
    std::atomic<quint64> m_listRefreshInterval = 0;
    std::atomic<quint64> m_listFontSize = 0;
    std::atomic<bool> m_notifyNewConnections = false;
    std::atomic<bool> m_notifyConnectionsStateChange = false;
    std::atomic<bool> m_resolveRemoteAddressInGrowl = false;

    QMutex m_colorLock;
    QHash<QString, RgbaColor> m_colorCache;

    mutable QMutex m_logLock;
    QString m_logFolder;
    std::function<QDateTime()> m_clock;
    mutable QString m_rememberedDay;

    QList<std::shared_ptr<CVFilterProfileInfo>> m_filterProfiles;
    bool m_profileLoadFailureLogged = false;
};

#pragma once
// Stand-in until the prefs branch is merged; deleted then.
#include "prefs/cvfilterprofileinfo.h"
#include "prefs/rgbacolor.h"
#include "prefs/userdefaults.h"

#include <optional>

namespace PrefKeys {
inline const QString AutoRefreshSetting = QStringLiteral("CV:AutoRefreshSetting");
inline const QString ListFontSize = QStringLiteral("CV:ListFontSize");
inline const QString ListBackgroundColor = QStringLiteral("CV:ListBackgroundColor");
inline const QString ListTextColor = QStringLiteral("CV:ListTextColor");
inline const QString NewConnectionBackgroundColor =
    QStringLiteral("CV:NewConnectionBackgroundColor");
inline const QString StateChangedConnectionBackgroundColor =
    QStringLiteral("CV:StateChangedConnectionBackgroundColor");
inline const QString ClosedConnectionBackgroundColor =
    QStringLiteral("CV:ClosedConnectionBackgroundColor");
inline const QString ColumnsUserDefault = QStringLiteral("CV:ColumnsUserDefault");
inline const QString ToolbarAddressAndPortItemState =
    QStringLiteral("CVToolbarAddressAndPortItemState");
} // namespace PrefKeys

class CVPrefsHelper : public QObject {
    Q_OBJECT
public:
    CVPrefsHelper(UserDefaults& defaults, QObject* parent = nullptr);
    static CVPrefsHelper& sharedHelper();
    quint64 listFontSize() const;
    std::optional<RgbaColor> colorForKey(const QString& key) const;
    UserDefaults& userDefaults() { return m_defaults; }
    QList<std::shared_ptr<CVFilterProfileInfo>> filterProfiles() const { return m_profiles; }
    void reloadFilterProfiles();
    void addExcludeAppForGrowNotification(const QString&) {}
Q_SIGNALS:
    void defaultsChanged();
    void filterProfilesChanged();

private:
    UserDefaults& m_defaults;
    QList<std::shared_ptr<CVFilterProfileInfo>> m_profiles;
};

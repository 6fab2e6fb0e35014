// Stand-in until the prefs and filter branches are merged; deleted then.
#include "filter/itemfilter.h"
#include "prefs/cvprefshelper.h"

#include <QRegularExpression>
#include <QStandardPaths>

QList<std::shared_ptr<CVFilterProfileInfo>>& CVFilterProfileInfo::store()
{
    static QList<std::shared_ptr<CVFilterProfileInfo>> s;
    return s;
}

void CVFilterProfileInfo::save()
{
    static qint64 next = 1;
    m_pk = next++;
    for (const auto& p : store())
        if (p.get() == this)
            return;
    store().append(std::shared_ptr<CVFilterProfileInfo>(shared_from_this()));
}

CVPrefsHelper::CVPrefsHelper(UserDefaults& defaults, QObject* parent)
    : QObject(parent), m_defaults(defaults)
{
    connect(&m_defaults, &UserDefaults::didChange, this, &CVPrefsHelper::defaultsChanged);
}

CVPrefsHelper& CVPrefsHelper::sharedHelper()
{
    static UserDefaults defaults(QStandardPaths::writableLocation(QStandardPaths::ConfigLocation) +
                                 QStringLiteral("/Corvina/Corvina.conf"));
    static CVPrefsHelper helper(defaults);
    return helper;
}

quint64 CVPrefsHelper::listFontSize() const
{
    const QVariant v = m_defaults.objectForKey(PrefKeys::ListFontSize);
    return v.isValid() ? v.toULongLong() : 11;
}

std::optional<RgbaColor> CVPrefsHelper::colorForKey(const QString& key) const
{
    const QVariant v = m_defaults.objectForKey(key);
    if (v.isValid()) {
        const QString t = v.toString();
        bool ok = false;
        const uint argb = t.mid(1).toUInt(&ok, 16);
        if (ok && t.size() == 9)
            return RgbaColor{quint8(argb >> 16), quint8(argb >> 8), quint8(argb),
                             quint8(argb >> 24)};
    }
    if (key == PrefKeys::ListBackgroundColor)
        return RgbaColor{255, 255, 255, 255};
    if (key == PrefKeys::ListTextColor)
        return RgbaColor{0, 0, 0, 255};
    if (key == PrefKeys::NewConnectionBackgroundColor)
        return RgbaColor{0, 255, 0, 255};
    if (key == PrefKeys::StateChangedConnectionBackgroundColor)
        return RgbaColor{255, 255, 0, 255};
    if (key == PrefKeys::ClosedConnectionBackgroundColor)
        return RgbaColor{255, 0, 0, 255};
    return std::nullopt;
}

void CVPrefsHelper::reloadFilterProfiles()
{
    m_profiles.clear();
    for (const auto& p : CVFilterProfileInfo::store())
        m_profiles.append(p);
    Q_EMIT filterProfilesChanged();
}

LsofItemList ItemFilter::filterItems(const LsofItemList& items) const
{
    if (profileExpression || useSearchExpression)
        return items;
    LsofItemList out;
    QString keyword = searchText;
    keyword.replace(QLatin1Char(','), QLatin1Char('|'));
    const QRegularExpression re(keyword, QRegularExpression::CaseInsensitiveOption);
    for (const auto& item : items) {
        if (!keyword.isEmpty()) {
            QStringList parts;
            for (auto key : keywordKeys)
                parts << item->text(key);
            if (!re.isValid() || !re.match(parts.join(QChar(0))).hasMatch())
                continue;
        }
        if (hiddenTypes.contains(item->type()))
            continue;
        const QString p = item->protocol();
        if (hiddenProtocols.contains(p))
            continue;
        if (hiddenProtocols.contains(QStringLiteral("Other")) && p != QStringLiteral("TCP") &&
            p != QStringLiteral("UDP"))
            continue;
        if (remoteOnly && item->remoteAddress().isEmpty())
            continue;
        out.append(item);
    }
    return out;
}

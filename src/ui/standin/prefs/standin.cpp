// Stand-in until the saved-search list and the filter are merged; deleted then.
#include "filter/itemfilter.h"
#include "prefs/savedsearchlist.h"

#include <QRegularExpression>

SavedSearchList& SavedSearchList::shared()
{
    static SavedSearchList list;
    return list;
}

void SavedSearchList::reloadFilterProfiles()
{
    m_profiles = CVFilterProfileInfo::allObjects();
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

#include "keywordverdicts.h"

#include "itemfields.h"

#include <algorithm>

void KeywordVerdicts::beginPass(const QString& pattern, const QList<LsofItem::Key>& keys,
                                qsizetype rows)
{
    ++m_pass;
    if (pattern != m_pattern || keys != m_keys) {
        m_verdicts.clear();
        m_pattern = pattern;
        m_keys = keys;
        m_readsTraffic = std::any_of(keys.cbegin(), keys.cend(), ItemFields::isTraffic);
    }
    // Rows that left the list take their verdicts with them, now and then.
    if (m_verdicts.size() > 2 * rows + 1024)
        m_verdicts.removeIf([this](const auto& kept) { return kept.value().pass + 1 < m_pass; });
}

std::optional<bool> KeywordVerdicts::find(const LsofItem& item, const QString& hostname)
{
    const auto kept = m_verdicts.find(&item);
    if (kept == m_verdicts.end() || kept->serial != item.serial() || kept->hostname != hostname ||
        kept->state != item.state() || kept->traffic != trafficOf(item))
        return std::nullopt;
    kept->pass = m_pass;
    return kept->passes;
}

void KeywordVerdicts::keep(const LsofItem& item, const QString& hostname, bool verdict)
{
    m_verdicts.insert(&item,
                      {item.serial(), item.state(), hostname, trafficOf(item), verdict, m_pass});
}

LsofItem::Traffic KeywordVerdicts::trafficOf(const LsofItem& item) const
{
    return m_readsTraffic ? item.traffic() : LsofItem::Traffic();
}

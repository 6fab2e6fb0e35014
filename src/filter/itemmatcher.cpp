#include "itemmatcher.h"

#include "itemfields.h"

#include <QVarLengthArray>

#include <algorithm>

using namespace Qt::StringLiterals;

ItemMatcher::ItemMatcher(const ItemFilter& filter) : m_filter(filter)
{
    if (const auto expression = filter.expression()) {
        m_expressionMode = true;
        auto parsed = Predicate::parse(*expression);
        if (auto* error = std::get_if<PredicateError>(&parsed))
            m_expressionError = std::move(*error);
        else
            m_predicate = std::get<Predicate>(std::move(parsed));
        return;
    }

    QString keyword = filter.searchText;
    keyword.replace(u',', u'|');
    if (!keyword.isEmpty()) {
        QRegularExpression regex(keyword, QRegularExpression::CaseInsensitiveOption);
        if (regex.isValid())
            m_keyword = std::move(regex);
        else
            m_keywordError = regex.errorString();
    }
    m_hideOtherProtocols = filter.hiddenProtocols.contains(u"Other"_s);
}

std::variant<bool, PredicateError> ItemMatcher::evaluate(const LsofItem& item,
                                                         MatchBudget* budget) const
{
    if (m_expressionMode) {
        if (!m_predicate)
            return true;
        return m_predicate->evaluate(item, budget);
    }
    if (!m_keywordError.isEmpty())
        return false;
    return passesKeyword(item, budget) && passesSegments(item);
}

bool ItemMatcher::matches(const LsofItem& item) const
{
    const auto verdict = evaluate(item);
    const bool* passes = std::get_if<bool>(&verdict);
    return !passes || *passes;
}

bool ItemMatcher::passesKeyword(const LsofItem& item, MatchBudget* budget) const
{
    if (!m_keyword)
        return true;
    if (budget && !budget->allows())
        return false;
    // NUL between the fields keeps a plain word from matching across two of them. The text
    // is assembled in one go into a buffer reused from item to item: appending field by field
    // into a fresh string took half of a keyword pass.
    QVarLengthArray<QString, 24> fields;
    qsizetype length = m_filter.keywordKeys.isEmpty() ? 0 : m_filter.keywordKeys.size() - 1;
    for (const LsofItem::Key key : m_filter.keywordKeys) {
        fields.append(ItemFields::text(item, key));
        length += fields.back().size();
    }
    thread_local QString joined;
    joined.resize(length);
    QChar* out = joined.data();
    for (qsizetype i = 0; i < fields.size(); ++i) {
        if (i > 0)
            *out++ = QChar(u'\0');
        out = std::copy(fields[i].cbegin(), fields[i].cend(), out);
    }
    return m_keyword->match(joined).hasMatch();
}

bool ItemMatcher::passesSegments(const LsofItem& item) const
{
    if (!m_filter.hiddenTypes.isEmpty() && m_filter.hiddenTypes.contains(item.type()))
        return false;
    if (!m_filter.hiddenProtocols.isEmpty()) {
        const QString protocol = item.protocol();
        if (m_filter.hiddenProtocols.contains(protocol))
            return false;
        if (m_hideOtherProtocols && protocol != u"TCP"_s && protocol != u"UDP"_s)
            return false;
    }
    return !m_filter.remoteOnly || !item.remoteAddress().isEmpty();
}

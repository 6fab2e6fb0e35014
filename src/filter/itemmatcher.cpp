#include "itemmatcher.h"

#include "itemfields.h"

#include <QVarLengthArray>

#include <algorithm>

using namespace Qt::StringLiterals;

ItemMatcher::ItemMatcher(const ItemFilter& filter, KeywordVerdicts* verdicts)
    : m_filter(filter), m_verdicts(verdicts)
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

bool ItemMatcher::passesEverything() const
{
    return !m_expressionMode && !m_keyword && m_keywordError.isEmpty() &&
           m_filter.hiddenTypes.isEmpty() && m_filter.hiddenProtocols.isEmpty() &&
           !m_filter.remoteOnly;
}

bool ItemMatcher::passesKeyword(const LsofItem& item, MatchBudget* budget) const
{
    if (!m_keyword)
        return true;
    if (budget && !budget->allows())
        return false;
    // Host names from the cache alone: filtering every row sends no row's address to DNS.
    const QString hostname = item.cachedRemoteHostname();
    if (!m_verdicts)
        return search(joinedText(item, hostname));
    if (const std::optional<bool> kept = m_verdicts->find(item, hostname))
        return *kept;
    const bool passes = search(joinedText(item, hostname));
    m_verdicts->keep(item, hostname, passes);
    return passes;
}

bool ItemMatcher::search(const QString& text) const
{
    // joinedText() hands out well-formed UTF-16 only, so the matcher's own check of every
    // subject (a third of the search) is skipped.
    return m_keyword
        ->match(text, 0, QRegularExpression::NormalMatch,
                QRegularExpression::DontCheckSubjectStringMatchOption)
        .hasMatch();
}

QString ItemMatcher::joinedText(const LsofItem& item, const QString& hostname) const
{
    // The fields an item holds for good are read in place; the others are made and kept here
    // while the text is copied together: one allocation per row, and no reference count moved
    // for a field read in place.
    QVarLengthArray<QStringView, 24> fields;
    QVarLengthArray<QString, 24> made;
    made.reserve(m_filter.keywordKeys.size()); // the views below point into it
    std::optional<LsofItem::Traffic> traffic;
    qsizetype length = 0;
    for (const LsofItem::Key key : m_filter.keywordKeys) {
        QStringView field;
        if (key == LsofItem::Key::remoteHostname) {
            field = hostname;
        } else if (const QString* fixed = item.fixedText(key)) {
            field = *fixed;
        } else if (ItemFields::isTraffic(key)) {
            if (!traffic)
                traffic = item.traffic();
            made.append(ItemFields::trafficText(*traffic, key));
            field = made.back();
        } else {
            made.append(keywordText(item, key));
            field = made.back();
        }
        fields.append(field);
        length += field.size() + 1;
    }
    // NUL between the fields keeps a plain word from matching across two of them.
    QString joined(std::max<qsizetype>(length - 1, 0), Qt::Uninitialized);
    QChar* out = joined.data();
    for (qsizetype i = 0; i < fields.size(); ++i) {
        if (i > 0)
            *out++ = QChar(u'\0');
        out = std::copy(fields[i].begin(), fields[i].end(), out);
    }
    // A field cut through a surrogate pair would leave half a character; searching such a
    // text unchecked is undefined, so the half becomes U+FFFD. Most texts hold no surrogate at
    // all, which a plain scan tells quickly.
    const char16_t* const units = reinterpret_cast<const char16_t*>(joined.constData());
    bool surrogates = false;
    for (qsizetype i = 0; i < joined.size(); ++i)
        surrogates |= (units[i] & 0xF800) == 0xD800;
    if (surrogates && !QStringView(joined).isValidUtf16()) {
        for (qsizetype i = 0; i < joined.size(); ++i) {
            const QChar c = joined.at(i);
            if (c.isHighSurrogate() && i + 1 < joined.size() && joined.at(i + 1).isLowSurrogate())
                ++i;
            else if (c.isSurrogate())
                joined[i] = QChar::ReplacementCharacter;
        }
    }
    return joined;
}

QString ItemMatcher::keywordText(const LsofItem& item, LsofItem::Key key) const
{
    switch (key) {
    case LsofItem::Key::processPath:
    case LsofItem::Key::localizedAppName: {
        // Asked once per process (its id and command name, which is what a process without a
        // record is named by) and pass: a process has many sockets, and a process that has
        // gone would otherwise be searched for in /proc for each of them.
        const QString process = item.processId() + u'\0' + item.processName();
        auto names = m_processNames.constFind(process);
        if (names == m_processNames.cend())
            names = m_processNames.insert(process, {item.processPath(), item.localizedAppName()});
        return key == LsofItem::Key::processPath ? names->path : names->appName;
    }
    default:
        return ItemFields::text(item, key);
    }
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

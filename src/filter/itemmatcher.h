#pragma once

#include "itemfilter.h"
#include "keywordverdicts.h"
#include "predicate.h"

#include <QHash>
#include <QRegularExpression>

#include <optional>
#include <variant>

// An ItemFilter made ready for many items: the expression parsed, or the keyword compiled,
// once. Cheap to keep for as long as the filter does not change.
class ItemMatcher final {
public:
    // `verdicts`, if given, keeps the keyword search's verdicts for the next pass.
    explicit ItemMatcher(const ItemFilter& filter, KeywordVerdicts* verdicts = nullptr);

    bool isExpressionMode() const { return m_expressionMode; }
    // Expression mode, refused expression: every item passes.
    const std::optional<PredicateError>& expressionError() const { return m_expressionError; }
    // Keyword mode, invalid pattern: no item passes.
    const QString& keywordError() const { return m_keywordError; }

    // Whether the item passes, or, in expression mode, why the expression could not be
    // evaluated against it. With a budget, an exhausted budget makes every regular-expression
    // match fail.
    std::variant<bool, PredicateError> evaluate(const LsofItem& item,
                                                MatchBudget* budget = nullptr) const;
    // evaluate() where an evaluation failure lets the item pass, as a refused expression does.
    bool matches(const LsofItem& item) const;
    // Whether every item passes whatever it holds: no pattern, no expression, nothing hidden.
    bool passesEverything() const;

private:
    bool passesKeyword(const LsofItem& item, MatchBudget* budget) const;
    bool passesSegments(const LsofItem& item) const;
    QString keywordText(const LsofItem& item, LsofItem::Key key) const;
    QString joinedText(const LsofItem& item, const QString& hostname) const;
    bool search(const QString& text) const;

    struct ProcessNames {
        QString path;
        QString appName;
    };

    ItemFilter m_filter;
    bool m_expressionMode = false;
    std::optional<Predicate> m_predicate;
    std::optional<PredicateError> m_expressionError;
    std::optional<QRegularExpression> m_keyword;
    QString m_keywordError;
    bool m_hideOtherProtocols = false;
    KeywordVerdicts* m_verdicts = nullptr;
    // Per matcher, by process id and command name.
    mutable QHash<QString, ProcessNames> m_processNames;
};

#pragma once

#include "matchbudget.h"
#include "predicateerror.h"
#include "snapshot/lsofitem.h"

#include <memory>
#include <variant>

struct PredicateNode;

// A parsed search expression over connection items, such as
//   processName BEGINSWITH[c] "fire" AND remotePortNumber IN {80, 443}
// The language is described in docs/predicates.md. A Predicate is an immutable value that is
// cheap to copy: copies share one parsed tree.
class Predicate final {
public:
    static std::variant<Predicate, PredicateError> parse(QStringView text);

    // Whether the item satisfies the predicate, or why it could not be decided (a regular
    // expression read from an item's field that does not compile). When a budget is given
    // and it runs out, regular-expression matches answer false from then on; the caller reads
    // budget->exhausted() to learn that the answer is not to be trusted.
    std::variant<bool, PredicateError> evaluate(const LsofItem& item,
                                                MatchBudget* budget = nullptr) const;
    // evaluate() with any failure counting as "no".
    bool matches(const LsofItem& item) const;

    const QString& text() const { return m_text; }

private:
    Predicate(std::shared_ptr<const PredicateNode> root, QString text)
        : m_root(std::move(root)), m_text(std::move(text))
    {
    }

    std::shared_ptr<const PredicateNode> m_root;
    QString m_text;
};

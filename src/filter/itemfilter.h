#pragma once

#include "matchbudget.h"
#include "predicateerror.h"
#include "snapshot/lsofitem.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

class KeywordVerdicts;

// What the main window (or the command line) asks of the connection list, as a plain value:
// the saved search chosen, the search field and its mode, and the toolbar's segments.
//
// The mode is decided in this order: a chosen saved search's expression wins over everything;
// else, with expression mode switched on, the search text is the expression; else the search
// text is a keyword. In expression mode the toolbar segments are not applied, and an
// expression that cannot be parsed or evaluated shows every item. In keyword mode every ","
// of the text becomes "|" and the result is searched, as a case-insensitive regular
// expression, in the texts of `keywordKeys` joined by NUL characters; a pattern that does not
// compile shows nothing. Then the type, protocol and remote-address segments apply.
struct ItemFilter {
    struct Result {
        LsofItemList items;
        // Expression mode: why the expression was refused. The items are then the input.
        std::optional<PredicateError> expressionError;
        // Keyword mode: why the keyword is no valid pattern. The items are then empty.
        QString keywordError;
        // The pass ran out of time for regular expressions; the items not yet examined were
        // left out.
        bool gaveUp = false;
    };

    std::optional<QString> profileExpression; // a chosen saved search: wins over everything
    bool useSearchExpression = false;         // expression mode switched on by the user
    QString searchText;                       // the search field's text
    QList<LsofItem::Key> keywordKeys = defaultKeywordKeys();
    QStringList hiddenTypes;     // labels of deselected type segments ("IPv4", "IPv6")
    QStringList hiddenProtocols; // deselected protocol segments ("TCP", "UDP", "Other")
    bool remoteOnly = false;     // the has-remote-address segment is selected

    // The keys of the table's columns, in layout order, hidden ones included.
    static QList<LsofItem::Key> defaultKeywordKeys();

    // The expression to evaluate, or nothing in keyword mode.
    std::optional<QString> expression() const;

    // The items that pass, in input order, and what went wrong on the way. The budget bounds
    // the time spent matching regular expressions in this pass. `verdicts` carries the keyword
    // search's verdicts from one pass over the same rows to the next.
    Result apply(const LsofItemList& items,
                 std::chrono::milliseconds budget = MatchBudget::kDefaultLimit,
                 KeywordVerdicts* verdicts = nullptr) const;
    LsofItemList filterItems(const LsofItemList& items) const { return apply(items).items; }
    // One item on its own; prefer apply() for lists, which parses and compiles only once.
    bool matches(const LsofItem& item) const;
};

#include "itemfilter.h"

#include "itemmatcher.h"
#include "snapshot/itemcolumns.h"

#include <algorithm>

QList<LsofItem::Key> ItemFilter::defaultKeywordKeys()
{
    QList<LsofItem::Key> keys;
    for (const ItemColumn& column : itemColumns())
        keys.append(column.key);
    return keys;
}

std::optional<QString> ItemFilter::expression() const
{
    if (profileExpression)
        return profileExpression;
    if (useSearchExpression)
        return searchText;
    return std::nullopt;
}

ItemFilter::Result ItemFilter::apply(const LsofItemList& items,
                                     std::chrono::milliseconds budgetLimit,
                                     KeywordVerdicts* verdicts) const
{
    Result result;
    if (verdicts)
        verdicts->beginPass(searchText, keywordKeys, items.size());
    const ItemMatcher matcher(*this, verdicts);
    if (matcher.expressionError()) {
        result.items = items;
        result.expressionError = matcher.expressionError();
        return result;
    }
    if (!matcher.keywordError().isEmpty()) {
        result.keywordError = matcher.keywordError();
        return result;
    }

    // Nothing to filter by: the same list, without reading a single item.
    if (matcher.passesEverything() &&
        std::none_of(items.cbegin(), items.cend(), [](const LsofItemPtr& item) { return !item; })) {
        result.items = items;
        return result;
    }

    MatchBudget budget(budgetLimit);
    result.items.reserve(items.size());
    for (const LsofItemPtr& item : items) {
        if (!item)
            continue;
        const auto verdict = matcher.evaluate(*item, &budget);
        if (const auto* error = std::get_if<PredicateError>(&verdict)) {
            result.items = items;
            result.expressionError = *error;
            return result;
        }
        // The verdict of the item during which time ran out is not to be trusted either.
        if (budget.exhausted()) {
            result.gaveUp = true;
            break;
        }
        if (std::get<bool>(verdict))
            result.items.append(item);
    }
    return result;
}

bool ItemFilter::matches(const LsofItem& item) const
{
    return ItemMatcher(*this).matches(item);
}

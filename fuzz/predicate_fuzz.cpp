// Parses the input as a search expression and evaluates it on fixed items: parsing answers a
// value or an error with a position inside the text, evaluation never crashes, and a
// negated expression answers the opposite wherever both are decided.

#include "filter/filtertestitems.h"
#include "filter/predicate.h"
#include "fuzzcheck.h"

using namespace Qt::StringLiterals;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const LsofItemList items = fixtureItems();
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size));
    const auto parsed = Predicate::parse(text);
    if (const auto* error = std::get_if<PredicateError>(&parsed)) {
        require(!error->error().isEmpty(), "error without a message");
        require(error->position() >= -1 && error->position() <= text.size(),
                "error position outside the text");
        return 0;
    }
    const Predicate& predicate = std::get<Predicate>(parsed);
    require(predicate.text() == text, "predicate forgot its text");

    const QString negatedText = u"NOT ("_s + text + u")"_s;
    const auto negatedParse = Predicate::parse(negatedText);
    const Predicate* negated = std::get_if<Predicate>(&negatedParse);
    for (const LsofItemPtr& item : items) {
        MatchBudget budget;
        const auto answer = predicate.evaluate(*item, &budget);
        if (const auto* error = std::get_if<PredicateError>(&answer))
            require(!error->error().isEmpty(), "evaluation error without a message");
        if (negated == nullptr || !std::holds_alternative<bool>(answer) || budget.exhausted())
            continue;
        MatchBudget negatedBudget;
        const auto opposite = negated->evaluate(*item, &negatedBudget);
        if (std::holds_alternative<bool>(opposite) && !negatedBudget.exhausted())
            require(std::get<bool>(opposite) == !std::get<bool>(answer),
                    "NOT (e) does not answer the opposite of e");
    }
    return 0;
}

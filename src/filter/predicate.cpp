#include "predicate.h"

#include "itemfields.h"
#include "predicatenode.h"
#include "predicateparser.h"
#include "textfolding.h"
#include "wildcardmatcher.h"

using namespace Qt::StringLiterals;

namespace {

using Op = PredicateNode::Operator;
using Type = PredicateParser::Type;

PredicateValue itemValue(const LsofItem& item, LsofItem::Key key)
{
    if (ItemFields::isNumeric(key)) {
        const auto number = ItemFields::number(item, key);
        return number ? PredicateValue(*number) : PredicateValue();
    }
    QString text = ItemFields::text(item, key);
    return text.isNull() ? PredicateValue() : PredicateValue(std::move(text));
}

int compareNumbers(const PredicateNumber& a, const PredicateNumber& b)
{
    if (a.isInteger && b.isInteger)
        return a.integer < b.integer ? -1 : (a.integer > b.integer ? 1 : 0);
    const double x = a.toDouble();
    const double y = b.toDouble();
    return x < y ? -1 : (x > y ? 1 : 0);
}

bool orderingHolds(Op op, int comparison)
{
    switch (op) {
    case Op::Less:
        return comparison < 0;
    case Op::LessEqual:
        return comparison <= 0;
    case Op::Greater:
        return comparison > 0;
    case Op::GreaterEqual:
        return comparison >= 0;
    default:
        return false;
    }
}

// Walks the tree for one item. The first failure stops the walk and is kept in m_error.
class Evaluator {
public:
    Evaluator(const LsofItem& item, MatchBudget* budget) : m_item(item), m_budget(budget) {}

    bool evaluate(const PredicateNode& node)
    {
        switch (node.kind) {
        case PredicateNode::Kind::True:
            return true;
        case PredicateNode::Kind::False:
            return false;
        case PredicateNode::Kind::Not:
            return !evaluate(*node.children.front());
        case PredicateNode::Kind::And:
            for (const auto& child : node.children) {
                if (!evaluate(*child) || m_error)
                    return false;
            }
            return true;
        case PredicateNode::Kind::Or:
            for (const auto& child : node.children) {
                if (evaluate(*child) || m_error)
                    return !m_error;
            }
            return false;
        case PredicateNode::Kind::Comparison:
            return compare(node);
        }
        return false;
    }

    std::optional<PredicateError> m_error;

private:
    PredicateValue operandValue(const PredicateOperand& operand) const
    {
        return operand.kind == PredicateOperand::Kind::Key ? itemValue(m_item, operand.key)
                                                           : operand.literal;
    }

    // [d] changes the text; [c] is left to Qt's case-insensitive comparisons, which fold
    // character by character without building new strings.
    static QString prepared(const QString& text, const PredicateNode& node)
    {
        return node.diacriticInsensitive ? TextFolding::withoutDiacritics(text) : text;
    }

    static Qt::CaseSensitivity sensitivity(const PredicateNode& node)
    {
        return node.caseInsensitive ? Qt::CaseInsensitive : Qt::CaseSensitive;
    }

    bool fail(const PredicateNode& node, const QString& message)
    {
        if (!m_error)
            m_error = PredicateError(message, node.position);
        return false;
    }

    bool equal(const PredicateValue& a, const PredicateValue& b, const PredicateNode& node) const
    {
        if (std::holds_alternative<std::monostate>(a) || std::holds_alternative<std::monostate>(b))
            return a.index() == b.index();
        if (const auto* x = std::get_if<PredicateNumber>(&a)) {
            const auto* y = std::get_if<PredicateNumber>(&b);
            return y && compareNumbers(*x, *y) == 0;
        }
        const auto* y = std::get_if<QString>(&b);
        if (!y)
            return false;
        const QString& x = std::get<QString>(a);
        if (!node.caseInsensitive && !node.diacriticInsensitive)
            return x == *y;
        return prepared(x, node).compare(prepared(*y, node), sensitivity(node)) == 0;
    }

    bool order(Op op, const PredicateValue& a, const PredicateValue& b, const PredicateNode& node)
    {
        if (std::holds_alternative<std::monostate>(a) || std::holds_alternative<std::monostate>(b))
            return false;
        const QString error =
            PredicateParser::typeError(op, PredicateParser::typeOf(a), PredicateParser::typeOf(b));
        if (!error.isEmpty())
            return fail(node, error);
        if (const auto* x = std::get_if<PredicateNumber>(&a))
            return orderingHolds(op, compareNumbers(*x, std::get<PredicateNumber>(b)));
        const QString x = prepared(std::get<QString>(a), node);
        return orderingHolds(op,
                             x.compare(prepared(std::get<QString>(b), node), sensitivity(node)));
    }

    bool stringOperation(const PredicateNode& node, const PredicateValue& a,
                         const PredicateValue& b)
    {
        if (std::holds_alternative<std::monostate>(a) || std::holds_alternative<std::monostate>(b))
            return false;
        const QString error = PredicateParser::typeError(node.op, PredicateParser::typeOf(a),
                                                         PredicateParser::typeOf(b));
        if (!error.isEmpty())
            return fail(node, error);
        const QString text = prepared(std::get<QString>(a), node);
        if (node.op == Op::Matches)
            return matchesPattern(node, text, std::get<QString>(b));
        const QString other = prepared(std::get<QString>(b), node);
        const Qt::CaseSensitivity cs = sensitivity(node);
        switch (node.op) {
        case Op::BeginsWith:
            return text.startsWith(other, cs);
        case Op::EndsWith:
            return text.endsWith(other, cs);
        case Op::Contains:
            return text.contains(other, cs);
        case Op::Like:
            return WildcardMatcher::matches(other, text, cs);
        case Op::In:
            return other.contains(text, cs);
        default:
            return false;
        }
    }

    bool matchesPattern(const PredicateNode& node, const QString& text, const QString& pattern)
    {
        if (m_budget && !m_budget->allows())
            return false;
        if (node.pattern)
            return node.pattern->match(text).hasMatch();
        // The pattern came from an item's field: compile it for this item.
        const QRegularExpression regex(
            QRegularExpression::anchoredPattern(
                node.diacriticInsensitive ? TextFolding::withoutDiacritics(pattern) : pattern),
            node.caseInsensitive ? QRegularExpression::CaseInsensitiveOption
                                 : QRegularExpression::NoPatternOption);
        if (!regex.isValid())
            return fail(node, u"Invalid regular expression “"_s % pattern % u"”: "_s %
                                  regex.errorString());
        return regex.match(text).hasMatch();
    }

    bool compare(const PredicateNode& node)
    {
        const PredicateValue left = operandValue(node.left);
        switch (node.op) {
        case Op::Equal:
            return equal(left, operandValue(node.right), node);
        case Op::NotEqual:
            return !equal(left, operandValue(node.right), node);
        case Op::Less:
        case Op::LessEqual:
        case Op::Greater:
        case Op::GreaterEqual:
            return order(node.op, left, operandValue(node.right), node);
        case Op::Between:
            return order(Op::GreaterEqual, left, node.right.list.at(0), node) &&
                   order(Op::LessEqual, left, node.right.list.at(1), node);
        case Op::In:
            if (node.right.kind == PredicateOperand::Kind::List) {
                for (const PredicateValue& element : node.right.list) {
                    if (equal(left, element, node))
                        return true;
                }
                return false;
            }
            return stringOperation(node, left, operandValue(node.right));
        case Op::BeginsWith:
        case Op::EndsWith:
        case Op::Contains:
        case Op::Like:
        case Op::Matches:
            return stringOperation(node, left, operandValue(node.right));
        }
        return false;
    }

    const LsofItem& m_item;
    MatchBudget* m_budget;
};

} // namespace

std::variant<Predicate, PredicateError> Predicate::parse(QStringView text)
{
    auto parsed = PredicateParser::parse(text);
    if (auto* error = std::get_if<PredicateError>(&parsed))
        return *error;
    return Predicate(std::get<std::shared_ptr<const PredicateNode>>(std::move(parsed)),
                     text.toString());
}

std::variant<bool, PredicateError> Predicate::evaluate(const LsofItem& item,
                                                       MatchBudget* budget) const
{
    Evaluator evaluator(item, budget);
    const bool result = evaluator.evaluate(*m_root);
    if (evaluator.m_error)
        return *evaluator.m_error;
    return result;
}

bool Predicate::matches(const LsofItem& item) const
{
    const auto result = evaluate(item);
    const bool* holds = std::get_if<bool>(&result);
    return holds && *holds;
}

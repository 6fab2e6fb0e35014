#include "predicate.h"

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
    const QVariant value = item.value(key);
    if (!value.isValid())
        return {};
    if (value.typeId() == QMetaType::LongLong)
        return PredicateNumber{true, value.toLongLong(), 0};
    return value.toString();
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

    QString folded(const QString& text, const PredicateNode& node) const
    {
        return TextFolding::fold(text, node.caseInsensitive, node.diacriticInsensitive);
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
        return folded(x, node) == folded(*y, node);
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
        return orderingHolds(
            op, folded(std::get<QString>(a), node).compare(folded(std::get<QString>(b), node)));
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
        const QString text = folded(std::get<QString>(a), node);
        if (node.op == Op::Matches)
            return matchesPattern(node, text, std::get<QString>(b));
        const QString other = folded(std::get<QString>(b), node);
        switch (node.op) {
        case Op::BeginsWith:
            return text.startsWith(other);
        case Op::EndsWith:
            return text.endsWith(other);
        case Op::Contains:
            return text.contains(other);
        case Op::Like:
            return WildcardMatcher::matches(other, text);
        case Op::In:
            return other.contains(text);
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

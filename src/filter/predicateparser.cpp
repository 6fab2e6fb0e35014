#include "predicateparser.h"

#include "itemfields.h"
#include "textfolding.h"

// Grammar (keywords in any case; "#" before a key name lets it be spelled like a keyword):
//
//   predicate  := or END
//   or         := and { ("OR" | "||") and }
//   and        := not { ("AND" | "&&") not }
//   not        := ("NOT" | "!") not | comparison
//   comparison := "(" or ")" | "TRUEPREDICATE" | "FALSEPREDICATE"
//               | primary operator [ "[c]" | "[d]" | "[cd]" ] primary
//   operator   := "=" | "==" | "!=" | "<>" | "<" | "<=" | "=<" | ">" | ">=" | "=>"
//               | "BEGINSWITH" | "ENDSWITH" | "CONTAINS" | "LIKE" | "MATCHES"
//               | "IN" | "BETWEEN"
//   primary    := key | literal | list
//   key        := IDENTIFIER | "#" IDENTIFIER
//   list       := "{" [ literal { "," literal } ] "}"
//   literal    := STRING | NUMBER | "TRUE" | "YES" | "FALSE" | "NO" | "NIL" | "NULL"

using namespace Qt::StringLiterals;

namespace {

using Op = PredicateNode::Operator;
using Kind = PredicateLexer::Kind;

std::optional<Op> operatorFor(Kind kind)
{
    switch (kind) {
    case Kind::Equal:
        return Op::Equal;
    case Kind::NotEqual:
        return Op::NotEqual;
    case Kind::Less:
        return Op::Less;
    case Kind::LessEqual:
        return Op::LessEqual;
    case Kind::Greater:
        return Op::Greater;
    case Kind::GreaterEqual:
        return Op::GreaterEqual;
    case Kind::BeginsWith:
        return Op::BeginsWith;
    case Kind::EndsWith:
        return Op::EndsWith;
    case Kind::Contains:
        return Op::Contains;
    case Kind::Like:
        return Op::Like;
    case Kind::Matches:
        return Op::Matches;
    case Kind::In:
        return Op::In;
    case Kind::Between:
        return Op::Between;
    default:
        return std::nullopt;
    }
}

bool isOrdering(Op op)
{
    return op == Op::Less || op == Op::LessEqual || op == Op::Greater || op == Op::GreaterEqual;
}

bool isStringOperator(Op op)
{
    return op == Op::BeginsWith || op == Op::EndsWith || op == Op::Contains || op == Op::Like ||
           op == Op::Matches;
}

// The key whose spelling differs from `name` only in case, for a helpful message.
QString keyDifferingInCase(const QString& name)
{
    for (const LsofItem::Key key : LsofItem::allKeys()) {
        const QString candidate = LsofItem::nameForKey(key);
        if (candidate.compare(name, Qt::CaseInsensitive) == 0)
            return candidate;
    }
    return {};
}

} // namespace

std::variant<std::shared_ptr<const PredicateNode>, PredicateError>
PredicateParser::parse(QStringView text)
{
    if (text.size() > kMaxExpressionLength)
        return PredicateError(u"The expression is longer than "_s +
                                  QString::number(kMaxExpressionLength) + u" characters"_s,
                              kMaxExpressionLength);
    auto tokens = PredicateLexer::tokenize(text);
    if (auto* error = std::get_if<PredicateError>(&tokens))
        return *error;
    PredicateParser parser(std::get<QList<Token>>(std::move(tokens)));
    if (parser.peek().kind == Kind::End)
        return PredicateError(u"The expression is empty"_s, 0);
    NodePtr root = parser.parseOr();
    if (root && parser.peek().kind != Kind::End)
        parser.failExpected(u"AND, OR or the end of the expression"_s);
    if (parser.m_error)
        return *parser.m_error;
    return std::shared_ptr<const PredicateNode>(std::move(root));
}

PredicateParser::NodePtr PredicateParser::parseOr()
{
    NodePtr first = parseAnd();
    if (!first || peek().kind != Kind::Or)
        return first;
    auto node = std::make_unique<PredicateNode>();
    node->kind = PredicateNode::Kind::Or;
    node->children.push_back(std::move(first));
    while (accept(Kind::Or)) {
        NodePtr next = parseAnd();
        if (!next)
            return nullptr;
        node->children.push_back(std::move(next));
    }
    return node;
}

PredicateParser::NodePtr PredicateParser::parseAnd()
{
    NodePtr first = parseNot();
    if (!first || peek().kind != Kind::And)
        return first;
    auto node = std::make_unique<PredicateNode>();
    node->kind = PredicateNode::Kind::And;
    node->children.push_back(std::move(first));
    while (accept(Kind::And)) {
        NodePtr next = parseNot();
        if (!next)
            return nullptr;
        node->children.push_back(std::move(next));
    }
    return node;
}

PredicateParser::NodePtr PredicateParser::parseNot()
{
    const qsizetype position = peek().position;
    if (!accept(Kind::Not))
        return parseComparison();
    if (++m_depth > kMaxNestingDepth) {
        fail(u"The expression is nested too deeply"_s, position);
        return nullptr;
    }
    NodePtr operand = parseNot();
    --m_depth;
    if (!operand)
        return nullptr;
    auto node = std::make_unique<PredicateNode>();
    node->kind = PredicateNode::Kind::Not;
    node->position = position;
    node->children.push_back(std::move(operand));
    return node;
}

PredicateParser::NodePtr PredicateParser::parseComparison()
{
    const Token& first = peek();
    if (first.kind == Kind::LeftParen) {
        if (++m_depth > kMaxNestingDepth) {
            fail(u"The expression is nested too deeply"_s, first.position);
            return nullptr;
        }
        advance();
        NodePtr inner = parseOr();
        --m_depth;
        if (!inner)
            return nullptr;
        if (!accept(Kind::RightParen)) {
            failExpected(u"“)”"_s);
            return nullptr;
        }
        return inner;
    }
    if (first.kind == Kind::TruePredicate || first.kind == Kind::FalsePredicate) {
        auto node = std::make_unique<PredicateNode>();
        node->kind = first.kind == Kind::TruePredicate ? PredicateNode::Kind::True
                                                       : PredicateNode::Kind::False;
        node->position = first.position;
        advance();
        return node;
    }

    auto node = std::make_unique<PredicateNode>();
    node->kind = PredicateNode::Kind::Comparison;
    auto left = parsePrimary();
    if (!left)
        return nullptr;
    node->left = std::move(*left);

    const Token& opToken = peek();
    const auto op = operatorFor(opToken.kind);
    if (!op) {
        failExpected(u"a comparison operator"_s);
        return nullptr;
    }
    node->op = *op;
    node->position = opToken.position;
    advance();
    if (peek().kind == Kind::Modifier) {
        node->caseInsensitive = peek().text.contains(u'c');
        node->diacriticInsensitive = peek().text.contains(u'd');
        advance();
    }

    auto right = parsePrimary();
    if (!right)
        return nullptr;
    node->right = std::move(*right);
    if (!checkComparison(*node))
        return nullptr;
    return node;
}

std::optional<PredicateOperand> PredicateParser::parsePrimary()
{
    const Token& token = peek();
    PredicateOperand operand;
    operand.position = token.position;
    if (token.kind == Kind::Identifier) {
        const auto key = LsofItem::keyForName(token.text);
        if (!key) {
            const QString suggestion = keyDifferingInCase(token.text);
            QString message = u"Unknown key “"_s % token.text % u'”';
            if (!suggestion.isEmpty())
                message += u"; did you mean “"_s % suggestion % u"”?"_s;
            fail(message, token.position);
            return std::nullopt;
        }
        operand.kind = PredicateOperand::Kind::Key;
        operand.key = *key;
        advance();
        return operand;
    }
    if (token.kind == Kind::LeftBrace)
        return parseList();
    auto literal = parseLiteral();
    if (!literal)
        return std::nullopt;
    operand.kind = PredicateOperand::Kind::Literal;
    operand.literal = std::move(*literal);
    return operand;
}

std::optional<PredicateOperand> PredicateParser::parseList()
{
    PredicateOperand operand;
    operand.kind = PredicateOperand::Kind::List;
    operand.position = peek().position;
    advance();
    if (accept(Kind::RightBrace))
        return operand;
    do {
        auto element = parseLiteral();
        if (!element)
            return std::nullopt;
        operand.list.append(std::move(*element));
    } while (accept(Kind::Comma));
    if (!accept(Kind::RightBrace)) {
        failExpected(u"“,” or “}”"_s);
        return std::nullopt;
    }
    return operand;
}

std::optional<PredicateValue> PredicateParser::parseLiteral()
{
    const Token& token = peek();
    PredicateValue value;
    switch (token.kind) {
    case Kind::String:
        value = token.text;
        break;
    case Kind::Number:
        value = PredicateNumber{token.isInteger, token.integer, token.number};
        break;
    case Kind::True:
        value = PredicateNumber{true, 1, 1};
        break;
    case Kind::False:
        value = PredicateNumber{true, 0, 0};
        break;
    case Kind::Nil:
        break;
    default:
        failExpected(u"a key name or a value"_s);
        return std::nullopt;
    }
    advance();
    return value;
}

bool PredicateParser::checkComparison(PredicateNode& node)
{
    const auto typeOfOperand = [](const PredicateOperand& operand) {
        switch (operand.kind) {
        case PredicateOperand::Kind::Key:
            return typeOfKey(operand.key);
        case PredicateOperand::Kind::Literal:
            return typeOf(operand.literal);
        case PredicateOperand::Kind::List:
            break;
        }
        return Type::List;
    };
    const Type left = typeOfOperand(node.left);
    const Type right = typeOfOperand(node.right);
    const bool listOperator = node.op == Op::In || node.op == Op::Between;
    if (left == Type::List || (right == Type::List && !listOperator)) {
        fail(u"A list may only stand right of IN or BETWEEN"_s,
             left == Type::List ? node.left.position : node.right.position);
        return false;
    }
    if (node.op == Op::Between) {
        if (right != Type::List || node.right.list.size() != 2) {
            fail(u"BETWEEN needs a list of two values: {low, high}"_s, node.right.position);
            return false;
        }
        for (const PredicateValue& bound : std::as_const(node.right.list)) {
            const QString error = typeError(Op::LessEqual, left, typeOf(bound));
            if (!error.isEmpty()) {
                fail(error, node.position);
                return false;
            }
        }
        return true;
    }
    if (right != Type::List) {
        const QString error = typeError(node.op, left, right);
        if (!error.isEmpty()) {
            fail(error, node.position);
            return false;
        }
    }
    if (node.op == Op::Matches && node.right.kind == PredicateOperand::Kind::Literal &&
        right == Type::Text) {
        QString pattern = std::get<QString>(node.right.literal);
        if (node.diacriticInsensitive)
            pattern = TextFolding::fold(pattern, false, true);
        QRegularExpression regex(QRegularExpression::anchoredPattern(pattern),
                                 node.caseInsensitive ? QRegularExpression::CaseInsensitiveOption
                                                      : QRegularExpression::NoPatternOption);
        if (!regex.isValid()) {
            fail(u"Invalid regular expression: "_s % regex.errorString(), node.right.position);
            return false;
        }
        node.pattern = std::move(regex);
    }
    return true;
}

bool PredicateParser::accept(Kind kind)
{
    if (peek().kind != kind)
        return false;
    advance();
    return true;
}

void PredicateParser::fail(const QString& message, qsizetype position)
{
    if (!m_error)
        m_error = PredicateError(message, position);
}

void PredicateParser::failExpected(const QString& expected)
{
    fail(u"Expected "_s % expected % u" but found "_s % PredicateLexer::describe(peek().kind),
         peek().position);
}

PredicateParser::Type PredicateParser::typeOfKey(LsofItem::Key key)
{
    return ItemFields::isNumeric(key) ? Type::Number : Type::Text;
}

PredicateParser::Type PredicateParser::typeOf(const PredicateValue& value)
{
    if (std::holds_alternative<QString>(value))
        return Type::Text;
    if (std::holds_alternative<PredicateNumber>(value))
        return Type::Number;
    return Type::Nil;
}

QString PredicateParser::typeError(Op op, Type left, Type right)
{
    if (left == Type::Nil || right == Type::Nil)
        return {};
    if (isOrdering(op) && left != right)
        return u"Cannot order a string against a number"_s;
    if (isStringOperator(op) && (left != Type::Text || right != Type::Text))
        return nameOf(op) % u" needs strings on both sides"_s;
    if (op == Op::In && (left != Type::Text || right != Type::Text))
        return u"IN needs a list, or strings on both sides"_s;
    return {};
}

QString PredicateParser::nameOf(Op op)
{
    switch (op) {
    case Op::Equal:
        return u"=="_s;
    case Op::NotEqual:
        return u"!="_s;
    case Op::Less:
        return u"<"_s;
    case Op::LessEqual:
        return u"<="_s;
    case Op::Greater:
        return u">"_s;
    case Op::GreaterEqual:
        return u">="_s;
    case Op::BeginsWith:
        return u"BEGINSWITH"_s;
    case Op::EndsWith:
        return u"ENDSWITH"_s;
    case Op::Contains:
        return u"CONTAINS"_s;
    case Op::Like:
        return u"LIKE"_s;
    case Op::Matches:
        return u"MATCHES"_s;
    case Op::In:
        return u"IN"_s;
    case Op::Between:
        return u"BETWEEN"_s;
    }
    return {};
}

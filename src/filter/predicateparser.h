#pragma once

#include "predicateerror.h"
#include "predicatelexer.h"
#include "predicatenode.h"

#include <memory>
#include <variant>

// Turns a predicate text into its tree, checking the types of every comparison on the way so
// that most mistakes are reported with the position they stand at. The grammar is written at
// the top of predicateparser.cpp.
class PredicateParser final {
public:
    // Longer texts are refused outright: nobody types them, and the parser stays cheap.
    static constexpr qsizetype kMaxExpressionLength = 4096;
    // Nesting of parentheses and NOTs; bounds the recursion of parsing and evaluation alike.
    static constexpr int kMaxNestingDepth = 64;

    enum class Type { Nil, Text, Number, List };

    static std::variant<std::shared_ptr<const PredicateNode>, PredicateError>
    parse(QStringView text);

    // The type an item's value under this key has when it is not null.
    static Type typeOfKey(LsofItem::Key key);
    static Type typeOf(const PredicateValue& value);
    // Why `left op right` cannot be evaluated, or an empty text when it can. Lists are checked
    // by the caller, element by element.
    static QString typeError(PredicateNode::Operator op, Type left, Type right);
    static QString nameOf(PredicateNode::Operator op);

private:
    using Token = PredicateLexer::Token;
    using Kind = PredicateLexer::Kind;
    using NodePtr = std::unique_ptr<PredicateNode>;

    explicit PredicateParser(QList<Token> tokens) : m_tokens(std::move(tokens)) {}

    // One function per grammar rule, loosest binding first.
    NodePtr parseOr();
    NodePtr parseAnd();
    NodePtr parseNot();
    NodePtr parseComparison();
    std::optional<PredicateOperand> parsePrimary();
    std::optional<PredicateOperand> parseList();
    std::optional<PredicateValue> parseLiteral();

    bool checkComparison(PredicateNode& node);
    const Token& peek() const { return m_tokens[m_index]; }
    const Token& advance() { return m_tokens[m_index < m_tokens.size() - 1 ? m_index++ : m_index]; }
    bool accept(Kind kind);
    void fail(const QString& message, qsizetype position);
    void failExpected(const QString& expected);

    QList<Token> m_tokens;
    qsizetype m_index = 0;
    int m_depth = 0;
    std::optional<PredicateError> m_error;
};

#pragma once

#include "snapshot/lsofitem.h"

#include <QList>
#include <QRegularExpression>
#include <QString>

#include <memory>
#include <optional>
#include <variant>
#include <vector>

// The tree a parsed predicate is made of. Built by PredicateParser, read by Predicate; nothing
// else sees it.

// A number keeps its integer exactness when it has one, so large process ids compare exactly.
struct PredicateNumber {
    bool isInteger = true;
    qint64 integer = 0;
    double real = 0;

    double toDouble() const { return isInteger ? double(integer) : real; }
};

// nil, a string or a number; TRUE/YES and FALSE/NO are the numbers 1 and 0.
using PredicateValue = std::variant<std::monostate, QString, PredicateNumber>;

struct PredicateOperand {
    enum class Kind { Key, Literal, List };

    Kind kind = Kind::Literal;
    qsizetype position = 0;
    LsofItem::Key key = LsofItem::Key::status;
    PredicateValue literal;
    QList<PredicateValue> list;
};

struct PredicateNode {
    enum class Kind { True, False, And, Or, Not, Comparison };
    enum class Operator {
        Equal,
        NotEqual,
        Less,
        LessEqual,
        Greater,
        GreaterEqual,
        BeginsWith,
        EndsWith,
        Contains,
        Like,
        Matches,
        In,
        Between,
    };

    Kind kind = Kind::True;
    std::vector<std::unique_ptr<PredicateNode>> children; // And, Or: two or more; Not: one

    Operator op = Operator::Equal;
    qsizetype position = 0; // of the operator
    bool caseInsensitive = false;
    bool diacriticInsensitive = false;
    PredicateOperand left;
    PredicateOperand right;
    // MATCHES against a literal pattern is compiled once, when the predicate is parsed.
    std::optional<QRegularExpression> pattern;
};

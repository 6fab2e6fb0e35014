#pragma once

#include "predicateerror.h"

#include <QList>
#include <QString>

#include <variant>

// Cuts a predicate text into tokens. Keywords are recognised without regard to case; a word
// that is no keyword is an identifier (a key name), and "#word" is always an identifier, so
// a key that happens to be spelled like a keyword stays reachable.
class PredicateLexer final {
public:
    enum class Kind {
        End,
        Identifier,
        String,
        Number,
        LeftParen,
        RightParen,
        LeftBrace,
        RightBrace,
        Comma,
        Modifier, // "[c]", "[d]", "[cd]": text holds the letters
        Equal,
        NotEqual,
        Less,
        LessEqual,
        Greater,
        GreaterEqual,
        And,
        Or,
        Not,
        BeginsWith,
        EndsWith,
        Contains,
        Like,
        Matches,
        In,
        Between,
        True,
        False,
        Nil,
        TruePredicate,
        FalsePredicate,
    };

    struct Token {
        Kind kind = Kind::End;
        qsizetype position = 0;
        QString text; // identifiers and strings: the name or the unescaped text
        double number = 0;
        bool isInteger = false;
        qint64 integer = 0;
    };

    // The whole token list, ending with one End token, or the first lexical error.
    static std::variant<QList<Token>, PredicateError> tokenize(QStringView text);

    // How a token kind reads in an error message ("AND", "a string", "the end").
    static QString describe(Kind kind);
};

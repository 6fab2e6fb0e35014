#pragma once

#include <QStringView>

// LIKE patterns: "*" stands for any run of characters, "?" for exactly one, and a backslash
// makes the next character literal. Matched without a regular-expression engine, in at most
// pattern length × text length steps, so no pattern can make a filter pass hang.
class WildcardMatcher final {
public:
    static bool matches(QStringView pattern, QStringView text,
                        Qt::CaseSensitivity cs = Qt::CaseSensitive);
};

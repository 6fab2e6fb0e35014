#pragma once

#include <QString>

// What went wrong with a predicate: a sentence for the user and, when the fault lies in the
// text, the 0-based character position it was found at (-1 when it has none, such as a
// failure while evaluating against an item).
class PredicateError final {
public:
    PredicateError() = default;
    PredicateError(QString message, qsizetype position)
        : m_message(std::move(message)), m_position(position)
    {
    }

    const QString& error() const { return m_message; }
    qsizetype position() const { return m_position; }
    // "message (at character N)", positions counted from 1 as a reader counts them.
    QString toString() const;

    friend bool operator==(const PredicateError&, const PredicateError&) = default;

private:
    QString m_message;
    qsizetype m_position = -1;
};

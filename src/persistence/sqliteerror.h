#pragma once

#include <QString>

#include <stdexcept>

// The one exception of the persistence layer. The manager raises it for a failed open or
// statement; its text is the description a user or log reader sees.
class SQLiteError final : public std::runtime_error {
public:
    explicit SQLiteError(const QString& message)
        : std::runtime_error(message.toStdString()), m_message(message)
    {
    }
    QString message() const { return m_message; }

private:
    QString m_message;
};

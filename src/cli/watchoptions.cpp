#include "watchoptions.h"

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 kMaxInterval = 86400;

// Walks the arguments, handing out option values.
class ArgumentCursor {
public:
    explicit ArgumentCursor(const QStringList& arguments) : m_arguments(arguments) {}

    bool atEnd() const { return m_next >= m_arguments.size(); }
    const QString& take() { return m_arguments[m_next++]; }
    // The value of `option`, or the message saying it is missing.
    std::optional<QString> value(const QString& option, QString* out)
    {
        if (atEnd())
            return u"option %1 needs a value"_s.arg(option);
        *out = take();
        return std::nullopt;
    }

private:
    const QStringList& m_arguments;
    qsizetype m_next = 0;
};

// A whole number from `low` to `high` for `option`, or `problem`.
std::optional<QString> readNumber(ArgumentCursor& cursor, const QString& option, qint64 low,
                                  qint64 high, const QString& problem, qint64* out)
{
    QString text;
    if (auto error = cursor.value(option, &text))
        return error;
    bool ok = false;
    *out = text.toLongLong(&ok);
    if (!ok || *out < low || *out > high)
        return problem;
    return std::nullopt;
}

std::optional<QString> readInterval(ArgumentCursor& cursor, WatchOptions& options)
{
    qint64 seconds = 0;
    auto error =
        readNumber(cursor, u"--interval"_s, 1, kMaxInterval,
                   u"--interval takes whole seconds from 1 to %1"_s.arg(kMaxInterval), &seconds);
    if (!error)
        options.interval = seconds;
    return error;
}

std::optional<QString> readFormat(ArgumentCursor& cursor, WatchOptions& options)
{
    QString name;
    if (auto error = cursor.value(u"--format"_s, &name))
        return error;
    const auto format = ItemPrinter::formatForName(name);
    if (!format)
        return u"unknown format '%1' (table, csv or json)"_s.arg(name);
    options.format = *format;
    return std::nullopt;
}

std::optional<QString> readTop(ArgumentCursor& cursor, WatchOptions& options)
{
    qint64 count = 0;
    auto error = readNumber(cursor, u"--top"_s, 1, 1000,
                            u"--top takes a number of connections from 1 to 1000"_s, &count);
    if (!error)
        options.top = int(count);
    return error;
}

std::optional<QString> readSource(ArgumentCursor& cursor, QString* source)
{
    if (auto error = cursor.value(u"--source"_s, source))
        return error;
    if (*source != u"native" && *source != u"lsof")
        return u"--source takes native or lsof"_s;
    return std::nullopt;
}

} // namespace

std::optional<QString> WatchOptions::parse(const QStringList& arguments, WatchOptions& options)
{
    ArgumentCursor cursor(arguments);
    while (!cursor.atEnd()) {
        const QString option = cursor.take();
        std::optional<QString> error;
        if (option == u"--interval")
            error = readInterval(cursor, options);
        else if (option == u"--format")
            error = readFormat(cursor, options);
        else if (option == u"--helper-socket")
            error = cursor.value(option, &options.helperSocket);
        else if (option == u"--no-resolve")
            options.noResolve = true;
        else if (option == u"--source")
            error = readSource(cursor, &options.source);
        else if (option == u"--host")
            error = cursor.value(option, &options.host);
        else if (option == u"--top")
            error = readTop(cursor, options);
        else if (option == u"--metrics-file")
            error = cursor.value(option, &options.metricsFile);
        else if (option.startsWith(u'-') && option.size() > 1)
            return u"unknown option '%1'"_s.arg(option);
        else
            return u"unexpected argument '%1'"_s.arg(option);
        if (error)
            return error;
    }
    return std::nullopt;
}

#include "commandline.h"

#include "helpercommand.h"
#include "itemprinter.h"
#include "snapshot/lsoffetcher.h"

#include <QFile>
#include <QStringDecoder>

#include <optional>

using namespace Qt::StringLiterals;

namespace {

constexpr int kExitOk = 0;
constexpr int kExitUnreadable = 1;
constexpr int kExitUsage = 2;

const QStringList kVerbs = {u"replay"_s, u"list"_s, u"helper"_s};

// Options shared by `list` and `replay`.
struct ListOptions {
    ItemPrinter::Format format = ItemPrinter::Format::Table;
    QString input;
    bool hasInput = false;
    QStringList files;
};

// Reads a whole file ("-" is standard input). Bytes that are not UTF-8 give a null text, which
// parses to an empty list, as lsof output that cannot be decoded does.
std::optional<QString> readText(const QString& path, QString* error)
{
    QFile file;
    bool opened = false;
    if (path == u"-")
        opened = file.open(stdin, QIODevice::ReadOnly);
    else {
        file.setFileName(path);
        opened = file.open(QIODevice::ReadOnly);
    }
    if (!opened) {
        *error = u"cannot read %1: %2"_s.arg(path, file.errorString());
        return std::nullopt;
    }
    const QByteArray bytes = file.readAll();
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return QString();
    return text;
}

} // namespace

bool CommandLine::isCommand(const QStringList& arguments)
{
    return !arguments.isEmpty() && kVerbs.contains(arguments.first());
}

int CommandLine::usageError(const QString& message)
{
    m_err << "corvina: " << message << '\n';
    m_err.flush();
    return kExitUsage;
}

int CommandLine::run(const QStringList& arguments)
{
    if (arguments.isEmpty())
        return usageError(u"missing command; one of: "_s + kVerbs.join(u", "_s));
    const QString verb = arguments.first();
    const QStringList rest = arguments.mid(1);
    if (verb == u"replay")
        return replay(rest);
    if (verb == u"list")
        return list(rest);
    if (verb == u"helper")
        return runHelperCommand(rest, m_out, m_err);
    return usageError(u"unknown command '%1'"_s.arg(verb));
}

namespace {

// Parses the options common to `list` and `replay`; positional arguments go to `files`.
std::optional<QString> parseListOptions(const QStringList& arguments, ListOptions& options)
{
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& arg = arguments[i];
        const auto next = [&](QString* value) -> std::optional<QString> {
            if (i + 1 >= arguments.size())
                return u"option %1 needs a value"_s.arg(arg);
            *value = arguments[++i];
            return std::nullopt;
        };
        QString value;
        if (arg == u"--format") {
            if (auto error = next(&value))
                return error;
            const auto format = ItemPrinter::formatForName(value);
            if (!format)
                return u"unknown format '%1' (table, csv or json)"_s.arg(value);
            options.format = *format;
        } else if (arg == u"--input") {
            if (auto error = next(&value))
                return error;
            options.input = value;
            options.hasInput = true;
        } else if (arg.startsWith(u"--") || (arg.startsWith(u'-') && arg.size() > 1)) {
            return u"unknown option '%1'"_s.arg(arg);
        } else {
            options.files << arg;
        }
    }
    return std::nullopt;
}

} // namespace

int CommandLine::replay(const QStringList& arguments)
{
    ListOptions options;
    if (auto error = parseListOptions(arguments, options))
        return usageError(*error);
    if (options.hasInput)
        return usageError(u"replay takes files, not --input"_s);
    if (options.files.isEmpty())
        return usageError(u"replay needs at least one lsof output file"_s);

    LsofFetcher fetcher;
    ItemPrinter printer(m_out, options.format);
    for (qsizetype index = 0; index < options.files.size(); ++index) {
        QString error;
        const std::optional<QString> text = readText(options.files[index], &error);
        if (!text) {
            m_err << "corvina: " << error << '\n';
            m_err.flush();
            return kExitUnreadable;
        }
        LsofItemList items = fetcher.parseLsofResult(*text);
        fetcher.processLsofItemsChanges(items);
        printer.print(items, int(index));
    }
    return kExitOk;
}

int CommandLine::list(const QStringList& arguments)
{
    ListOptions options;
    if (auto error = parseListOptions(arguments, options))
        return usageError(*error);
    if (!options.files.isEmpty())
        return usageError(u"unexpected argument '%1'"_s.arg(options.files.first()));
    if (!options.hasInput)
        return usageError(u"live snapshots are not available yet; use --input FILE"_s);

    QString error;
    const std::optional<QString> text = readText(options.input, &error);
    if (!text) {
        m_err << "corvina: " << error << '\n';
        m_err.flush();
        return kExitUnreadable;
    }
    LsofFetcher fetcher;
    LsofItemList items = fetcher.parseLsofResult(*text);
    fetcher.processLsofItemsChanges(items);
    ItemPrinter(m_out, options.format).print(items);
    return kExitOk;
}

#include "commandline.h"

#include "changes/changereporter.h"
#include "changes/connectionlog.h"
#include "helpercommand.h"
#include "itemprinter.h"
#include "platform/systemlog.h"
#include "prefs/cvprefshelper.h"
#include "prefs/prefkeys.h"
#include "prefs/userdefaults.h"
#include "profilescommand.h"
#include "settingscommand.h"
#include "snapshot/lsoffetcher.h"

#include <QFile>
#include <QStringDecoder>
#include <QThread>

#include <atomic>
#include <csignal>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

constexpr int kExitOk = 0;
constexpr int kExitUnreadable = 1;
constexpr int kExitUsage = 2;

const QStringList kVerbs = {u"replay"_s,   u"list"_s,     u"watch"_s,
                            u"settings"_s, u"profiles"_s, u"helper"_s};

std::atomic<bool> stopRequested{false};

void requestStop(int)
{
    stopRequested.store(true);
}

// Options shared by `list` and `replay`.
struct ListOptions {
    ItemPrinter::Format format = ItemPrinter::Format::Table;
    QString input;
    bool hasInput = false;
    bool noLog = false;
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
    if (verb == u"watch")
        return watch(rest);
    if (verb == u"settings")
        return runSettingsCommand(rest, m_out, m_err);
    if (verb == u"profiles")
        return runProfilesCommand(rest, m_out, m_err);
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
        } else if (arg == u"--no-log") {
            options.noLog = true;
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
    // Replayed passes are reported as the settings ask, into the same logs as live ones.
    std::optional<ConnectionLog> log;
    std::optional<ChangeReporter> reporter;
    if (!options.noLog) {
        CVPrefsHelper& prefs = CVPrefsHelper::sharedHelper();
        log.emplace(prefs);
        reporter.emplace(prefs, *log);
        fetcher.setReporter(&*reporter);
    }
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
    LsofFetcher fetcher;
    LsofItemList items;
    if (options.hasInput) {
        QString error;
        const std::optional<QString> text = readText(options.input, &error);
        if (!text) {
            m_err << "corvina: " << error << '\n';
            m_err.flush();
            return kExitUnreadable;
        }
        items = fetcher.parseLsofResult(*text);
        fetcher.processLsofItemsChanges(items);
    } else {
        fetcher.getCurrentItemsWithCompletion([&](const LsofItemList& result) { items = result; });
        if (items.isEmpty() && !fetcher.lastProblem().isEmpty()) {
            m_err << "corvina: " << fetcher.lastProblem() << '\n';
            m_err.flush();
            return kExitUnreadable;
        }
    }
    ItemPrinter(m_out, options.format).print(items);
    return kExitOk;
}

int CommandLine::watch(const QStringList& arguments)
{
    CVPrefsHelper& prefs = CVPrefsHelper::sharedHelper();
    qint64 interval =
        std::max<qint64>(1, prefs.defaultsStore().integerForKey(PrefKeys::AutoRefreshSetting));
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == u"--interval" && i + 1 < arguments.size()) {
            bool ok = false;
            interval = arguments[++i].toLongLong(&ok);
            if (!ok || interval < 1 || interval > 86400)
                return usageError(u"--interval takes whole seconds from 1 to 86400"_s);
        } else {
            return usageError(u"unknown option '%1'"_s.arg(arguments[i]));
        }
    }

    LsofFetcher fetcher;
    ConnectionLog log(prefs);
    ChangeReporter reporter(prefs, log);
    reporter.setConsoleEcho([this](const QString& message) {
        m_out << message << "\n\n";
        m_out.flush();
    });
    fetcher.setReporter(&reporter);
    SystemLog::setEcho([this](const QString& message) {
        m_err << "corvina: " << message << '\n';
        m_err.flush();
    });

    stopRequested.store(false);
    std::signal(SIGINT, requestStop);
    std::signal(SIGTERM, requestStop);
    m_err << "corvina: watching connections every " << interval << " s; Ctrl-C ends.\n";
    m_err.flush();

    QString shownProblem;
    while (!stopRequested.load()) {
        LsofItemList items;
        fetcher.getCurrentItemsWithCompletion([&](const LsofItemList& result) { items = result; });
        // Say what went wrong once, not at every pass.
        const QString problem = items.isEmpty() ? fetcher.lastProblem() : QString();
        if (problem != shownProblem && !problem.isEmpty()) {
            m_err << "corvina: " << problem << '\n';
            m_err.flush();
        }
        shownProblem = problem;
        for (qint64 waited = 0; waited < interval * 10 && !stopRequested.load(); ++waited)
            QThread::msleep(100);
    }
    log.close();
    SystemLog::setEcho({});
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    return kExitOk;
}

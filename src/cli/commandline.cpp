#include "commandline.h"

#include "changes/changereporter.h"
#include "changes/connectionlog.h"
#include "helpercommand.h"
#include "itemprinter.h"
#include "listoptions.h"
#include "persistence/sqliteerror.h"
#include "platform/systemlog.h"
#include "prefs/cvfilterprofileinfo.h"
#include "prefs/cvprefshelper.h"
#include "prefs/prefkeys.h"
#include "prefs/userdefaults.h"
#include "profilescommand.h"
#include "settingscommand.h"
#include "snapshot/hostnameresolver.h"
#include "snapshot/lsoffetcher.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QThread>

#include <atomic>
#include <csignal>
#include <future>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

constexpr int kExitOk = 0;
constexpr int kExitUnreadable = 1;
constexpr int kExitUsage = 2;
// How long `list` waits for reverse look-ups before it prints what it has.
constexpr int kResolveWaitMs = 2000;

const QStringList kVerbs = {u"replay"_s,   u"list"_s,     u"watch"_s,
                            u"settings"_s, u"profiles"_s, u"helper"_s};

const QStringList kHelpWords = {u"help"_s, u"--help"_s, u"-h"_s};

const char* const kUsage =
    "Usage: corvina [VERB [OPTIONS]]\n"
    "\n"
    "Without a verb, the desktop application starts (with no display, 'watch' runs).\n"
    "\n"
    "  watch [--interval S] [--helper-socket PATH] [--no-resolve]\n"
    "                         the refresh cycle in a terminal, printing each pass's changes\n"
    "  list [OPTIONS]         one snapshot, filtered, printed\n"
    "  replay [OPTIONS] FILE...\n"
    "                         saved lsof outputs through parsing, change detection, reporting\n"
    "  profiles list | add NAME EXPRESSION | delete PK\n"
    "  settings list | get KEY | set KEY VALUE | reset KEY\n"
    "  helper status | install | remove-instructions\n"
    "\n"
    "Options of list and replay:\n"
    "  --format table|csv|json   --input FILE (list; - for standard input)\n"
    "  --keyword TEXT   --filter EXPRESSION   --profile NAME\n"
    "  --hide-type IPv4|IPv6   --hide-protocol TCP|UDP|Other   --remote-only\n"
    "  --no-resolve   --no-log (replay)   --helper-socket PATH (list)\n"
    "\n"
    "Exit status: 0 success, 1 an input could not be read, 2 bad usage.\n"
    "See man corvina and docs/predicates.md for the expression language.\n";

std::atomic<bool> stopRequested{false};

void requestStop(int)
{
    stopRequested.store(true);
}

// Reads a whole file ("-" is standard input) as lsof's output. Bytes that are not UTF-8 give a
// null output, which parses to an empty list, as lsof output that cannot be decoded does.
std::optional<QByteArray> readOutput(const QString& path, QString* error)
{
    QFile file;
    bool opened = false;
    if (path == u"-") {
        opened = file.open(stdin, QIODevice::ReadOnly);
    } else {
        file.setFileName(path);
        opened = file.open(QIODevice::ReadOnly);
    }
    if (!opened) {
        *error = u"cannot read %1: %2"_s.arg(path, file.errorString());
        return std::nullopt;
    }
    const QByteArray bytes = file.readAll();
    if (!bytes.isValidUtf8())
        return QByteArray();
    return bytes;
}

AcquisitionRoads::HelperChoice helperChoice(const ListOptions& options)
{
    AcquisitionRoads::HelperChoice choice;
    choice.mode = options.helperSocket.isEmpty() ? AcquisitionRoads::HelperChoice::Mode::Auto
                                                 : AcquisitionRoads::HelperChoice::Mode::Socket;
    choice.socketPath = options.helperSocket;
    return choice;
}

// One acquisition, waited for: on the helper road the answer comes on another thread.
LsofItemList acquire(LsofFetcher& fetcher)
{
    std::promise<LsofItemList> done;
    std::future<LsofItemList> result = done.get_future();
    fetcher.getCurrentItemsWithCompletion(
        [&done](const LsofItemList& items) { done.set_value(items); });
    return result.get();
}

} // namespace

bool CommandLine::isCommand(const QStringList& arguments)
{
    return !arguments.isEmpty() &&
           (kVerbs.contains(arguments.first()) || kHelpWords.contains(arguments.first()) ||
            arguments.first() == u"--version");
}

int CommandLine::usageError(const QString& message)
{
    m_err << "corvina: " << message << '\n';
    m_err.flush();
    return kExitUsage;
}

int CommandLine::failure(const QString& message)
{
    m_err << "corvina: " << message << '\n';
    m_err.flush();
    return kExitUnreadable;
}

int CommandLine::run(const QStringList& arguments)
{
    if (arguments.isEmpty())
        return usageError(u"missing command; one of: "_s + kVerbs.join(u", "_s));
    const QString verb = arguments.first();
    const QStringList rest = arguments.mid(1);
    if (kHelpWords.contains(verb)) {
        m_out << kUsage;
        m_out.flush();
        return kExitOk;
    }
    if (verb == u"--version") {
        m_out << "corvina " << CORVINA_VERSION << '\n';
        m_out.flush();
        return kExitOk;
    }
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

std::optional<int> CommandLine::prepareFilter(const ListOptions& options, ItemFilter* filter)
{
    std::optional<QString> profileExpression;
    if (!options.profile.isEmpty()) {
        // The database lies in the application's data folder, which we create at this edge.
        QDir().mkpath(QStandardPaths::writableLocation(QStandardPaths::AppDataLocation));
        try {
            const auto profiles = CVFilterProfileInfo::allObjects();
            for (const auto& profile : profiles) {
                if (profile->profileName() == options.profile) {
                    // A saved search without an expression still wins, and shows everything.
                    profileExpression =
                        profile->searchExpression().isNull() ? u""_s : profile->searchExpression();
                    break;
                }
            }
        } catch (const SQLiteError& error) {
            return failure(u"the saved searches cannot be read: %1"_s.arg(error.message()));
        }
        if (!profileExpression)
            return usageError(u"no saved search is named '%1'"_s.arg(options.profile));
    }
    *filter = options.filter(profileExpression);
    return std::nullopt;
}

void CommandLine::reportFilterProblems(const ItemFilter::Result& result)
{
    if (result.expressionError)
        m_err << "corvina: the expression is not valid, so nothing is filtered: "
              << result.expressionError->toString() << '\n';
    if (!result.keywordError.isEmpty())
        m_err << "corvina: the keyword is not a valid pattern: " << result.keywordError << '\n';
    if (result.gaveUp)
        m_err << "corvina: the pattern took too long; rows not yet examined are left out\n";
    m_err.flush();
}

int CommandLine::replay(const QStringList& arguments)
{
    ListOptions options;
    if (auto error =
            ListOptions::parse(arguments,
                               ListOptions::Format | ListOptions::Filters | ListOptions::NoLog |
                                   ListOptions::NoResolve | ListOptions::Files,
                               options))
        return usageError(*error);
    if (options.files.isEmpty())
        return usageError(u"replay needs at least one lsof output file"_s);
    ItemFilter filter;
    if (auto exit = prepareFilter(options, &filter))
        return *exit;
    HostnameResolver::setEnabled(!options.noResolve);

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
    bool warned = false;
    for (qsizetype index = 0; index < options.files.size(); ++index) {
        QString error;
        const std::optional<QByteArray> output = readOutput(options.files[index], &error);
        if (!output)
            return failure(error);
        LsofItemList items = fetcher.parseLsofOutput(*output);
        fetcher.processLsofItemsChanges(items);
        const ItemFilter::Result result = filter.apply(items);
        if (!warned && (result.expressionError || !result.keywordError.isEmpty())) {
            reportFilterProblems(result);
            warned = true;
        }
        printer.print(result.items, int(index));
    }
    return kExitOk;
}

int CommandLine::list(const QStringList& arguments)
{
    ListOptions options;
    if (auto error =
            ListOptions::parse(arguments,
                               ListOptions::Format | ListOptions::Input | ListOptions::Filters |
                                   ListOptions::NoResolve | ListOptions::HelperSocket,
                               options))
        return usageError(*error);
    ItemFilter filter;
    if (auto exit = prepareFilter(options, &filter))
        return *exit;
    HostnameResolver::setEnabled(!options.noResolve);

    LsofFetcher fetcher;
    LsofItemList items;
    if (options.hasInput) {
        QString error;
        const std::optional<QByteArray> output = readOutput(options.input, &error);
        if (!output)
            return failure(error);
        items = fetcher.parseLsofOutput(*output);
        fetcher.processLsofItemsChanges(items);
    } else {
        fetcher.setRoads(AcquisitionRoads::system(helperChoice(options)));
        items = acquire(fetcher);
        if (items.isEmpty() && !fetcher.lastProblem().isEmpty())
            return failure(fetcher.lastProblem());
    }

    const ItemFilter::Result result = filter.apply(items);
    if (result.expressionError || !result.keywordError.isEmpty() || result.gaveUp)
        reportFilterProblems(result);
    if (!options.noResolve) {
        // Start every look-up, give them a moment, then print what is known.
        for (const LsofItemPtr& item : result.items)
            item->remoteHostname();
        HostnameResolver::sharedResolver().waitForIdle(kResolveWaitMs);
    }
    ItemPrinter(m_out, options.format).print(result.items);
    return kExitOk;
}

int CommandLine::watch(const QStringList& arguments)
{
    ListOptions options;
    if (auto error = ListOptions::parse(
            arguments, ListOptions::Interval | ListOptions::HelperSocket | ListOptions::NoResolve,
            options))
        return usageError(*error);
    HostnameResolver::setEnabled(!options.noResolve);
    CVPrefsHelper& prefs = CVPrefsHelper::sharedHelper();
    const qint64 interval = options.interval.value_or(
        std::max<qint64>(1, prefs.defaultsStore().integerForKey(PrefKeys::AutoRefreshSetting)));

    LsofFetcher fetcher;
    fetcher.setRoads(AcquisitionRoads::system(helperChoice(options)));
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
        const LsofItemList items = acquire(fetcher);
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

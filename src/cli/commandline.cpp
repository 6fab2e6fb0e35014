#include "commandline.h"

#include "changes/changereporter.h"
#include "changes/connectionlog.h"
#include "cliacquisition.h"
#include "closecommand.h"
#include "helpercommand.h"
#include "itemprinter.h"
#include "listoptions.h"
#include "persistence/sqliteerror.h"
#include "platform/systemlog.h"
#include "prefs/cvfilterprofileinfo.h"
#include "prefs/cvprefshelper.h"
#include "profilescommand.h"
#include "settingscommand.h"
#include "snapshot/hostnameresolver.h"
#include "snapshot/lsoffetcher.h"
#include "socketscommand.h"
#include "verbusage.h"
#include "watchcommand.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>

#include <algorithm>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

constexpr int kExitOk = 0;
constexpr int kExitUnreadable = 1;
constexpr int kExitUsage = 2;
// How long `list` waits for reverse look-ups before it prints what it has.
constexpr int kResolveWaitMs = 2000;

const QStringList kVerbs = {u"replay"_s,   u"list"_s,   u"watch"_s,   u"settings"_s,
                            u"profiles"_s, u"helper"_s, u"sockets"_s, u"close"_s};

const QStringList kHelpWords = {u"help"_s, u"--help"_s, u"-h"_s};

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
        m_out << VerbUsage::general();
        m_out.flush();
        return kExitOk;
    }
    // These two answer their own --help.
    if (verb == u"sockets")
        return SocketsCommand::run(rest, m_out, m_err);
    if (verb == u"close")
        return CloseCommand::run(rest, m_out, m_err);
    // Anywhere after a verb, a help word asks for that verb's usage.
    if (kVerbs.contains(verb) && std::any_of(rest.begin(), rest.end(), [](const QString& word) {
            return word == u"--help" || word == u"-h";
        })) {
        m_out << VerbUsage::forVerb(verb);
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
        return runWatchCommand(rest, m_out, m_err);
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
    if (auto error = ListOptions::parse(
            arguments,
            ListOptions::Format | ListOptions::Input | ListOptions::Filters | ListOptions::NoLog |
                ListOptions::NoResolve | ListOptions::HelperSocket | ListOptions::Source,
            options))
        return usageError(*error);
    ItemFilter filter;
    if (auto exit = prepareFilter(options, &filter))
        return *exit;
    HostnameResolver::setEnabled(!options.noResolve);

    // List reports no changes (its fetcher has no reporter): --no-log has nothing to stop.
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
        if (auto error = CliAcquisition::configure(
                fetcher, {options.helperSocket, options.source, options.host}))
            return usageError(*error);
        items = CliAcquisition::acquire(fetcher);
        const QString problem = fetcher.lastProblem();
        if (items.isEmpty() && !problem.isEmpty())
            return failure(problem);
        // A partial snapshot (the helper refused, say) is still printed, with why it is one.
        if (!problem.isEmpty()) {
            m_err << "corvina: " << problem << '\n';
            m_err.flush();
        }
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

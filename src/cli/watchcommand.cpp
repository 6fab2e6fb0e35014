#include "watchcommand.h"

#include "changeeventprinter.h"
#include "changes/changereporter.h"
#include "changes/connectionlog.h"
#include "changes/metricsfile.h"
#include "cliacquisition.h"
#include "platform/systemlog.h"
#include "prefs/cvprefshelper.h"
#include "prefs/prefkeys.h"
#include "prefs/userdefaults.h"
#include "snapshot/hostnameresolver.h"
#include "snapshot/lsoffetcher.h"
#include "watchoptions.h"
#include "watchreporter.h"

#include <QElapsedTimer>
#include <QSysInfo>
#include <QThread>

#include <atomic>
#include <csignal>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

constexpr int kExitOk = 0;
constexpr int kExitUsage = 2;

std::atomic<bool> stopRequested{false};

void requestStop(int)
{
    stopRequested.store(true);
}

// What a pass does besides printing its changes: the busiest connections, the metrics file.
struct PassOutputs {
    ChangeEventPrinter& printer;
    std::optional<int> top;
    MetricsFile* metrics = nullptr;
    QString shownMetricsProblem;

    void after(const LsofItemList& items, const LsofFetcher& fetcher, double seconds,
               QTextStream& err)
    {
        if (top)
            printer.printTop(items, *top);
        if (!metrics)
            return;
        const QString problem =
            metrics->writePass(items, {fetcher.lastOrigin().costMs / 1000, seconds});
        if (problem != std::exchange(shownMetricsProblem, problem) && !problem.isEmpty()) {
            err << "corvina: " << problem << '\n';
            err.flush();
        }
    }
};

// Passes until a stop is asked for; an acquisition problem is said once, when it changes.
void watchPasses(LsofFetcher& fetcher, qint64 interval, PassOutputs& outputs, QTextStream& err)
{
    QString shownProblem;
    while (!stopRequested.load()) {
        QElapsedTimer pass;
        pass.start();
        const LsofItemList items = CliAcquisition::acquire(fetcher);
        outputs.after(items, fetcher, double(pass.nsecsElapsed()) / 1e9, err);
        const QString problem = fetcher.lastProblem();
        if (problem != shownProblem && !problem.isEmpty()) {
            err << "corvina: " << problem << '\n';
            err.flush();
        }
        shownProblem = problem;
        for (qint64 waited = 0; waited < interval * 10 && !stopRequested.load(); ++waited)
            QThread::msleep(100);
    }
}

} // namespace

int runWatchCommand(const QStringList& arguments, QTextStream& out, QTextStream& err)
{
    WatchOptions options;
    if (auto error = WatchOptions::parse(arguments, options)) {
        err << "corvina: " << *error << '\n';
        err.flush();
        return kExitUsage;
    }
    HostnameResolver::setEnabled(!options.noResolve);
    CVPrefsHelper& prefs = CVPrefsHelper::sharedHelper();
    const qint64 interval = options.interval.value_or(
        std::max<qint64>(1, prefs.defaultsStore().integerForKey(PrefKeys::AutoRefreshSetting)));

    LsofFetcher fetcher;
    if (auto error = CliAcquisition::configure(
            fetcher, {options.helperSocket, options.source, options.host})) {
        err << "corvina: " << *error << '\n';
        err.flush();
        return kExitUsage;
    }
    const QString host = options.host.isEmpty() ? QSysInfo::machineHostName() : options.host;
    // The system log and the CSV log get what the settings ask for; the terminal shows every
    // change itself, so the system log's copy is not echoed to it as well.
    ConnectionLog log(prefs);
    ChangeReporter settingsReporter(prefs, log);
    settingsReporter.setConsoleEcho([](const QString&) {});
    settingsReporter.setHost(host);
    ChangeEventPrinter printer(out, options.format, host);
    std::optional<MetricsFile> metrics;
    if (!options.metricsFile.isEmpty())
        metrics.emplace(options.metricsFile, options.host);
    PassOutputs outputs{printer, options.top, metrics ? &*metrics : nullptr, {}};
    WatchReporter reporter(printer, &settingsReporter);
    fetcher.setReporter(&reporter);
    SystemLog::setEcho([&err](const QString& message) {
        err << "corvina: " << message << '\n';
        err.flush();
    });

    stopRequested.store(false);
    std::signal(SIGINT, requestStop);
    std::signal(SIGTERM, requestStop);
    err << "corvina: watching connections every " << interval << " s; Ctrl-C ends.\n";
    err.flush();
    watchPasses(fetcher, interval, outputs, err);
    log.close();
    SystemLog::setEcho({});
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    return kExitOk;
}

#include "lsofgenerator.h"

#include "changes/changereporter.h"
#include "changes/connectionlog.h"
#include "prefs/cvprefshelper.h"
#include "prefs/prefkeys.h"
#include "prefs/userdefaults.h"
#include "snapshot/lsoffetcher.h"

#include <QTemporaryDir>

#include <benchmark/benchmark.h>

namespace {

void perLine(benchmark::State& state, int lines)
{
    state.counters["lines"] = lines;
    state.counters["per_line"] = benchmark::Counter(
        double(lines), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// Two consecutive outputs of a busy machine, 5 % of lines apart (or the same output twice), as
// lsof prints them.
struct Snapshots {
    explicit Snapshots(int lines, bool changing = true) : generator(lines)
    {
        first = generator.text().toUtf8();
        if (changing)
            generator.next();
        second = generator.text().toUtf8();
    }
    LsofGenerator generator;
    QByteArray first, second;
};

// Parse and change detection as a refresh runs them, alternating the two snapshots after a
// first pass that is not timed.
void refreshes(benchmark::State& state, const Snapshots& snapshots, LsofFetcher& fetcher)
{
    LsofItemList items = fetcher.parseLsofOutput(snapshots.first);
    fetcher.processLsofItemsChanges(items);
    bool second = true;
    for (auto _ : state) {
        items = fetcher.parseLsofOutput(second ? snapshots.second : snapshots.first);
        fetcher.processLsofItemsChanges(items);
        second = !second;
    }
    perLine(state, int(state.range(0)));
}

// Parsing alone: a fresh service each time, so every line makes a new item.
void BM_Parse(benchmark::State& state)
{
    const Snapshots snapshots(int(state.range(0)));
    for (auto _ : state) {
        LsofFetcher fetcher;
        benchmark::DoNotOptimize(fetcher.parseLsofOutput(snapshots.first));
    }
    perLine(state, int(state.range(0)));
}

// The refresh's steady state: parse and detect changes, alternating two snapshots.
void BM_ParseAndDetect(benchmark::State& state)
{
    const Snapshots snapshots(int(state.range(0)));
    LsofFetcher fetcher;
    refreshes(state, snapshots, fetcher);
}

// The same with no line changing between the two outputs: what the lines that stay as they
// were cost, under what the changes add.
void BM_ParseAndDetectUnchanged(benchmark::State& state)
{
    const Snapshots snapshots(int(state.range(0)), false);
    LsofFetcher fetcher;
    refreshes(state, snapshots, fetcher);
}

// The same with the reporters on: console messages built, CSV rows written and flushed.
void BM_ParseDetectAndReport(benchmark::State& state)
{
    const Snapshots snapshots(int(state.range(0)));
    QTemporaryDir dir;
    UserDefaults store(dir.filePath(QStringLiteral("Corvina.conf")));
    CVPrefsHelper prefs(store);
    prefs.setLogFolder(dir.filePath(QStringLiteral("Logs")));
    store.setBool(PrefKeys::LogConnectionStateChangeToCSVFiles, true);
    store.setBool(PrefKeys::LogNewConnectionToSystemConsole, false);
    ConnectionLog log(prefs);
    ChangeReporter reporter(prefs, log);
    LsofFetcher fetcher;
    fetcher.setReporter(&reporter);
    refreshes(state, snapshots, fetcher);
}

} // namespace

BENCHMARK(BM_Parse)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ParseAndDetect)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ParseAndDetectUnchanged)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ParseDetectAndReport)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond);

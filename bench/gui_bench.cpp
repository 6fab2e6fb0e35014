// The connection table's share of a refresh on the GUI thread: model resets, the quiet
// refresh that only repaints changed rows, and sorting a full snapshot.
#include "lsofgenerator.h"

#include "snapshot/itemcolumns.h"
#include "snapshot/lsoffetcher.h"
#include "ui/window/connectiontablemodel.h"

#include <QApplication>
#include <QTableView>

#include <benchmark/benchmark.h>

#include <map>
#include <memory>

namespace {

void perRow(benchmark::State& state, qsizetype rows)
{
    state.counters["rows"] = double(rows);
    state.counters["per_row"] = benchmark::Counter(
        double(rows), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// Two consecutive snapshots after change detection, 5 % of lines apart: most objects are
// shared, some are new, some closed, and statuses are set as the worker would set them.
struct Snapshots {
    LsofItemList first;
    LsofItemList second;
};

const Snapshots& snapshots(int lines)
{
    static std::map<int, std::unique_ptr<Snapshots>> cache;
    auto& entry = cache[lines];
    if (!entry) {
        entry = std::make_unique<Snapshots>();
        LsofGenerator generator(lines);
        LsofFetcher fetcher;
        entry->first = fetcher.parseLsofResult(generator.text());
        fetcher.processLsofItemsChanges(entry->first);
        generator.next();
        entry->second = fetcher.parseLsofResult(generator.text());
        fetcher.processLsofItemsChanges(entry->second);
    }
    return *entry;
}

int columnOf(LsofItem::Key key)
{
    const auto& columns = itemColumns();
    for (int i = 0; i < columns.size(); ++i) {
        if (columns.at(i).key == key)
            return i;
    }
    return -1;
}

// Every pass hands the model a list that is not the one it shows, so it resets.
void resetPasses(benchmark::State& state, bool withView)
{
    const Snapshots& lists = snapshots(int(state.range(0)));
    ConnectionTableModel model;
    std::unique_ptr<QTableView> view;
    if (withView) {
        view = std::make_unique<QTableView>();
        view->setModel(&model);
    }
    bool second = false;
    for (auto _ : state) {
        model.setItems(second ? lists.second : lists.first);
        second = !second;
    }
    perRow(state, lists.second.size());
}

void BM_ModelReset(benchmark::State& state)
{
    resetPasses(state, false);
}

// The same with a (hidden) table view attached, which lays out its headers on each reset.
void BM_ModelResetWithView(benchmark::State& state)
{
    resetPasses(state, true);
}

// Same objects, every twentieth row's status and state changed between passes: the model
// must keep its rows and announce only the changed ones.
void BM_StatusOnlyRefresh(benchmark::State& state)
{
    const LsofItemList& items = snapshots(int(state.range(0))).second;
    ConnectionTableModel model;
    model.setItems(items);
    qint64 changedRows = 0;
    QObject::connect(&model, &ConnectionTableModel::dataChanged, &model,
                     [&](const QModelIndex& from, const QModelIndex& to) {
                         changedRows += to.row() - from.row() + 1;
                     });
    int resets = 0;
    QObject::connect(&model, &ConnectionTableModel::modelReset, &model, [&] { ++resets; });
    bool flip = false;
    for (auto _ : state) {
        state.PauseTiming();
        flip = !flip;
        for (qsizetype i = 0; i < items.size(); i += 20) {
            items.at(i)->setStatus(flip ? 2 : 0);
            items.at(i)->setState(flip ? QStringLiteral("CLOSE_WAIT")
                                       : QStringLiteral("ESTABLISHED"));
        }
        state.ResumeTiming();
        model.setItems(items);
    }
    if (resets != 0)
        state.SkipWithError("the status-only refresh reset the model");
    state.counters["changed_rows_per_pass"] = double(changedRows) / double(state.iterations());
    perRow(state, items.size());
}

// A full snapshot in generation order sorted by one column; the copy is not timed.
void sortPasses(benchmark::State& state, LsofItem::Key key)
{
    const LsofItemList& items = snapshots(int(state.range(0))).second;
    const ItemOrdering ordering{columnOf(key), Qt::AscendingOrder};
    // Derived names are computed on first read: the application has read them before sorting.
    LsofItemList warm = items;
    ordering.apply(warm);
    for (auto _ : state) {
        state.PauseTiming();
        LsofItemList sorted = items;
        state.ResumeTiming();
        ordering.apply(sorted);
        benchmark::DoNotOptimize(sorted.data());
        state.PauseTiming();
        sorted = {};
        state.ResumeTiming();
    }
    perRow(state, items.size());
}

void BM_SortByApplication(benchmark::State& state)
{
    sortPasses(state, LsofItem::Key::localizedAppName);
}

void BM_SortByPid(benchmark::State& state)
{
    sortPasses(state, LsofItem::Key::processId);
}

void BM_SortByState(benchmark::State& state)
{
    sortPasses(state, LsofItem::Key::state);
}

// Text that is nearly unique per row.
void BM_SortByRemoteAddress(benchmark::State& state)
{
    sortPasses(state, LsofItem::Key::remoteAddress);
}

} // namespace

BENCHMARK(BM_ModelReset)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ModelResetWithView)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StatusOnlyRefresh)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SortByApplication)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SortByPid)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SortByState)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SortByRemoteAddress)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond);

int main(int argc, char** argv)
{
    // Widgets need a display; a benchmark never shows anything.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

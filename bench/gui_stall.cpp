// How long one refresh holds the GUI thread: the real main window, fed scripted snapshots of a
// busy machine whose TCP connections carry traffic figures that move on every pass.
// Usage: corvina_gui_stall [--rows N] [--passes P] [--sort COLUMN] [--no-resolve] [--grouped]
//                          [--graph] [--search TEXT]
// --grouped shows the table grouped by application (a few applications expanded, one
// selected), --graph the traffic graph below it, --search filters every pass by TEXT (a
// keyword search, or an expression) as the search field does.
//
// Parsing, change detection and the sort run on a worker thread in the application, so every
// snapshot is made before the clock starts. A pass is then timed on the GUI thread from the
// emission of snapshotReady (filtering, the model, the selection, the status bar) until the event
// loop has nothing left to do for it: posted events are dispatched round after round until a
// round delivers none but timer events. The repaint of the window arrives as a posted update
// request, so it is part of the pass.
#include "lsofgenerator.h"

#include "persistence/sqliteinstancemanager.h"
#include "persistence/sqlitepersistentobject.h"
#include "prefs/cvprefshelper.h"
#include "prefs/prefkeys.h"
#include "prefs/userdefaults.h"
#include "snapshot/hostnameresolver.h"
#include "snapshot/itemcolumns.h"
#include "snapshot/lsoffetcher.h"
#include "ui/window/applicationtreemodel.h"
#include "ui/window/applicationtreeview.h"
#include "ui/window/connectiontablemodel.h"
#include "ui/window/connectiontableview.h"
#include "ui/window/cvwindowcontroller.h"
#include "ui/window/groupedview.h"
#include "ui/window/searchfield.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QVariantMap>
#include <QWindow>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

// Answers a request only when the program says so, as the worker would after its pass.
class ScriptedSource final : public SnapshotSource {
    Q_OBJECT
public:
    using SnapshotSource::SnapshotSource;

    bool requestSnapshot() override
    {
        if (m_pending)
            return false;
        m_pending = true;
        return true;
    }
    Origin lastOrigin() const override { return {Road::Direct, Collector::Native, 0}; }
    bool pending() const { return m_pending; }

    void deliver(const LsofItemList& items, const ItemOrdering& sortedBy)
    {
        m_pending = false;
        Q_EMIT snapshotReady(items, {}, sortedBy);
    }

private:
    bool m_pending = false;
};

// Counts what the event loop delivers, apart from timers (the search field's cursor blinks).
class EventCounter final : public QObject {
public:
    qint64 count = 0;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() != QEvent::Timer)
            ++count;
        return QObject::eventFilter(watched, event);
    }
};

void drainEvents(EventCounter& counter)
{
    for (int round = 0; round < 1000; ++round) {
        const qint64 before = counter.count;
        QCoreApplication::sendPostedEvents();
        QCoreApplication::processEvents(QEventLoop::AllEvents);
        if (counter.count == before)
            return;
    }
}

double threadCpuMs()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e3 + double(now.tv_nsec) / 1e6;
}

// The whole stall, the part of it spent after the slot returned (mostly the repaint), and
// the processor time the GUI thread used, which other programs on the machine inflate less.
struct Pass {
    double totalMs = 0;
    double eventsMs = 0;
    double cpuMs = 0;
};

Pass timedPass(ScriptedSource& source, const LsofItemList& items, const ItemOrdering& sortedBy,
               EventCounter& counter)
{
    const double cpuBefore = threadCpuMs();
    QElapsedTimer timer;
    timer.start();
    source.deliver(items, sortedBy);
    const qint64 delivered = timer.nsecsElapsed();
    drainEvents(counter);
    const qint64 total = timer.nsecsElapsed();
    return {double(total) / 1e6, double(total - delivered) / 1e6, threadCpuMs() - cpuBefore};
}

std::optional<double> statusMiB(const char* field)
{
    QFile file(u"/proc/self/status"_s);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray prefix = QByteArray(field) + ':';
    for (const QByteArray& line : file.readAll().split('\n')) {
        if (line.startsWith(prefix)) {
            const QByteArray kb = line.mid(prefix.size()).trimmed().split(' ').value(0);
            return kb.toDouble() / 1024.0;
        }
    }
    return std::nullopt;
}

void printMiB(const char* key, const std::optional<double>& value)
{
    if (value)
        std::printf("%s: %.1f\n", key, *value);
    else
        std::printf("%s: unknown\n", key);
}

struct Options {
    int rows = 10000;
    int passes = 30;
    int sortColumn = -1;
    bool resolve = true;
    bool grouped = false;
    bool graph = false;
    QString search; // typed into the search field before the passes
};

std::optional<Options> parseOptions(const QStringList& arguments)
{
    Options options;
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        const QString& name = arguments.at(i);
        if (name == u"--no-resolve"_s || name == u"--grouped"_s || name == u"--graph"_s) {
            options.resolve = options.resolve && name != u"--no-resolve"_s;
            options.grouped = options.grouped || name == u"--grouped"_s;
            options.graph = options.graph || name == u"--graph"_s;
            continue;
        }
        if (i + 1 >= arguments.size())
            return std::nullopt;
        if (name == u"--search"_s) {
            options.search = arguments.at(++i);
            continue;
        }
        bool ok = false;
        const int value = arguments.at(++i).toInt(&ok);
        if (!ok)
            return std::nullopt;
        if (name == u"--rows"_s && value > 0)
            options.rows = value;
        else if (name == u"--passes"_s && value > 0)
            options.passes = value;
        else if (name == u"--sort"_s && value >= -1 && value < itemColumns().size())
            options.sortColumn = value;
        else
            return std::nullopt;
    }
    return options;
}

// What the kernel's collector tells of TCP connections: counts that grow and rates that move
// on every pass, different for each connection.
void addTraffic(const LsofItemList& items, qint64 pass)
{
    for (const LsofItemPtr& item : items) {
        if (item->protocol() != u"TCP"_s)
            continue;
        const qint64 seed = qint64(qHash(item->identifier()) % 5000);
        const qint64 rate = seed * (1 + (pass + seed) % 7);
        item->setTraffic({seed * 900 + pass * rate, seed * 4000 + pass * rate * 3, rate, rate * 3,
                          0.1 + double(seed % 400) / 10});
    }
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

struct Results {
    Pass first;
    std::vector<double> regular;
    std::vector<double> events;
    std::vector<double> cpu;
    double statusOnlyMs = 0;
    int statusOnlyResets = 0;
    qint64 shownRows = 0;
    // Taken while the window still shows the rows.
    std::optional<double> rssMiB;
    std::optional<double> peakMiB;
};

// A selected row, carried across every refresh; grouped, a few applications open as well.
void selectAndExpand(CVWindowController& window, bool grouped)
{
    if (!grouped) {
        window.tableView()->selectRow(3);
        return;
    }
    GroupedView* view = window.groupedView();
    for (int row = 0; row < 3; ++row)
        view->view()->expand(view->model()->index(row, 0));
    view->view()->selectionModel()->select(view->model()->index(1, 0),
                                           QItemSelectionModel::ClearAndSelect |
                                               QItemSelectionModel::Rows);
}

// Each snapshot is parsed, run through change detection, given its process records and sorted
// as the window asked, just before its pass, outside the clock, by one fetcher, as the
// application's worker does it: the objects, statuses and memory are those the worker would
// hand over, and no later snapshot is alive before its turn.
Results measure(CVPrefsHelper& prefs, const Options& options)
{
    LsofGenerator generator(options.rows);
    LsofFetcher fetcher;
    qint64 passNumber = 0;
    const auto nextSnapshot = [&](const ItemOrdering& ordering) {
        LsofItemList items = fetcher.parseLsofResult(generator.text());
        fetcher.processLsofItemsChanges(items);
        LsofItem::readProcessRecords(items);
        generator.next();
        addTraffic(items, ++passNumber);
        return ordering.sorted(items);
    };

    Results results;
    ScriptedSource source;
    CVWindowController window(source, prefs);
    window.resize(1280, 800);
    window.show();
    EventCounter counter;
    qApp->installEventFilter(&counter);
    QElapsedTimer exposure;
    exposure.start();
    while (!(window.windowHandle() && window.windowHandle()->isExposed()) &&
           exposure.elapsed() < 5000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    drainEvents(counter);
    window.searchField()->setText(options.search);

    if (!source.pending())
        window.reloadTableViewData();
    results.first = timedPass(source, nextSnapshot(source.ordering()), source.ordering(), counter);
    selectAndExpand(window, options.grouped);
    drainEvents(counter);
    for (int pass = 0; pass < options.passes; ++pass) {
        window.reloadTableViewData();
        const LsofItemList items = nextSnapshot(source.ordering());
        const Pass timed = timedPass(source, items, source.ordering(), counter);
        results.regular.push_back(timed.totalMs);
        results.events.push_back(timed.eventsMs);
        results.cpu.push_back(timed.cpuMs);
    }

    // Same objects again, one row in twenty with a new status.
    LsofItemList shown = window.originalItems();
    for (qsizetype i = 0; i < shown.size(); i += 20) {
        const LsofItemPtr& item = shown.at(i);
        item->setStatus(item->status() == 2 ? 0 : 2);
    }
    window.reloadTableViewData();
    QObject::connect(window.tableModel(), &QAbstractItemModel::modelReset, &window,
                     [&] { ++results.statusOnlyResets; });
    results.statusOnlyMs = timedPass(source, shown, source.ordering(), counter).totalMs;
    qApp->removeEventFilter(&counter);
    results.shownRows = window.items().size();
    results.rssMiB = statusMiB("VmRSS");
    results.peakMiB = statusMiB("VmHWM");
    return results;
}

void report(const Options& options, const Results& results)
{
    std::printf("rows: %d\n", options.rows);
    std::printf("passes: %d\n", options.passes);
    std::printf("sort_column: %d\n", options.sortColumn);
    std::printf("view: %s\n", options.grouped ? "grouped" : "flat");
    std::printf("graph: %s\n", options.graph ? "shown" : "hidden");
    std::printf("search: %s\n", qPrintable(options.search));
    std::printf("shown_rows: %lld\n", results.shownRows);
    std::printf("first_snapshot_ms: %.2f\n", results.first.totalMs);
    std::printf("first_snapshot_cpu_ms: %.2f\n", results.first.cpuMs);
    std::printf("first_snapshot_events_ms: %.2f\n", results.first.eventsMs);
    const std::vector<double>& regular = results.regular;
    std::printf("median_ms: %.2f\n", median(regular));
    std::printf("max_ms: %.2f\n", *std::max_element(regular.begin(), regular.end()));
    std::printf("median_events_ms: %.2f\n", median(results.events));
    std::printf("median_cpu_ms: %.2f\n", median(results.cpu));
    std::printf("max_cpu_ms: %.2f\n", *std::max_element(results.cpu.begin(), results.cpu.end()));
    // Every pass, wall-clock/processor time, so that one outlier can be told from a trend.
    std::printf("passes_ms:");
    for (size_t i = 0; i < regular.size(); ++i)
        std::printf(" %.1f/%.1f", regular[i], results.cpu[i]);
    std::printf("\n");
    std::printf("status_only_ms: %.2f\n", results.statusOnlyMs);
    std::printf("status_only_resets: %d\n", results.statusOnlyResets);
    printMiB("vmrss_mib", results.rssMiB);
    printMiB("vmhwm_mib", results.peakMiB);
}

} // namespace

int main(int argc, char* argv[])
{
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const auto options = parseOptions(QCoreApplication::arguments());
    if (!options) {
        std::fprintf(stderr, "usage: corvina_gui_stall [--rows N] [--passes P] [--sort COLUMN] "
                             "[--no-resolve] [--grouped] [--graph] [--search TEXT]\n");
        return 2;
    }
    HostnameResolver::setEnabled(options->resolve);

    // Settings and saved searches of this run only, never the user's.
    QTemporaryDir dir;
    if (!dir.isValid()) {
        std::fprintf(stderr, "no temporary folder: %s\n", qPrintable(dir.errorString()));
        return 1;
    }
    SQLiteInstanceManager database(u"corvina.sqlite3"_s, dir.filePath(u"corvina.sqlite3"_s));
    SQLitePersistentObject::setManager(&database);
    UserDefaults defaults(dir.filePath(u"Corvina.conf"_s));
    // The program drives the refresh itself, as the timer would.
    defaults.setObject(PrefKeys::AutoRefreshSetting, qint64(0));
    if (options->sortColumn >= 0)
        defaults.setObject(u"MainWindow/Sort"_s, QVariantMap{{u"column"_s, options->sortColumn},
                                                             {u"descending"_s, false}});
    defaults.setObject(u"MainWindow/GroupByApplication"_s, options->grouped);
    defaults.setObject(u"MainWindow/TrafficGraph"_s, options->graph);
    CVPrefsHelper prefs(defaults);

    const Results results = measure(prefs, *options);
    report(*options, results);
    SQLitePersistentObject::setManager(nullptr);
    return results.statusOnlyResets != 0 ? 1 : 0;
}

#include "gui_stall.moc"

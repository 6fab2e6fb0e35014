// How long one refresh holds the GUI thread: the real main window, fed scripted snapshots of a
// busy machine. Usage: corvina_gui_stall [--rows N] [--passes P] [--sort COLUMN] [--no-resolve]
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
#include "ui/window/connectiontablemodel.h"
#include "ui/window/connectiontableview.h"
#include "ui/window/cvwindowcontroller.h"

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

void printMiB(const char* key, const char* field)
{
    if (const auto value = statusMiB(field))
        std::printf("%s: %.1f\n", key, *value);
    else
        std::printf("%s: unknown\n", key);
}

struct Options {
    int rows = 10000;
    int passes = 30;
    int sortColumn = -1;
    bool resolve = true;
};

std::optional<Options> parseOptions(const QStringList& arguments)
{
    Options options;
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        const QString& name = arguments.at(i);
        if (name == u"--no-resolve"_s) {
            options.resolve = false;
            continue;
        }
        if (i + 1 >= arguments.size())
            return std::nullopt;
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

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
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
                             "[--no-resolve]\n");
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
    CVPrefsHelper prefs(defaults);

    // Each snapshot is parsed, run through change detection, given its process records and
    // sorted as the window asked, just before its pass, outside the clock, by one fetcher, as
    // the application's worker does it: the objects, statuses and memory are those the worker
    // would hand over, and no later snapshot is alive before its turn.
    LsofGenerator generator(options->rows);
    LsofFetcher fetcher;
    const auto nextSnapshot = [&](const ItemOrdering& ordering) {
        LsofItemList items = fetcher.parseLsofResult(generator.text());
        fetcher.processLsofItemsChanges(items);
        LsofItem::readProcessRecords(items);
        generator.next();
        return ordering.sorted(items);
    };

    int code = 0;
    {
        ScriptedSource source;
        CVWindowController window(source, prefs);
        window.resize(1280, 800);
        window.show();
        EventCounter counter;
        app.installEventFilter(&counter);
        QElapsedTimer exposure;
        exposure.start();
        while (!(window.windowHandle() && window.windowHandle()->isExposed()) &&
               exposure.elapsed() < 5000)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        drainEvents(counter);

        if (!source.pending())
            window.reloadTableViewData();
        const Pass first =
            timedPass(source, nextSnapshot(source.ordering()), source.ordering(), counter);
        // A selected row, carried across every refresh.
        window.tableView()->selectRow(3);
        drainEvents(counter);

        std::vector<double> regular;
        std::vector<double> events;
        std::vector<double> cpu;
        for (int pass = 0; pass < options->passes; ++pass) {
            window.reloadTableViewData();
            const LsofItemList items = nextSnapshot(source.ordering());
            const Pass timed = timedPass(source, items, source.ordering(), counter);
            regular.push_back(timed.totalMs);
            events.push_back(timed.eventsMs);
            cpu.push_back(timed.cpuMs);
        }

        // Same objects again, one row in twenty with a new status.
        LsofItemList shown = window.originalItems();
        for (qsizetype i = 0; i < shown.size(); i += 20) {
            const LsofItemPtr& item = shown.at(i);
            item->setStatus(item->status() == 2 ? 0 : 2);
        }
        window.reloadTableViewData();
        int resets = 0;
        QObject::connect(window.tableModel(), &QAbstractItemModel::modelReset, &app,
                         [&] { ++resets; });
        const double statusOnly = timedPass(source, shown, source.ordering(), counter).totalMs;
        app.removeEventFilter(&counter);

        std::printf("rows: %d\n", options->rows);
        std::printf("passes: %d\n", options->passes);
        std::printf("sort_column: %d\n", options->sortColumn);
        std::printf("shown_rows: %lld\n", qint64(window.items().size()));
        std::printf("first_snapshot_ms: %.2f\n", first.totalMs);
        std::printf("first_snapshot_cpu_ms: %.2f\n", first.cpuMs);
        std::printf("first_snapshot_events_ms: %.2f\n", first.eventsMs);
        std::printf("median_ms: %.2f\n", median(regular));
        std::printf("max_ms: %.2f\n", *std::max_element(regular.begin(), regular.end()));
        std::printf("median_events_ms: %.2f\n", median(events));
        std::printf("median_cpu_ms: %.2f\n", median(cpu));
        std::printf("max_cpu_ms: %.2f\n", *std::max_element(cpu.begin(), cpu.end()));
        // Every pass, wall-clock/processor time, so that one outlier can be told from a trend.
        std::printf("passes_ms:");
        for (size_t i = 0; i < regular.size(); ++i)
            std::printf(" %.1f/%.1f", regular[i], cpu[i]);
        std::printf("\n");
        std::printf("status_only_ms: %.2f\n", statusOnly);
        std::printf("status_only_resets: %d\n", resets);
        printMiB("vmrss_mib", "VmRSS");
        printMiB("vmhwm_mib", "VmHWM");
        if (resets != 0)
            code = 1;
    }
    SQLitePersistentObject::setManager(nullptr);
    return code;
}

#include "gui_stall.moc"

// Shows the main window with a generated set of connections (new, changed and closed rows
// among them, the TCP ones with traffic figures as the kernel gives them) and saves a picture
// of it: corvina_screenshot OUTPUT.png [--grouped] [--graph] [--bytes]
// --grouped groups the rows by application, --graph shows ten minutes of a download in the
// traffic graph, --bytes shows the byte counts and round-trip times too.
#include "ui/window/cvwindowcontroller.h"
#include "uitestsupport.h"

#include "snapshot/itemcolumns.h"
#include "ui/window/applicationtreemodel.h"
#include "ui/window/applicationtreeview.h"
#include "ui/window/connectiontableview.h"
#include "ui/window/groupedview.h"
#include "ui/window/tablecolumnsmenu.h"
#include "ui/window/trafficgraph.h"
#include "ui/window/traffictotals.h"

#include <QApplication>
#include <QDateTime>
#include <QHeaderView>
#include <QIcon>
#include <QTimer>

#include <cmath>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

LsofItemList generatedSnapshot()
{
    struct Row {
        const char16_t* app;
        const char16_t* pid;
        const char16_t* protocol;
        const char16_t* type;
        const char16_t* local;
        const char16_t* localPort;
        const char16_t* remote;
        const char16_t* remotePort;
        const char16_t* state;
        qint32 status;
    };
    static const Row rows[] = {
        {u"firefox", u"2311", u"TCP", u"IPv4", u"192.168.1.20", u"51544", u"93.184.216.34", u"443",
         u"ESTABLISHED", 1},
        {u"firefox", u"2311", u"TCP", u"IPv6", u"2a02:8071::5", u"40112", u"2606:4700::6810",
         u"443", u"ESTABLISHED", 0},
        {u"firefox", u"2311", u"UDP", u"IPv4", u"192.168.1.20", u"58011", u"142.250.185.78", u"443",
         nullptr, 0},
        {u"thunderbird", u"3120", u"TCP", u"IPv4", u"192.168.1.20", u"49822", u"185.70.42.20",
         u"993", u"ESTABLISHED", 0},
        {u"thunderbird", u"3120", u"TCP", u"IPv4", u"192.168.1.20", u"49830", u"185.70.42.20",
         u"587", u"CLOSE_WAIT", 2},
        {u"ssh", u"5012", u"TCP", u"IPv4", u"192.168.1.20", u"41022", u"10.0.0.12", u"22",
         u"ESTABLISHED", 0},
        {u"systemd-resolved", u"611", u"UDP", u"IPv4", u"127.0.0.53", u"53", nullptr, nullptr,
         nullptr, 0},
        {u"systemd-resolved", u"611", u"TCP", u"IPv4", u"127.0.0.53", u"53", nullptr, nullptr,
         u"LISTEN", 0},
        {u"avahi-daemon", u"702", u"UDP", u"IPv4", u"*", u"5353", nullptr, nullptr, nullptr, 0},
        {u"avahi-daemon", u"702", u"UDP", u"IPv6", u"*", u"5353", nullptr, nullptr, nullptr, 0},
        {u"cupsd", u"845", u"TCP", u"IPv6", u"[::1]", u"631", nullptr, nullptr, u"LISTEN", 0},
        {u"NetworkManager", u"688", u"UDP", u"IPv4", u"192.168.1.20", u"68", u"192.168.1.1", u"67",
         nullptr, 0},
        {u"signal-desktop", u"4410", u"TCP", u"IPv4", u"192.168.1.20", u"53380", u"76.223.92.165",
         u"443", u"ESTABLISHED", 1},
        {u"spotify", u"4802", u"TCP", u"IPv4", u"192.168.1.20", u"39210", u"35.186.224.25", u"4070",
         u"ESTABLISHED", 0},
        {u"spotify", u"4802", u"UDP", u"IPv4", u"*", u"57621", nullptr, nullptr, nullptr, 0},
        {u"code", u"5120", u"TCP", u"IPv4", u"127.0.0.1", u"43127", nullptr, nullptr, u"LISTEN", 0},
        {u"code", u"5120", u"TCP", u"IPv4", u"192.168.1.20", u"52290", u"140.82.112.22", u"443",
         u"Closed", 3},
        {u"chrome", u"6001", u"TCP", u"IPv4", u"192.168.1.20", u"60120", u"172.217.16.206", u"443",
         u"ESTABLISHED", 2},
        {u"chrome", u"6001", u"UDP", u"IPv6", u"2a02:8071::5", u"44551", u"2a00:1450:4001::200e",
         u"443", nullptr, 0},
        {u"sshd", u"901", u"TCP", u"IPv4", u"*", u"22", nullptr, nullptr, u"LISTEN", 0},
        {u"sshd", u"901", u"TCP", u"IPv6", u"*", u"22", nullptr, nullptr, u"LISTEN", 0},
        {u"chronyd", u"655", u"UDP", u"IPv4", u"127.0.0.1", u"323", nullptr, nullptr, nullptr, 0},
        {u"dropbox", u"7010", u"TCP", u"IPv4", u"192.168.1.20", u"56104", u"162.125.21.3", u"443",
         u"Closed", 3},
        {u"kdeconnectd", u"3302", u"UDP", u"IPv6", u"*", u"1716", nullptr, nullptr, nullptr, 1},
    };
    LsofItemList items;
    for (const Row& row : rows) {
        ItemSpec spec{QString::fromUtf16(row.app),      QString::fromUtf16(row.pid),
                      QString::fromUtf16(row.protocol), QString::fromUtf16(row.type),
                      QString::fromUtf16(row.local),    QString::fromUtf16(row.localPort)};
        if (row.remote) {
            spec.remoteAddress = QString::fromUtf16(row.remote);
            spec.remotePort = QString::fromUtf16(row.remotePort);
        }
        if (row.state)
            spec.state = QString::fromUtf16(row.state);
        spec.status = row.status;
        items.append(makeItem(spec));
        // The kernel counts TCP connections only; a download and some quieter traffic.
        if (spec.protocol == u"TCP"_s && !spec.remoteAddress.isNull()) {
            const qint64 n = items.size();
            const qint64 receive = n == 1 ? 3'400'000 : n * n * 1700 % 90'000;
            const qint64 send = n == 1 ? 41'000 : n * 730 % 9000;
            items.last()->setTraffic({send * 95 + n * 3000, receive * 80 + n * 10'000, send,
                                      receive, 0.08 + double(n * n % 47)});
        }
    }
    return items;
}

// Ten minutes of the download behind the first row, as the graph would have seen them.
void fillGraph(TrafficGraph& graph, const TrafficTotals& now)
{
    // Up to the second before the pass that follows.
    const qint64 end = QDateTime::currentMSecsSinceEpoch() - 1000;
    for (int second = 600; second > 0; --second) {
        const double phase = double(600 - second) / 600;
        const double ramp = phase < 0.2 ? 0.1 : 0.55 + 0.4 * std::sin(phase * 9);
        TrafficTotals totals;
        totals.receiveRate = qint64(double(now.receiveRate.value_or(0)) * ramp);
        totals.sendRate = qint64(double(now.sendRate.value_or(0)) * (0.6 + 0.4 * ramp));
        graph.addPass(end - second * 1000, totals, totals);
    }
}

} // namespace

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    if (QIcon::themeName().isEmpty() || QIcon::themeName() == u"hicolor"_s)
        QIcon::setThemeName(u"Adwaita"_s);
    const QStringList arguments = QCoreApplication::arguments();
    const QString output = arguments.value(1, u"screenshot.png"_s);

    TestSettings settings;
    settings.defaults->setObject(u"CV:AutoRefreshSetting"_s, 2);
    FakeSnapshotSource source;
    CVWindowController window(source, *settings.prefs);
    window.resize(1280, arguments.contains(u"--graph"_s) ? 720 : 560);
    if (arguments.contains(u"--bytes"_s)) {
        for (const QString& title : {u"Local Address"_s, u"Local Port"_s, u"Local Service"_s,
                                     u"Remote Port"_s, u"Sent"_s, u"Received"_s, u"RTT"_s})
            window.tableHeaderMenu()->tableHeaderViewContextMenuSelected(
                window.tableHeaderMenu()->itemForTitle(title));
    }
    // Sorted by what is received, most first.
    window.tableView()->horizontalHeader()->setSortIndicator(
        int(std::find_if(itemColumns().cbegin(), itemColumns().cend(),
                         [](const ItemColumn& c) { return c.key == LsofItem::Key::receiveRate; }) -
            itemColumns().cbegin()),
        Qt::DescendingOrder);
    const LsofItemList snapshot = generatedSnapshot();
    const bool graph = arguments.contains(u"--graph"_s);
    window.setTrafficGraphShown(graph);
    if (graph && !arguments.contains(u"--grouped"_s))
        fillGraph(*window.trafficGraph(), TrafficTotals::of(snapshot));
    source.deliver(snapshot);
    if (arguments.contains(u"--grouped"_s)) {
        window.setGroupedByApplication(true);
        ApplicationTreeModel* tree = window.groupedView()->model();
        for (int row : {0, 2})
            window.groupedView()->view()->expand(tree->index(row, 0));
        window.groupedView()->view()->selectionModel()->select(
            tree->index(0, 0), QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    } else {
        window.selectItems({window.originalItems().at(5)});
    }
    if (graph && window.isGroupedByApplication()) {
        // The selected application's history starts when it is selected: just now.
        fillGraph(*window.trafficGraph(),
                  TrafficTotals::of(window.groupedView()->selectedConnections()));
        window.reloadTableViewData();
        source.deliver(snapshot);
    } else if (graph) {
        window.tableView()->clearSelection();
    }
    window.show();

    int code = 0;
    QTimer::singleShot(800, &app, [&] {
        if (!window.grab().save(output))
            code = 1;
        fprintf(stderr, "grabbed\n");
        QCoreApplication::exit(code);
    });
    app.exec();
    return code;
}

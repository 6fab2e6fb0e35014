#include "filter/itemfilter.h"

#include <benchmark/benchmark.h>

using namespace Qt::StringLiterals;

namespace {

// A plausible busy machine: a handful of programs with many sockets each, a third of them
// listening or unconnected.
LsofItemList generatedItems(qsizetype count)
{
    static const QStringList names = {u"firefox"_s,         u"chromium"_s, u"sshd"_s,
                                      u"postgres"_s,        u"nginx"_s,    u"Café Sync"_s,
                                      u"systemd-resolved"_s};
    static const QStringList states = {u"ESTABLISHED"_s, u"LISTEN"_s, u"TIME_WAIT"_s,
                                       u"CLOSE_WAIT"_s};
    LsofItemList items;
    items.reserve(count);
    for (qsizetype i = 0; i < count; ++i) {
        auto item = std::make_shared<LsofItem>();
        // 977 processes, each with its one name.
        const qsizetype process = i % 977;
        item->setProcessName(names[process % names.size()]);
        item->setProcessId(QString::number(1000 + process));
        item->setUser(i % 5 == 0 ? u"root"_s : u"anna"_s);
        const bool udp = i % 4 == 3;
        item->setProtocol(udp ? u"UDP"_s : u"TCP"_s);
        item->setType(i % 3 == 0 ? u"IPv6"_s : u"IPv4"_s);
        item->setLocalAddress(u"192.168.1."_s + QString::number(i % 250));
        item->setLocalPort(QString::number(30000 + i % 30000));
        item->setLocalPortNumber(30000 + i % 30000);
        if (i % 3 != 1) {
            const int port = (i % 7 == 0) ? 80 : 443;
            item->setRemoteAddress(u"10.0."_s + QString::number(i % 200) + u'.' +
                                   QString::number(i % 97));
            item->setRemotePort(QString::number(port));
            item->setRemotePortNumber(port);
        }
        if (!udp)
            item->setState(states[i % states.size()]);
        item->setDevice(u"0x"_s + QString::number(0xffff0000 + i, 16));
        item->setFileDescriptor(QString::number(3 + i % 200) + u'u');
        items.append(item);
    }
    return items;
}

// Items per second and, like the parser's benchmarks, time per row.
void perRow(benchmark::State& state)
{
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.counters["per_row"] =
        benchmark::Counter(double(state.range(0)), benchmark::Counter::kIsIterationInvariantRate |
                                                       benchmark::Counter::kInvert);
}

void runFilter(benchmark::State& state, const ItemFilter& filter)
{
    const LsofItemList items = generatedItems(state.range(0));
    qsizetype kept = 0;
    for (auto _ : state) {
        const LsofItemList result = filter.filterItems(items);
        kept = result.size();
        benchmark::DoNotOptimize(result.constData());
    }
    state.counters["kept"] = double(kept);
    perRow(state);
}

// A refresh with a search typed: every row's columns joined and searched.
void keywordFilter(benchmark::State& state)
{
    ItemFilter filter;
    filter.searchText = u"postgres,nginx"_s;
    filter.hiddenProtocols = {u"Other"_s};
    runFilter(state, filter);
}

void expressionFilter(benchmark::State& state)
{
    ItemFilter filter;
    filter.useSearchExpression = true;
    filter.searchText = u"processName BEGINSWITH[c] \"fire\" AND remotePortNumber IN {80, 443} "
                        u"OR state == \"LISTEN\""_s;
    runFilter(state, filter);
}

void matchesFilter(benchmark::State& state)
{
    ItemFilter filter;
    filter.useSearchExpression = true;
    filter.searchText = u"remoteAddress MATCHES \"10\\\\.0\\\\.1[0-9]\\\\..*\""_s;
    runFilter(state, filter);
}

} // namespace

BENCHMARK(keywordFilter)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(expressionFilter)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(matchesFilter)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

// What hearing the sockets that close between passes costs: a pass of the built-in collector
// with change detection, with and without the notices' listener, over N loopback TCP
// connections (2N sockets held by child processes); the listener at rest; and a mass close of
// all N connections (the listener's thread draining the notices, then the pass that closes
// their items).
//
//   corvina_destroy_bench [N] [ROUNDS]      N = 10000, ROUNDS = 15 by default
//
// The connections are spread over as many children as their open-files limit asks.

#include "changes/changedetector.h"
#include "collector/bpfsocketowners.h"
#include "collector/destroylistener.h"
#include "collector/nativecollector.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <thread>
#include <vector>

namespace {

double processCpuMs()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return time.tv_sec * 1e3 + time.tv_nsec / 1e6;
}

// A child with N connected loopback pairs, which says 'y'; it closes them all at SIGUSR1 and
// says 'd'.
pid_t connectionHolder(int connections, int ready)
{
    const pid_t child = fork();
    if (child != 0)
        return child;
    sigset_t usr1;
    sigemptyset(&usr1);
    sigaddset(&usr1, SIGUSR1);
    sigprocmask(SIG_BLOCK, &usr1, nullptr);
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t length = sizeof(address);
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    bind(listener, reinterpret_cast<sockaddr*>(&address), length);
    listen(listener, 4096);
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    std::vector<int> fds;
    for (int i = 0; i < connections; ++i) {
        const int client = socket(AF_INET, SOCK_STREAM, 0);
        if (connect(client, reinterpret_cast<sockaddr*>(&address), length) != 0) {
            std::perror("connect");
            _exit(1);
        }
        fds.push_back(client);
        fds.push_back(accept(listener, nullptr, nullptr));
    }
    char said = 'y';
    if (write(ready, &said, 1) != 1)
        _exit(1);
    int signal = 0;
    sigwait(&usr1, &signal);
    for (const int fd : fds)
        close(fd);
    said = 'd';
    if (write(ready, &said, 1) != 1)
        _exit(1);
    for (;;)
        pause();
}

struct Watcher {
    NativeCollector collector;
    ChangeDetector detector;
    qsizetype closed = 0;

    explicit Watcher(NativeCollector::Sources sources) : collector(std::move(sources)) {}
    // The CPU time of one pass: collect, then detect.
    double pass()
    {
        const double start = processCpuMs();
        const SocketRecords records = collector.collect();
        LsofItemList items = detector.match(records, collector.closed());
        detector.detect(items);
        closed = std::count_if(items.cbegin(), items.cend(),
                               [](const LsofItemPtr& item) { return item->status() == 3; });
        return processCpuMs() - start;
    }
    double medianPass(int rounds)
    {
        std::vector<double> costs;
        for (int i = 0; i < rounds; ++i)
            costs.push_back(pass());
        std::sort(costs.begin(), costs.end());
        return costs[costs.size() / 2];
    }
};

NativeCollector::Sources listening(bool owners)
{
    NativeCollector::Sources sources;
    sources.notices = std::make_unique<DestroyListener>();
    if (owners)
        sources.owners = std::make_unique<BpfSocketOwners>();
    return sources;
}

} // namespace

int main(int argc, char** argv)
{
    const int connections = argc > 1 ? std::atoi(argv[1]) : 10000;
    const int rounds = argc > 2 ? std::max(1, std::atoi(argv[2])) : 15;
    setvbuf(stdout, nullptr, _IOLBF, 0);
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    setrlimit(RLIMIT_NOFILE, &files);
    // Each child holds as many connections as its descriptors allow.
    const int perChild = std::max(1, int(std::min<rlim_t>(files.rlim_max, 1 << 20) - 64) / 2);
    int pipe[2];
    if (::pipe(pipe) != 0)
        return 1;
    std::vector<pid_t> holders;
    for (int left = connections; left > 0; left -= perChild)
        holders.push_back(connectionHolder(std::min(left, perChild), pipe[1]));
    close(pipe[1]);
    char said = 0;
    for (size_t i = 0; i < holders.size(); ++i) {
        if (read(pipe[0], &said, 1) != 1 || said != 'y') {
            std::fprintf(stderr, "the children could not open %d connections\n", connections);
            return 1;
        }
    }

    Watcher plain{NativeCollector::Sources{}};
    plain.pass();
    std::printf("%d connections, median CPU of a pass (collect + detect) over %d:\n", connections,
                rounds);
    std::printf("  without notices:                 %7.2f ms\n", plain.medianPass(rounds));
    Watcher heard{listening(false)};
    heard.pass();
    std::printf("  listening:                       %7.2f ms\n", heard.medianPass(rounds));
    {
        Watcher owned{listening(true)};
        owned.pass();
        std::printf("  listening, owners by eBPF:       %7.2f ms\n", owned.medianPass(rounds));
    }

    const double restStart = processCpuMs();
    std::this_thread::sleep_for(std::chrono::seconds(3));
    std::printf("at rest, 3 s, the listener idle:   %7.2f ms of CPU\n", processCpuMs() - restStart);

    const double closeStart = processCpuMs();
    for (const pid_t holder : holders)
        kill(holder, SIGUSR1);
    for (size_t i = 0; i < holders.size(); ++i) {
        if (read(pipe[0], &said, 1) != 1 || said != 'd')
            return 1;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    const double drained = processCpuMs() - closeStart;
    const double passCost = heard.pass();
    std::printf("mass close of %d connections: the listener's thread %7.2f ms, then a pass "
                "%7.2f ms with %lld items closed (%s)\n",
                connections, drained, passCost, static_cast<long long>(heard.closed),
                heard.collector.problem().isEmpty()
                    ? "no notice lost"
                    : heard.collector.problem().toLocal8Bit().constData());
    for (const pid_t holder : holders)
        kill(holder, SIGKILL);
    return 0;
}

// The built-in collector's cost beside ss and lsof, over N loopback TCP connections (2N sockets,
// held by two child processes that then sleep, as most processes of a machine do): the CPU time
// of a cold pass (a new collector), a warm pass (the same collector again), and of ss -tuna,
// ss -tunap and lsof -i -n -P +c 0 over the same sockets.
//
//   corvina_collector_bench N [ROUNDS]
//   corvina_collector_bench --warm-ms [ROUNDS]   the median warm pass over the machine's sockets
//                                                as they are, in milliseconds (scripts use it)
//
// Each child holds N descriptors: N must stay below the open-files hard limit (ulimit -Hn).

#include "collector/nativecollector.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string_view>
#include <vector>

namespace {

double processCpuMs()
{
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return time.tv_sec * 1e3 + time.tv_nsec / 1e6;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// A child that runs `hold`, says it is ready on `ready`, and sleeps until killed.
pid_t holder(int ready, const std::function<bool()>& hold)
{
    const pid_t child = fork();
    if (child == 0) {
        const char ok = hold() ? 'y' : 'n';
        if (write(ready, &ok, 1) != 1)
            _exit(1);
        for (;;)
            pause();
    }
    return child;
}

// The CPU time (user and system) of one run of a program, output discarded.
double toolCpuMs(const std::vector<const char*>& arguments, rlim_t fileLimit)
{
    const pid_t child = fork();
    if (child == 0) {
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, 1);
        dup2(null, 2);
        if (fileLimit) {
            const rlimit limit{fileLimit, fileLimit};
            setrlimit(RLIMIT_NOFILE, &limit);
        }
        std::vector<char*> argv;
        for (const char* argument : arguments)
            argv.push_back(const_cast<char*>(argument));
        argv.push_back(nullptr);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    if (!WIFEXITED(status) || WEXITSTATUS(status) == 127)
        return -1;
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1e3 +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e3;
}

bool openConnections(int count, std::vector<pid_t>& children)
{
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        listen(listener, 4096) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        return false;
    int ready[2];
    if (pipe(ready) != 0)
        return false;
    children.push_back(holder(ready[1], [&] {
        for (int i = 0; i < count; ++i) {
            if (accept(listener, nullptr, nullptr) < 0)
                return false;
        }
        return true;
    }));
    close(listener);
    children.push_back(holder(ready[1], [&] {
        for (int i = 0; i < count; ++i) {
            const int fd = socket(AF_INET, SOCK_STREAM, 0);
            if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0)
                return false;
        }
        return true;
    }));
    bool ok = true;
    for (int i = 0; i < 2; ++i) {
        char answer = 'n';
        ok = read(ready[0], &answer, 1) == 1 && answer == 'y' && ok;
    }
    return ok;
}

void report(const char* what, double ms)
{
    if (ms < 0)
        std::printf("%-44s (not available)\n", what);
    else
        std::printf("%-44s %8.1f ms CPU\n", what, ms);
}

} // namespace

// The warm pass over whatever sockets the machine has now.
int warmOnly(int rounds)
{
    NativeCollector collector;
    collector.collect();
    std::vector<double> warm;
    for (int i = 0; i < rounds; ++i) {
        const double start = processCpuMs();
        collector.collect();
        warm.push_back(processCpuMs() - start);
    }
    std::printf("%.2f\n", median(warm));
    return collector.refusal().isEmpty() ? 0 : 1;
}

int main(int argc, char** argv)
{
    if (argc >= 2 && std::string_view(argv[1]) == "--warm-ms")
        return warmOnly(argc > 2 ? std::max(1, std::atoi(argv[2])) : 5);
    if (argc < 2 || std::atoi(argv[1]) <= 0) {
        std::fprintf(stderr, "usage: corvina_collector_bench N [ROUNDS]\n");
        return 2;
    }
    const int count = std::atoi(argv[1]);
    const int rounds = argc > 2 ? std::max(1, std::atoi(argv[2])) : 5;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    if (rlim_t(count) + 64 > limit.rlim_max) {
        std::fprintf(stderr, "N=%d needs an open-files limit above %d (ulimit -Hn is %lu)\n", count,
                     count + 64, static_cast<unsigned long>(limit.rlim_max));
        return 1;
    }
    std::vector<pid_t> children;
    if (!openConnections(count, children)) {
        std::fprintf(stderr, "could not open %d connections\n", count);
        for (const pid_t child : children)
            kill(child, SIGKILL);
        return 1;
    }

    std::vector<double> cold, warm;
    qsizetype records = 0;
    for (int i = 0; i < rounds; ++i) {
        NativeCollector collector;
        const double start = processCpuMs();
        records = collector.collect().size();
        cold.push_back(processCpuMs() - start);
    }
    NativeCollector collector;
    collector.collect();
    for (int i = 0; i < rounds; ++i) {
        const double start = processCpuMs();
        collector.collect();
        warm.push_back(processCpuMs() - start);
    }
    const auto tool = [&](const std::vector<const char*>& arguments, rlim_t fileLimit) {
        std::vector<double> times;
        for (int i = 0; i < rounds; ++i)
            times.push_back(toolCpuMs(arguments, fileLimit));
        return median(times);
    };

    std::printf("%d connections, %lld records (median of %d runs)\n", count,
                static_cast<long long>(records), rounds);
    report("built-in collector, cold", median(cold));
    report("built-in collector, warm", median(warm));
    report("ss -tuna", tool({"ss", "-tuna"}, 0));
    report("ss -tunap", tool({"ss", "-tunap"}, 0));
    report("lsof -i -n -P +c 0 (open files 1024)",
           tool({"lsof", "-i", "-n", "-P", "+c", "0"}, 1024));
    report("lsof -i -n -P +c 0 (inherited limit)", tool({"lsof", "-i", "-n", "-P", "+c", "0"}, 0));
    for (const pid_t child : children) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    return 0;
}

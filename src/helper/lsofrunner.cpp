#include "lsofrunner.h"

#include "privileged/helperprotocol.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Only async-signal-safe calls between fork and exec.
[[noreturn]] void execChild(const LsofRunner::Options& options, char* const* argv, int outputFd)
{
    // Its own process group, so a kill reaches whatever the program started.
    ::setpgid(0, 0);
    const int devNull = ::open("/dev/null", O_RDWR);
    if (devNull < 0 || ::dup2(devNull, STDIN_FILENO) < 0 || ::dup2(outputFd, STDOUT_FILENO) < 0 ||
        ::dup2(devNull, STDERR_FILENO) < 0)
        ::_exit(127);
    const rlimit limit{options.fileLimit, options.fileLimit};
    ::setrlimit(RLIMIT_NOFILE, &limit);
    // Descriptors the daemon holds (client sockets, the listener) must not reach the child.
    ::close_range(3, ~0U, 0);
    static char path[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
    static char locale[] = "LC_ALL=C.UTF-8";
    char* environment[] = {path, locale, nullptr};
    ::execve(argv[0], argv, environment);
    ::_exit(127);
}

using Clock = std::chrono::steady_clock;

// How reading the child's output ended.
enum class ReadEnd { Finished, TimedOut, TooMuch };

// Starts the program with its output on a pipe: the child, and the pipe's reading end; a
// child of -1 when it could not be started.
std::pair<pid_t, int> startChild(const LsofRunner::Options& options)
{
    std::vector<std::string> words;
    words.push_back(options.program);
    words.insert(words.end(), options.arguments.begin(), options.arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0)
        return {-1, -1};
    const pid_t child = ::fork();
    if (child == 0)
        execChild(options, argv.data(), pipeFds[1]);
    ::close(pipeFds[1]);
    if (child < 0) {
        ::close(pipeFds[0]);
        return {-1, -1};
    }
    return {child, pipeFds[0]};
}

// Reads until the output ends, the deadline passes or the output grows past its bound.
ReadEnd readOutput(int fd, Clock::time_point deadline, std::size_t maxOutput, std::string& out)
{
    char buffer[65536];
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0)
            return ReadEnd::TimedOut;
        pollfd entry{fd, POLLIN, 0};
        if (::poll(&entry, 1, static_cast<int>(left.count())) <= 0)
            continue; // interrupted, or the deadline: the loop looks again
        const ssize_t got = ::read(fd, buffer, sizeof(buffer));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return ReadEnd::Finished;
        if (out.size() + static_cast<std::size_t>(got) > maxOutput)
            return ReadEnd::TooMuch;
        out.append(buffer, static_cast<std::size_t>(got));
    }
}

// Waits for the child, within the same deadline (a child that closed its output may still
// linger); past it, or when `kill`, its whole group is killed. False when it was killed for
// the time.
bool endChild(pid_t child, Clock::time_point deadline, bool kill, int& status)
{
    for (;;) {
        const bool late = Clock::now() >= deadline;
        if (kill || late) {
            ::kill(-child, SIGKILL);
            ::kill(child, SIGKILL);
            while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
            }
            return !late || kill;
        }
        const pid_t done = ::waitpid(child, &status, WNOHANG);
        if (done == child || (done < 0 && errno != EINTR))
            return true;
        ::usleep(2000);
    }
}

LsofRunner::Outcome outcomeOf(int status, const std::string& output)
{
    using Outcome = LsofRunner::Outcome;
    if (WIFEXITED(status) && WEXITSTATUS(status) == 127 && output.empty())
        return Outcome::NotStarted;
    if (WIFSIGNALED(status))
        return Outcome::Crashed;
    if (!HelperProtocol::isValidUtf8(output))
        return Outcome::NotUtf8;
    return Outcome::Ok;
}

} // namespace

std::string LsofRunner::firstExecutable(const std::vector<std::string>& candidates)
{
    for (const std::string& candidate : candidates) {
        if (::access(candidate.c_str(), X_OK) == 0)
            return candidate;
    }
    return {};
}

LsofRunner::Result LsofRunner::run(const Options& options)
{
    Result result;
    if (options.program.empty())
        return result;
    const auto [child, outputFd] = startChild(options);
    if (child < 0)
        return result;
    const auto deadline = Clock::now() + options.timeout;
    const ReadEnd end = readOutput(outputFd, deadline, options.maxOutput, result.output);
    ::close(outputFd);
    int status = 0;
    const bool inTime = endChild(child, deadline, end != ReadEnd::Finished, status);
    if (end == ReadEnd::TimedOut || !inTime)
        result.outcome = Outcome::TimedOut;
    else if (end == ReadEnd::TooMuch)
        result.outcome = Outcome::TooMuchOutput;
    else
        result.outcome = outcomeOf(status, result.output);
    if (result.outcome != Outcome::Ok)
        result.output.clear();
    return result;
}

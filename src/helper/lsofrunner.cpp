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
    std::vector<std::string> words;
    words.push_back(options.program);
    words.insert(words.end(), options.arguments.begin(), options.arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0)
        return result;
    const pid_t child = ::fork();
    if (child < 0) {
        ::close(pipeFds[0]);
        ::close(pipeFds[1]);
        return result;
    }
    if (child == 0)
        execChild(options, argv.data(), pipeFds[1]);
    ::close(pipeFds[1]);

    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + options.timeout;
    bool timedOut = false;
    bool tooMuch = false;
    char buffer[65536];
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) {
            timedOut = true;
            break;
        }
        pollfd entry{pipeFds[0], POLLIN, 0};
        const int ready = ::poll(&entry, 1, static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            continue;
        const ssize_t got = ::read(pipeFds[0], buffer, sizeof(buffer));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        if (result.output.size() + static_cast<std::size_t>(got) > options.maxOutput) {
            tooMuch = true;
            break;
        }
        result.output.append(buffer, static_cast<std::size_t>(got));
    }
    ::close(pipeFds[0]);
    int status = 0;
    // A child that closed its output may still linger; the time bound holds for it too.
    for (;;) {
        if (timedOut || tooMuch || Clock::now() >= deadline) {
            timedOut = timedOut || !tooMuch;
            ::kill(-child, SIGKILL);
            ::kill(child, SIGKILL);
            while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
            }
            break;
        }
        const pid_t done = ::waitpid(child, &status, WNOHANG);
        if (done == child || (done < 0 && errno != EINTR))
            break;
        ::usleep(2000);
    }

    if (timedOut)
        result.outcome = Outcome::TimedOut;
    else if (tooMuch)
        result.outcome = Outcome::TooMuchOutput;
    else if (WIFEXITED(status) && WEXITSTATUS(status) == 127 && result.output.empty())
        result.outcome = Outcome::NotStarted;
    else if (WIFSIGNALED(status))
        result.outcome = Outcome::Crashed;
    else if (!HelperProtocol::isValidUtf8(result.output))
        result.outcome = Outcome::NotUtf8;
    else
        result.outcome = Outcome::Ok;
    if (result.outcome != Outcome::Ok)
        result.output.clear();
    return result;
}

#include "boundedprocess.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

int remainingMs(Clock::time_point deadline)
{
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return int(std::max<std::chrono::milliseconds::rep>(0, left.count()));
}

void closeIfOpen(int& fd)
{
    if (fd >= 0)
        close(fd);
    fd = -1;
}

// Starts the program in a process group of its own; -1 when it could not be forked. The pipes'
// read ends are left in `out` and `err`.
pid_t spawn(const std::vector<std::string>& argv, int& out, int& err)
{
    std::vector<char*> args;
    for (const std::string& arg : argv)
        args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);

    int outPipe[2];
    int errPipe[2];
    if (pipe2(outPipe, O_CLOEXEC) != 0)
        return -1;
    if (pipe2(errPipe, O_CLOEXEC) != 0) {
        close(outPipe[0]);
        close(outPipe[1]);
        return -1;
    }
    const int devNull = open("/dev/null", O_RDWR | O_CLOEXEC);
    const pid_t pid = fork();
    if (pid == 0) {
        // Only async-signal-safe calls between fork and exec.
        setpgid(0, 0);
        if (devNull >= 0)
            dup2(devNull, STDIN_FILENO);
        dup2(outPipe[1], STDOUT_FILENO);
        dup2(errPipe[1], STDERR_FILENO);
        execv(args[0], args.data());
        _exit(127);
    }
    close(outPipe[1]);
    close(errPipe[1]);
    if (devNull >= 0)
        close(devNull);
    if (pid < 0) {
        close(outPipe[0]);
        close(errPipe[0]);
        return -1;
    }
    // Also in the parent, so that a kill at the bound cannot come before the child's own call.
    setpgid(pid, pid);
    out = outPipe[0];
    err = errPipe[0];
    return pid;
}

// Reads both pipes until both are closed, the deadline passes or the output grows too large.
void collect(int out, int err, Clock::time_point deadline, BoundedProcess::Outcome& outcome)
{
    int fds[2] = {out, err};
    char buffer[65536];
    while (fds[0] >= 0 || fds[1] >= 0) {
        pollfd entries[2] = {{fds[0], POLLIN, 0}, {fds[1], POLLIN, 0}};
        const int ready = poll(entries, 2, remainingMs(deadline));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0) {
            outcome.timedOut = true;
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i] < 0 || entries[i].revents == 0)
                continue;
            const ssize_t got = read(fds[i], buffer, sizeof buffer);
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0) {
                closeIfOpen(fds[i]);
                continue;
            }
            QByteArray& sink = i == 0 ? outcome.output : outcome.errors;
            if (i == 0 && sink.size() + got > BoundedProcess::kMaxOutput) {
                outcome.tooLarge = true;
                closeIfOpen(fds[0]);
                closeIfOpen(fds[1]);
                return;
            }
            const qsizetype room = i == 0 ? got : BoundedProcess::kMaxErrors - sink.size();
            sink.append(buffer, std::min<qsizetype>(room, got));
        }
    }
    closeIfOpen(fds[0]);
    closeIfOpen(fds[1]);
}

// Waits for the program until the deadline, then kills its group: whatever it left behind
// goes too. The zombie keeps the group's id taken until the group has been signalled.
// `overran` tells whether it was still running at the deadline.
int reap(pid_t pid, Clock::time_point deadline, bool killNow, bool& overran)
{
    siginfo_t info{};
    for (;;) {
        info.si_pid = 0;
        const int waited = waitid(P_PID, id_t(pid), &info, WEXITED | WNOWAIT | WNOHANG);
        if (waited < 0 && errno == EINTR)
            continue;
        if (waited < 0 || info.si_pid == pid || killNow)
            break;
        if (Clock::now() >= deadline) {
            overran = true;
            break;
        }
        usleep(5000);
    }
    kill(-pid, SIGKILL);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

BoundedProcess::Outcome BoundedProcess::run(const QStringList& argv,
                                            std::chrono::milliseconds bound)
{
    Outcome outcome;
    if (argv.isEmpty())
        return outcome;
    std::vector<std::string> args;
    for (const QString& arg : argv)
        args.push_back(arg.toStdString());

    const auto deadline = Clock::now() + bound;
    int out = -1;
    int err = -1;
    const pid_t pid = spawn(args, out, err);
    if (pid < 0)
        return outcome;
    outcome.started = true;
    collect(out, err, deadline, outcome);
    const bool killNow = outcome.timedOut || outcome.tooLarge;
    bool overran = false;
    const int exitCode = reap(pid, deadline, killNow, overran);
    outcome.timedOut = outcome.timedOut || overran;
    outcome.exitCode = killNow || overran ? -1 : exitCode;
    return outcome;
}

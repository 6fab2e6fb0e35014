#include "gacommandrunner.h"

#include "platform/sandbox.h"
#include "platform/systemlog.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

// Far beyond any real lsof output (100 000 sockets print about 12 MiB); a child that prints
// more is treated as broken rather than filling memory.
constexpr qsizetype kMaxOutput = 256 * 1024 * 1024;

struct ChildOutput {
    QByteArray bytes;
    int exitCode = -1;
    bool timedOut = false;
    bool started = false;
    bool tooLarge = false;
};

using Clock = std::chrono::steady_clock;

int remainingMs(Clock::time_point deadline)
{
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return int(std::max<std::chrono::milliseconds::rep>(0, left.count()));
}

// Waits for the child until `deadline`; at the deadline kills its whole process group (what a
// script started lives there too) and reaps it. True when it ended by itself in time.
bool reapChild(pid_t pid, Clock::time_point deadline, int* status)
{
    auto pause = std::chrono::microseconds(500);
    for (;;) {
        const pid_t done = waitpid(pid, status, WNOHANG);
        if (done == pid)
            return true;
        if (done < 0 && errno != EINTR)
            return true; // not our child any more: nothing left to wait for
        if (Clock::now() >= deadline)
            break;
        // A child that closed its output usually exits at once; one that lingers is polled
        // gently until the bound.
        const auto left =
            std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now());
        usleep(
            useconds_t(std::clamp<std::chrono::microseconds::rep>(left.count(), 1, pause.count())));
        pause = std::min(pause * 2, std::chrono::microseconds(10000));
    }
    kill(-pid, SIGKILL);
    kill(pid, SIGKILL);
    while (waitpid(pid, status, 0) < 0 && errno == EINTR) {
    }
    return false;
}

// Reads `fd` to its end, or until `deadline` or kMaxOutput.
void collectOutput(int fd, Clock::time_point deadline, ChildOutput& result)
{
    char buffer[65536];
    for (;;) {
        pollfd entry{fd, POLLIN, 0};
        const int ready = poll(&entry, 1, remainingMs(deadline));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0) {
            result.timedOut = true;
            return;
        }
        const ssize_t got = read(fd, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return;
        if (result.bytes.size() + got > kMaxOutput) {
            result.tooLarge = true;
            return;
        }
        result.bytes.append(buffer, got);
    }
}

// Starts argv[0] in a process group of its own, with stdin from /dev/null and the open-file
// limit lowered (lsof walks every possible descriptor, which takes seconds under a high
// limit). Collects standard output until end of file; the bound covers the output and the
// child's exit together, and at the bound the group is killed. A script road run
// (`stopAtBound`) keeps what arrived and is not an error.
ChildOutput runChild(const std::vector<std::string>& argv, std::chrono::milliseconds bound,
                     bool stopAtBound)
{
    ChildOutput result;
    std::vector<char*> args;
    for (const std::string& arg : argv)
        args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);

    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0)
        return result;
    const int devNull = open("/dev/null", O_RDWR | O_CLOEXEC);
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    if (files.rlim_cur == RLIM_INFINITY ||
        files.rlim_cur > rlim_t(GACommandRunner::kChildOpenFileLimit))
        files.rlim_cur = GACommandRunner::kChildOpenFileLimit;

    const pid_t pid = fork();
    if (pid == 0) {
        // Only async-signal-safe calls between fork and exec.
        setpgid(0, 0);
        if (devNull >= 0)
            dup2(devNull, STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        setrlimit(RLIMIT_NOFILE, &files);
        execv(args[0], args.data());
        _exit(127);
    }
    close(out[1]);
    if (devNull >= 0)
        close(devNull);
    if (pid < 0) {
        close(out[0]);
        return result;
    }
    result.started = true;
    setpgid(pid, pid);

    const auto deadline = Clock::now() + bound;
    collectOutput(out[0], deadline, result);
    close(out[0]);
    int status = 0;
    // Past the bound or the size limit the group is killed at once.
    const bool stopNow = result.timedOut || result.tooLarge;
    if (!reapChild(pid, stopNow ? Clock::now() : deadline, &status) && !result.tooLarge)
        result.timedOut = true;
    if (WIFEXITED(status))
        result.exitCode = WEXITSTATUS(status);
    if (stopAtBound)
        result.timedOut = false;
    return result;
}

// The bytes when they are UTF-8 (empty, never null, when there are none), else null.
QByteArray validUtf8(const QByteArray& bytes)
{
    if (!bytes.isValidUtf8())
        return {};
    return bytes.isNull() ? QByteArray("") : bytes;
}

} // namespace

GACommandRunner::GACommandRunner(QObject* parent) : QObject(parent) {}

GACommandRunner::~GACommandRunner()
{
    if (m_task)
        m_task->disconnect(this);
}

QString GACommandRunner::lsofPath()
{
    for (const QString& candidate : {u"/usr/sbin/lsof"_s, u"/usr/bin/lsof"_s}) {
        const QFileInfo info(candidate);
        if (info.isFile() && info.isExecutable())
            return candidate;
    }
    return u"/usr/sbin/lsof"_s;
}

QStringList GACommandRunner::lsofArguments()
{
    return {u"-i"_s, u"-n"_s, u"-P"_s, u"+c"_s, u"0"_s};
}

QString GACommandRunner::runCommandSync(const QString& path, const QString& currentDirectory,
                                        const QStringList& arguments, const QString& inputText)
{
    Q_UNUSED(currentDirectory);
    Q_UNUSED(inputText);
    const Road road = Sandbox::isSandboxed() ? Road::Script : Road::Shell;
    const QByteArray output =
        runCommandSync(path, arguments, road, road == Road::Script ? kScriptBound : kShellBound)
            .output;
    if (output.isNull())
        return {};
    return output.isEmpty() ? u""_s : QString::fromUtf8(output);
}

GACommandRunner::SyncResult GACommandRunner::runCommandSync(const QString& path,
                                                            const QStringList& arguments, Road road,
                                                            std::chrono::milliseconds bound)
{
    std::vector<std::string> argv;
    if (road == Road::Shell) {
        // One command line, no quoting: an argument with a blank becomes two words.
        const QString line = u"%1 %2"_s.arg(path, arguments.join(u' '));
        argv = {"/bin/sh", "-c", line.toStdString()};
    } else {
        if (Sandbox::kind() == Sandbox::Kind::Flatpak)
            argv = {"/usr/bin/flatpak-spawn", "--host"};
        argv.push_back(QFile::encodeName(path).toStdString());
        for (const QString& argument : arguments)
            argv.push_back(argument.toStdString());
    }

    const ChildOutput child = runChild(argv, bound, road == Road::Script);
    SyncResult result;
    result.started = child.started;
    result.exitCode = child.exitCode;
    result.timedOut = child.timedOut;
    const QString name = QFileInfo(path).fileName();
    if (!child.started) {
        result.problem = u"%1 could not be started."_s.arg(name);
    } else if (child.timedOut) {
        result.problem = u"%1 did not finish within %2 seconds and was stopped."_s.arg(name).arg(
            std::chrono::duration_cast<std::chrono::seconds>(bound).count());
    } else if (child.tooLarge) {
        result.problem = u"%1 printed more than %2 MiB and was stopped."_s.arg(name).arg(
            kMaxOutput / (1024 * 1024));
    } else {
        result.output = validUtf8(child.bytes);
        if (result.output.isNull())
            result.problem = u"%1 printed text that is not UTF-8."_s.arg(name);
        else if (child.exitCode == 127 && child.bytes.isEmpty())
            result.problem = u"%1 could not be run: %2 was not found."_s.arg(name, path);
    }
    return result;
}

void GACommandRunner::runCommand(const QString& commandPath, const QString& currentDirectory,
                                 const QStringList& arguments, const QString& inputText,
                                 std::function<void(const QString&)> outputSink,
                                 std::function<void(QProcess&)> terminationHandler)
{
    m_commandPath = commandPath;
    m_workDirectory = currentDirectory;
    m_arguments = arguments;
    m_inputText = inputText;
    m_outputSink = std::move(outputSink);
    m_terminationHandler = std::move(terminationHandler);
    run();
}

void GACommandRunner::run()
{
    terminateTask();
    if (m_task)
        m_task->disconnect(this);
    m_task = std::make_unique<QProcess>();
    QProcess& task = *m_task;

    if (m_commandPath.startsWith(u'/')) {
        task.setProgram(m_commandPath);
        task.setArguments(m_arguments);
    } else {
        task.setProgram(u"/usr/bin/env"_s);
        task.setArguments(QStringList{m_commandPath} + m_arguments);
    }

    if (!m_workDirectory.isNull()) {
        if (QFileInfo(m_workDirectory).isDir())
            task.setWorkingDirectory(m_workDirectory);
        else
            SystemLog::write(u"Work directory %1 does not exists"_s.arg(m_workDirectory));
    }

    // The child gets only this map, not our environment.
    QProcessEnvironment environment = m_environment.value_or(QProcessEnvironment());
    if (!m_workDirectory.isNull())
        environment.insert(u"HOME"_s, m_workDirectory);
    task.setProcessEnvironment(environment);

    task.setProcessChannelMode(QProcess::MergedChannels);
    connect(&task, &QProcess::readyReadStandardOutput, this,
            [this] { appendDataOfString(m_task->readAllStandardOutput()); });
    connect(&task, &QProcess::finished, this, [this] {
        appendDataOfString(m_task->readAllStandardOutput());
        if (m_terminationHandler)
            m_terminationHandler(*m_task);
    });
    task.start();
    if (!m_inputText.isNull()) {
        task.write(m_inputText.toUtf8());
        // A child that reads its input to the end must see the end.
        task.closeWriteChannel();
    }
}

void GACommandRunner::appendDataOfString(const QByteArray& bytes)
{
    if (bytes.isEmpty())
        return;
    const QString text = QString::fromUtf8(bytes);
    SystemLog::write(text);
    m_outputStorage += text;
    if (m_outputSink)
        m_outputSink(text);
}

void GACommandRunner::terminateTask()
{
    if (!m_task || m_task->state() == QProcess::NotRunning)
        return;
    m_task->terminate();
    if (!m_task->waitForFinished(3000)) {
        m_task->kill();
        m_task->waitForFinished(-1);
    }
}

bool GACommandRunner::isTaskRunning() const
{
    return m_task && m_task->state() != QProcess::NotRunning;
}

qint64 GACommandRunner::processId() const
{
    return m_task ? m_task->processId() : 0;
}

void GACommandRunner::waitTaskUntilDone(QObject* sender)
{
    Q_UNUSED(sender);
    if (m_task && m_task->state() != QProcess::NotRunning)
        m_task->waitForFinished(-1);
}

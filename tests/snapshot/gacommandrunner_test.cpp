#include "platform/systemlog.h"
#include "snapshot/gacommandrunner.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>

using Road = GACommandRunner::Road;

TEST(CommandRunnerSync, ShellRoadJoinsArgumentsWithoutQuoting)
{
    const auto result = GACommandRunner::runCommandSync(u"/usr/bin/printf"_s, {u"[%s]"_s, u"a b"_s},
                                                        Road::Shell, 5s);
    EXPECT_EQ(result.output, "[a][b]") << "an argument with a blank becomes two words";
    EXPECT_TRUE(result.problem.isEmpty());
}

TEST(CommandRunnerSync, ChildRunsWithTheOpenFileLimitLowered)
{
    const auto result = GACommandRunner::runCommandSync(u"ulimit"_s, {u"-n"_s}, Road::Shell, 5s);
    ASSERT_FALSE(result.output.isNull());
    EXPECT_LE(result.output.trimmed().toInt(), GACommandRunner::kChildOpenFileLimit);
    EXPECT_GT(result.output.trimmed().toInt(), 0);
}

TEST(CommandRunnerSync, FailuresGiveNullTextAndSayWhy)
{
    const auto hanging =
        GACommandRunner::runCommandSync(u"/bin/sleep"_s, {u"30"_s}, Road::Shell, 200ms);
    EXPECT_TRUE(hanging.output.isNull());
    EXPECT_TRUE(hanging.timedOut);
    EXPECT_NE(hanging.problem.indexOf(u"did not finish"_s), -1) << hanging.problem.toStdString();

    const auto notUtf8 =
        GACommandRunner::runCommandSync(u"/usr/bin/printf"_s, {u"'\\377\\376'"_s}, Road::Shell, 5s);
    EXPECT_TRUE(notUtf8.output.isNull());
    EXPECT_NE(notUtf8.problem.indexOf(u"not UTF-8"_s), -1);

    const auto missing =
        GACommandRunner::runCommandSync(u"/nonexistent/lsof"_s, {}, Road::Shell, 5s);
    EXPECT_TRUE(missing.output.isEmpty());
    EXPECT_EQ(missing.exitCode, 127);
    EXPECT_NE(missing.problem.indexOf(u"was not found"_s), -1);
}

TEST(CommandRunnerSync, ScriptRoadKeepsOnlyWhatArrivedWithinItsBound)
{
    QTemporaryDir dir;
    const QString script = dir.filePath(u"slow.sh"_s);
    QFile file(script);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("#!/bin/sh\necho \"early $1\"\nsleep 5\necho late\n");
    file.close();
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::ExeOwner);

    const auto result = GACommandRunner::runCommandSync(script, {u"x y"_s}, Road::Script, 300ms);
    // Arguments reach a script as they are: no shell splits them.
    EXPECT_EQ(result.output, "early x y\n");
    EXPECT_FALSE(result.timedOut) << "the bound is the script road's normal end";
}

namespace {

// Gone, or a zombie left for its new parent to reap: it runs no more either way.
bool processEndedNow(pid_t pid)
{
    if (::kill(pid, 0) != 0)
        return errno == ESRCH;
    QFile stat(u"/proc/%1/stat"_s.arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return true;
    const QByteArray text = stat.readAll();
    const qsizetype close = text.lastIndexOf(')');
    return close > 0 && text.mid(close + 2, 1) == "Z";
}

// A killed process other than our own child dies a moment after the signal is sent.
bool processEnded(pid_t pid)
{
    QElapsedTimer patience;
    patience.start();
    while (!processEndedNow(pid) && patience.elapsed() < 5000)
        QThread::msleep(10);
    return processEndedNow(pid);
}

} // namespace

// A child that closes its output and lingers is bounded too: the call returns at the bound,
// not when the child ends, and the child and what it started are killed.
TEST(CommandRunnerSync, EachRoadEndsAChildThatClosesItsOutputAndLingers)
{
    QTemporaryDir dir;
    const QString script = dir.filePath(u"linger.sh"_s);
    QFile file(script);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("#!/bin/sh\n"
               "sleep 30 >/dev/null &\n"
               "echo $$ $! > \"$(dirname \"$0\")/pids\"\n"
               "echo out\n"
               "exec >&-\n"
               "exec sleep 30\n");
    file.close();
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::ExeOwner);

    for (const Road road : {Road::Script, Road::Shell}) {
        SCOPED_TRACE(road == Road::Script ? "script road" : "shell road");
        QFile::remove(dir.filePath(u"pids"_s));
        QElapsedTimer clock;
        clock.start();
        const auto result = GACommandRunner::runCommandSync(script, {}, road, 2s);
        EXPECT_LT(clock.elapsed(), 15000) << "the call waited for the child";
        if (road == Road::Script) {
            EXPECT_EQ(result.output, "out\n") << "what arrived within the bound is kept";
        } else {
            EXPECT_TRUE(result.timedOut);
            EXPECT_TRUE(result.output.isNull()) << "a killed lsof run is a failed run";
        }
        QFile pids(dir.filePath(u"pids"_s));
        ASSERT_TRUE(pids.open(QIODevice::ReadOnly));
        const QList<QByteArray> lines = pids.readAll().trimmed().split(' ');
        ASSERT_EQ(lines.size(), 2);
        for (const QByteArray& line : lines)
            EXPECT_TRUE(processEnded(pid_t(line.toInt()))) << "process " << line.toStdString();
    }
}

// A runner on an event loop of its own.
class CommandRunnerAsync : public testing::Test {
protected:
    // Runs the event loop until the child has ended, five seconds at most.
    void waitForEnd()
    {
        QEventLoop loop;
        QTimer::singleShot(5000, &loop, &QEventLoop::quit);
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
            if (ended)
                loop.quit();
        });
        poll.start(10);
        loop.exec();
    }

    int argc = 0;
    QCoreApplication app{argc, nullptr};
    GACommandRunner runner;
    bool ended = false;
};

TEST_F(CommandRunnerAsync, RelativeCommandsGoThroughEnvWithOnlyTheGivenEnvironment)
{
    QStringList logged;
    SystemLog::setEcho([&](const QString& message) { logged << message; });

    QProcessEnvironment environment;
    environment.insert(u"ONLY"_s, u"this"_s);
    runner.setEnvironment(environment);
    QString sinkText;
    runner.runCommand(
        u"env"_s, u"/nonexistent-corvina-dir"_s, {}, QString(),
        [&](const QString& text) { sinkText += text; }, [&](QProcess&) { ended = true; });
    waitForEnd();
    SystemLog::setEcho({});

    ASSERT_TRUE(ended);
    // HOME is the missing folder all the same; nothing of ours is inherited.
    QStringList lines = runner.outputStorage().split(u'\n', Qt::SkipEmptyParts);
    lines.sort();
    EXPECT_EQ(lines, (QStringList{u"HOME=/nonexistent-corvina-dir"_s, u"ONLY=this"_s}));
    EXPECT_EQ(sinkText, runner.outputStorage());
    EXPECT_TRUE(logged.contains(u"Work directory /nonexistent-corvina-dir does not exists"_s));
    EXPECT_FALSE(runner.isTaskRunning());
}

TEST_F(CommandRunnerAsync, InputTextIsWrittenAndClosed)
{
    int exitCode = -1;
    runner.runCommand(u"/bin/cat"_s, QString(), {}, u"input text"_s, {}, [&](QProcess& process) {
        exitCode = process.exitCode();
        ended = true;
    });
    EXPECT_GT(runner.processId(), 0);
    waitForEnd();
    ASSERT_TRUE(ended) << "cat must see the end of its input";
    EXPECT_EQ(exitCode, 0);
    EXPECT_EQ(runner.outputStorage(), u"input text"_s);
}

TEST_F(CommandRunnerAsync, TerminateStopsARunningChild)
{
    runner.setCommandPath(u"/bin/sleep"_s);
    runner.setArguments({u"30"_s});
    runner.run();
    ASSERT_TRUE(runner.isTaskRunning());
    runner.terminateTask();
    EXPECT_FALSE(runner.isTaskRunning());
    // Running again first stops the previous child.
    runner.run();
    const qint64 first = runner.processId();
    runner.run();
    EXPECT_NE(runner.processId(), first);
    runner.terminateTask();
}

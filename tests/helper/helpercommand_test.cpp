#include "cli/helpercommand.h"
#include "daemonprocess.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace Qt::StringLiterals;

namespace {

struct CommandRun {
    int status = -1;
    QString out;
    QString err;
};

CommandRun helper(const QStringList& args)
{
    CommandRun run;
    QTextStream out(&run.out);
    QTextStream err(&run.err);
    run.status = runHelperCommand(args, out, err);
    return run;
}

using HelperCommand = DaemonTest;

TEST_F(HelperCommand, RemoveInstructionsUndoEveryFileTheInstallWrites)
{
    ASSERT_EQ(DaemonProcess::runToCompletion({"--install", "--destdir", m_dir}), 0);
    const CommandRun run = helper({u"remove-instructions"_s});
    ASSERT_EQ(run.status, 0);
    for (const auto& entry : fs::recursive_directory_iterator(m_dir)) {
        if (!entry.is_regular_file())
            continue;
        const std::string installed = entry.path().string().substr(m_dir.size());
        const QString path = QString::fromStdString(installed);
        const QString folder = QString::fromStdString(fs::path(installed).parent_path().string());
        const QString name = QString::fromStdString(fs::path(installed).filename().string());
        // Either the file itself, or its folder removed whole, or a "rm -f DIR/a DIR/b" line.
        const bool covered = run.out.contains(path) || run.out.contains(u"rm -rf "_s + folder) ||
                             (run.out.contains(folder) && run.out.contains(name));
        EXPECT_TRUE(covered) << installed << " is not removed by:\n" << run.out.toStdString();
    }
    EXPECT_TRUE(run.out.contains(u"systemctl disable --now com.brindle.Corvina.Helper.socket"_s));
    EXPECT_TRUE(run.out.contains(u"groupdel corvina"_s));
}

TEST_F(HelperCommand, StatusSaysWhetherTheHelperAnswers)
{
    const QString socket = QString::fromStdString(m_socket);
    const QStringList args = {u"status"_s, u"--helper-socket"_s, socket};

    const CommandRun silent = helper(args);
    EXPECT_EQ(silent.status, 1);
    EXPECT_TRUE(silent.out.contains(u"answers: no"_s)) << silent.out.toStdString();

    ASSERT_TRUE(m_daemon.start(m_socket, {"--allow-uid", std::to_string(::getuid())}));
    const CommandRun answering = helper(args);
    EXPECT_EQ(answering.status, 0);
    EXPECT_TRUE(answering.out.contains(u"answers: yes, version 1.0"_s))
        << answering.out.toStdString();
    EXPECT_TRUE(answering.out.contains(u"socket: "_s + socket));
}

TEST_F(HelperCommand, BadUsageExitsTwoWithAMessage)
{
    const std::vector<QStringList> cases = {
        {},
        {u"frobnicate"_s},
        {u"status"_s, u"--helper-socket"_s},
        {u"status"_s, u"--verbose"_s},
        {u"status"_s, u"extra"_s},
    };
    for (const QStringList& args : cases) {
        SCOPED_TRACE(args.join(u' ').toStdString());
        const CommandRun run = helper(args);
        EXPECT_EQ(run.status, 2);
        EXPECT_TRUE(run.err.startsWith(u"corvina: "_s));
        EXPECT_TRUE(run.out.isEmpty());
    }
}

} // namespace

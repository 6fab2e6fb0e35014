#include "platform/desktopentryindex.h"
#include "platform/runningapplication.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <unistd.h>

namespace {

const QString kFixtures = QStringLiteral(CORVINA_TEST_DATA "/desktop");

// A /proc tree of made-up processes, so every source of a record can be tried without
// depending on what runs on the machine.
class FakeProc {
public:
    FakeProc()
        : m_index({kFixtures + u"/user/applications"_s,
                   kFixtures + u"/flatpak/exports/share/applications"_s},
                  1h)
    {
    }

    QString process(qint64 pid) const { return m_dir.filePath(u"proc/"_s + QString::number(pid)); }

    void write(qint64 pid, const QString& file, const QByteArray& contents) const
    {
        const QString path = process(pid) + u'/' + file;
        QDir().mkpath(QFileInfo(path).path());
        QFile out(path);
        ASSERT_TRUE(out.open(QIODevice::WriteOnly));
        out.write(contents);
    }

    void linkExe(qint64 pid, const QString& target) const
    {
        QDir().mkpath(process(pid));
        ASSERT_TRUE(QFile::link(target, process(pid) + u"/exe"_s));
    }

    RunningApplication::Sources sources(QString locale = u"de_DE.UTF-8"_s)
    {
        RunningApplication::Sources sources;
        sources.procRoot = m_dir.filePath(u"proc"_s);
        sources.desktopEntries = &m_index;
        sources.locale = std::move(locale);
        sources.flatpakInstallations = {m_dir.filePath(u"user-flatpak"_s),
                                        m_dir.filePath(u"system-flatpak"_s)};
        return sources;
    }

    std::shared_ptr<const RunningApplication> read(qint64 pid, QString locale = u"de_DE.UTF-8"_s)
    {
        return RunningApplication::read(pid, sources(std::move(locale)));
    }

    std::shared_ptr<const RunningApplication> lookUp(qint64 pid)
    {
        return RunningApplication::runningApplicationWithProcessIdentifier(pid, sources());
    }

    void startProcess(qint64 pid, const QByteArray& name, quint64 startTime) const
    {
        write(pid, u"comm"_s, name + '\n');
        write(pid, u"stat"_s,
              QByteArray::number(pid) + " (" + name +
                  ") S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 " +
                  QByteArray::number(startTime) + " 20 21\n");
    }

    QString path(const QString& relative) const { return m_dir.filePath(relative); }

private:
    QTemporaryDir m_dir;
    DesktopEntryIndex m_index;
};

} // namespace

TEST(RunningApplication, DescribesThisTestProcess)
{
    DesktopEntryIndex noEntries({}, 1h);
    RunningApplication::Sources sources;
    sources.desktopEntries = &noEntries;
    const auto app = RunningApplication::read(::getpid(), sources);
    ASSERT_TRUE(app);

    const QString binary =
        QFileInfo(QStringLiteral(CORVINA_BINARY_DIR "/tests/platform/corvina_tests_platform"))
            .canonicalFilePath();
    EXPECT_EQ(app->processIdentifier(), ::getpid());
    EXPECT_EQ(app->executablePath(), binary);
    EXPECT_TRUE(u"corvina_tests_platform"_s.startsWith(app->processName()))
        << app->processName().toStdString();
    EXPECT_GE(app->processName().size(), 10);
    ASSERT_FALSE(app->commandLine().isEmpty());
    EXPECT_TRUE(app->commandLine().front().endsWith(u"corvina_tests_platform"_s));
    EXPECT_GT(app->startTime(), 0u);
    EXPECT_TRUE(app->localizedName().isNull());
    EXPECT_TRUE(app->bundlePath().isNull());

    EXPECT_EQ(
        RunningApplication::runningApplicationWithProcessIdentifier(::getpid())->executablePath(),
        binary);
}

// A miss is asked again at the next call; a record found answers again only while it is the
// same process (a reused process id, or none, is read afresh).
TEST(RunningApplication, LookUpsForgetMissesAndEndedProcesses)
{
    // Above the kernel's largest possible pid_max, and no process at all.
    for (const qint64 pid : {qint64(1) << 30, qint64(0), qint64(-5)})
        EXPECT_FALSE(RunningApplication::runningApplicationWithProcessIdentifier(pid)) << pid;
    FakeProc proc;
    EXPECT_FALSE(proc.lookUp(500));
    proc.startProcess(500, "first", 100);
    const auto first = proc.lookUp(500);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->processName(), u"first"_s);
    EXPECT_EQ(proc.lookUp(500), first) << "one read serves the process's items";

    proc.startProcess(500, "second", 200);
    const auto second = proc.lookUp(500);
    ASSERT_TRUE(second);
    EXPECT_EQ(second->processName(), u"second"_s);

    ASSERT_TRUE(QDir(proc.process(500)).removeRecursively());
    EXPECT_FALSE(proc.lookUp(500));
}

TEST(RunningApplication, UnreadableProcessDegradesToItsName)
{
    FakeProc proc;
    // Another user's process: comm and stat are readable, exe, environ and root are not. The
    // name in stat may hold blanks and parentheses; the start time is still field 22.
    proc.startProcess(700, "a) b (c", 5123);
    proc.write(700, u"comm"_s, "sshd\n");
    const auto app = proc.read(700);
    ASSERT_TRUE(app);
    EXPECT_EQ(app->processName(), u"sshd"_s);
    EXPECT_TRUE(app->executablePath().isNull());
    EXPECT_TRUE(app->commandLine().isEmpty());
    EXPECT_EQ(app->startTime(), 5123u);
    EXPECT_TRUE(app->localizedName().isNull());
    EXPECT_TRUE(app->iconName().isNull());
    EXPECT_TRUE(app->bundlePath().isNull());
}

TEST(RunningApplication, AppImageIsTheBundleAndTryExecNamesTheApp)
{
    FakeProc proc;
    proc.write(900, u"comm"_s, "mytool\n");
    proc.write(900, u"cmdline"_s, QByteArray("/tmp/.mount_Tool/usr/bin/mytool\0--x\0", 36));
    proc.write(900, u"environ"_s,
               QByteArray("HOME=/home/u\0APPIMAGE=/home/u/Apps/My Tool.AppImage\0LANG=C\0", 60));
    proc.linkExe(900, u"/tmp/.mount_Tool/usr/bin/mytool"_s);

    const auto app = proc.read(900);
    ASSERT_TRUE(app);
    EXPECT_EQ(app->executablePath(), u"/tmp/.mount_Tool/usr/bin/mytool"_s);
    EXPECT_EQ(app->commandLine(), (QStringList{u"/tmp/.mount_Tool/usr/bin/mytool"_s, u"--x"_s}));
    EXPECT_EQ(app->bundlePath(), u"/home/u/Apps/My Tool.AppImage"_s);
    EXPECT_EQ(app->localizedName(), u"My Tool"_s);
    EXPECT_EQ(app->iconName(), u"/opt/mytool/share/mytool.png"_s);
}

TEST(RunningApplication, FlatpakAppFolderFromInfoOrCgroup)
{
    FakeProc proc;
    // Our own sandboxed process: .flatpak-info is readable through its root.
    proc.write(1001, u"comm"_s, "viewer-bin\n");
    proc.write(1001, u"root/.flatpak-info"_s,
               "[Application]\nname=org.example.Viewer\nruntime=runtime/org.x.Platform\n\n"
               "[Instance]\ninstance-id=123\n"
               "app-path=/var/lib/flatpak/app/org.example.Viewer/x86_64/stable/abc/files\n");
    proc.linkExe(1001, u"/app/bin/viewer-bin"_s);
    const auto own = proc.read(1001);
    ASSERT_TRUE(own);
    EXPECT_EQ(own->flatpakAppId(), u"org.example.Viewer"_s);
    EXPECT_EQ(own->bundlePath(), u"/var/lib/flatpak/app/org.example.Viewer"_s);
    EXPECT_EQ(own->localizedName(), u"Betrachter"_s);
    EXPECT_EQ(own->iconName(), u"org.example.Viewer"_s);

    // Someone else's: only the cgroup names the app; the folder is found among installations.
    ASSERT_TRUE(QDir().mkpath(proc.path(u"system-flatpak/app/org.example.Viewer"_s)));
    proc.write(1002, u"comm"_s, "viewer-bin\n");
    proc.write(1002, u"cgroup"_s,
               "0::/user.slice/user-1000.slice/user@1000.service/app.slice/"
               "app-flatpak-org.example.Viewer-31337.scope\n");
    const auto other = proc.read(1002, u"en_US"_s);
    ASSERT_TRUE(other);
    EXPECT_EQ(other->flatpakAppId(), u"org.example.Viewer"_s);
    EXPECT_EQ(other->bundlePath(), proc.path(u"system-flatpak/app/org.example.Viewer"_s));
    EXPECT_EQ(other->localizedName(), u"Viewer"_s);
}

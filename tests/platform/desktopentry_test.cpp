#include "platform/desktopentry.h"
#include "platform/desktopentryindex.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <sys/time.h>

namespace {

const QString kFixtures = QStringLiteral(CORVINA_TEST_DATA "/desktop");

QStringList fixtureDirs()
{
    return {kFixtures + u"/user/applications"_s, kFixtures + u"/system/applications"_s,
            kFixtures + u"/flatpak/exports/share/applications"_s};
}

bool copyTree(const QString& from, const QString& to)
{
    QDir().mkpath(to);
    const QDir source(from);
    for (const QString& name : source.entryList(QDir::Files))
        if (!QFile::copy(source.filePath(name), to + u'/' + name))
            return false;
    for (const QString& name : source.entryList(QDir::Dirs | QDir::NoDotAndDotDot))
        if (!copyTree(source.filePath(name), to + u'/' + name))
            return false;
    return true;
}

// Moves a folder's modification time well away from now, so a change is seen even on file
// systems with coarse time stamps.
void touchFolder(const QString& path, int secondsAhead)
{
    timeval times[2] = {};
    ::gettimeofday(&times[0], nullptr);
    times[0].tv_sec += secondsAhead;
    times[1] = times[0];
    ASSERT_EQ(::utimes(QFile::encodeName(path).constData(), times), 0);
}

} // namespace

TEST(DesktopEntry, LocalizedNamePrefersCountryThenLanguageThenPlainName)
{
    const auto entry = DesktopEntry::fromFile(
        kFixtures + u"/user/applications/corvina-editor.desktop"_s, u"corvina-editor"_s);
    ASSERT_TRUE(entry);
    const struct {
        const char16_t* locale;
        const char16_t* name;
    } cases[] = {
        {u"de_AT.UTF-8", u"Texteditor (Österreich)"},
        {u"de_DE.UTF-8@euro", u"Texteditor"},
        {u"de", u"Texteditor"},
        {u"fr_FR", u"Éditeur texte"},
        {u"ja_JP.UTF-8", u"Text Editor"},
        {u"C", u"Text Editor"},
        {u"", u"Text Editor"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(entry->localizedName(QString::fromUtf16(c.locale)), QString::fromUtf16(c.name))
            << QString::fromUtf16(c.locale).toStdString();
    // Keys of other groups (the action's Name and Exec) do not leak into the entry.
    EXPECT_EQ(entry->execProgram(), u"corvina-editor"_s);
    EXPECT_EQ(entry->iconName(), u"accessories-text-editor"_s);
}

TEST(DesktopEntry, ExecProgramSkipsEnvQuotesAndFlatpakLauncher)
{
    const struct {
        const char16_t* exec;
        const char16_t* program;
        const char16_t* flatpakApp;
    } cases[] = {
        {u"/usr/bin/gedit %U", u"gedit", u""},
        {u"env A=1 B=2 /opt/x/bin/tool --flag", u"tool", u""},
        {u"\"/opt/my tool/run me\" %f", u"run me", u""},
        {u"flatpak run --branch=stable org.x.App @@u %U @@", u"", u"org.x.App"},
        {u"/usr/bin/flatpak run --command=real-bin org.x.App", u"real-bin", u"org.x.App"},
        {u"", u"", u""},
    };
    for (const auto& c : cases) {
        const QString text = u"[Desktop Entry]\nType=Application\nName=N\nExec="_s +
                             QString::fromUtf16(c.exec) + u'\n';
        const auto entry = DesktopEntry::fromText(text, u"/x.desktop"_s, u"x"_s);
        ASSERT_TRUE(entry);
        EXPECT_EQ(entry->execProgram(), QString::fromUtf16(c.program))
            << QString::fromUtf16(c.exec).toStdString();
        EXPECT_EQ(entry->flatpakAppId(), QString::fromUtf16(c.flatpakApp));
    }
}

TEST(DesktopEntryIndex, MatchesProgramsOnTryExecExecWMClassAndId)
{
    DesktopEntryIndex index(fixtureDirs(), 1h);
    const struct {
        const char16_t* program;
        const char16_t* name; // empty: no entry
    } cases[] = {
        {u"mytool", u"My Tool"},                 // TryExec
        {u"launch.sh", u"My Tool"},              // Exec's program
        {u"corvina-editor", u"Text Editor"},     // Exec behind env
        {u"examplebrowser", u"Example Browser"}, // StartupWMClass, any case
        {u"sub-nested", u"Nested Tool"},         // id of an entry in a subfolder
        {u"systemonly", u"System Only"},
        {u"viewer-bin", u"Viewer"}, // Flatpak export, by --command
        {u"shadowprog", u"User Copy"},
        {u"garbageprog", u"\uFFFD\uFFFD garbage"},
        {u"nogroupprog", u""},
        {u"linkprog", u""},
        {u"hiddenprog", u""},
        {u"nonameprog", u""},
        {u"unknown", u""},
        {u"", u""},
    };
    for (const auto& c : cases) {
        const auto entry = index.entryForProgram(QString::fromUtf16(c.program));
        const QString expected = QString::fromUtf16(c.name);
        EXPECT_EQ(entry ? entry->name() : QString(), expected.isEmpty() ? QString() : expected)
            << QString::fromUtf16(c.program).toStdString();
    }
    const auto viewer = index.entryForFlatpakApp(u"org.example.Viewer"_s);
    ASSERT_TRUE(viewer);
    EXPECT_EQ(viewer->localizedName(u"de_CH"), u"Betrachter"_s);
    EXPECT_EQ(viewer->iconName(), u"org.example.Viewer"_s);
    EXPECT_FALSE(index.entryForFlatpakApp(u"org.example.Missing"_s));
}

TEST(DesktopEntryIndex, SeesANewEntryOnceItsFolderChangedAndTheIntervalPassed)
{
    QTemporaryDir temp;
    ASSERT_TRUE(temp.isValid());
    const QString dir = temp.filePath(u"applications"_s);
    ASSERT_TRUE(copyTree(kFixtures + u"/system/applications"_s, dir));
    const QString missing = temp.filePath(u"later/applications"_s);

    DesktopEntryIndex eager({dir, missing}, 0ms);
    DesktopEntryIndex lazy({dir, missing}, 1h);
    EXPECT_FALSE(eager.entryForProgram(u"newprog"_s));
    EXPECT_FALSE(lazy.entryForProgram(u"newprog"_s));

    QFile file(dir + u"/new.desktop"_s);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("[Desktop Entry]\nType=Application\nName=New\nExec=newprog\n");
    file.close();
    touchFolder(dir, 10);
    ASSERT_TRUE(QDir().mkpath(missing));
    touchFolder(missing, 20);

    const auto found = eager.entryForProgram(u"newprog"_s);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->name(), u"New"_s);
    EXPECT_FALSE(lazy.entryForProgram(u"newprog"_s)) << "checked again only after the interval";
}

TEST(DesktopEntryIndex, DefaultFoldersFollowXdgVariablesAndAddFlatpakExports)
{
    const QByteArray oldHome = qgetenv("XDG_DATA_HOME");
    const QByteArray oldDirs = qgetenv("XDG_DATA_DIRS");
    qputenv("XDG_DATA_HOME", "/home/u/data");
    qputenv("XDG_DATA_DIRS", "/usr/share/:/var/lib/flatpak/exports/share");
    const QStringList dirs = DesktopEntryIndex::defaultApplicationDirs();
    for (const auto& [name, value] :
         {std::pair{"XDG_DATA_HOME", oldHome}, {"XDG_DATA_DIRS", oldDirs}})
        value.isNull() ? qunsetenv(name) : qputenv(name, value);

    ASSERT_GE(dirs.size(), 4);
    EXPECT_EQ(dirs[0], u"/home/u/data/applications"_s);
    EXPECT_EQ(dirs[1], u"/usr/share/applications"_s);
    EXPECT_EQ(dirs[2], u"/var/lib/flatpak/exports/share/applications"_s);
    EXPECT_EQ(dirs.count(u"/var/lib/flatpak/exports/share/applications"_s), 1);
    EXPECT_TRUE(
        dirs.contains(QDir::homePath() + u"/.local/share/flatpak/exports/share/applications"_s));
}

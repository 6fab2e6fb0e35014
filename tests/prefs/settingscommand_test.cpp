#include "prefs/cvprefshelper.h"
#include "prefs/userdefaults.h"

#include "prefstestsupport.h"
#include "support/program.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

// The settings verb of the built program, with a home of its own.
class SettingsCommandTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ensureCoreApplication();
        ASSERT_TRUE(m_home.isValid());
    }

    ProgramRun corvina(const QStringList& arguments, const QProcessEnvironment& environment = {})
    {
        return runCorvina(m_home.path(), QStringList{u"settings"_s} + arguments, {}, environment);
    }
    QString get(const QString& key) { return corvina({u"get"_s, key}).out().trimmed(); }
    QString settingsFile() const { return m_home.filePath(u"config/Corvina/Corvina.conf"_s); }

    QTemporaryDir m_home;
};

TEST_F(SettingsCommandTest, ListShowsEveryKeyWithItsFactoryValue)
{
    const ProgramRun run = corvina({u"list"_s});
    ASSERT_EQ(run.exitCode, 0) << run.err.toStdString();
    const QStringList lines = run.out().split(u'\n', Qt::SkipEmptyParts);
    QStringList keys;
    for (const QString& line : lines)
        keys << line.section(u'\t', 0, 0);
    EXPECT_EQ(keys, PrefKeys::All);
    EXPECT_TRUE(lines.contains(u"CV:AutoRefreshSetting\t1"_s));
    EXPECT_TRUE(lines.contains(u"CV:StateChangedConnectionBackgroundColor\t#FFFFFF00"_s));
    EXPECT_TRUE(lines.contains(u"CV:NotifyConnectionsStateChange\tfalse"_s));
    EXPECT_TRUE(lines.contains(u"CV:ExcludeAppsForGrowl\t[]"_s));
}

TEST_F(SettingsCommandTest, SetValuesReadBackHereAndInTheStore)
{
    struct Case {
        QString key, value, shown;
    };
    const QList<Case> cases = {
        {PrefKeys::AutoRefreshSetting, u"0"_s, u"0"_s},
        {PrefKeys::ListFontSize, u"14"_s, u"14"_s},
        {PrefKeys::NotifyNewConnections, u"false"_s, u"false"_s},
        {PrefKeys::LogConnectionStateChangeToCSVFiles, u"true"_s, u"true"_s},
        {PrefKeys::ListTextColor, u"#102030"_s, u"#FF102030"_s},
        {PrefKeys::ListBackgroundColor, u"#80a0b0c0"_s, u"#80A0B0C0"_s},
        {PrefKeys::ExcludeAppsForGrowl, u"[\"/opt/My App/run\",\"/x,y\"]"_s,
         u"[\"/opt/My App/run\",\"/x,y\"]"_s},
        {PrefKeys::ColumnsUserDefault, u"[\"PID\"]"_s, u"[\"PID\"]"_s},
        {PrefKeys::ToolbarAddressAndPortItemState, u"0"_s, u"0"_s},
    };
    for (const Case& c : cases) {
        const ProgramRun run = corvina({u"set"_s, c.key, c.value});
        EXPECT_EQ(run.exitCode, 0) << c.key.toStdString() << ": " << run.err.toStdString();
        EXPECT_EQ(get(c.key), c.shown) << c.key.toStdString();
    }

    UserDefaults store(settingsFile());
    CVPrefsHelper helper(store);
    EXPECT_EQ(store.integerForKey(PrefKeys::AutoRefreshSetting), 0);
    EXPECT_EQ(helper.listFontSize(), 14u);
    EXPECT_FALSE(helper.notifyNewConnections());
    EXPECT_TRUE(helper.needsNotifyOrLogConnectionStateChange());
    EXPECT_EQ(helper.colorForKey(PrefKeys::ListBackgroundColor),
              (RgbaColor{0xA0, 0xB0, 0xC0, 0x80}));
    EXPECT_EQ(helper.excludeAppsForGrowl(), (QStringList{u"/opt/My App/run"_s, u"/x,y"_s}));
    EXPECT_EQ(store.stringArrayForKey(PrefKeys::ColumnsUserDefault), QStringList{u"PID"_s});
    EXPECT_EQ(store.stringForKey(PrefKeys::ToolbarAddressAndPortItemState), u"0"_s);

    ASSERT_EQ(corvina({u"reset"_s, PrefKeys::ListFontSize}).exitCode, 0);
    ASSERT_EQ(corvina({u"reset"_s, PrefKeys::ColumnsUserDefault}).exitCode, 0);
    EXPECT_EQ(get(PrefKeys::ListFontSize), u"11"_s);
    EXPECT_EQ(get(PrefKeys::ColumnsUserDefault), QString());
}

TEST_F(SettingsCommandTest, AValueOfTheWrongKindIsRefusedAndNothingChanges)
{
    struct Case {
        QStringList arguments;
        QString message;
    };
    const QList<Case> cases = {
        {{u"set"_s, PrefKeys::NotifyNewConnections, u"yes please"_s},
         u"expects a boolean (true or false)"_s},
        {{u"set"_s, PrefKeys::ListFontSize, u"large"_s}, u"expects an integer"_s},
        {{u"set"_s, PrefKeys::ListTextColor, u"blue"_s}, u"expects a colour (#AARRGGBB)"_s},
        {{u"set"_s, PrefKeys::ExcludeAppsForGrowl, u"/usr/bin/app"_s}, u"expects a JSON array"_s},
        {{u"set"_s, PrefKeys::ExcludeAppsForGrowl, u"[1, 2]"_s}, u"JSON array of texts"_s},
        {{u"get"_s, u"CV:NoSuchSetting"_s}, u"unknown setting 'CV:NoSuchSetting'"_s},
        {{u"set"_s, PrefKeys::ListFontSize}, u"usage: corvina settings"_s},
        {{u"frobnicate"_s}, u"usage: corvina settings"_s},
    };
    for (const Case& c : cases) {
        const ProgramRun run = corvina(c.arguments);
        EXPECT_EQ(run.exitCode, 2) << c.arguments.join(u' ').toStdString();
        EXPECT_TRUE(run.err.contains(c.message)) << run.err.toStdString();
        EXPECT_EQ(run.err.count(u'\n'), 1) << run.err.toStdString();
    }
    EXPECT_FALSE(QFile::exists(settingsFile()) &&
                 UserDefaults(settingsFile()).hasStoredValue(PrefKeys::ListFontSize));
    EXPECT_EQ(get(PrefKeys::NotifyNewConnections), u"true"_s);
}

TEST_F(SettingsCommandTest, AnUnwritableStoreIsReported)
{
    // A folder that cannot be made, even by root: its parent is a plain file.
    writeWholeFile(m_home.filePath(u"plain"_s), "x");
    QProcessEnvironment environment;
    environment.insert(u"XDG_CONFIG_HOME"_s, m_home.filePath(u"plain/config"_s));
    const ProgramRun run = corvina({u"set"_s, PrefKeys::ListFontSize, u"12"_s}, environment);
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains(u"cannot write the settings file"_s)) << run.err.toStdString();
}

} // namespace

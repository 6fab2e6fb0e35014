#include "prefs/cvprefshelper.h"
#include "prefs/userdefaults.h"

#include "prefstestsupport.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

class CVPrefsHelperTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_dir.isValid()); }

    bool m_hasApplication = (ensureCoreApplication(), true);
    QTemporaryDir m_dir;
    UserDefaults m_store{m_dir.filePath(u"Corvina.conf"_s)};
    CVPrefsHelper m_helper{m_store};
};

TEST_F(CVPrefsHelperTest, AFreshAccountReadsTheFactorySettings)
{
    EXPECT_EQ(m_store.integerForKey(PrefKeys::AutoRefreshSetting), 1);
    EXPECT_EQ(m_store.stringForKey(PrefKeys::SnapshotCollector), u"native"_s);
    EXPECT_EQ(m_store.integerForKey(PrefKeys::ListFontSize), 11);

    const QList<std::pair<QString, RgbaColor>> colours = {
        {PrefKeys::ListBackgroundColor, {255, 255, 255, 255}},
        {PrefKeys::ListTextColor, {0, 0, 0, 255}},
        {PrefKeys::NewConnectionBackgroundColor, {0, 255, 0, 255}},
        {PrefKeys::StateChangedConnectionBackgroundColor, {255, 255, 0, 255}},
        {PrefKeys::ClosedConnectionBackgroundColor, {255, 0, 0, 255}},
    };
    for (const auto& [key, colour] : colours)
        EXPECT_EQ(m_helper.colorForKey(key), colour) << key.toStdString();

    const QList<std::pair<QString, bool>> switches = {
        {PrefKeys::NotifyNewConnections, true},
        {PrefKeys::NotifyConnectionsStateChange, false},
        {PrefKeys::ResolveRemoteAddressInGrowl, true},
        {PrefKeys::LogNewConnectionToCSVFiles, true},
        {PrefKeys::LogConnectionStateChangeToCSVFiles, false},
        {PrefKeys::LogNewConnectionToSystemConsole, false},
        {PrefKeys::LogConnectionStateChangeToSystemConsole, false},
        {PrefKeys::CSVFilesLogSplitEveryDay, true},
    };
    for (const auto& [key, on] : switches)
        EXPECT_EQ(m_helper.boolForKey(key), on) << key.toStdString();

    EXPECT_TRUE(m_helper.excludeAppsForGrowl().isEmpty());
    EXPECT_FALSE(m_store.objectForKey(PrefKeys::ColumnsUserDefault).isValid());
    EXPECT_FALSE(m_store.objectForKey(PrefKeys::ToolbarAddressAndPortItemState).isValid());

    EXPECT_EQ(m_helper.listFontSize(), 11u);
    EXPECT_TRUE(m_helper.notifyNewConnections());
    EXPECT_FALSE(m_helper.notifyConnectionsStateChange());
    EXPECT_TRUE(m_helper.resolveRemoteAddressInGrowl());
}

TEST_F(CVPrefsHelperTest, LiveCopiesFollowTheStoreOneWay)
{
    m_store.setInteger(PrefKeys::ListFontSize, 14);
    m_store.setBool(PrefKeys::NotifyNewConnections, false);
    m_store.setBool(PrefKeys::NotifyConnectionsStateChange, true);
    m_store.setBool(PrefKeys::ResolveRemoteAddressInGrowl, false);
    EXPECT_EQ(m_helper.listFontSize(), 14u);
    EXPECT_FALSE(m_helper.notifyNewConnections());
    EXPECT_TRUE(m_helper.notifyConnectionsStateChange());
    EXPECT_FALSE(m_helper.resolveRemoteAddressInGrowl());

    m_helper.setListFontSize(30);
    m_helper.setNotifyNewConnections(true);
    EXPECT_EQ(m_store.integerForKey(PrefKeys::ListFontSize), 14);
    EXPECT_FALSE(m_store.boolForKey(PrefKeys::NotifyNewConnections));

    m_store.removeObjectForKey(PrefKeys::ListFontSize);
    EXPECT_EQ(m_helper.listFontSize(), 11u);
}

TEST_F(CVPrefsHelperTest, AChangedColourIsReadAfreshAndObserversSeeIt)
{
    const QString key = PrefKeys::NewConnectionBackgroundColor;
    ASSERT_EQ(m_helper.colorForKey(key), (RgbaColor{0, 255, 0, 255}));

    std::optional<RgbaColor> seenByObserver;
    QObject::connect(&m_helper, &CVPrefsHelper::defaultsChanged,
                     [&] { seenByObserver = m_helper.colorForKey(key); });
    m_store.setString(key, u"#80102030"_s);
    EXPECT_EQ(seenByObserver, (RgbaColor{0x10, 0x20, 0x30, 0x80}));
    EXPECT_EQ(m_helper.colorForKey(key), (RgbaColor{0x10, 0x20, 0x30, 0x80}));

    m_store.removeObjectForKey(key);
    EXPECT_EQ(m_helper.colorForKey(key), (RgbaColor{0, 255, 0, 255}));
}

// A key with nothing stored, or text that does not decode, is no colour: null, one log line
// per call, and nothing cached, so the next call decodes again.
TEST_F(CVPrefsHelperTest, AKeyWithNoColourLogsOnEveryCall)
{
    m_store.setString(PrefKeys::ClosedConnectionBackgroundColor, u"purple"_s);
    LogCapture log;
    for (const QString& key : {u"CV:NoSuchColor"_s, PrefKeys::AutoRefreshSetting,
                               PrefKeys::ClosedConnectionBackgroundColor}) {
        EXPECT_FALSE(m_helper.colorForKey(key).has_value());
        EXPECT_FALSE(m_helper.colorForKey(key).has_value());
        EXPECT_EQ(log.count(u"nil color key "_s + key), 2);
    }
    EXPECT_EQ(log.lines().size(), 6);
    m_store.setString(PrefKeys::ClosedConnectionBackgroundColor, u"#FF0000FF"_s);
    EXPECT_EQ(m_helper.colorForKey(PrefKeys::ClosedConnectionBackgroundColor),
              (RgbaColor{0, 0, 255, 255}));
}

TEST_F(CVPrefsHelperTest, ExclusionListKeepsOneEntryPerPath)
{
    m_helper.addExcludeAppForGrowNotification(u"/usr/bin/firefox"_s);
    m_helper.addExcludeAppForGrowNotification(u"/usr/bin/firefox"_s);
    m_helper.addExcludeAppForGrowNotification(QString());
    m_helper.addExcludeAppForGrowNotification(u"/opt/tool, with comma"_s);
    const QStringList both{u"/usr/bin/firefox"_s, u"/opt/tool, with comma"_s};
    EXPECT_EQ(m_helper.excludeAppsForGrowl(), both);

    m_helper.removeExcludeAppForGrowlNotification(u"/not/there"_s);
    EXPECT_EQ(m_helper.excludeAppsForGrowl(), both);

    m_helper.setExcludeAppsForGrowl({u"/a"_s, u"/b"_s, u"/a"_s});
    m_helper.removeExcludeAppForGrowlNotification(u"/a"_s);
    EXPECT_EQ(m_helper.excludeAppsForGrowl(), QStringList{u"/b"_s});
    m_helper.removeExcludeAppForGrowlNotification(u"/b"_s);
    EXPECT_TRUE(m_helper.excludeAppsForGrowl().isEmpty());

    // What was stored is what a later run reads.
    m_helper.addExcludeAppForGrowNotification(u"/c"_s);
    UserDefaults reopened(m_store.filePath());
    EXPECT_EQ(reopened.stringArrayForKey(PrefKeys::ExcludeAppsForGrowl), QStringList{u"/c"_s});
}

TEST_F(CVPrefsHelperTest, NeedsNotifyOrLogWhenAnyOfItsThreeSettingsIsOn)
{
    struct Kind {
        QString notify, csv, console;
        std::function<bool()> needs;
    };
    const QList<Kind> kinds = {
        {PrefKeys::NotifyNewConnections, PrefKeys::LogNewConnectionToCSVFiles,
         PrefKeys::LogNewConnectionToSystemConsole,
         [this] { return m_helper.needsNotifyOrLogNewConnections(); }},
        {PrefKeys::NotifyConnectionsStateChange, PrefKeys::LogConnectionStateChangeToCSVFiles,
         PrefKeys::LogConnectionStateChangeToSystemConsole,
         [this] { return m_helper.needsNotifyOrLogConnectionStateChange(); }},
    };
    for (const Kind& kind : kinds) {
        for (int bits = 0; bits < 8; ++bits) {
            m_store.setBool(kind.notify, bits & 1);
            m_store.setBool(kind.csv, bits & 2);
            m_store.setBool(kind.console, bits & 4);
            EXPECT_EQ(kind.needs(), bits != 0) << kind.notify.toStdString() << " bits " << bits;
        }
    }
}

TEST_F(CVPrefsHelperTest, LogFileNameFollowsTheLocalDay)
{
    QDateTime now(QDate(2026, 3, 31), QTime(23, 59, 59));
    m_helper.setClock([&] { return now; });
    EXPECT_EQ(m_helper.logFileName(), u"CorvinaLog-20260331.csv"_s);
    now = QDateTime(QDate(2026, 4, 1), QTime(0, 0, 1));
    EXPECT_EQ(m_helper.logFileName(), u"CorvinaLog-20260401.csv"_s);
    now = QDateTime(QDate(987, 1, 2), QTime(12, 0));
    EXPECT_EQ(m_helper.logFileName(), u"CorvinaLog-09870102.csv"_s);

    m_store.setBool(PrefKeys::CSVFilesLogSplitEveryDay, false);
    EXPECT_EQ(m_helper.logFileName(), u"CorvinaLog.csv"_s);
    now = QDateTime(QDate(2026, 4, 2), QTime(0, 0, 1));
    EXPECT_EQ(m_helper.logFileName(), u"CorvinaLog.csv"_s);
}

TEST_F(CVPrefsHelperTest, LogFolderLiesUnderTheUserDataFolder)
{
    const QByteArray savedHome = qgetenv("HOME");
    const QByteArray savedData = qgetenv("XDG_DATA_HOME");
    qputenv("HOME", "/home/someone");
    qunsetenv("XDG_DATA_HOME");
    const QString plain = m_helper.logFolder();
    qputenv("XDG_DATA_HOME", "/data/someone/");
    const QString fromXdg = m_helper.logFolder();
    qputenv("HOME", savedHome);
    if (savedData.isNull())
        qunsetenv("XDG_DATA_HOME");
    else
        qputenv("XDG_DATA_HOME", savedData);

    EXPECT_EQ(plain, u"/home/someone/.local/share/Corvina/Logs"_s);
    EXPECT_EQ(fromXdg, u"/data/someone/Corvina/Logs"_s);
    m_helper.setLogFolder(u"/tmp/elsewhere"_s);
    EXPECT_EQ(m_helper.logFolder(), u"/tmp/elsewhere"_s);
}

TEST_F(CVPrefsHelperTest, TheWorkerThreadCanAskWhileSettingsChange)
{
    std::atomic<bool> stop = false;
    std::atomic<int> wrongNames = 0;
    m_helper.setClock([] { return QDateTime(QDate(2026, 1, 2), QTime(3, 4)); });
    std::thread worker([&] {
        while (!stop) {
            m_helper.needsNotifyOrLogNewConnections();
            m_helper.needsNotifyOrLogConnectionStateChange();
            m_helper.excludeAppsForGrowl();
            const QString name = m_helper.logFileName();
            if (name != u"CorvinaLog.csv"_s && name != u"CorvinaLog-20260102.csv"_s)
                ++wrongNames;
        }
    });
    for (int i = 0; i < 100; ++i) {
        m_store.setBool(PrefKeys::CSVFilesLogSplitEveryDay, i % 2);
        m_helper.addExcludeAppForGrowNotification(u"/bin/app%1"_s.arg(i));
    }
    stop = true;
    worker.join();
    EXPECT_EQ(wrongNames, 0);
    EXPECT_EQ(m_helper.excludeAppsForGrowl().size(), 100);
}

TEST(RgbaColor, ReadsAndWritesHexText)
{
    EXPECT_EQ(RgbaColor::fromText(u"#80a0B0c0"_s), (RgbaColor{0xA0, 0xB0, 0xC0, 0x80}));
    EXPECT_EQ(RgbaColor::fromText(u"#102030"_s), (RgbaColor{0x10, 0x20, 0x30, 0xFF}));
    EXPECT_EQ((RgbaColor{1, 2, 254, 0}).toText(), u"#000102FE"_s);
    for (const QString& bad : {u""_s, u"#"_s, u"FF00FF00"_s, u"#FF00FF0"_s, u"#FF00FF00 "_s,
                               u"#GG00FF00"_s, u"#FF00FF000"_s, u"green"_s})
        EXPECT_FALSE(RgbaColor::fromText(bad).has_value()) << bad.toStdString();
}

} // namespace

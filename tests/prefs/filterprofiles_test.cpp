#include "persistence/sqliteinstancemanager.h"
#include "persistence/sqlitepersistentobject.h"
#include "prefs/cvfilterprofileinfo.h"
#include "prefs/cvprefshelper.h"
#include "prefs/userdefaults.h"

#include "prefstestsupport.h"
#include "support/profiles.h"

#include <QDir>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

class FilterProfilesTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(m_dir.isValid());
        useDatabase(m_dir.filePath(u"corvina.sqlite3"_s));
    }
    void TearDown() override
    {
        SQLitePersistentObject::setManager(nullptr);
        SQLitePersistentObject::clearCache();
    }

    void useDatabase(const QString& path)
    {
        SQLitePersistentObject::setManager(nullptr);
        SQLitePersistentObject::clearCache();
        m_manager = std::make_unique<SQLiteInstanceManager>(u"corvina.sqlite3"_s, path);
        SQLitePersistentObject::setManager(m_manager.get());
    }

    static QStringList names(const QList<std::shared_ptr<CVFilterProfileInfo>>& profiles)
    {
        QStringList result;
        for (const auto& profile : profiles)
            result << profile->profileName();
        return result;
    }

    bool m_hasApplication = (ensureCoreApplication(), true);
    QTemporaryDir m_dir;
    UserDefaults m_store{m_dir.filePath(u"Corvina.conf"_s)};
    CVPrefsHelper m_helper{m_store};
    std::unique_ptr<SQLiteInstanceManager> m_manager;
};

TEST_F(FilterProfilesTest, ObserversAreToldOfEveryReloadAndSeeTheNewList)
{
    QList<std::shared_ptr<CVFilterProfileInfo>> seen{CVFilterProfileInfo::create()};
    int changes = 0;
    QObject::connect(&m_helper, &CVPrefsHelper::filterProfilesChanged, [&] {
        ++changes;
        seen = m_helper.filterProfiles();
    });
    m_helper.reloadFilterProfiles();
    EXPECT_EQ(changes, 1) << "also with nothing stored";
    EXPECT_TRUE(seen.isEmpty());

    const auto profile = CVFilterProfileInfo::create();
    m_helper.setFilterProfiles({profile});
    ASSERT_EQ(seen.size(), 1);
    EXPECT_EQ(seen.front().get(), profile.get());
}

TEST_F(FilterProfilesTest, AReloadKeepsTheObjectsOfProfilesStillStored)
{
    const auto web = saveProfile(u"Web"_s, u"remotePort == \"443\""_s);
    const auto mail = saveProfile(u"Mail"_s, u"remotePort == \"993\""_s);
    m_helper.reloadFilterProfiles();
    ASSERT_EQ(names(m_helper.filterProfiles()), (QStringList{u"Web"_s, u"Mail"_s}));
    const std::shared_ptr<CVFilterProfileInfo> chosen = m_helper.filterProfiles().at(1);

    web->deleteObject();
    saveProfile(u"Dns"_s, u"remotePort == \"53\""_s);
    m_helper.reloadFilterProfiles();

    ASSERT_EQ(names(m_helper.filterProfiles()), (QStringList{u"Mail"_s, u"Dns"_s}));
    EXPECT_EQ(m_helper.filterProfiles().at(0).get(), chosen.get());
    EXPECT_EQ(chosen.get(), mail.get());
}

TEST_F(FilterProfilesTest, AnUnreadableDatabaseLeavesTheListAsItWasAndIsLoggedOnce)
{
    saveProfile(u"Web"_s, u"remotePort == \"443\""_s);
    m_helper.reloadFilterProfiles();
    ASSERT_EQ(m_helper.filterProfiles().size(), 1);

    // A folder where the database file should be cannot be opened as a database.
    const QString folder = m_dir.filePath(u"not-a-file"_s);
    ASSERT_TRUE(QDir().mkpath(folder));
    useDatabase(folder);
    LogCapture log;
    QSignalSpy changed(&m_helper, &CVPrefsHelper::filterProfilesChanged);
    m_helper.reloadFilterProfiles();
    m_helper.reloadFilterProfiles();

    EXPECT_EQ(changed.count(), 0);
    EXPECT_EQ(names(m_helper.filterProfiles()), QStringList{u"Web"_s});
    const QStringList failures = log.lines().filter(u"cannot load saved searches"_s);
    EXPECT_EQ(failures.size(), 1) << log.lines().join(u'\n').toStdString();

    // Once the database answers again, reloads work and a new failure is logged again.
    useDatabase(m_dir.filePath(u"corvina.sqlite3"_s));
    m_helper.reloadFilterProfiles();
    EXPECT_EQ(changed.count(), 1);
    useDatabase(folder);
    m_helper.reloadFilterProfiles();
    EXPECT_EQ(log.lines().filter(u"cannot load saved searches"_s).size(), 2);
}

} // namespace

#include "persistencetestsupport.h"

#include "support/profiles.h"

#include <sqlite3.h>

namespace {

using FilterProfileTest = PersistenceTest;

TEST_F(FilterProfileTest, FreshDatabaseHoldsTheProfileTable)
{
    const auto profile = saveProfile(u"Work"_s, u"protocol == \"TCP\""_s);
    EXPECT_EQ(profile->pk(), 1);
    EXPECT_EQ(
        rows(
            u"select name, type, pk from pragma_table_info('c_v_filter_profile_info') order by cid"_s),
        Rows({{u"pk"_s, u"INTEGER"_s, u"1"_s},
              {u"profile_name"_s, u"TEXT"_s, u"0"_s},
              {u"search_expression"_s, u"TEXT"_s, u"0"_s}}));
    EXPECT_EQ(rows(u"select name, seq from SQLITESEQUENCE"_s),
              Rows({{u"c_v_filter_profile_info"_s, u"1"_s}}));
    EXPECT_EQ(rows(u"select count(*) from sqlite_master where type = 'index'"_s), Rows({{u"1"_s}}))
        << "only the sequence table's own key index";
}

TEST_F(FilterProfileTest, OnlyStoredProfilesSaveAndOnlyKeyValueSetsAreWritten)
{
    auto profile = CVFilterProfileInfo::create();
    profile->setProfileName(u"draft"_s);
    profile->setValue(u"searchExpression"_s, u"state == \"LISTEN\""_s);
    EXPECT_EQ(profile->pk(), -1);
    EXPECT_TRUE(
        rows(u"select * from sqlite_master where name = 'c_v_filter_profile_info'"_s).isEmpty())
        << "an unsaved profile writes nothing";

    profile->save();
    ASSERT_EQ(profile->pk(), 1);
    profile->setValue(u"profileName"_s, u"renamed"_s);
    EXPECT_EQ(rows(u"select pk, profile_name from c_v_filter_profile_info"_s),
              Rows({{u"1"_s, u"renamed"_s}}))
        << "a key-value set of a stored profile is written at once";
    EXPECT_FALSE(profile->isDirty());

    profile->setProfileName(u"plain setter"_s);
    EXPECT_EQ(profile->profileName(), u"plain setter"_s);
    EXPECT_EQ(rows(u"select profile_name from c_v_filter_profile_info"_s), Rows({{u"renamed"_s}}))
        << "noticed, but not dirty, so not written";

    profile->takeValuesFromDictionary({{u"searchExpression"_s, u"user == \"root\""_s}});
    EXPECT_EQ(rows(u"select profile_name, search_expression from c_v_filter_profile_info"_s),
              Rows({{u"plain setter"_s, u"user == \"root\""_s}}));
}

TEST_F(FilterProfileTest, TextIsStoredIntactAndNullStaysNull)
{
    const QString name = u"It's \"100%\" %d %@ done'); DROP TABLE x; --"_s;
    const QString expression = u"remoteAddress LIKE '10.%' AND name == \"%s\""_s;
    const auto quoted = saveProfile(name, expression);
    const auto empty = saveProfile(u"no expression"_s, QString());
    EXPECT_EQ(
        rows(u"select profile_name, search_expression from c_v_filter_profile_info order by pk"_s),
        Rows({{name, expression}, {u"no expression"_s, u"NULL"_s}}));

    SQLitePersistentObject::clearCache();
    const auto profiles = CVFilterProfileInfo::allObjects();
    ASSERT_EQ(profiles.size(), 2);
    EXPECT_EQ(profiles[0]->profileName(), name);
    EXPECT_EQ(profiles[0]->searchExpression(), expression);
    EXPECT_TRUE(profiles[1]->searchExpression().isNull());
    EXPECT_FALSE(profiles[0]->isDirty());
    EXPECT_EQ(rows(u"select profile_name from c_v_filter_profile_info where pk = 1"_s),
              Rows({{name}}))
        << "loading leaves the row as it was";
}

// While another program holds the lock, saving a profile fails without taking the process
// down, says so, and leaves the stored profiles alone; once the lock goes, saving works again.
TEST_F(FilterProfileTest, ALockedDatabaseRefusesTheSaveAndKeepsEveryRow)
{
    saveProfile(u"Work"_s, u"x"_s);
    {
        sqlite3* other = nullptr;
        ASSERT_EQ(sqlite3_open(path().toUtf8().constData(), &other), SQLITE_OK);
        ASSERT_EQ(sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
        m_log.clear();
        EXPECT_NO_THROW(saveProfile(u"Home"_s, u"x"_s)) << "a failed save is logged, not raised";
        EXPECT_EQ(m_log, QStringList{u"Error inserting or updating row"_s});
        sqlite3_close_v2(other);
    }
    EXPECT_EQ(rows(u"select profile_name from c_v_filter_profile_info"_s), Rows({{u"Work"_s}}));
    m_log.clear();
    saveProfile(u"Later"_s, u"x"_s);
    EXPECT_TRUE(m_log.isEmpty()) << m_log.join(u'\n').toStdString();
    EXPECT_EQ(rows(u"select profile_name from c_v_filter_profile_info order by pk"_s),
              Rows({{u"Work"_s}, {u"Later"_s}}));
}

} // namespace

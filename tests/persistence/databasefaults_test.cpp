#include "persistencetestsupport.h"

#include "persistence/sqliteerror.h"
#include "prefs/cvfilterprofileinfo.h"

#include <sqlite3.h>

using namespace Qt::StringLiterals;

namespace {

// Another program's connection that holds the database's exclusive lock while it lives.
class ExclusiveLock final {
public:
    explicit ExclusiveLock(const QString& path)
    {
        sqlite3_open(path.toUtf8().constData(), &m_db);
        m_held = sqlite3_exec(m_db, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr) == SQLITE_OK;
    }
    ~ExclusiveLock()
    {
        sqlite3_exec(m_db, "COMMIT", nullptr, nullptr, nullptr);
        sqlite3_close(m_db);
    }
    ExclusiveLock(const ExclusiveLock&) = delete;
    ExclusiveLock& operator=(const ExclusiveLock&) = delete;
    bool held() const { return m_held; }

private:
    sqlite3* m_db = nullptr;
    bool m_held = false;
};

class DatabaseFaultTest : public PersistenceTest {
protected:
    static std::shared_ptr<CVFilterProfileInfo> store(const QString& name)
    {
        auto profile = CVFilterProfileInfo::create();
        profile->setProfileName(name);
        profile->setSearchExpression(u"protocol == \"TCP\""_s);
        profile->save();
        return profile;
    }
    // What the layer does, as the GUI sees it: either it went through, or it raised.
    template <typename Action> static QString outcome(Action action)
    {
        try {
            action();
            return {};
        } catch (const SQLiteError& error) {
            return error.message();
        }
    }
};

// While another program holds the lock, saving a profile fails without taking the process
// down, says so, and leaves the stored profiles alone; once the lock goes, saving works again.
TEST_F(DatabaseFaultTest, ALockedDatabaseRefusesTheSaveAndKeepsEveryRow)
{
    store(u"Work"_s);
    ASSERT_EQ(rows(u"select profile_name from c_v_filter_profile_info"_s), Rows({{u"Work"_s}}));
    {
        ExclusiveLock lock(path());
        ASSERT_TRUE(lock.held());
        m_log.clear();
        const QString raised = outcome([] { store(u"Home"_s); });
        EXPECT_TRUE(raised.isEmpty()) << "a failed save is logged, not raised";
        EXPECT_EQ(m_log, QStringList{u"Error inserting or updating row"_s});
    }
    EXPECT_EQ(rows(u"select profile_name from c_v_filter_profile_info"_s), Rows({{u"Work"_s}}));
    m_log.clear();
    store(u"Later"_s);
    EXPECT_TRUE(m_log.isEmpty()) << m_log.join(u'\n').toStdString();
    EXPECT_EQ(rows(u"select profile_name from c_v_filter_profile_info order by pk"_s),
              Rows({{u"Work"_s}, {u"Later"_s}}));
}

} // namespace

#include "prefsuitestsupport.h"

using namespace Qt::StringLiterals;

void PreferencesTest::SetUp()
{
    ASSERT_TRUE(m_dir.isValid());
    m_store = std::make_unique<UserDefaults>(m_dir.filePath(u"Corvina.conf"_s));
    m_prefs = std::make_unique<CVPrefsHelper>(*m_store);
    m_prefs->setLogFolder(m_dir.filePath(u"Logs"_s));
    m_database = std::make_unique<SQLiteInstanceManager>(u"corvina.sqlite3"_s,
                                                         m_dir.filePath(u"corvina.sqlite3"_s));
    SQLitePersistentObject::setManager(m_database.get());
}

void PreferencesTest::TearDown()
{
    m_window.reset();
    SQLitePersistentObject::setManager(nullptr);
    SQLitePersistentObject::clearCache();
}

CVPreferencesController::Services PreferencesTest::recordingServices()
{
    CVPreferencesController::Services services;
    services.checkHelperInstalled = [this] { return m_helperInstalled; };
    services.installHelper = [this] {
        ++m_installs;
        return false;
    };
    services.alert = [this](QWidget*, const QString& title, const QString& message) {
        m_alerts.append({title, message});
    };
    services.chooseApplication = [this](QWidget*, const QString&) { return m_chosenApplication; };
    services.chooseColor = [this](QWidget*, const QColor&, const QString&) {
        return m_chosenColor;
    };
    services.revealFile = [this](const QString& path) {
        m_revealed.append(path);
        return true;
    };
    services.openFolder = [this](const QString& folder) {
        m_openedFolders.append(folder);
        return true;
    };
    services.showHelp = [this] { ++m_helps; };
    services.listedApplications = [this] { return m_listed; };
    return services;
}

CVPreferencesController& PreferencesTest::window()
{
    if (!m_window)
        m_window =
            std::make_unique<CVPreferencesController>(*m_prefs, nullptr, recordingServices());
    return *m_window;
}

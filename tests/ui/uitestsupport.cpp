#include "uitestsupport.h"

#include "persistence/sqlitepersistentobject.h"

TestSettings::TestSettings()
{
    database = std::make_unique<SQLiteInstanceManager>(
        QStringLiteral("corvina.sqlite3"), dir.filePath(QStringLiteral("corvina.sqlite3")));
    SQLitePersistentObject::setManager(database.get());
    reopen();
}

TestSettings::~TestSettings()
{
    SQLitePersistentObject::setManager(nullptr);
}

void TestSettings::reopen()
{
    prefs.reset();
    defaults.reset();
    defaults = std::make_unique<UserDefaults>(dir.filePath(QStringLiteral("Corvina.conf")));
    prefs = std::make_unique<CVPrefsHelper>(*defaults);
}

// Renders every pane of the preferences window into PNG files, for looking at the layout:
// corvina_prefs_screenshot OUTPUT_FOLDER
#include "persistence/sqliteinstancemanager.h"
#include "persistence/sqlitepersistentobject.h"
#include "prefs/cvfilterprofileinfo.h"
#include "prefs/cvprefshelper.h"
#include "prefs/userdefaults.h"
#include "ui/prefs/cvpreferencescontroller.h"

#include <QApplication>
#include <QDir>
#include <QIcon>
#include <QMenu>
#include <QTemporaryDir>

#include <cstdio>

using namespace Qt::StringLiterals;

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    if (QIcon::themeName().isEmpty() || QIcon::themeName() == u"hicolor"_s)
        QIcon::setThemeName(u"Adwaita"_s);
    const QString output = argc > 1 ? QString::fromLocal8Bit(argv[1]) : u"."_s;
    QTemporaryDir dir;
    UserDefaults store(dir.filePath(u"Corvina.conf"_s));
    CVPrefsHelper prefs(store);
    SQLiteInstanceManager database(u"corvina.sqlite3"_s, dir.filePath(u"corvina.sqlite3"_s));
    SQLitePersistentObject::setManager(&database);
    for (const auto& [name, expression] : QList<std::pair<QString, QString>>{
             {u"Web"_s, u"remotePortNumber IN {80, 443}"_s},
             {u"Listening"_s, u"state == \"LISTEN\""_s},
             {u"Browsers"_s, u"processName MATCHES[c] \"fire.*|chrom.*\""_s}}) {
        auto profile = CVFilterProfileInfo::create();
        profile->setProfileName(name);
        profile->setSearchExpression(expression);
        profile->save();
    }
    prefs.reloadFilterProfiles();
    prefs.addExcludeAppForGrowNotification(u"/usr/bin/ssh"_s);
    prefs.addExcludeAppForGrowNotification(u"/opt/gone/bin/vanished"_s);
    store.setString(PrefKeys::StateChangedConnectionBackgroundColor, u"#80FFD700"_s);

    QMenu columns;
    for (const QString& title :
         {u"Application"_s, u"PID"_s, u"User"_s, u"Protocol"_s, u"Type"_s, u"Local Address"_s,
          u"Local Port"_s, u"Remote Address"_s, u"State"_s}) {
        QAction* item = columns.addAction(title);
        item->setCheckable(true);
        item->setChecked(title != u"User");
    }

    CVPreferencesController window(prefs, &columns, CVPreferencesController::defaultServices());
    window.show();
    for (int pane = 0; pane <= CVPreferencesController::SavedSearches; ++pane) {
        window.showPane(CVPreferencesController::Pane(pane));
        QApplication::processEvents();
        const QString file = QDir(output).filePath(u"preferences-%1.png"_s.arg(pane));
        if (!window.grab().save(file)) {
            std::fprintf(stderr, "cannot write %s\n", qPrintable(file));
            return 1;
        }
    }
    SQLitePersistentObject::setManager(nullptr);
    return 0;
}

#include "uitestsupport.h"

#include "persistence/sqlitepersistentobject.h"
#include "ui/window/connectiontableview.h"
#include "ui/window/cvwindowcontroller.h"

#include <QLabel>
#include <QMenu>
#include <QStatusBar>

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

bool statusSays(const QMainWindow& window, const QString& text)
{
    if (window.statusBar()->currentMessage().contains(text))
        return true;
    for (const QLabel* label : window.statusBar()->findChildren<QLabel*>()) {
        if (label->isVisibleTo(&window) && label->text().contains(text))
            return true;
    }
    return false;
}

void openMenuOn(CVWindowController& window, int row)
{
    window.tableView()->setClickedCell(row, 0);
    Q_EMIT window.tableView()->contextMenuWanted(QPoint(10, 10));
    window.tableContextMenu()->hide();
}

#pragma once

#include "preferencesservices.h"

#include <QGroupBox>

class CVPreferencesExcludeAppsDataSource;
class QListView;
class QMenu;
class QPushButton;

// The pane of applications left out of notifications. Its "Add" button offers the
// applications the main window lists now, and a file chooser for any other program.
class ExcludedAppsPane final : public QGroupBox {
    Q_OBJECT
public:
    ExcludedAppsPane(CVPreferencesExcludeAppsDataSource& apps,
                     std::function<QList<PreferencesServices::ApplicationChoice>()> listed,
                     QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(ExcludedAppsPane)

    QListView* view() const { return m_view; }
    QPushButton* addButton() const { return m_add; }
    QPushButton* removeButton() const { return m_remove; }
    // The add button's menu, as it would pop up now.
    QMenu* addMenu();

Q_SIGNALS:
    void applicationChosen(const QString& path);
    void chooseProgramRequested();
    void removeRequested();

private:
    void updateRemoveButton();

    CVPreferencesExcludeAppsDataSource& m_apps;
    std::function<QList<PreferencesServices::ApplicationChoice>()> m_listed;
    QListView* m_view;
    QPushButton* m_add;
    QPushButton* m_remove;
    QMenu* m_menu;
};

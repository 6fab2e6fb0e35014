#pragma once

#include "preferencesservices.h"

#include <QDialog>
#include <QHash>

class CVPrefsHelper;
class CVPreferencesColumnsDataSource;
class CVPreferencesExcludeAppsDataSource;
class ColorWell;
class ExcludedAppsPane;
class FilterProfileTableModel;
class QAbstractButton;
class QCheckBox;
class QComboBox;
class QGroupBox;
class QLabel;
class QListView;
class QListWidget;
class QMenu;
class QSpinBox;
class QStackedWidget;
class QTableView;

// The preferences window: one pane per group of settings, every control reading and writing
// its setting live and following every change of the settings made elsewhere.
class CVPreferencesController final : public QDialog {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(CVPreferencesController)

public:
    using Services = PreferencesServices;
    static Services defaultServices();

    enum Pane {
        General,
        Appearance,
        NotificationsAndLogging,
        ExcludedApplications,
        Columns,
        SavedSearches
    };

    // `tableHeaderMenu` is the main window's column menu; it may arrive later.
    CVPreferencesController(CVPrefsHelper& prefs, QMenu* tableHeaderMenu, Services services,
                            QWidget* parent = nullptr);
    ~CVPreferencesController() override;

    void setTableHeaderMenu(QMenu* menu);
    void showPane(Pane pane);
    Pane currentPane() const;

    // The file chooser's road to the exclusion list.
    void addExcludeAppForGrowl();
    void removeExcludeAppForGrowl();
    // Font size and the five colours go back to their defaults; nothing else changes.
    void resetDisplayOptions();
    void openTodayLog();
    void openLogFolder();
    void deleteFilterProfile();
    void showHelp();
    void installHelper();
    void removeHelper();
    // The message of removeHelper: the instruction line and the commands, one a line.
    static QString removeHelperMessage();

    // Parts, for tests.
    CVPrefsHelper& prefsHelper() const { return m_prefs; }
    CVPreferencesExcludeAppsDataSource* excludeAppsDataSource() const { return m_excludeApps; }
    CVPreferencesColumnsDataSource* columnsDataSource() const { return m_columns; }
    FilterProfileTableModel* filterProfileArrayController() const { return m_profiles; }
    QListView* excludeAppsView() const;
    ExcludedAppsPane* excludedAppsPane() const { return m_excludedAppsPane; }
    QListView* columnsView() const { return m_columnsView; }
    QTableView* filterProfileView() const { return m_profileView; }
    QGroupBox* helperToolBox() const { return m_helperToolBox; }
    QLabel* helperInfoLabel() const { return m_helperInfoLabel; }
    QGroupBox* displayColumnsBox() const { return m_displayColumnsBox; }
    QComboBox* refreshPeriodButton() const { return m_refreshButton; }
    QComboBox* collectorButton() const { return m_collectorButton; }
    QSpinBox* fontSizeBox() const { return m_fontSizeBox; }
    ColorWell* colorWell(const QString& key) const { return m_colorWells.value(key); }
    QCheckBox* switchFor(const QString& key) const { return m_switches.value(key); }

protected:
    bool event(QEvent* event) override;

private:
    QWidget* buildGeneralPane();
    QWidget* buildAppearancePane();
    QWidget* buildNotificationsPane();
    QWidget* buildColumnsPane();
    QWidget* buildSavedSearchesPane();
    void addPane(QWidget* pane, const QStringList& iconNames, const QString& title);
    QCheckBox* addSwitch(const QString& key, const QString& title);
    void chooseColor(const QString& key, const QString& title);
    void readSettings();
    void updateButtons();

    CVPrefsHelper& m_prefs;
    Services m_services;
    CVPreferencesExcludeAppsDataSource* m_excludeApps = nullptr;
    CVPreferencesColumnsDataSource* m_columns = nullptr;
    FilterProfileTableModel* m_profiles = nullptr;

    QListWidget* m_sections = nullptr;
    QStackedWidget* m_panes = nullptr;
    QComboBox* m_refreshButton = nullptr;
    QComboBox* m_collectorButton = nullptr;
    QSpinBox* m_fontSizeBox = nullptr;
    QHash<QString, ColorWell*> m_colorWells;
    QHash<QString, QCheckBox*> m_switches;
    QLabel* m_logFolderLabel = nullptr;
    ExcludedAppsPane* m_excludedAppsPane = nullptr;
    QListView* m_columnsView = nullptr;
    QTableView* m_profileView = nullptr;
    QAbstractButton* m_deleteProfileButton = nullptr;
    QGroupBox* m_helperToolBox = nullptr;
    QLabel* m_helperInfoLabel = nullptr;
    QGroupBox* m_displayColumnsBox = nullptr;
};

#include "prefsuitestsupport.h"

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
    services.showHelp = [] {};
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

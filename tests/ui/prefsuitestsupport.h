#pragma once

#include "persistence/sqlitepersistentobject.h"
#include "ui/prefs/cvpreferencescontroller.h"
#include "uitestsupport.h"

#include <gtest/gtest.h>

#include <memory>

// Settings, a saved-search database and a log folder in a temporary folder, and a preferences
// window over them whose desktop services are recorded instead of run.
class PreferencesTest : public ::testing::Test {
protected:
    struct Alert {
        QString title;
        QString message;
    };

    PreferencesTest() { m_prefs->setLogFolder(m_dir.filePath(QStringLiteral("Logs"))); }
    ~PreferencesTest() override
    {
        m_window.reset();
        SQLitePersistentObject::clearCache();
    }

    CVPreferencesController& window();
    CVPreferencesController::Services recordingServices();

    TestSettings m_settings;
    QTemporaryDir& m_dir = m_settings.dir;
    UserDefaults* m_store = m_settings.defaults.get();
    CVPrefsHelper* m_prefs = m_settings.prefs.get();
    std::unique_ptr<CVPreferencesController> m_window;

    QList<Alert> m_alerts;
    QStringList m_revealed;
    QStringList m_openedFolders;
    QString m_chosenApplication;
    QList<PreferencesServices::ApplicationChoice> m_listed;
    std::optional<QColor> m_chosenColor;
    bool m_helperInstalled = false;
    int m_installs = 0;
};

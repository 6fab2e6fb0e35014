#pragma once

#include "persistence/sqliteinstancemanager.h"
#include "persistence/sqlitepersistentobject.h"
#include "prefs/cvprefshelper.h"
#include "prefs/userdefaults.h"
#include "ui/prefs/cvpreferencescontroller.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

// A settings store, a saved-search database and a log folder in a temporary folder, and a
// preferences window over them whose desktop services are recorded instead of run.
class PreferencesTest : public ::testing::Test {
protected:
    struct Alert {
        QString title;
        QString message;
    };

    void SetUp() override;
    void TearDown() override;

    CVPreferencesController& window();
    CVPreferencesController::Services recordingServices();

    QTemporaryDir m_dir;
    std::unique_ptr<UserDefaults> m_store;
    std::unique_ptr<CVPrefsHelper> m_prefs;
    std::unique_ptr<SQLiteInstanceManager> m_database;
    std::unique_ptr<CVPreferencesController> m_window;

    QList<Alert> m_alerts;
    QStringList m_revealed;
    QStringList m_openedFolders;
    QString m_chosenApplication;
    QList<PreferencesServices::ApplicationChoice> m_listed;
    std::optional<QColor> m_chosenColor;
    bool m_helperInstalled = false;
    int m_installs = 0;
    int m_helps = 0;
};

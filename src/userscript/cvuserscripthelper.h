#pragma once

#include <QString>

#include <functional>

// The script through which a confined Corvina runs lsof: where it lives, whether it is there
// with exactly the expected content, and writing it where the user chose.
class CVUserScriptHelper final {
public:
    CVUserScriptHelper() = delete;

    static QString scriptsFolder();
    static QString scriptPath();
    // The exact bytes the script must hold.
    static QString scriptContent();

    // Something that is not a folder exists at the script path.
    static bool lsofScriptExists();
    // The file reads as UTF-8 text equal to the script content.
    static bool lsofScriptContentCorrect();
    static bool lsofScriptCorrect();

    // Writes the script with mode 0755 at `path` (the path the user confirmed in the save
    // dialog), replacing a file already there. Creates the scripts folder first.
    static bool writeScriptFile(const QString& path);

    // Shows the install sheet (through `showSheet`) when running confined and the script is
    // missing or wrong. Called each time the main window becomes the active one.
    static void checkAndInstallScript(const std::function<void()>& showSheet);

    // For tests: the folder to use instead of the application's scripts folder.
    static void setScriptsFolderForTesting(const QString& folder);
};

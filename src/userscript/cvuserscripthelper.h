#pragma once

#include <QString>
#include <QStringList>

#include <functional>

// The script through which a confined Corvina runs lsof: where it lives, whether it is there
// with exactly the expected content, and writing it where the user chose.
class CVUserScriptHelper final {
public:
    CVUserScriptHelper() = delete;

    // Runs a command on the host, outside the sandbox, and answers what it printed (null when
    // it could not be run).
    using HostQuery = std::function<QString(const QStringList& command)>;

    static QString scriptsFolder();
    static QString scriptPath();
    // The exact bytes the script must hold. It names the lsof that will run it: in a Flatpak,
    // the host's (the runner starts the script there), found by asking the host once.
    static QString scriptContent();
    // The first of /usr/sbin/lsof and /usr/bin/lsof that is executable on the host; the first
    // of them when the host does not say.
    static QString hostLsofPath();

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
    // For tests: how the host is asked (null: through flatpak-spawn); forgets the last answer.
    static void setHostQueryForTesting(HostQuery query);
};

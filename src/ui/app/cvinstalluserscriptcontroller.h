#pragma once

#include <QDialog>

#include <functional>

class QPushButton;

// The sheet that asks a confined Corvina's user to save the lsof script into the scripts
// folder, or to quit. It closes only once the script is in place with the right content.
class CVInstallUserScriptController final : public QDialog {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(CVInstallUserScriptController)

public:
    // Answers the path the user confirmed in a save dialog, empty when cancelled.
    using SavePathChooser =
        std::function<QString(QWidget* parent, const QString& folder, const QString& proposedName)>;

    explicit CVInstallUserScriptController(QWidget* mainWindow);

    // The sheet of the run over `mainWindow`, made on first use.
    static CVInstallUserScriptController* sharedController(QWidget* mainWindow);
    // Checks the script and, when it is missing or wrong while confined, shows the sheet over
    // `mainWindow` from the event loop. For the main window's becoming-active hook.
    static void checkAndInstallScript(QWidget* mainWindow);

    void installScriptClicked();
    // Ends the process at once with status 0, without the application's orderly shutdown.
    [[noreturn]] void quitClicked();

    void setSavePathChooser(SavePathChooser chooser) { m_chooser = std::move(chooser); }
    QPushButton* installButton() const { return m_installButton; }

public slots:
    // The sheet cannot be dismissed: installing or quitting are the ways out.
    void reject() override;

private:
    SavePathChooser m_chooser;
    QPushButton* m_installButton = nullptr;
};

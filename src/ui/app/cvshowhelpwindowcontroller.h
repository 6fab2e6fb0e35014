#pragma once

#include <QDialog>

class QTextBrowser;

// The help window: one for the run, showing the help text shipped with the program.
class CVShowHelpWindowController final : public QDialog {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(CVShowHelpWindowController)

public:
    // The window of the run, made on first use (GUI thread).
    static CVShowHelpWindowController* sharedController();
    static void showHelp();

    QTextBrowser* textView() const { return m_textView; }

private:
    explicit CVShowHelpWindowController(QWidget* parent = nullptr);

    QTextBrowser* m_textView = nullptr;
};

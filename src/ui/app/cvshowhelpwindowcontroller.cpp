#include "cvshowhelpwindowcontroller.h"

#include <QFile>
#include <QTextBrowser>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

CVShowHelpWindowController::CVShowHelpWindowController(QWidget* parent) : QDialog(parent)
{
    setWindowTitle(tr("Corvina Help"));
    setObjectName(u"CVShowHelpWindowController"_s);
    m_textView = new QTextBrowser;
    m_textView->setOpenExternalLinks(true);
    m_textView->document()->setDocumentMargin(10);
    QFile help(u":/corvina/help.html"_s);
    if (help.open(QIODevice::ReadOnly))
        m_textView->setHtml(QString::fromUtf8(help.readAll()));
    else
        m_textView->setPlainText(tr("The help text is missing from this build."));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_textView);
    resize(640, 720);
}

CVShowHelpWindowController* CVShowHelpWindowController::sharedController()
{
    // Kept for the whole run; closing the window only hides it.
    static CVShowHelpWindowController* const instance = new CVShowHelpWindowController;
    return instance;
}

void CVShowHelpWindowController::showHelp()
{
    CVShowHelpWindowController* controller = sharedController();
    controller->show();
    controller->raise();
    controller->activateWindow();
}

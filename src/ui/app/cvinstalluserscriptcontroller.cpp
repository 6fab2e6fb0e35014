#include "cvinstalluserscriptcontroller.h"

#include "userscript/cvuserscripthelper.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QStyle>
#include <QVBoxLayout>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

QString askForSavePath(QWidget* parent, const QString& folder, const QString& proposedName)
{
    QFileDialog dialog(parent, CVInstallUserScriptController::tr("Install Script"), folder);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    dialog.selectFile(proposedName);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return QString();
    return dialog.selectedFiles().constFirst();
}

} // namespace

CVInstallUserScriptController::CVInstallUserScriptController(QWidget* mainWindow)
    : QDialog(mainWindow), m_chooser(askForSavePath)
{
    setObjectName(u"CVInstallUserScriptController"_s);
    setWindowTitle(tr("Install lsof Script"));
    setWindowModality(Qt::WindowModal);
    setWindowFlag(Qt::WindowCloseButtonHint, false);

    auto* icon = new QLabel;
    icon->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxInformation).pixmap(48, 48));
    icon->setAlignment(Qt::AlignTop);
    auto* title = new QLabel(tr("<b>Corvina needs a small script to list connections</b>"));
    auto* text = new QLabel(
        tr("Inside its sandbox Corvina may not start lsof itself. It can run a script that you "
           "save into its scripts folder:\n\n%1\n\nChoose \"Install Script\" and save the "
           "proposed file \"user_script.sh\" in the folder offered.")
            .arg(QDir::toNativeSeparators(CVUserScriptHelper::scriptsFolder())));
    text->setWordWrap(true);
    text->setTextInteractionFlags(Qt::TextSelectableByMouse);

    m_installButton = new QPushButton(tr("Install Script"));
    m_installButton->setDefault(true);
    auto* quit = new QPushButton(tr("Quit"));
    connect(m_installButton, &QPushButton::clicked, this,
            &CVInstallUserScriptController::installScriptClicked);
    connect(quit, &QPushButton::clicked, this, &CVInstallUserScriptController::quitClicked);

    auto* texts = new QVBoxLayout;
    texts->addWidget(title);
    texts->addWidget(text);
    auto* top = new QHBoxLayout;
    top->addWidget(icon);
    top->addLayout(texts, 1);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(quit);
    buttons->addWidget(m_installButton);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addSpacing(8);
    layout->addLayout(buttons);
    setFixedWidth(520);
}

CVInstallUserScriptController* CVInstallUserScriptController::sharedController(QWidget* mainWindow)
{
    static QPointer<CVInstallUserScriptController> shared;
    if (!shared)
        shared = new CVInstallUserScriptController(mainWindow);
    return shared;
}

void CVInstallUserScriptController::checkAndInstallScript(QWidget* mainWindow)
{
    QPointer<QWidget> window = mainWindow;
    CVUserScriptHelper::checkAndInstallScript([window] {
        // Shown from the event loop, not from inside the activation that asked for it.
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [window] {
                if (window)
                    sharedController(window)->open();
            },
            Qt::QueuedConnection);
    });
}

void CVInstallUserScriptController::installScriptClicked()
{
    const QString folder = CVUserScriptHelper::scriptsFolder();
    // The dialog opens in the folder, which may not exist yet.
    QDir().mkpath(folder);
    const QString path = m_chooser ? m_chooser(this, folder, u"user_script.sh"_s) : QString();
    if (!path.isEmpty())
        CVUserScriptHelper::writeScriptFile(path);
    if (CVUserScriptHelper::lsofScriptCorrect())
        accept();
}

void CVInstallUserScriptController::quitClicked()
{
    _exit(0);
}

void CVInstallUserScriptController::reject() {}

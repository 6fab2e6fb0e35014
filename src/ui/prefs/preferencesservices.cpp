#include "preferencesservices.h"

#include "helper/cvhelperutility.h"
#include "ui/app/cvshowhelpwindowcontroller.h"
#include "ui/window/desktopactions.h"

#include <QColorDialog>
#include <QDesktopServices>
#include <QFileDialog>
#include <QMessageBox>
#include <QUrl>

using namespace Qt::StringLiterals;

PreferencesServices PreferencesServices::desktop()
{
    PreferencesServices services;
    services.checkHelperInstalled = [] {
        return CVHelperUtility::sharedUtility()->checkHelperInstalled();
    };
    services.installHelper = [] { return CVHelperUtility::sharedUtility()->installHelper(); };
    services.alert = [](QWidget* parent, const QString& title, const QString& message) {
        QMessageBox box(parent);
        box.setWindowTitle(title);
        box.setText(title);
        // Shown as it stands: nothing in the text is taken for markup.
        box.setTextFormat(Qt::PlainText);
        box.setInformativeText(message);
        box.addButton(QMessageBox::tr("OK"), QMessageBox::AcceptRole);
        box.exec();
    };
    services.chooseApplication = [](QWidget* parent, const QString& title) {
        QFileDialog dialog(parent, title, u"/usr/bin"_s);
        dialog.setFileMode(QFileDialog::ExistingFile);
        dialog.setAcceptMode(QFileDialog::AcceptOpen);
        if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
            return QString();
        return dialog.selectedFiles().constFirst();
    };
    services.chooseColor = [](QWidget* parent, const QColor& initial,
                              const QString& title) -> std::optional<QColor> {
        const QColor color =
            QColorDialog::getColor(initial, parent, title, QColorDialog::ShowAlphaChannel);
        if (!color.isValid())
            return std::nullopt;
        return color;
    };
    services.revealFile = [](const QString& path) {
        return DesktopActions::showInFileManager(path);
    };
    services.openFolder = [](const QString& folder) {
        return QDesktopServices::openUrl(QUrl::fromLocalFile(folder));
    };
    services.showHelp = [] { CVShowHelpWindowController::showHelp(); };
    return services;
}

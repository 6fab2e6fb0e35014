#pragma once

#include <QColor>
#include <QList>
#include <QString>

#include <functional>
#include <optional>

class QWidget;

// What the preferences window asks of the desktop, of the helper and of the main window;
// tests replace each of them.
struct PreferencesServices {
    // An application that the main window lists now, offered for the exclusion list.
    struct ApplicationChoice {
        QString name;
        QString path;
        QString iconName;
    };

    std::function<bool()> checkHelperInstalled;
    std::function<bool()> installHelper;
    // A modal message with the one button "OK".
    std::function<void(QWidget* parent, const QString& title, const QString& message)> alert;
    // A program chosen by the user; empty when cancelled.
    std::function<QString(QWidget* parent, const QString& title)> chooseApplication;
    std::function<std::optional<QColor>(QWidget* parent, const QColor& initial,
                                        const QString& title)>
        chooseColor;
    // Shows the file selected in the file manager; false when that failed.
    std::function<bool(const QString& path)> revealFile;
    std::function<bool(const QString& folder)> openFolder;
    std::function<void()> showHelp;
    // The applications in the main window's list, by name; none when unset.
    std::function<QList<ApplicationChoice>()> listedApplications;
    // The user chose a refresh period (already stored): the main window takes it up as from its
    // own pop-up. A change of the setting from elsewhere waits for that pop-up.
    std::function<void()> refreshPeriodChosen;

    // The desktop's own: dialogs, the file manager, the shared helper client.
    static PreferencesServices desktop();
};

#pragma once

#include <QString>

class QToolBar;
class UserDefaults;

// Keeps the toolbar's filter controls across runs: every item with an identifier whose widget
// is a segmented control or a text field is stored under its identifier + "State", as text.
class ToolbarState final {
public:
    static QString keyForIdentifier(const QString& identifier);
    static void save(const QToolBar& toolbar, UserDefaults& defaults);
    static void restore(const QToolBar& toolbar, const UserDefaults& defaults);
};

#pragma once

class QTableView;
class UserDefaults;

// The connection table's column widths and sort order. The widths a fresh window starts with
// let the built-in columns fit a 1280-pixel-wide window; what the user makes of them is
// remembered under keys of the window's own, apart from the column set of the settings.
class ColumnLayout final {
public:
    ColumnLayout(QTableView& table, UserDefaults& defaults);

    // Widths for the header's font, before anything is restored.
    void applyInitialWidths();
    void restore();
    void save() const;

private:
    QTableView& m_table;
    UserDefaults& m_defaults;
};

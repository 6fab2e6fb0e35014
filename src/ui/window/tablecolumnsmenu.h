#pragma once

#include <QMenu>

class QTableView;
class UserDefaults;

// The table header's menu: one checkable item per column, titled like the column, through
// which the user hides and shows columns. The shown columns are kept in
// "CV:ColumnsUserDefault" as {"title", "width"} maps in display order; only the titles are
// read back, and columns always come up in layout order. Without a saved list the table shows
// the built-in column set.
class TableColumnsMenu final : public QMenu {
    Q_OBJECT
public:
    TableColumnsMenu(QTableView& table, UserDefaults& defaults, QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(TableColumnsMenu)

    // Once, at set-up: checks the items and hides the columns the saved list leaves out, or,
    // with none saved, those outside the built-in set.
    void setupTableHeaderViewMenu();
    // Action of every item: flips the column's visibility; a column shown again goes to the
    // right end.
    void tableHeaderViewContextMenuSelected(QAction* item);
    void saveTableColumns();

    QAction* itemForTitle(const QString& title) const;
    // Logical column numbers of the shown columns, in display order.
    QList<int> shownColumns() const;

private:
    QTableView& m_table;
    UserDefaults& m_defaults;
};

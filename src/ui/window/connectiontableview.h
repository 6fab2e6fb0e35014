#pragma once

#include <QTableView>

// The connection table. Like a desktop table it remembers the row and column of the last
// click, on which the context menu's commands act. A right click on a row outside the
// selection selects that row first, so what the menu copies is what is highlighted.
class ConnectionTableView final : public QTableView {
    Q_OBJECT
public:
    explicit ConnectionTableView(QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(ConnectionTableView)

    int clickedRow() const { return m_clickedRow; }
    int clickedColumn() const { return m_clickedColumn; }
    void setClickedCell(int row, int column);

    QList<int> selectedRowNumbers() const;
    void selectRowNumbers(const QList<int>& rows);
    void setRowHeight(int height);

Q_SIGNALS:
    // A cell was clicked (row and column -1: no cell), by mouse or, for the menu, by keyboard.
    void cellClicked(int row, int column);
    // The context menu should open at this global position, for the clicked cell.
    void contextMenuWanted(const QPoint& globalPos);

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    // From the keyboard the menu acts on the current row and opens over it.
    void openMenuForCurrentRow();

    int m_clickedRow = -1;
    int m_clickedColumn = -1;
};

#pragma once

#include <QTreeView>

// The grouped view of the connection table: applications, their connections beneath. It
// behaves as the flat table does: it remembers the cell last clicked, on which the context
// menu acts, and a right click outside the selection selects the clicked row first.
class ApplicationTreeView final : public QTreeView {
    Q_OBJECT
public:
    explicit ApplicationTreeView(QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(ApplicationTreeView)

    QModelIndex clickedIndex() const { return m_clicked; }
    void setClickedIndex(const QModelIndex& index);
    // The height of every row; the view's cell delegates are its children.
    void setRowHeight(int height);

Q_SIGNALS:
    // A cell was clicked (an invalid index: no cell), by mouse or, for the menu, by keyboard.
    void cellClicked(const QModelIndex& index);
    void contextMenuWanted(const QPoint& globalPos);

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    // The row's colour reaches under the branch marks, or a coloured row looks cut short.
    void drawBranches(QPainter* painter, const QRect& rect,
                      const QModelIndex& index) const override;

private:
    void openMenuForCurrentRow();

    QPersistentModelIndex m_clicked;
};

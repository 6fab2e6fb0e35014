#include "connectiontableview.h"

#include "rowmenuinput.h"

#include <QContextMenuEvent>
#include <QHeaderView>
#include <QItemSelection>
#include <QKeyEvent>
#include <QMouseEvent>

#include <algorithm>

ConnectionTableView::ConnectionTableView(QWidget* parent) : QTableView(parent)
{
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setShowGrid(false);
    setWordWrap(false);
    setTextElideMode(Qt::ElideRight);
    setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    setContextMenuPolicy(Qt::DefaultContextMenu);
    verticalHeader()->hide();
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    horizontalHeader()->setStretchLastSection(true);
    horizontalHeader()->setSectionsMovable(true);
    horizontalHeader()->setHighlightSections(false);
    horizontalHeader()->setSortIndicatorShown(true);
    horizontalHeader()->setSectionsClickable(true);
    horizontalHeader()->setSortIndicator(-1, Qt::AscendingOrder);
    horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
}

void ConnectionTableView::setClickedCell(int row, int column)
{
    m_clickedRow = row;
    m_clickedColumn = column;
    Q_EMIT cellClicked(row, column);
}

QList<int> ConnectionTableView::selectedRowNumbers() const
{
    QList<int> rows;
    if (!selectionModel())
        return rows;
    const auto selected = selectionModel()->selectedRows();
    rows.reserve(selected.size());
    for (const QModelIndex& index : selected)
        rows.append(index.row());
    std::sort(rows.begin(), rows.end());
    return rows;
}

void ConnectionTableView::selectRowNumbers(const QList<int>& rows)
{
    if (!selectionModel())
        return;
    QList<int> sorted = rows;
    std::sort(sorted.begin(), sorted.end());
    const int lastColumn = model()->columnCount() - 1;
    const int rowCount = model()->rowCount();
    QItemSelection selection;
    // Contiguous runs become one range: thousands of single-row ranges make selecting slow.
    for (qsizetype i = 0; i < sorted.size();) {
        const int first = sorted.at(i);
        int last = first;
        while (++i < sorted.size() && sorted.at(i) <= last + 1)
            last = sorted.at(i);
        if (first < 0 || last >= rowCount)
            continue;
        selection.append(
            QItemSelectionRange(model()->index(first, 0), model()->index(last, lastColumn)));
    }
    selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
}

void ConnectionTableView::setRowHeight(int height)
{
    verticalHeader()->setMinimumSectionSize(1);
    verticalHeader()->setDefaultSectionSize(height);
}

void ConnectionTableView::mousePressEvent(QMouseEvent* event)
{
    const QModelIndex index = indexAt(event->position().toPoint());
    setClickedCell(index.isValid() ? index.row() : -1, index.isValid() ? index.column() : -1);
    if (!RowMenuInput::takeRightClick(*this, index, *event))
        QTableView::mousePressEvent(event);
}

void ConnectionTableView::contextMenuEvent(QContextMenuEvent* event)
{
    event->accept();
    if (event->reason() == QContextMenuEvent::Mouse)
        Q_EMIT contextMenuWanted(event->globalPos());
    else
        openMenuForCurrentRow();
}

void ConnectionTableView::keyPressEvent(QKeyEvent* event)
{
    if (RowMenuInput::isMenuKey(*event)) {
        event->accept();
        openMenuForCurrentRow();
        return;
    }
    QTableView::keyPressEvent(event);
}

void ConnectionTableView::openMenuForCurrentRow()
{
    QModelIndex current = currentIndex();
    if (!current.isValid() && !selectedRowNumbers().isEmpty())
        current = model()->index(selectedRowNumbers().constFirst(), 0);
    setClickedCell(current.isValid() ? current.row() : -1,
                   current.isValid() ? current.column() : -1);
    const QPoint local = current.isValid() ? visualRect(current).center() : QPoint(0, 0);
    Q_EMIT contextMenuWanted(viewport()->mapToGlobal(local));
}

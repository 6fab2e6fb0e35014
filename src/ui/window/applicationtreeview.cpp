#include "applicationtreeview.h"

#include "rowmenuinput.h"

#include "textcell.h"

#include <QContextMenuEvent>
#include <QHeaderView>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>

ApplicationTreeView::ApplicationTreeView(QWidget* parent) : QTreeView(parent)
{
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    // All rows are one line high: the view then lays out thousands of rows without asking.
    setUniformRowHeights(true);
    setWordWrap(false);
    setTextElideMode(Qt::ElideRight);
    setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    setAllColumnsShowFocus(true);
    setExpandsOnDoubleClick(true);
    header()->setStretchLastSection(true);
    header()->setSectionsMovable(true);
    header()->setHighlightSections(false);
    header()->setSortIndicatorShown(true);
    header()->setSectionsClickable(true);
    header()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
}

void ApplicationTreeView::setClickedIndex(const QModelIndex& index)
{
    m_clicked = index;
    Q_EMIT cellClicked(index);
}

void ApplicationTreeView::setRowHeight(int height)
{
    // Rows are as high as their cells say; the table's rows are `height` high.
    const auto cells = findChildren<TextCell*>(Qt::FindDirectChildrenOnly);
    for (TextCell* cell : cells)
        cell->setRowHeight(height);
    doItemsLayout();
}

void ApplicationTreeView::mousePressEvent(QMouseEvent* event)
{
    const QModelIndex index = indexAt(event->position().toPoint());
    setClickedIndex(index);
    if (!RowMenuInput::takeRightClick(*this, index, *event))
        QTreeView::mousePressEvent(event);
}

void ApplicationTreeView::contextMenuEvent(QContextMenuEvent* event)
{
    event->accept();
    if (event->reason() == QContextMenuEvent::Mouse)
        Q_EMIT contextMenuWanted(event->globalPos());
    else
        openMenuForCurrentRow();
}

void ApplicationTreeView::keyPressEvent(QKeyEvent* event)
{
    if (RowMenuInput::isMenuKey(*event)) {
        event->accept();
        openMenuForCurrentRow();
        return;
    }
    QTreeView::keyPressEvent(event);
}

void ApplicationTreeView::drawBranches(QPainter* painter, const QRect& rect,
                                       const QModelIndex& index) const
{
    const QVariant background = index.data(Qt::BackgroundRole);
    if (background.canConvert<QColor>() && !selectionModel()->isSelected(index))
        painter->fillRect(rect, background.value<QColor>());
    QTreeView::drawBranches(painter, rect, index);
}

void ApplicationTreeView::openMenuForCurrentRow()
{
    QModelIndex current = currentIndex();
    if (!current.isValid() && selectionModel() && !selectionModel()->selectedRows().isEmpty())
        current = selectionModel()->selectedRows().constFirst();
    setClickedIndex(current);
    const QPoint local = current.isValid() ? visualRect(current).center() : QPoint(0, 0);
    Q_EMIT contextMenuWanted(viewport()->mapToGlobal(local));
}

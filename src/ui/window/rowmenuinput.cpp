#include "rowmenuinput.h"

#include <QAbstractItemView>
#include <QKeyEvent>
#include <QMouseEvent>

bool RowMenuInput::isMenuKey(const QKeyEvent& event)
{
    return event.key() == Qt::Key_Menu ||
           (event.key() == Qt::Key_F10 && event.modifiers() == Qt::ShiftModifier);
}

bool RowMenuInput::takeRightClick(QAbstractItemView& view, const QModelIndex& index,
                                  QMouseEvent& event)
{
    if (event.button() != Qt::RightButton)
        return false;
    QItemSelectionModel* selection = view.selectionModel();
    if (index.isValid() && !selection->isRowSelected(index.row(), index.parent()))
        selection->setCurrentIndex(index,
                                   QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    event.accept();
    return true;
}

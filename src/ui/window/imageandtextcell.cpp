#include "imageandtextcell.h"

#include "connectiontablemodel.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QHelpEvent>
#include <QPainter>
#include <QToolTip>

QRect ImageAndTextCell::imageRect(const QRect& cell)
{
    const int side = cell.height() - 2;
    return {cell.left() + 4, cell.top() + 1, side, side};
}

QRect ImageAndTextCell::textRect(const QRect& cell)
{
    const int slice = cell.height() - 2 + 4;
    return cell.adjusted(slice, 0, 0, 0);
}

bool ImageAndTextCell::hitsImage(const QRect& cell, const QSize& imageSize, const QPoint& point)
{
    const QRect hit(cell.left() + 3, cell.top(), imageSize.width(), imageSize.height());
    return hit.contains(point);
}

void ImageAndTextCell::paint(QPainter* painter, const QStyleOptionViewItem& option,
                             const QModelIndex& index) const
{
    const QIcon icon = index.data(Qt::DecorationRole).value<QIcon>();
    if (icon.isNull()) {
        TextCell::paint(painter, option, index);
        return;
    }

    QStyleOptionViewItem full = option;
    initStyleOption(&full, index);
    const QWidget* widget = option.widget;
    QStyle* style = widget ? widget->style() : QApplication::style();
    if (full.state & QStyle::State_Selected) {
        // The selection highlight belongs under the icon too, or the row looks torn.
        full.features &= ~QStyleOptionViewItem::HasDecoration;
        full.text.clear();
        style->drawPrimitive(QStyle::PE_PanelItemViewItem, &full, painter, widget);
    } else if (full.backgroundBrush.style() != Qt::NoBrush) {
        painter->fillRect(option.rect, full.backgroundBrush);
    }

    const QRect square = imageRect(option.rect);
    const QIcon::Mode mode = (full.state & QStyle::State_Enabled) ? QIcon::Normal : QIcon::Disabled;
    icon.paint(painter, square, Qt::AlignCenter, mode);

    QStyleOptionViewItem text = option;
    text.rect = textRect(option.rect);
    TextCell::paint(painter, text, index);
}

void ImageAndTextCell::initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const
{
    QStyledItemDelegate::initStyleOption(option, index);
    // The icon is drawn by paint(); the base must lay out text only.
    option->features &= ~QStyleOptionViewItem::HasDecoration;
    option->icon = QIcon();
    option->decorationSize = QSize();
}

bool ImageAndTextCell::helpEvent(QHelpEvent* event, QAbstractItemView* view,
                                 const QStyleOptionViewItem& option, const QModelIndex& index)
{
    const QIcon icon = index.data(Qt::DecorationRole).value<QIcon>();
    const QString path = index.data(ConnectionTableModel::ProcessPathRole).toString();
    if (event && event->type() == QEvent::ToolTip && !icon.isNull() && !path.isEmpty()) {
        const QList<QSize> sizes = icon.availableSizes();
        const QSize own = sizes.isEmpty() ? imageRect(option.rect).size() : sizes.first();
        if (hitsImage(option.rect, own, event->pos())) {
            QToolTip::showText(event->globalPos(), path, view);
            return true;
        }
    }
    return TextCell::helpEvent(event, view, option, index);
}

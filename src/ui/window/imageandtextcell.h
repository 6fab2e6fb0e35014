#pragma once

#include "textcell.h"

// Cell of the application column: the process icon in a square at the left, the name beside.
// The square follows the row height, whatever the icon's own size.
class ImageAndTextCell final : public TextCell {
    Q_OBJECT
public:
    using TextCell::TextCell;
    Q_DISABLE_COPY_MOVE(ImageAndTextCell)

    // For a cell of height h: a (h - 2)-square, 4 to the right of and 1 below the cell's corner.
    static QRect imageRect(const QRect& cell);
    // What remains right of the image slice, which is h + 2 wide.
    static QRect textRect(const QRect& cell);
    // The icon answers clicks over its own size, 3 from the left edge: not the drawn square.
    static bool hitsImage(const QRect& cell, const QSize& imageSize, const QPoint& point);

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;

    // Over the icon the tooltip names the process's file.
    bool helpEvent(QHelpEvent* event, QAbstractItemView* view, const QStyleOptionViewItem& option,
                   const QModelIndex& index) override;

protected:
    void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override;
};

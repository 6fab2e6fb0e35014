#include "ui/window/imageandtextcell.h"

#include <QImage>
#include <QPainter>
#include <QStandardItemModel>
#include <QStyleOptionViewItem>
#include <QTableView>

#include <gtest/gtest.h>

TEST(ImageAndTextCell, SizesTheIconSquareByTheRowHeight)
{
    const QRect cell(100, 30, 200, 15);
    EXPECT_EQ(ImageAndTextCell::imageRect(cell), QRect(104, 31, 13, 13));
    EXPECT_EQ(ImageAndTextCell::textRect(cell).left() - cell.left(), 17);
    EXPECT_EQ(ImageAndTextCell::textRect(cell).right(), cell.right());
    EXPECT_EQ(ImageAndTextCell::imageRect(QRect(0, 0, 80, 24)).size(), QSize(22, 22));
}

TEST(ImageAndTextCell, AnswersClicksOverTheIconsOwnSizeNotTheDrawnSquare)
{
    const QRect cell(0, 0, 200, 15);
    const QSize image(32, 32);
    // Inside the 32-pixel hit box but right of the 13-pixel drawn square.
    EXPECT_TRUE(ImageAndTextCell::hitsImage(cell, image, QPoint(30, 5)));
    // Left of the 3-pixel offset.
    EXPECT_FALSE(ImageAndTextCell::hitsImage(cell, image, QPoint(2, 5)));
    EXPECT_FALSE(ImageAndTextCell::hitsImage(cell, image, QPoint(36, 5)));
}

namespace {

QImage render(bool withIcon, bool selected)
{
    QStandardItemModel model(1, 1);
    auto* item = new QStandardItem(QStringLiteral("Firefox"));
    item->setBackground(QColor(0, 255, 0));
    if (withIcon) {
        QPixmap pixmap(32, 32);
        pixmap.fill(QColor(0, 0, 255));
        item->setIcon(QIcon(pixmap));
    }
    model.setItem(0, 0, item);
    QTableView view;
    view.setModel(&model);
    ImageAndTextCell cell;

    QImage image(200, 15, QImage::Format_ARGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    QStyleOptionViewItem option;
    option.initFrom(&view);
    option.widget = &view;
    option.rect = QRect(0, 0, 200, 15);
    option.state = QStyle::State_Enabled | QStyle::State_Active;
    if (selected)
        option.state |= QStyle::State_Selected;
    cell.paint(&painter, option, model.index(0, 0));
    painter.end();
    return image;
}

} // namespace

TEST(ImageAndTextCell, DrawsBackgroundUnderTheIconAndTheIconInItsSquare)
{
    const QImage plain = render(true, false);
    EXPECT_EQ(plain.pixelColor(1, 7), QColor(0, 255, 0)) << "background left of the icon";
    EXPECT_EQ(plain.pixelColor(10, 7), QColor(0, 0, 255)) << "icon inside the 13-pixel square";
    EXPECT_NE(plain.pixelColor(18, 7), QColor(0, 0, 255)) << "icon stops at the square";

    // Selected: the highlight, not the row's colour, lies under the icon.
    const QImage selected = render(true, true);
    EXPECT_NE(selected.pixelColor(1, 7), QColor(0, 255, 0));
    EXPECT_EQ(selected.pixelColor(10, 7), QColor(0, 0, 255));
}

TEST(ImageAndTextCell, WithoutAnIconDrawsLikeAPlainTextCell)
{
    QStandardItemModel model(1, 1);
    model.setItem(0, 0, new QStandardItem(QStringLiteral("curl")));
    QTableView view;
    view.setModel(&model);
    QStyleOptionViewItem option;
    option.initFrom(&view);
    option.widget = &view;
    option.rect = QRect(0, 0, 120, 15);

    QImage ours(120, 15, QImage::Format_ARGB32), base(120, 15, QImage::Format_ARGB32);
    ours.fill(Qt::white);
    base.fill(Qt::white);
    QPainter p1(&ours);
    ImageAndTextCell().paint(&p1, option, model.index(0, 0));
    p1.end();
    QPainter p2(&base);
    QStyledItemDelegate().paint(&p2, option, model.index(0, 0));
    p2.end();
    EXPECT_EQ(ours, base);
}

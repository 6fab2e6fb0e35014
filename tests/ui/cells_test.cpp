#include "ui/window/imageandtextcell.h"
#include "ui/window/textcell.h"

#include <QImage>
#include <QPainter>
#include <QStandardItemModel>
#include <QStyleOptionViewItem>
#include <QTableView>

#include <gtest/gtest.h>

namespace {

struct Cell {
    const char* name;
    QString text;
    Qt::Alignment alignment = Qt::AlignLeft | Qt::AlignVCenter;
    QColor background = QColor();
    QColor foreground = QColor();
    bool selected = false;
    bool focused = false;
    int width = 160;
    int height = 17;
    QColor icon = QColor(); // a square icon of 32 pixels in this colour
};

QImage render(const QStyledItemDelegate& delegate, const Cell& cell)
{
    QStandardItemModel model(1, 1);
    auto* item = new QStandardItem(cell.text);
    item->setTextAlignment(cell.alignment);
    if (cell.background.isValid())
        item->setBackground(cell.background);
    if (cell.foreground.isValid())
        item->setForeground(cell.foreground);
    if (cell.icon.isValid()) {
        QPixmap pixmap(32, 32);
        pixmap.fill(cell.icon);
        item->setIcon(QIcon(pixmap));
    }
    model.setItem(0, 0, item);
    QTableView view;
    view.setModel(&model);
    view.setWordWrap(false);

    QImage image(cell.width, cell.height, QImage::Format_ARGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    QStyleOptionViewItem option;
    option.initFrom(&view);
    option.widget = &view;
    option.rect = QRect(0, 0, cell.width, cell.height);
    option.textElideMode = Qt::ElideRight;
    option.state = QStyle::State_Enabled | QStyle::State_Active;
    if (cell.selected)
        option.state |= QStyle::State_Selected;
    if (cell.focused)
        option.state |= QStyle::State_HasFocus;
    delegate.paint(&painter, option, model.index(0, 0));
    painter.end();
    return image;
}

} // namespace

TEST(TextCell, PaintsLikeTheStandardDelegate)
{
    const QList<Cell> cells{
        {"plain", u"firefox"_s},
        {"empty", QString()},
        {"row colour and text colour", u"ESTABLISHED"_s, Qt::AlignLeft | Qt::AlignVCenter,
         QColor(240, 240, 20), QColor(20, 20, 200)},
        {"number on the right", u"51544"_s, Qt::AlignRight | Qt::AlignVCenter},
        {"centred", u"UDP"_s, Qt::AlignCenter},
        {"selected over a row colour", u"sshd"_s, Qt::AlignLeft | Qt::AlignVCenter,
         QColor(220, 20, 20), QColor(), true},
        {"current cell", u"curl"_s, Qt::AlignLeft | Qt::AlignVCenter, QColor(), QColor(), true,
         true},
        {"too long: elided", u"org.freedesktop.systemd1.very-long-name"_s,
         Qt::AlignLeft | Qt::AlignVCenter, QColor(), QColor(), false, false, 70},
    };
    const QStyledItemDelegate standard;
    const TextCell ours;
    for (const Cell& cell : cells) {
        // Twice: the second paint comes from the kept layout.
        for (int pass = 0; pass < 2; ++pass)
            EXPECT_EQ(render(ours, cell), render(standard, cell)) << cell.name << " pass " << pass;
    }
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

TEST(ImageAndTextCell, DrawsBackgroundUnderTheIconAndTheIconInItsSquare)
{
    Cell cell{"icon", u"Firefox"_s, Qt::AlignLeft | Qt::AlignVCenter, QColor(0, 255, 0)};
    cell.width = 200;
    cell.height = 15;
    cell.icon = QColor(0, 0, 255);
    const QImage plain = render(ImageAndTextCell(), cell);
    EXPECT_EQ(plain.pixelColor(1, 7), QColor(0, 255, 0)) << "background left of the icon";
    EXPECT_EQ(plain.pixelColor(10, 7), QColor(0, 0, 255)) << "icon inside the 13-pixel square";
    EXPECT_NE(plain.pixelColor(18, 7), QColor(0, 0, 255)) << "icon stops at the square";

    // Selected: the highlight, not the row's colour, lies under the icon.
    cell.selected = true;
    const QImage selected = render(ImageAndTextCell(), cell);
    EXPECT_NE(selected.pixelColor(1, 7), QColor(0, 255, 0));
    EXPECT_EQ(selected.pixelColor(10, 7), QColor(0, 0, 255));

    // Without an icon it draws as a plain text cell does.
    const Cell text{"no icon", u"curl"_s};
    EXPECT_EQ(render(ImageAndTextCell(), text), render(QStyledItemDelegate(), text));
}

#include "ui/window/textcell.h"

#include <QImage>
#include <QPainter>
#include <QStandardItemModel>
#include <QStyleOptionViewItem>
#include <QTableView>

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

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
    model.setItem(0, 0, item);
    QTableView view;
    view.setModel(&model);
    view.setWordWrap(false);

    QImage image(cell.width, 17, QImage::Format_ARGB32);
    image.fill(Qt::white);
    QPainter painter(&image);
    QStyleOptionViewItem option;
    option.initFrom(&view);
    option.widget = &view;
    option.rect = QRect(0, 0, cell.width, 17);
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

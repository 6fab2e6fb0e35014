#include "colorwell.h"

#include <QPainter>
#include <QPixmap>

using namespace Qt::StringLiterals;

ColorWell::ColorWell(QWidget* parent) : QToolButton(parent)
{
    setIconSize(QSize(44, 18));
    setToolButtonStyle(Qt::ToolButtonIconOnly);
    setColor(Qt::black);
}

void ColorWell::setColor(const QColor& color)
{
    m_color = color;
    QPixmap swatch(iconSize());
    QPainter painter(&swatch);
    const int cell = 6;
    for (int y = 0; y < swatch.height(); y += cell) {
        for (int x = 0; x < swatch.width(); x += cell)
            painter.fillRect(x, y, cell, cell,
                             ((x + y) / cell) % 2 ? QColor(0xcc, 0xcc, 0xcc) : Qt::white);
    }
    painter.fillRect(swatch.rect(), color);
    painter.setPen(palette().color(QPalette::Mid));
    painter.drawRect(swatch.rect().adjusted(0, 0, -1, -1));
    painter.end();
    setIcon(QIcon(swatch));
    setToolTip(color.name(QColor::HexArgb).toUpper());
    setAccessibleDescription(toolTip());
}

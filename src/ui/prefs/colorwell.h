#pragma once

#include <QColor>
#include <QToolButton>

// A button that shows a colour as a swatch over a checkerboard, so that a translucent colour
// reads as translucent.
class ColorWell final : public QToolButton {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ColorWell)

public:
    explicit ColorWell(QWidget* parent = nullptr);

    QColor color() const { return m_color; }
    void setColor(const QColor& color);

private:
    QColor m_color;
};

#pragma once

#include <QElapsedTimer>
#include <QPixmap>
#include <QRect>
#include <QScrollBar>

// A scroll bar that keeps its last picture and shows it again while nothing it depends on
// has changed. The table lays out its children after every refresh, and that raises both
// bars, so both are repainted each time although they look the same; painting one draws
// long gradients that the paint engine splits across other threads and waits for, which
// made the bars a third of a refresh's stall.
class CachedScrollBar final : public QScrollBar {
    Q_OBJECT
public:
    explicit CachedScrollBar(Qt::Orientation orientation, QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(CachedScrollBar)

protected:
    void paintEvent(QPaintEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    // Everything the picture depends on that can be read from outside the bar. What cannot
    // (which part is hovered or pressed) is ruled out by painting directly whenever the
    // pointer is over the bar or a button is down.
    struct Looks {
        QSize size;
        qreal devicePixelRatio = 1;
        QRect handle;
        // Styles draw an arrow that cannot move the bar further as disabled.
        bool atMinimum = false;
        bool atMaximum = false;
        bool enabled = false;
        bool active = false;
        Qt::LayoutDirection direction = Qt::LeftToRight;
        qint64 palette = 0;
        friend bool operator==(const Looks&, const Looks&) = default;
    };
    Looks looks() const;
    bool mayKeepPicture() const;

    QPixmap m_picture;
    Looks m_pictured;
    QElapsedTimer m_sinceLeft;
};

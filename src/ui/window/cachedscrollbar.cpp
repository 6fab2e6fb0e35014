#include "cachedscrollbar.h"

#include <QGuiApplication>
#include <QPainter>
#include <QStyle>
#include <QStyleOptionSlider>

namespace {

// Styles may fade a bar's hover look out for a moment after the pointer leaves.
constexpr qint64 kAfterLeaveMs = 1000;

} // namespace

CachedScrollBar::CachedScrollBar(Qt::Orientation orientation, QWidget* parent)
    : QScrollBar(orientation, parent)
{
}

CachedScrollBar::Looks CachedScrollBar::looks() const
{
    QStyleOptionSlider option;
    initStyleOption(&option);
    return {
        size(),
        devicePixelRatioF(),
        style()->subControlRect(QStyle::CC_ScrollBar, &option, QStyle::SC_ScrollBarSlider, this),
        value() == minimum(),
        value() == maximum(),
        isEnabled(),
        isActiveWindow(),
        layoutDirection(),
        palette().cacheKey()};
}

bool CachedScrollBar::mayKeepPicture() const
{
    return !underMouse() && !isSliderDown() && QGuiApplication::mouseButtons() == Qt::NoButton &&
           (!m_sinceLeft.isValid() || m_sinceLeft.hasExpired(kAfterLeaveMs)) &&
           !style()->styleHint(QStyle::SH_ScrollBar_Transient, nullptr, this);
}

void CachedScrollBar::paintEvent(QPaintEvent* event)
{
    if (!mayKeepPicture()) {
        m_picture = QPixmap();
        QScrollBar::paintEvent(event);
        return;
    }
    const Looks now = looks();
    if (m_picture.isNull() || now != m_pictured) {
        // What the standard paint draws when no part is hovered or pressed, on a clear
        // picture: the style paints over what lies beneath, so showing the picture over the
        // same background gives the same pixels.
        m_picture = QPixmap(size() * now.devicePixelRatio);
        m_picture.setDevicePixelRatio(now.devicePixelRatio);
        m_picture.fill(Qt::transparent);
        QPainter painter(&m_picture);
        // As a painter on the bar itself starts out.
        painter.setPen(palette().color(foregroundRole()));
        painter.setBackground(palette().brush(backgroundRole()));
        painter.setFont(font());
        QStyleOptionSlider option;
        initStyleOption(&option);
        option.subControls = QStyle::SC_All;
        option.activeSubControls = QStyle::SC_None;
        style()->drawComplexControl(QStyle::CC_ScrollBar, &option, &painter, this);
        m_pictured = now;
    }
    QPainter painter(this);
    painter.drawPixmap(0, 0, m_picture);
}

void CachedScrollBar::leaveEvent(QEvent* event)
{
    m_sinceLeft.start();
    QScrollBar::leaveEvent(event);
}

void CachedScrollBar::changeEvent(QEvent* event)
{
    // A new style or font may draw the same state differently.
    if (event->type() == QEvent::StyleChange || event->type() == QEvent::FontChange)
        m_picture = QPixmap();
    QScrollBar::changeEvent(event);
}

#include "textcell.h"

#include <QApplication>
#include <QFontMetrics>
#include <QImage>
#include <QPainter>
#include <QStyle>

const QStaticText& TextCell::laidOut(const QString& text, int width, const QFont& font,
                                     Qt::TextElideMode elide) const
{
    if (font != m_font) {
        m_texts.clear();
        m_olderTexts.clear();
        m_font = font;
    }
    Key key{text, width, elide};
    auto found = m_texts.constFind(key);
    if (found != m_texts.cend())
        return *found;
    // Two generations: when the newer one is full it becomes the older, and what is still
    // shown moves back as it is painted. Emptying one store at the limit instead made the
    // next repaint lay out every visible cell again, a stall as long as the first paint's.
    if (m_texts.size() >= kCachedTexts / 2) {
        m_olderTexts = std::exchange(m_texts, {});
    }
    if (const auto older = m_olderTexts.constFind(key); older != m_olderTexts.cend())
        return *m_texts.insert(std::move(key), *older);

    // Shaped once: the laid-out text knows its width, and only one too wide is shaped again.
    QStaticText laid(text);
    laid.setTextFormat(Qt::PlainText);
    laid.setPerformanceHint(QStaticText::AggressiveCaching);
    laid.prepare(QTransform(), font);
    if (elide != Qt::ElideNone && laid.size().width() > width) {
        laid.setText(QFontMetrics(font).elidedText(text, elide, width));
        laid.prepare(QTransform(), font);
    }
    return *m_texts.insert(std::move(key), std::move(laid));
}

QSize TextCell::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    if (m_rowHeight > 0)
        return {QStyledItemDelegate::sizeHint(option, index).width(), m_rowHeight};
    return QStyledItemDelegate::sizeHint(option, index);
}

void TextCell::warmUp(const QFont& font)
{
    QString sample;
    for (char16_t c = u' '; c < 0x7f; ++c)
        sample.append(QChar(c));
    sample.append(QChar(0x2026)); // the ellipsis of elided texts
    // Glyph images are kept per format; window surfaces are one of these two.
    for (const QImage::Format format :
         {QImage::Format_ARGB32_Premultiplied, QImage::Format_RGB32}) {
        QImage image(8, 8, format);
        QPainter painter(&image);
        painter.setFont(font);
        // Glyphs are drawn at quarter-pixel offsets across, each kept apart.
        for (const qreal x : {0.0, 0.25, 0.5, 0.75})
            painter.drawText(QPointF(x, 4), sample);
    }
}

void TextCell::paint(QPainter* painter, const QStyleOptionViewItem& option,
                     const QModelIndex& index) const
{
    QStyleOptionViewItem item = option;
    initStyleOption(&item, index);
    const QWidget* widget = item.widget;
    QStyle* style = widget ? widget->style() : QApplication::style();
    constexpr auto kOwnFeatures =
        QStyleOptionViewItem::HasDisplay | QStyleOptionViewItem::Alternate;
    if ((item.features & ~kOwnFeatures) || (item.state & QStyle::State_Editing) ||
        item.text.contains(u'\n') || item.text.contains(QChar::LineSeparator) ||
        style->inherits("QStyleSheetStyle")) {
        QStyledItemDelegate::paint(painter, option, index);
        return;
    }

    painter->save();
    painter->setClipRect(item.rect);
    style->drawPrimitive(QStyle::PE_PanelItemViewItem, &item, painter, widget);

    if (!item.text.isEmpty()) {
        QPalette::ColorGroup group =
            item.state & QStyle::State_Enabled ? QPalette::Normal : QPalette::Disabled;
        if (group == QPalette::Normal && !(item.state & QStyle::State_Active))
            group = QPalette::Inactive;
        painter->setPen(item.palette.color(group, item.state & QStyle::State_Selected
                                                      ? QPalette::HighlightedText
                                                      : QPalette::Text));
        painter->setFont(item.font);
        const int margin = style->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, widget) + 1;
        const QRect area = item.rect.adjusted(margin, 0, -margin, 0);
        const QStaticText& text = laidOut(item.text, area.width(), item.font, item.textElideMode);
        // Across, the text sits where a layout as wide as the cell would put it: at a
        // fraction of a pixel, as the standard cell does.
        const QSizeF size = text.size();
        QPointF at = QStyle::alignedRect(item.direction, item.displayAlignment, size.toSize(), area)
                         .topLeft();
        const Qt::Alignment across =
            QStyle::visualAlignment(item.direction, item.displayAlignment) &
            Qt::AlignHorizontal_Mask;
        if (across & Qt::AlignRight)
            at.setX(area.left() + area.width() - size.width());
        else if (across & Qt::AlignHCenter)
            at.setX(area.left() + (area.width() - size.width()) / 2);
        else
            at.setX(area.left());
        painter->drawStaticText(at, text);
    }

    if (item.state & QStyle::State_HasFocus) {
        QStyleOptionFocusRect focus;
        focus.QStyleOption::operator=(item);
        focus.rect = style->subElementRect(QStyle::SE_ItemViewItemFocusRect, &item, widget);
        focus.state |= QStyle::State_KeyboardFocusChange | QStyle::State_Item;
        const QPalette::ColorGroup group =
            item.state & QStyle::State_Enabled ? QPalette::Normal : QPalette::Disabled;
        focus.backgroundColor = item.palette.color(
            group, item.state & QStyle::State_Selected ? QPalette::Highlight : QPalette::Window);
        style->drawPrimitive(QStyle::PE_FrameFocusRect, &focus, painter, widget);
    }
    painter->restore();
}

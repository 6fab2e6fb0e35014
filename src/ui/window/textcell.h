#pragma once

#include <QFont>
#include <QHash>
#include <QStaticText>
#include <QStyledItemDelegate>

// A table cell of one line of text, drawn like the style's own item but from laid-out text
// kept between paints. A refresh repaints every visible cell, and shaping each text again
// was most of that repaint; the same texts (names, states, ports) come back row after row
// and refresh after refresh. Cells with a check box, an icon or several lines, and styles
// set by style sheets, are left to the standard delegate.
class TextCell : public QStyledItemDelegate {
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;
    Q_DISABLE_COPY_MOVE(TextCell)

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    // A tree has no row heights of its own: its rows are as high as their cells say. 0: the
    // style's height.
    void setRowHeight(int height) { m_rowHeight = height; }
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

    // Loads `font` and draws the printable ASCII characters in it off screen, so that the first
    // rows shown do not wait for the font to be opened and its glyphs to be rendered.
    static void warmUp(const QFont& font);

    // Laid-out texts kept at most, the recently painted ones first.
    static constexpr qsizetype kCachedTexts = 8192;

private:
    struct Key {
        QString text;
        int width;
        Qt::TextElideMode elide;
        friend bool operator==(const Key&, const Key&) = default;
        friend size_t qHash(const Key& key, size_t seed = 0)
        {
            return qHashMulti(seed, key.text, key.width, int(key.elide));
        }
    };
    // The text as it fits `width`, elided if it must be, laid out in `font`.
    const QStaticText& laidOut(const QString& text, int width, const QFont& font,
                               Qt::TextElideMode elide) const;

    int m_rowHeight = 0;
    mutable QFont m_font;
    mutable QHash<Key, QStaticText> m_texts;
    mutable QHash<Key, QStaticText> m_olderTexts;
};

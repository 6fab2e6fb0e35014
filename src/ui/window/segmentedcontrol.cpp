#include "segmentedcontrol.h"

#include "snapshot/lsofitem.h"

#include <QHBoxLayout>
#include <QToolButton>

using namespace Qt::StringLiterals;

namespace {

// A selected segment is filled with the selection colour, an unselected one is plain: the
// style's own pressed look differs from the raised one by a shade only.
const QString kSegmentStyle =
    u"QToolButton { padding: 3px 9px; border: 1px solid palette(dark); "
    "background: palette(button); color: palette(button-text); } "
    "QToolButton:checked { background: palette(highlight); "
    "color: palette(highlighted-text); border-color: palette(highlight); } "
    "QToolButton:disabled { color: palette(mid); background: palette(window); "
    "border-color: palette(mid); } "
    "QToolButton:checked:disabled { background: palette(midlight); } "
    "QToolButton:hover:!checked { background: palette(light); }"_s;

} // namespace

SegmentedControl::SegmentedControl(const QStringList& labels, QWidget* parent) : QWidget(parent)
{
    setStyleSheet(kSegmentStyle);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    for (int i = 0; i < labels.size(); ++i) {
        auto* button = new QToolButton(this);
        button->setText(labels.at(i));
        button->setCheckable(true);
        button->setAutoRaise(false);
        button->setToolButtonStyle(Qt::ToolButtonTextOnly);
        button->setAccessibleName(labels.at(i));
        connect(button, &QToolButton::clicked, this, [this, i] { Q_EMIT segmentClicked(i); });
        layout->addWidget(button);
        m_buttons.append(button);
    }
}

QString SegmentedControl::labelForSegment(int segment) const
{
    return m_buttons.at(segment)->text();
}

bool SegmentedControl::isSelectedForSegment(int segment) const
{
    return m_buttons.at(segment)->isChecked();
}

void SegmentedControl::setSelected(bool selected, int segment)
{
    m_buttons.at(segment)->setChecked(selected);
}

QStringList SegmentedControl::unselectedLabels() const
{
    QStringList labels;
    for (const QToolButton* button : m_buttons) {
        if (!button->isChecked())
            labels.append(button->text());
    }
    return labels;
}

QString SegmentedControl::stateText() const
{
    QStringList selected;
    for (int i = 0; i < segmentCount(); ++i) {
        if (isSelectedForSegment(i))
            selected.append(QString::number(i));
    }
    return selected.join(u',');
}

void SegmentedControl::restoreState(const QString& text)
{
    for (QToolButton* button : m_buttons)
        button->setChecked(false);
    if (text.isEmpty())
        return;
    for (const QString& piece : text.split(u',')) {
        const qint64 segment = LsofItem::integerValue(piece);
        if (segment >= 0 && segment < segmentCount())
            setSelected(true, int(segment));
    }
}

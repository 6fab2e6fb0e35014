#pragma once

#include <QList>
#include <QWidget>

class QToolButton;

// A row of toggle buttons, any number of them selected: the toolbar's filter controls.
// Its saved state is the selected segment numbers in ascending order, joined by ",".
class SegmentedControl final : public QWidget {
    Q_OBJECT
public:
    SegmentedControl(const QStringList& labels, QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(SegmentedControl)

    int segmentCount() const { return int(m_buttons.size()); }
    QString labelForSegment(int segment) const;
    bool isSelectedForSegment(int segment) const;
    void setSelected(bool selected, int segment);
    QStringList unselectedLabels() const;

    QString stateText() const;
    // Deselects all, then selects each listed number inside the range; other numbers are
    // ignored and a piece that is no number reads as 0.
    void restoreState(const QString& text);

    QToolButton* buttonForSegment(int segment) const { return m_buttons.at(segment); }

Q_SIGNALS:
    // A click by the user (not a programmatic change).
    void segmentClicked(int segment);

private:
    QList<QToolButton*> m_buttons;
};

#include "columnlayout.h"

#include "connectiontablemodel.h"
#include "prefs/userdefaults.h"

#include <QHeaderView>
#include <QTableView>

using namespace Qt::StringLiterals;

namespace {

const QString kColumnWidthsKey = u"MainWindow/ColumnWidths"_s;
const QString kSortKey = u"MainWindow/Sort"_s;

// The room a column's values need, in average character widths. The built-in columns come to
// about 1230 pixels at the default sizes, the two rates included, so "State" shows in a
// 1280-pixel-wide window; longer names are elided, their tooltips show them whole.
int valueWidthInCharacters(LsofItem::Key key)
{
    switch (key) {
    case LsofItem::Key::processPath:
        return 18;
    case LsofItem::Key::localizedAppName:
    case LsofItem::Key::remoteHostname:
        return 15;
    case LsofItem::Key::localAddress:
    case LsofItem::Key::remoteAddress:
        return 14; // a dotted IPv4 address; IPv6 ones are elided, their tooltip shows them
    case LsofItem::Key::state:
        return 11; // ESTABLISHED
    case LsofItem::Key::localPortName:
    case LsofItem::Key::remotePortName:
        return 8;
    case LsofItem::Key::sendRate:
    case LsofItem::Key::receiveRate:
        return 9; // 123.4 kB/s
    case LsofItem::Key::bytesSent:
    case LsofItem::Key::bytesReceived:
    case LsofItem::Key::rtt:
        return 7; // 123.4 MB, 12.34 ms
    default:
        return 5;
    }
}

} // namespace

ColumnLayout::ColumnLayout(QTableView& table, UserDefaults& defaults)
    : m_table(table), m_defaults(defaults)
{
}

void ColumnLayout::applyInitialWidths()
{
    QHeaderView* header = m_table.horizontalHeader();
    const QFontMetrics titles(header->font());
    const QFontMetrics values(m_table.font());
    // The cell's and the header's margins; the sort indicator takes a title's room on one
    // column only.
    constexpr int padding = 16;
    for (int column = 0; column < header->count(); ++column) {
        const LsofItem::Key key = ConnectionTableModel::columnKey(column);
        const int title = titles.horizontalAdvance(ConnectionTableModel::columnTitle(column));
        const int value = values.averageCharWidth() * valueWidthInCharacters(key);
        const int icon = key == LsofItem::Key::localizedAppName ? 22 : 0;
        header->resizeSection(column, std::max(title, value + icon) + padding);
    }
}

void ColumnLayout::restore()
{
    const QVariantMap widths = m_defaults.objectForKey(kColumnWidthsKey).toMap();
    QHeaderView* header = m_table.horizontalHeader();
    for (int column = 0; column < header->count(); ++column) {
        const int width = widths.value(ConnectionTableModel::columnTitle(column)).toInt();
        if (width >= header->minimumSectionSize())
            header->resizeSection(column, width);
    }
    const QVariantMap sort = m_defaults.objectForKey(kSortKey).toMap();
    const int sortColumn = sort.value(u"column"_s, -1).toInt();
    if (sortColumn >= 0 && sortColumn < header->count()) {
        const QSignalBlocker blocker(header);
        header->setSortIndicator(sortColumn, sort.value(u"descending"_s).toBool()
                                                 ? Qt::DescendingOrder
                                                 : Qt::AscendingOrder);
    }
}

void ColumnLayout::save() const
{
    QVariantMap widths;
    const QHeaderView* header = m_table.horizontalHeader();
    for (int column = 0; column < header->count(); ++column) {
        if (!header->isSectionHidden(column))
            widths.insert(ConnectionTableModel::columnTitle(column), header->sectionSize(column));
    }
    m_defaults.setObject(kColumnWidthsKey, widths);
    m_defaults.setObject(kSortKey, QVariantMap{{u"column"_s, header->sortIndicatorSection()},
                                               {u"descending"_s, header->sortIndicatorOrder() ==
                                                                     Qt::DescendingOrder}});
}

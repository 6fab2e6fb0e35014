#include "connectiontablemodel.h"

#include "snapshot/itemcolumns.h"

#include <QDir>

#include <algorithm>

using namespace Qt::StringLiterals;

ConnectionTableModel::ConnectionTableModel(QObject* parent) : QAbstractTableModel(parent) {}

LsofItem::Key ConnectionTableModel::columnKey(int column)
{
    return itemColumns().at(column).key;
}

QString ConnectionTableModel::columnTitle(int column)
{
    return itemColumns().at(column).title;
}

int ConnectionTableModel::applicationColumn()
{
    static const int column = [] {
        const auto& columns = itemColumns();
        for (int i = 0; i < columns.size(); ++i) {
            if (columns.at(i).key == LsofItem::Key::localizedAppName)
                return i;
        }
        return -1;
    }();
    return column;
}

bool ConnectionTableModel::isBuiltInColumn(int column)
{
    switch (columnKey(column)) {
    case LsofItem::Key::type:
    case LsofItem::Key::fileDescriptor:
    case LsofItem::Key::device:
    case LsofItem::Key::processPath:
    case LsofItem::Key::bytesSent:
    case LsofItem::Key::bytesReceived:
    case LsofItem::Key::rtt:
        return false;
    default:
        return true;
    }
}

void ConnectionTableModel::setItems(const LsofItemList& items)
{
    const bool sameRows =
        items.size() == m_items.size() &&
        std::equal(items.cbegin(), items.cend(), m_items.cbegin(),
                   [](const LsofItemPtr& a, const LsofItemPtr& b) { return a.get() == b.get(); });
    if (sameRows) {
        // Only what can change on a kept connection is compared: repainting every visible
        // row on each quiet refresh costs more than the rest of the refresh together. Traffic
        // figures move on every pass of the kernel's collector, lsof's stay unknown.
        std::vector<bool> changed(size_t(m_items.size()));
        for (int row = 0; row < int(m_items.size()); ++row) {
            RowSignature now = signatureOf(*m_items.at(row));
            if (now != m_signatures.at(row)) {
                m_signatures[row] = std::move(now);
                changed[size_t(row)] = true;
            }
        }
        for (auto shown = m_shownHostnames.begin(); shown != m_shownHostnames.end(); ++shown) {
            QString name = m_items.at(shown.key())->cachedRemoteHostname();
            if (name != shown.value()) {
                shown.value() = std::move(name);
                changed[size_t(shown.key())] = true;
            }
        }
        const int lastColumn = columnCount() - 1;
        for (int row = 0; row < int(changed.size());) {
            if (!changed[size_t(row)]) {
                ++row;
                continue;
            }
            const int first = row;
            while (row < int(changed.size()) && changed[size_t(row)])
                ++row;
            Q_EMIT dataChanged(index(first, 0), index(row - 1, lastColumn));
        }
        return;
    }
    beginResetModel();
    m_items = items;
    m_shownHostnames.clear();
    m_signatures.clear();
    m_signatures.reserve(m_items.size());
    for (qsizetype row = 0; row < m_items.size(); ++row) {
        m_signatures.append(signatureOf(*m_items.at(row)));
    }
    endResetModel();
}

ConnectionTableModel::RowSignature ConnectionTableModel::signatureOf(const LsofItem& item)
{
    return {item.status(), item.state(), item.traffic()};
}

void ConnectionTableModel::setColors(const Colors& colors)
{
    m_colors = colors;
    if (!m_items.isEmpty())
        Q_EMIT dataChanged(index(0, 0), index(rowCount() - 1, columnCount() - 1),
                           {Qt::BackgroundRole, Qt::ForegroundRole});
}

QColor ConnectionTableModel::backgroundForStatus(qint32 status) const
{
    if (m_stale)
        return m_colors.list;
    switch (status) {
    case 1:
        return m_colors.fresh;
    case 2:
        return m_colors.changed;
    case 3:
        return m_colors.closed;
    default:
        return m_colors.list;
    }
}

QColor ConnectionTableModel::textColor() const
{
    if (!m_stale)
        return m_colors.text;
    // Halfway to the background reads as greyed out on any list colours the user chose.
    const QColor& text = m_colors.text;
    const QColor& list = m_colors.list;
    return QColor((text.red() + list.red()) / 2, (text.green() + list.green()) / 2,
                  (text.blue() + list.blue()) / 2);
}

void ConnectionTableModel::setRemote(bool remote)
{
    beginResetModel();
    m_remote = remote;
    endResetModel();
}

void ConnectionTableModel::setStale(bool stale)
{
    if (stale == m_stale)
        return;
    m_stale = stale;
    if (!m_items.isEmpty())
        Q_EMIT dataChanged(index(0, 0), index(rowCount() - 1, columnCount() - 1),
                           {Qt::BackgroundRole, Qt::ForegroundRole});
}

QString ConnectionTableModel::cellText(const LsofItem& item, int column) const
{
    const LsofItem::Key key = columnKey(column);
    if (m_remote && key == LsofItem::Key::localizedAppName)
        return item.processName();
    if (m_remote && key == LsofItem::Key::processPath)
        return QString(u""_s);
    return displayText(item, itemColumns().at(column));
}

int ConnectionTableModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_items.size());
}

int ConnectionTableModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(itemColumns().size());
}

QVariant ConnectionTableModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const LsofItem& item = *m_items.at(index.row());
    if (role == Qt::DisplayRole && columnKey(index.column()) == LsofItem::Key::remoteHostname) {
        // Asking may start a look-up; the answer is looked for at the next refresh.
        QString name = item.text(LsofItem::Key::remoteHostname);
        m_shownHostnames.insert(index.row(), name);
        return name;
    }
    return itemData(item, index.column(), role);
}

QVariant ConnectionTableModel::itemData(const LsofItem& item, int columnIndex, int role) const
{
    const ItemColumn& column = itemColumns().at(columnIndex);
    switch (role) {
    case Qt::DisplayRole:
        return cellText(item, columnIndex);
    case Qt::ToolTipRole:
        if (item.isShortLived())
            return tr("%1 \u2014 this connection opened and closed between two refreshes.")
                .arg(cellText(item, columnIndex));
        return cellText(item, columnIndex);
    case RawValueRole:
        if (m_remote && column.key == LsofItem::Key::localizedAppName)
            return item.processName();
        if (m_remote && column.key == LsofItem::Key::processPath)
            return {};
        return item.value(column.sortKey);
    case StatusRole:
        return item.status();
    case ProcessPathRole:
        return m_remote ? QVariant() : QVariant(item.processPath());
    case Qt::BackgroundRole:
        return backgroundForStatus(item.status());
    case Qt::ForegroundRole:
        return textColor();
    case Qt::DecorationRole:
        if (column.key == LsofItem::Key::localizedAppName && !m_remote)
            return iconForItem(item);
        return {};
    case Qt::TextAlignmentRole:
        if (column.numeric)
            return QVariant::fromValue(Qt::AlignRight | Qt::AlignVCenter);
        return {};
    default:
        return {};
    }
}

QVariant ConnectionTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || section < 0 || section >= columnCount())
        return {};
    if (role == Qt::DisplayRole)
        return columnTitle(section);
    // Numbers are right-aligned in their cells; their titles stand over them.
    if (role == Qt::TextAlignmentRole && itemColumns().at(section).numeric)
        return QVariant::fromValue(Qt::AlignRight | Qt::AlignVCenter);
    return {};
}

QIcon ConnectionTableModel::iconForItem(const LsofItem& item) const
{
    const QString name = item.processIcon();
    auto found = m_iconCache.constFind(name);
    if (found != m_iconCache.cend())
        return *found;
    // Desktop entries name a theme icon or, now and then, an image file.
    QIcon icon = QDir::isAbsolutePath(name) ? QIcon(name) : QIcon::fromTheme(name);
    if (icon.isNull())
        icon = QIcon::fromTheme(u"application-x-executable"_s);
    m_iconCache.insert(name, icon);
    return icon;
}

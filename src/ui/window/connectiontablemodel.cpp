#include "connectiontablemodel.h"

#include "snapshot/itemcolumns.h"

#include <QDir>

#include <algorithm>
#include <numeric>

using namespace Qt::StringLiterals;

namespace {

// How far ahead the signature passes ask for rows: a sorted table reads its items out of
// their order in memory.
constexpr qsizetype kSignatureLookahead = 16;

double relativeLuminance(const QColor& color)
{
    auto channel = [](double c) {
        return c <= 0.03928 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * channel(color.redF()) + 0.7152 * channel(color.greenF()) +
           0.0722 * channel(color.blueF());
}

double contrastRatio(const QColor& a, const QColor& b)
{
    const double la = relativeLuminance(a);
    const double lb = relativeLuminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

} // namespace

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

void ConnectionTableModel::setItems(const LsofItemList& items)
{
    const bool sameRows =
        items.size() == m_items.size() &&
        std::equal(items.cbegin(), items.cend(), m_items.cbegin(),
                   [](const LsofItemPtr& a, const LsofItemPtr& b) { return a.get() == b.get(); });
    if (sameRows) {
        // Only what can change on a kept connection is compared: repainting every visible
        // row on each quiet refresh costs more than the rest of the refresh together.
        std::vector<bool> changed(size_t(m_items.size()));
        for (int row = 0; row < int(m_items.size()); ++row) {
            if (row + kSignatureLookahead < m_items.size())
                prefetchItem(m_items.at(row + kSignatureLookahead));
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
    releaseItems(m_items);
    m_items = items;
    m_shownHostnames.clear();
    m_signatures.clear();
    m_signatures.reserve(m_items.size());
    for (qsizetype row = 0; row < m_items.size(); ++row) {
        if (row + kSignatureLookahead < m_items.size())
            prefetchItem(m_items.at(row + kSignatureLookahead));
        m_signatures.append(signatureOf(*m_items.at(row)));
    }
    endResetModel();
}

ConnectionTableModel::RowSignature ConnectionTableModel::signatureOf(const LsofItem& item)
{
    return {item.status(), item.state()};
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

QColor ConnectionTableModel::legibleTextColor(const QColor& text, const QColor& background)
{
    constexpr double minimumContrast = 3.0;
    if (!text.isValid() || !background.isValid() || background.alpha() < 128 ||
        contrastRatio(text, background) >= minimumContrast)
        return text;
    const QColor black(Qt::black);
    const QColor white(Qt::white);
    return contrastRatio(black, background) >= contrastRatio(white, background) ? black : white;
}

void ConnectionTableModel::sortItems(LsofItemList& items, int column, Qt::SortOrder order)
{
    if (column < 0 || column >= itemColumns().size() || items.size() < 2)
        return;
    const ItemColumn& spec = itemColumns().at(column);
    // Keys are read once per item: reading a field takes the item's lock, and the derived
    // names are computed on each read. Texts become ranks, so the sort itself moves small
    // plain pairs and compares integers.
    struct Keyed {
        qint64 key;
        qint32 index;
    };
    std::vector<Keyed> keyed(size_t(items.size()));
    // The items lie all over the heap and the column's field is rarely in the cache.
    constexpr qsizetype kAhead = 16;
    const auto askAhead = [&](qsizetype i) {
        if (i + kAhead < items.size())
            items.at(i + kAhead)->prefetchField(spec.sortKey);
    };
    if (spec.numeric) {
        for (qsizetype i = 0; i < items.size(); ++i) {
            askAhead(i);
            keyed[size_t(i)] = {items.at(i)->value(spec.sortKey).toLongLong(), qint32(i)};
        }
    } else {
        // Host names from the cache only: asking for every row would queue a look-up for
        // each address in the snapshot. Names that come from the process are asked once per
        // process (its id and command name, which is what a process without a record is
        // named by): a process has many sockets, and one that has gone would be searched for
        // in /proc for each of them.
        const bool perProcess = spec.sortKey == LsofItem::Key::localizedAppName ||
                                spec.sortKey == LsofItem::Key::processPath;
        // The parser gives a process's sockets one shared copy of its id and command name, so
        // the memo is keyed by where those texts live: hashing two pointers instead of two
        // texts per row. Equal texts apart in memory only make a second entry, of equal value.
        QHash<std::pair<const QChar*, const QChar*>, QString> byProcess;
        const auto textOf = [&](qsizetype i) {
            const LsofItem& item = *items.at(i);
            if (spec.sortKey == LsofItem::Key::remoteHostname)
                return item.cachedRemoteHostname();
            if (!perProcess)
                return item.text(spec.sortKey);
            const QString id = item.processId();
            const QString name = item.processName();
            const std::pair process{id.constData(), name.constData()};
            auto known = byProcess.constFind(process);
            if (known == byProcess.cend())
                known = byProcess.insert(process, item.text(spec.sortKey));
            return *known;
        };
        // Most text columns hold few distinct values (names, states, protocols): each is
        // case-folded and compared with the others once, not once per row.
        QHash<QString, qint32> ids;
        std::vector<QString> distinct;
        for (qsizetype i = 0; i < items.size(); ++i) {
            askAhead(i);
            const QString text = textOf(i);
            auto found = ids.constFind(text);
            if (found == ids.cend()) {
                found = ids.insert(text, qint32(distinct.size()));
                distinct.push_back(text.toCaseFolded());
            }
            keyed[size_t(i)] = {*found, qint32(i)};
        }
        std::vector<qint32> byText(distinct.size());
        std::iota(byText.begin(), byText.end(), 0);
        std::sort(byText.begin(), byText.end(),
                  [&](qint32 a, qint32 b) { return distinct[size_t(a)] < distinct[size_t(b)]; });
        // Texts equal but for case share a rank, so they keep their snapshot order.
        std::vector<qint64> rank(distinct.size());
        qint64 next = -1;
        for (size_t r = 0; r < byText.size(); ++r) {
            if (r == 0 || distinct[size_t(byText[r - 1])] != distinct[size_t(byText[r])])
                ++next;
            rank[size_t(byText[r])] = next;
        }
        for (Keyed& entry : keyed)
            entry.key = rank[size_t(entry.key)];
    }
    if (order == Qt::AscendingOrder) {
        std::stable_sort(keyed.begin(), keyed.end(),
                         [](const Keyed& a, const Keyed& b) { return a.key < b.key; });
    } else {
        std::stable_sort(keyed.begin(), keyed.end(),
                         [](const Keyed& a, const Keyed& b) { return b.key < a.key; });
    }
    LsofItemList sorted;
    sorted.reserve(items.size());
    for (size_t k = 0; k < keyed.size(); ++k) {
        if (k + kAhead < keyed.size())
            prefetchItem(items.at(keyed[k + kAhead].index));
        sorted.append(items.at(keyed[k].index));
    }
    items = std::move(sorted);
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
    const ItemColumn& column = itemColumns().at(index.column());
    switch (role) {
    case Qt::DisplayRole:
        if (column.key == LsofItem::Key::remoteHostname) {
            // Asking may start a look-up; the answer is looked for at the next refresh.
            QString name = item.text(column.key);
            m_shownHostnames.insert(index.row(), name);
            return name;
        }
        return item.text(column.key);
    case Qt::ToolTipRole:
        return item.text(column.key);
    case RawValueRole:
        return item.value(column.sortKey);
    case StatusRole:
        return item.status();
    case ProcessPathRole:
        return item.processPath();
    case Qt::BackgroundRole:
        return backgroundForStatus(item.status());
    case Qt::ForegroundRole:
        return legibleTextColor(m_colors.text, backgroundForStatus(item.status()));
    case Qt::DecorationRole:
        if (column.key == LsofItem::Key::localizedAppName)
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

#include "applicationtreemodel.h"

#include "platform/runningapplication.h"
#include "snapshot/itemcolumns.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// Connection rows carry their application's row + 1; application rows carry 0.
constexpr quintptr kApplicationRow = 0;

bool sortsBySum(const ItemOrdering& ordering)
{
    if (!ordering.sorts())
        return false;
    const ItemColumn& column = itemColumns().at(ordering.column);
    return column.unit == ItemColumn::Unit::Bytes ||
           column.unit == ItemColumn::Unit::BytesPerSecond;
}

QString summedText(const ItemColumn& column, const std::optional<qint64>& sum)
{
    if (!sum)
        return QString(u""_s);
    return column.unit == ItemColumn::Unit::BytesPerSecond ? humanRate(*sum) : humanBytes(*sum);
}

} // namespace

ApplicationTreeModel::ApplicationTreeModel(const ConnectionTableModel& cells, QObject* parent)
    : QAbstractItemModel(parent), m_cells(cells)
{
}

QString ApplicationTreeModel::applicationKey(const LsofItem& item)
{
    const auto app = item.runningApplication();
    if (app && !app->desktopEntryPath().isEmpty())
        return u"desktop:"_s + app->desktopEntryPath();
    return u"path:"_s + item.processPath();
}

ApplicationTreeModel::Process ApplicationTreeModel::processOf(const LsofItem& item) const
{
    // Another machine's processes are known by their command names alone.
    if (m_cells.isRemote())
        return {u"name:"_s + item.processName(), item.processName(), QString()};
    return {applicationKey(item), item.localizedAppName(), item.processPath()};
}

qint32 ApplicationTreeModel::statusOf(const LsofItemList& connections)
{
    int fresh = 0;
    int closed = 0;
    int changed = 0;
    for (const LsofItemPtr& item : connections) {
        switch (item->status()) {
        case 1:
            ++fresh;
            break;
        case 2:
            ++changed;
            break;
        case 3:
            ++closed;
            break;
        default:
            break;
        }
    }
    const qsizetype all = connections.size();
    if (all > 0 && fresh == all)
        return 1;
    if (all > 0 && closed == all)
        return 3;
    return fresh + changed + closed > 0 ? 2 : 0;
}

QList<ApplicationTreeModel::Application> ApplicationTreeModel::grouped(const LsofItemList& items,
                                                                       const ItemOrdering& ordering)
{
    QList<Application> apps;
    QHash<QString, qsizetype> rowOfKey;
    QHash<ProcessId, Process> processes;
    // A process has many sockets: its application is looked at once per process.
    QHash<ProcessId, qsizetype> rowOfProcess;
    for (const LsofItemPtr& item : items) {
        const ProcessId process{item->processId(), item->processName()};
        auto known = rowOfProcess.constFind(process);
        if (known == rowOfProcess.cend()) {
            auto seen = m_processes.constFind(process);
            const Process info = seen != m_processes.cend() ? *seen : processOf(*item);
            processes.insert(process, info);
            auto row = rowOfKey.constFind(info.key);
            if (row == rowOfKey.cend()) {
                row = rowOfKey.insert(info.key, apps.size());
                apps.append({info.key, info.name, info.path, {}, {}, {}, 0});
            }
            Application& app = apps[*row];
            if (!app.pids.contains(item->PID()))
                app.pids.append(item->PID());
            known = rowOfProcess.insert(process, *row);
        }
        Application& app = apps[*known];
        app.connections.append(item);
        app.totals.add(item->traffic());
    }
    m_processes = std::move(processes);
    for (Application& app : apps)
        app.status = statusOf(app.connections);
    if (sortsBySum(ordering)) {
        const LsofItem::Key key = itemColumns().at(ordering.column).sortKey;
        const bool ascending = ordering.order == Qt::AscendingOrder;
        // Unknown below every figure, in either direction's reading.
        std::stable_sort(apps.begin(), apps.end(), [&](const Application& a, const Application& b) {
            const auto x = a.totals.value(key);
            const auto y = b.totals.value(key);
            return ascending ? x < y : y < x;
        });
    }
    return apps;
}

bool ApplicationTreeModel::sameRowsAs(const QList<Application>& apps) const
{
    if (apps.size() != m_apps.size())
        return false;
    for (qsizetype row = 0; row < apps.size(); ++row) {
        const Application& now = apps.at(row);
        const Application& shown = m_apps.at(row);
        if (now.key != shown.key || now.connections.size() != shown.connections.size() ||
            !std::equal(now.connections.cbegin(), now.connections.cend(),
                        shown.connections.cbegin(),
                        [](const LsofItemPtr& a, const LsofItemPtr& b) { return a == b; }))
            return false;
    }
    return true;
}

void ApplicationTreeModel::setItems(const LsofItemList& items, const ItemOrdering& ordering)
{
    QList<Application> apps = grouped(items, ordering);
    if (!m_apps.isEmpty() && sameRowsAs(apps)) {
        // Figures, states and names move on while the rows stay.
        m_apps = std::move(apps);
        announceChanges();
        return;
    }
    beginResetModel();
    m_apps = std::move(apps);
    m_rowOfKey.clear();
    for (qsizetype row = 0; row < m_apps.size(); ++row)
        m_rowOfKey.insert(m_apps.at(row).key, int(row));
    m_placeOfItem.clear();
    m_placesKnown = false;
    endResetModel();
}

void ApplicationTreeModel::announceChanges()
{
    // Every row may have changed, and a tree view looks each changed connection up among its
    // rows one by one, which took longer than the rest of the refresh together. A layout
    // change has the views read every row again; nothing moved, so expansion and selection
    // stay.
    Q_EMIT layoutAboutToBeChanged();
    Q_EMIT layoutChanged();
}

void ApplicationTreeModel::repaintAll()
{
    announceChanges();
}

const ApplicationTreeModel::Application*
ApplicationTreeModel::applicationAt(const QModelIndex& index) const
{
    if (!index.isValid() || index.model() != this)
        return nullptr;
    const qsizetype row =
        index.internalId() == kApplicationRow ? index.row() : qsizetype(index.internalId() - 1);
    return row < m_apps.size() ? &m_apps.at(row) : nullptr;
}

LsofItemPtr ApplicationTreeModel::itemAt(const QModelIndex& index) const
{
    if (!index.isValid() || index.model() != this || index.internalId() == kApplicationRow)
        return nullptr;
    const Application* app = applicationAt(index);
    return app && index.row() < app->connections.size() ? app->connections.at(index.row())
                                                        : nullptr;
}

QModelIndex ApplicationTreeModel::indexOfApplication(const QString& key, int column) const
{
    const auto row = m_rowOfKey.constFind(key);
    return row == m_rowOfKey.cend() ? QModelIndex() : index(*row, column);
}

QModelIndex ApplicationTreeModel::indexOfItem(const LsofItem* item, int column) const
{
    if (!m_placesKnown) {
        m_placeOfItem.clear();
        for (qsizetype app = 0; app < m_apps.size(); ++app) {
            const LsofItemList& connections = m_apps.at(app).connections;
            for (qsizetype row = 0; row < connections.size(); ++row)
                m_placeOfItem.insert(connections.at(row).get(), {int(app), int(row)});
        }
        m_placesKnown = true;
    }
    const auto place = m_placeOfItem.constFind(item);
    if (place == m_placeOfItem.cend())
        return {};
    return createIndex(place->second, column, quintptr(place->first) + 1);
}

QModelIndex ApplicationTreeModel::index(int row, int column, const QModelIndex& parent) const
{
    if (row < 0 || column < 0 || column >= columnCount())
        return {};
    if (!parent.isValid())
        return row < m_apps.size() ? createIndex(row, column, kApplicationRow) : QModelIndex();
    if (parent.internalId() != kApplicationRow || parent.row() >= m_apps.size() ||
        row >= m_apps.at(parent.row()).connections.size())
        return {};
    return createIndex(row, column, quintptr(parent.row()) + 1);
}

QModelIndex ApplicationTreeModel::parent(const QModelIndex& child) const
{
    if (!child.isValid() || child.internalId() == kApplicationRow)
        return {};
    return createIndex(int(child.internalId() - 1), 0, kApplicationRow);
}

int ApplicationTreeModel::rowCount(const QModelIndex& parent) const
{
    if (!parent.isValid())
        return int(m_apps.size());
    if (parent.column() != 0 || parent.internalId() != kApplicationRow ||
        parent.row() >= m_apps.size())
        return 0;
    return int(m_apps.at(parent.row()).connections.size());
}

int ApplicationTreeModel::columnCount(const QModelIndex&) const
{
    return int(itemColumns().size());
}

QVariant ApplicationTreeModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid))
        return {};
    if (const LsofItemPtr item = itemAt(index))
        return role == ApplicationKeyRole ? QVariant()
                                          : m_cells.itemData(*item, index.column(), role);
    const Application* app = applicationAt(index);
    return app ? applicationData(*app, index.column(), role) : QVariant();
}

QVariant ApplicationTreeModel::applicationData(const Application& app, int columnIndex,
                                               int role) const
{
    const ItemColumn& column = itemColumns().at(columnIndex);
    const bool isName = column.key == LsofItem::Key::localizedAppName;
    const bool isPid = column.key == LsofItem::Key::processId;
    const std::optional<qint64> sum = app.totals.value(column.key);
    switch (role) {
    case Qt::DisplayRole:
        if (isName)
            return tr("%1 (%2)").arg(app.name).arg(app.connections.size());
        if (isPid && app.pids.size() == 1)
            return QString::number(app.pids.constFirst());
        return summedText(column, sum);
    case Qt::ToolTipRole: {
        if (!isName && !isPid)
            return summedText(column, sum);
        QStringList pids;
        for (qint64 pid : app.pids)
            pids.append(QString::number(pid));
        return QString(
            (app.connections.size() == 1
                 ? tr("%1: one connection").arg(app.name)
                 : tr("%1: %n connections", nullptr, int(app.connections.size())).arg(app.name)) +
            u'\n' + tr("Processes: %1").arg(pids.join(u", "_s)) +
            (app.path.isEmpty() ? QString() : u'\n' + app.path));
    }
    case ConnectionTableModel::RawValueRole:
        if (isName)
            return app.name;
        if (isPid && app.pids.size() == 1)
            return app.pids.constFirst();
        return sum ? QVariant(*sum) : QVariant();
    case ConnectionTableModel::StatusRole:
        return app.status;
    case ConnectionTableModel::ProcessPathRole:
        return app.path;
    case ApplicationKeyRole:
        return app.key;
    case Qt::BackgroundRole:
        return m_cells.backgroundForStatus(app.status);
    case Qt::ForegroundRole:
        return m_cells.textColor();
    case Qt::DecorationRole:
        return isName && !m_cells.isRemote() ? m_cells.iconForItem(*app.connections.constFirst())
                                             : QVariant();
    case Qt::TextAlignmentRole:
        return column.numeric ? QVariant::fromValue(Qt::AlignRight | Qt::AlignVCenter) : QVariant();
    default:
        return {};
    }
}

QVariant ApplicationTreeModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    return m_cells.headerData(section, orientation, role);
}

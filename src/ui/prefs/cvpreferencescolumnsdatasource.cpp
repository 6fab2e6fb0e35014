#include "cvpreferencescolumnsdatasource.h"

#include "prefs/userdefaults.h"

#include <QAction>
#include <QMenu>

CVPreferencesColumnsDataSource::CVPreferencesColumnsDataSource(UserDefaults& defaults,
                                                               QMenu* tableHeaderMenu,
                                                               QObject* parent)
    : QAbstractListModel(parent)
{
    connect(&defaults, &UserDefaults::didChange, this, &CVPreferencesColumnsDataSource::reload);
    setTableHeaderMenu(tableHeaderMenu);
}

void CVPreferencesColumnsDataSource::setTableHeaderMenu(QMenu* menu)
{
    if (m_tableHeaderMenu)
        disconnect(m_tableHeaderMenu, nullptr, this, nullptr);
    beginResetModel();
    m_tableHeaderMenu = menu;
    endResetModel();
    // The menu goes with the main window; the list empties with it.
    if (menu)
        connect(menu, &QObject::destroyed, this, &CVPreferencesColumnsDataSource::reload,
                Qt::QueuedConnection);
}

void CVPreferencesColumnsDataSource::reload()
{
    beginResetModel();
    endResetModel();
}

QAction* CVPreferencesColumnsDataSource::itemAt(int row) const
{
    if (!m_tableHeaderMenu)
        return nullptr;
    const QList<QAction*> items = m_tableHeaderMenu->actions();
    return row >= 0 && row < items.size() ? items.at(row) : nullptr;
}

int CVPreferencesColumnsDataSource::rowCount(const QModelIndex& parent) const
{
    if (parent.isValid() || !m_tableHeaderMenu)
        return 0;
    return int(m_tableHeaderMenu->actions().size());
}

QVariant CVPreferencesColumnsDataSource::data(const QModelIndex& index, int role) const
{
    const QAction* item = itemAt(index.isValid() ? index.row() : -1);
    if (!item)
        return {};
    switch (role) {
    case Qt::DisplayRole:
        return item->text();
    case Qt::CheckStateRole:
        return item->isChecked() ? Qt::Checked : Qt::Unchecked;
    default:
        return {};
    }
}

bool CVPreferencesColumnsDataSource::setData(const QModelIndex& index, const QVariant& value,
                                             int role)
{
    Q_UNUSED(value);
    QAction* item = itemAt(index.isValid() ? index.row() : -1);
    if (role != Qt::CheckStateRole || !item || !item->isEnabled())
        return false;
    // The new value is not used: the item's own command flips the column, and the window's
    // saving of its columns reloads this list.
    item->trigger();
    emit dataChanged(index, index, {Qt::CheckStateRole});
    return true;
}

Qt::ItemFlags CVPreferencesColumnsDataSource::flags(const QModelIndex& index) const
{
    const QAction* item = itemAt(index.isValid() ? index.row() : -1);
    if (!item)
        return Qt::NoItemFlags;
    Qt::ItemFlags flags = Qt::ItemIsSelectable | Qt::ItemNeverHasChildren | Qt::ItemIsUserCheckable;
    if (item->isEnabled())
        flags |= Qt::ItemIsEnabled;
    return flags;
}

#include "cvpreferencesexcludeappsdatasource.h"

#include "platform/desktopentryindex.h"
#include "prefs/cvprefshelper.h"

#include <QFileInfo>
#include <QItemSelectionModel>

using namespace Qt::StringLiterals;

CVPreferencesExcludeAppsDataSource::CVPreferencesExcludeAppsDataSource(CVPrefsHelper& prefs,
                                                                       QObject* parent)
    : QAbstractListModel(parent), m_prefs(prefs), m_excludeApps(prefs.excludeAppsForGrowl())
{
    connect(&m_prefs, &CVPrefsHelper::defaultsChanged, this,
            &CVPreferencesExcludeAppsDataSource::reload);
}

void CVPreferencesExcludeAppsDataSource::reload()
{
    const QStringList apps = m_prefs.excludeAppsForGrowl();
    if (apps == m_excludeApps)
        return;
    beginResetModel();
    m_excludeApps = apps;
    endResetModel();
}

void CVPreferencesExcludeAppsDataSource::removeSelectedApp()
{
    if (!m_selection)
        return;
    const QModelIndexList rows = m_selection->selectedRows();
    const int row = rows.isEmpty() ? -1 : rows.front().row();
    if (row < 0 || row >= m_excludeApps.size())
        return;
    m_prefs.removeExcludeAppForGrowlNotification(m_excludeApps.at(row));
}

QIcon CVPreferencesExcludeAppsDataSource::iconForPath(const QString& path)
{
    const QFileInfo file(path);
    if (file.exists()) {
        const auto entry = DesktopEntryIndex::sharedIndex().entryForProgram(file.fileName());
        if (entry && !entry->iconName().isEmpty()) {
            const QIcon themed = QFileInfo(entry->iconName()).isAbsolute()
                                     ? QIcon(entry->iconName())
                                     : QIcon::fromTheme(entry->iconName());
            if (!themed.isNull())
                return themed;
        }
    }
    return QIcon::fromTheme(u"application-x-executable"_s);
}

int CVPreferencesExcludeAppsDataSource::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_excludeApps.size());
}

QVariant CVPreferencesExcludeAppsDataSource::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const QString& path = m_excludeApps.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case Qt::ToolTipRole:
        return path;
    case Qt::DecorationRole:
        return iconForPath(path);
    default:
        return {};
    }
}

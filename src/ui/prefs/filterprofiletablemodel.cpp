#include "filterprofiletablemodel.h"

#include "persistence/sqliteerror.h"
#include "persistence/sqlitestatement.h"
#include "prefs/cvfilterprofileinfo.h"
#include "prefs/cvprefshelper.h"

#include <sqlite3.h>

using namespace Qt::StringLiterals;

namespace {

// What the database holds under `key` for the profile; nothing when it cannot be read.
std::optional<QString> storedValue(const CVFilterProfileInfo& profile, const QString& key)
{
    const SQLiteRecordClass& cls = CVFilterProfileInfo::staticRecordClass();
    SQLiteStatement statement(
        SQLitePersistentObject::database(),
        u"SELECT %1 FROM %2 WHERE pk = ?"_s.arg(SQLitePersistentObject::stringAsSQLColumnName(key),
                                                SQLitePersistentObject::tableName(cls)));
    if (!statement.isValid())
        return std::nullopt;
    statement.bindInt(1, int(profile.pk()));
    if (statement.step() != SQLITE_ROW)
        return std::nullopt;
    return statement.columnIsNull(0) ? QString() : statement.columnText(0);
}

} // namespace

FilterProfileTableModel::FilterProfileTableModel(CVPrefsHelper& prefs, QObject* parent)
    : QAbstractTableModel(parent), m_prefs(prefs), m_profiles(prefs.filterProfiles())
{
    connect(&m_prefs, &CVPrefsHelper::filterProfilesChanged, this,
            &FilterProfileTableModel::reload);
}

void FilterProfileTableModel::reload()
{
    beginResetModel();
    m_profiles = m_prefs.filterProfiles();
    endResetModel();
}

std::shared_ptr<CVFilterProfileInfo> FilterProfileTableModel::profileAt(int row) const
{
    return row >= 0 && row < m_profiles.size() ? m_profiles.at(row) : nullptr;
}

QString FilterProfileTableModel::keyOfColumn(int column)
{
    return column == NameColumn ? u"profileName"_s : u"searchExpression"_s;
}

int FilterProfileTableModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_profiles.size());
}

int FilterProfileTableModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant FilterProfileTableModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    if (role != Qt::DisplayRole && role != Qt::EditRole && role != Qt::ToolTipRole)
        return {};
    const CVFilterProfileInfo& profile = *m_profiles.at(index.row());
    return index.column() == NameColumn ? profile.profileName() : profile.searchExpression();
}

QVariant FilterProfileTableModel::headerData(int section, Qt::Orientation orientation,
                                             int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    return section == NameColumn ? tr("Name") : tr("Search Expression");
}

bool FilterProfileTableModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (role != Qt::EditRole ||
        !checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return false;
    CVFilterProfileInfo& profile = *m_profiles.at(index.row());
    const QString key = keyOfColumn(index.column());
    const QString before = profile.value(key).toString();
    const QString after = value.toString();
    if (after == before)
        return false;

    QString problem;
    try {
        // A stored profile saves itself on a key-value set.
        profile.setValue(key, after);
        const std::optional<QString> stored = storedValue(profile, key);
        if (!stored || *stored != after)
            problem = tr("The database did not take the change.");
    } catch (const SQLiteError& error) {
        problem = error.message();
    }
    if (!problem.isEmpty()) {
        // The plain setters change the object without writing it, so the row shows what the
        // database still holds.
        if (index.column() == NameColumn)
            profile.setProfileName(before);
        else
            profile.setSearchExpression(before);
        emit dataChanged(index, index);
        emit editFailed(tr("The saved search \"%1\" could not be changed: %2")
                            .arg(profile.profileName(), problem));
        return false;
    }
    emit dataChanged(index, index);
    return true;
}

Qt::ItemFlags FilterProfileTableModel::flags(const QModelIndex& index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsEditable | Qt::ItemNeverHasChildren;
}

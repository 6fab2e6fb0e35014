#include "filterprofiletablemodel.h"

#include "filter/predicate.h"
#include "persistence/sqliteerror.h"
#include "persistence/sqlitestatement.h"
#include "prefs/cvfilterprofileinfo.h"
#include "prefs/cvprefshelper.h"

#include <QApplication>
#include <QColor>
#include <QIcon>
#include <QStyle>

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
    const CVFilterProfileInfo& profile = *m_profiles.at(index.row());
    const QString text =
        index.column() == NameColumn ? profile.profileName() : profile.searchExpression();
    // A stored expression that does not parse would show every connection: it is marked.
    const QString problem =
        index.column() == ExpressionColumn ? expressionProblem(text) : QString();
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
        return text;
    case Qt::ToolTipRole:
        return problem.isEmpty() ? text : text + u"\n\n"_s + problem;
    case Qt::DecorationRole:
        if (problem.isEmpty())
            return {};
        return QIcon::fromTheme(u"dialog-warning"_s,
                                QApplication::style()->standardIcon(QStyle::SP_MessageBoxWarning));
    case Qt::ForegroundRole:
        return problem.isEmpty() ? QVariant() : QVariant(QColor(0xb3, 0x26, 0x1e));
    default:
        return {};
    }
}

QString FilterProfileTableModel::expressionProblem(const QString& expression)
{
    const auto parsed = Predicate::parse(expression);
    if (const auto* error = std::get_if<PredicateError>(&parsed))
        return tr("Not a valid search expression, so choosing it shows every connection: %1")
            .arg(error->toString());
    return {};
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

#pragma once

#include <QAbstractListModel>
#include <QIcon>
#include <QStringList>

class CVPrefsHelper;
class QItemSelectionModel;

// The applications left out of notifications, one row per full path in stored order. The rows
// follow every change of the settings.
class CVPreferencesExcludeAppsDataSource final : public QAbstractListModel {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(CVPreferencesExcludeAppsDataSource)

public:
    explicit CVPreferencesExcludeAppsDataSource(CVPrefsHelper& prefs, QObject* parent = nullptr);

    QStringList excludeApps() const { return m_excludeApps; }
    // The selection whose current row removeSelectedApp() removes.
    void setSelectionModel(QItemSelectionModel* selection) { m_selection = selection; }

    // Removes the selected entry, when there is one, from the stored list.
    void removeSelectedApp();

    // The icon shown for an excluded program: its desktop entry's icon, else (the file is gone,
    // or no entry starts it) the generic program icon.
    static QIcon iconForPath(const QString& path);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;

private:
    void reload();

    CVPrefsHelper& m_prefs;
    QStringList m_excludeApps;
    QItemSelectionModel* m_selection = nullptr;
};

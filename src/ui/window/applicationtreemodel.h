#pragma once

#include "connectiontablemodel.h"
#include "snapshot/itemordering.h"
#include "traffictotals.h"

#include <QAbstractItemModel>
#include <QHash>

// The grouped view's rows: one per application, its connections beneath, fed the same filtered
// and sorted list as the flat table. An application is what a user recognises: the desktop
// entry its processes match, else their executable. The columns are the flat table's, so both
// views share one header layout; an application row fills the name, its process id when it
// has one process, and the sums of its connections' traffic.
class ApplicationTreeModel final : public QAbstractItemModel {
    Q_OBJECT
public:
    enum Role {
        // The key an application row stands for; null on connection rows.
        ApplicationKeyRole = ConnectionTableModel::ProcessPathRole + 1,
    };

    struct Application {
        QString key;
        QString name;
        QString path;
        QList<qint64> pids; // in the order their connections come
        LsofItemList connections;
        TrafficTotals totals;
        qint32 status = 0;
    };

    // Connection rows are drawn by `cells`, which also holds the colours.
    explicit ApplicationTreeModel(const ConnectionTableModel& cells, QObject* parent = nullptr);
    Q_DISABLE_COPY_MOVE(ApplicationTreeModel)

    // Replaces the rows. Applications come in the order of their first connection in `items`,
    // or, when `ordering` sorts by a summed traffic column, by their sums (unknown lowest).
    // When the applications and their connections are the very same, the rows are repainted
    // rather than rebuilt, so expanded rows and the selection stay as they are.
    void setItems(const LsofItemList& items, const ItemOrdering& ordering);
    const QList<Application>& applications() const { return m_apps; }

    // An application row colours like its children taken together: new when all of them are
    // new (the application appeared), closed when all are closed (it went away), changed when
    // some are new, changed or closed, plain otherwise.
    static qint32 statusOf(const LsofItemList& connections);
    // The key that groups an item's process.
    static QString applicationKey(const LsofItem& item);

    // The application a row stands for or belongs to; null for no row.
    const Application* applicationAt(const QModelIndex& index) const;
    // The connection of a connection row; null for an application row.
    LsofItemPtr itemAt(const QModelIndex& index) const;
    QModelIndex indexOfApplication(const QString& key, int column = 0) const;
    QModelIndex indexOfItem(const LsofItem* item, int column = 0) const;
    // Colours changed: every row is drawn again.
    void repaintAll();

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

private:
    // What a process is shown as, found once for as long as the process is listed: reading
    // /proc for a process that has gone would otherwise be done again on every pass.
    struct Process {
        QString key;
        QString name;
        QString path;
    };
    using ProcessId = std::pair<QString, QString>; // processId, processName
    Process processOf(const LsofItem& item) const;
    QList<Application> grouped(const LsofItemList& items, const ItemOrdering& ordering);
    bool sameRowsAs(const QList<Application>& apps) const;
    QVariant applicationData(const Application& app, int column, int role) const;
    void announceChanges();

    const ConnectionTableModel& m_cells;
    QHash<ProcessId, Process> m_processes;
    QList<Application> m_apps;
    QHash<QString, int> m_rowOfKey;
    // Connection -> (application row, row), built when first asked after a change.
    mutable QHash<const LsofItem*, std::pair<int, int>> m_placeOfItem;
    mutable bool m_placesKnown = false;
};

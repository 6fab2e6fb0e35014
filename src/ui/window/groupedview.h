#pragma once

#include "snapshot/itemordering.h"

#include <QModelIndexList>
#include <QObject>

class ApplicationTreeModel;
class ApplicationTreeView;
class ConnectionTableModel;
class QAction;
class QFont;
class QHeaderView;
class QPalette;
class QTableView;

// The table grouped by application: the tree model and its view, kept in step with the flat
// table. Both views share one column layout: what the user does to one header (hiding a
// column from the menu, moving, resizing, sorting) is done to the other. Across a refresh the
// expanded applications and the selected rows stay, by application and by connection object.
class GroupedView final : public QObject {
    Q_OBJECT
public:
    GroupedView(QTableView& table, const ConnectionTableModel& cells, QWidget* parent);
    Q_DISABLE_COPY_MOVE(GroupedView)

    ApplicationTreeView* view() const { return m_view; }
    ApplicationTreeModel* model() const { return m_model; }

    void setItems(const LsofItemList& items, const ItemOrdering& ordering);
    // Takes the table header's whole state: at set-up and when the view is switched to. The
    // application column is then widened, in this view only, to fit the names with their
    // counts beside the branch marks, once rows are there.
    void followTableHeader();
    // The table's font, colours and row height; the rows are drawn again.
    void setLook(const QFont& font, const QPalette& palette, int rowHeight);
    // A command of the table's that the grouped view answers too (copy).
    void addAction(QAction* action);

    // The connections the selection stands for: all of a selected application's, and each
    // selected connection; each once, in the order shown.
    LsofItemList selectedConnections() const;
    // The rows selected, application and connection rows, in the order shown.
    QModelIndexList selectedRows() const;
    // Selects the applications of these connections (switching from the flat table).
    void selectApplicationsOf(const LsofItemList& items);

Q_SIGNALS:
    void selectionChanged();

private:
    // What a reset must not lose.
    struct Kept {
        QStringList expanded;
        QStringList applications;
        LsofItemList connections;
        // The row keyboard moves start from: an application's key, or a connection.
        QString currentKey;
        LsofItemPtr current;
        int currentColumn = 0;
        int scroll = 0;
    };
    Kept keep() const;
    void restore(const Kept& kept);
    void mirror(QHeaderView& from, QHeaderView& to);
    void fitApplicationColumn();

    QTableView& m_table;
    ApplicationTreeModel* m_model;
    ApplicationTreeView* m_view;
    bool m_mirroring = false;
    bool m_fitPending = false;
    int m_rowHeight = 0;
};

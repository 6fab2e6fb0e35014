#include "groupedview.h"

#include "applicationtreemodel.h"
#include "applicationtreeview.h"
#include "imageandtextcell.h"

#include <QFontMetrics>
#include <QHeaderView>
#include <QScopedValueRollback>
#include <QScrollBar>
#include <QSet>
#include <QTableView>

GroupedView::GroupedView(QTableView& table, const ConnectionTableModel& cells, QWidget* parent)
    : QObject(parent), m_table(table), m_model(new ApplicationTreeModel(cells, this)),
      m_view(new ApplicationTreeView(parent))
{
    m_view->setModel(m_model);
    m_view->setItemDelegate(new TextCell(m_view));
    m_view->setItemDelegateForColumn(ConnectionTableModel::applicationColumn(),
                                     new ImageAndTextCell(m_view));
    // Laid out at once, as the table is: the repaint that follows is the only one.
    connect(m_model, &QAbstractItemModel::modelReset, m_view, &QAbstractItemView::doItemsLayout);
    connect(m_view->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &GroupedView::selectionChanged);
    mirror(*m_table.horizontalHeader(), *m_view->header());
    mirror(*m_view->header(), *m_table.horizontalHeader());
}

void GroupedView::mirror(QHeaderView& from, QHeaderView& to)
{
    connect(&from, &QHeaderView::sectionResized, this,
            [this, &from, &to](int logical, int, int size) {
                // A column hidden or shown from the menu goes for both views; widths follow the
                // user in the view shown, not the stretch of the one hidden.
                if (m_mirroring || (size > 0 && !from.isVisible() && !to.isSectionHidden(logical)))
                    return;
                const QScopedValueRollback guard(m_mirroring, true);
                if (size == 0) {
                    to.hideSection(logical);
                    return;
                }
                to.showSection(logical);
                to.resizeSection(logical, size);
            });
    connect(&from, &QHeaderView::sectionMoved, this, [this, &to](int logical, int, int visual) {
        if (m_mirroring)
            return;
        const QScopedValueRollback guard(m_mirroring, true);
        to.moveSection(to.visualIndex(logical), visual);
    });
    connect(&from, &QHeaderView::sortIndicatorChanged, this,
            [this, &to](int section, Qt::SortOrder order) {
                if (m_mirroring)
                    return;
                const QScopedValueRollback guard(m_mirroring, true);
                to.setSortIndicator(section, order);
            });
}

void GroupedView::followTableHeader()
{
    const QScopedValueRollback guard(m_mirroring, true);
    m_view->header()->restoreState(m_table.horizontalHeader()->saveState());
    m_fitPending = true;
    fitApplicationColumn();
}

void GroupedView::fitApplicationColumn()
{
    const int column = ConnectionTableModel::applicationColumn();
    QHeaderView* header = m_view->header();
    if (!m_fitPending || m_model->rowCount() == 0 || header->isSectionHidden(column))
        return;
    m_fitPending = false;
    const QFontMetrics metrics(m_view->font());
    int widest = 0;
    for (int row = 0; row < m_model->rowCount(); ++row)
        widest = std::max(widest,
                          metrics.horizontalAdvance(m_model->index(row, column).data().toString()));
    // The branch mark, the icon's square and the cell's margins come before and after.
    constexpr int kWidest = 280;
    const int wanted = std::min(kWidest, widest + m_view->indentation() + m_rowHeight + 16);
    if (wanted > header->sectionSize(column)) {
        const QScopedValueRollback guard(m_mirroring, true);
        header->resizeSection(column, wanted);
    }
}

void GroupedView::setLook(const QFont& font, const QPalette& palette, int rowHeight)
{
    m_view->setFont(font);
    m_view->setPalette(palette);
    m_view->setRowHeight(rowHeight);
    m_rowHeight = rowHeight;
    m_model->repaintAll();
}

void GroupedView::addAction(QAction* action)
{
    m_view->addAction(action);
}

void GroupedView::setItems(const LsofItemList& items, const ItemOrdering& ordering)
{
    const Kept kept = keep();
    QObject::disconnect(m_view->selectionModel(), nullptr, this, nullptr);
    m_model->setItems(items, ordering);
    restore(kept);
    fitApplicationColumn();
    connect(m_view->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &GroupedView::selectionChanged);
}

GroupedView::Kept GroupedView::keep() const
{
    Kept kept;
    for (int row = 0; row < m_model->rowCount(); ++row) {
        const QModelIndex app = m_model->index(row, 0);
        if (m_view->isExpanded(app))
            kept.expanded.append(m_model->applications().at(row).key);
    }
    for (const QModelIndex& index : m_view->selectionModel()->selectedRows()) {
        if (const LsofItemPtr item = m_model->itemAt(index))
            kept.connections.append(item);
        else if (const auto* app = m_model->applicationAt(index))
            kept.applications.append(app->key);
    }
    const QModelIndex current = m_view->currentIndex();
    kept.current = m_model->itemAt(current);
    if (const auto* app = kept.current ? nullptr : m_model->applicationAt(current))
        kept.currentKey = app->key;
    kept.currentColumn = std::max(0, current.column());
    kept.scroll = m_view->verticalScrollBar()->value();
    return kept;
}

void GroupedView::restore(const Kept& kept)
{
    for (const QString& key : kept.expanded) {
        const QModelIndex app = m_model->indexOfApplication(key);
        if (app.isValid() && !m_view->isExpanded(app))
            m_view->setExpanded(app, true);
    }
    const int lastColumn = m_model->columnCount() - 1;
    QItemSelection selection;
    const auto selectRow = [&](const QModelIndex& first) {
        if (first.isValid())
            selection.select(first, first.siblingAtColumn(lastColumn));
    };
    for (const QString& key : kept.applications)
        selectRow(m_model->indexOfApplication(key));
    for (const LsofItemPtr& item : kept.connections)
        selectRow(m_model->indexOfItem(item.get()));
    QItemSelectionModel* selectionModel = m_view->selectionModel();
    if (selection != selectionModel->selection())
        selectionModel->select(selection, QItemSelectionModel::ClearAndSelect);
    const QModelIndex current =
        kept.current ? m_model->indexOfItem(kept.current.get(), kept.currentColumn)
                     : m_model->indexOfApplication(kept.currentKey, kept.currentColumn);
    if (current.isValid() && current != selectionModel->currentIndex())
        selectionModel->setCurrentIndex(current, QItemSelectionModel::NoUpdate);
    m_view->verticalScrollBar()->setValue(kept.scroll);
}

QModelIndexList GroupedView::selectedRows() const
{
    QModelIndexList rows = m_view->selectionModel()->selectedRows();
    // Shown order: by application, an application before its connections.
    std::sort(rows.begin(), rows.end(), [](const QModelIndex& a, const QModelIndex& b) {
        const auto place = [](const QModelIndex& index) {
            return index.parent().isValid() ? std::pair(index.parent().row(), index.row() + 1)
                                            : std::pair(index.row(), 0);
        };
        return place(a) < place(b);
    });
    return rows;
}

LsofItemList GroupedView::selectedConnections() const
{
    LsofItemList connections;
    QSet<const LsofItem*> seen;
    const auto take = [&](const LsofItemPtr& item) {
        if (!seen.contains(item.get())) {
            seen.insert(item.get());
            connections.append(item);
        }
    };
    for (const QModelIndex& index : selectedRows()) {
        if (const LsofItemPtr item = m_model->itemAt(index))
            take(item);
        else if (const auto* app = m_model->applicationAt(index))
            for (const LsofItemPtr& item : app->connections)
                take(item);
    }
    return connections;
}

void GroupedView::selectApplicationsOf(const LsofItemList& items)
{
    QSet<QString> keys;
    for (const LsofItemPtr& item : items) {
        if (const QModelIndex index = m_model->indexOfItem(item.get()); index.isValid())
            keys.insert(m_model->applicationAt(index)->key);
    }
    QItemSelection selection;
    const int lastColumn = m_model->columnCount() - 1;
    for (const QString& key : keys) {
        const QModelIndex app = m_model->indexOfApplication(key);
        selection.select(app, app.siblingAtColumn(lastColumn));
    }
    m_view->selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
}

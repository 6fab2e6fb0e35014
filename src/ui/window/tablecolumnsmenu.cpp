#include "tablecolumnsmenu.h"

#include "connectiontablemodel.h"
#include "prefs/cvprefshelper.h"
#include "prefs/userdefaults.h"

#include <QHeaderView>
#include <QTableView>

using namespace Qt::StringLiterals;

TableColumnsMenu::TableColumnsMenu(QTableView& table, UserDefaults& defaults, QWidget* parent)
    : QMenu(tr("Columns"), parent), m_table(table), m_defaults(defaults)
{
    const QAbstractItemModel* model = m_table.model();
    for (int column = 0; column < model->columnCount(); ++column) {
        QAction* item = addAction(model->headerData(column, Qt::Horizontal).toString());
        item->setCheckable(true);
    }
}

QAction* TableColumnsMenu::itemForTitle(const QString& title) const
{
    const auto items = actions();
    for (QAction* item : items) {
        if (item->text() == title)
            return item;
    }
    return nullptr;
}

void TableColumnsMenu::setupTableHeaderViewMenu()
{
    const QVariant saved = m_defaults.objectForKey(PrefKeys::ColumnsUserDefault);
    QStringList savedTitles;
    for (const QVariant& entry : saved.toList())
        savedTitles.append(entry.toMap().value(u"title"_s).toString());

    QHeaderView* header = m_table.horizontalHeader();
    header->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(header, &QHeaderView::customContextMenuRequested, this,
            [this, header](const QPoint& pos) { popup(header->mapToGlobal(pos)); });

    const QAbstractItemModel* model = m_table.model();
    for (int column = 0; column < model->columnCount(); ++column) {
        const QString title = model->headerData(column, Qt::Horizontal).toString();
        QAction* item = itemForTitle(title);
        if (!item)
            continue;
        disconnect(item, nullptr, this, nullptr);
        connect(item, &QAction::triggered, this, [this, item] {
            // Qt has already flipped the check mark; the command does its own flip.
            item->setChecked(!item->isChecked());
            tableHeaderViewContextMenuSelected(item);
        });
        item->setShortcut({});
        item->setChecked(true);
        item->setData(column);
        const bool shown = saved.isValid() ? savedTitles.contains(title)
                                           : ConnectionTableModel::isBuiltInColumn(column);
        if (!shown) {
            header->hideSection(column);
            item->setChecked(false);
        }
    }
}

void TableColumnsMenu::tableHeaderViewContextMenuSelected(QAction* item)
{
    const bool wasShown = item->isChecked();
    item->setChecked(!wasShown);
    const int column = item->data().toInt();
    QHeaderView* header = m_table.horizontalHeader();
    if (wasShown) {
        header->hideSection(column);
    } else {
        header->showSection(column);
        header->moveSection(header->visualIndex(column), header->count() - 1);
        if (header->sectionSize(column) < header->minimumSectionSize() * 2)
            m_table.resizeColumnToContents(column);
    }
    m_table.viewport()->update();
    saveTableColumns();
}

QList<int> TableColumnsMenu::shownColumns() const
{
    const QHeaderView* header = m_table.horizontalHeader();
    QList<int> columns;
    for (int visual = 0; visual < header->count(); ++visual) {
        const int logical = header->logicalIndex(visual);
        if (!header->isSectionHidden(logical))
            columns.append(logical);
    }
    return columns;
}

void TableColumnsMenu::saveTableColumns()
{
    const QHeaderView* header = m_table.horizontalHeader();
    const QAbstractItemModel* model = m_table.model();
    QVariantList columns;
    for (int column : shownColumns()) {
        QVariantMap entry;
        entry.insert(u"title"_s, model->headerData(column, Qt::Horizontal).toString());
        entry.insert(u"width"_s, float(header->sectionSize(column)));
        columns.append(entry);
    }
    m_defaults.setObject(PrefKeys::ColumnsUserDefault, columns);
}

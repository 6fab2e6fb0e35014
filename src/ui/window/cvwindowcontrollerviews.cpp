// The main window's views of the snapshot: the flat table or the table grouped by application,
// the traffic graph below them and the status bar's sums, and the window state kept under keys
// of the window's own.
#include "cvwindowcontroller.h"

#include "applicationtreemodel.h"
#include "applicationtreeview.h"
#include "columnlayout.h"
#include "connectiontablemodel.h"
#include "connectiontableview.h"
#include "groupedview.h"
#include "maintoolbar.h"
#include "prefs/cvfilterprofileinfo.h"
#include "prefs/cvprefshelper.h"
#include "prefs/userdefaults.h"
#include "searchfield.h"
#include "trafficgraph.h"
#include "traffictotals.h"
#include "windowstatus.h"

#include <QDateTime>
#include <QScreen>
#include <QSet>
#include <QSplitter>
#include <QStackedWidget>

using namespace Qt::StringLiterals;

namespace {

// Window state of ours, kept apart from the settings the preferences edit.
const QString kGeometryKey = u"MainWindow/Geometry"_s;
const QString kGroupedKey = u"MainWindow/GroupByApplication"_s;
const QString kGraphKey = u"MainWindow/TrafficGraph"_s;

} // namespace

QWidget* CVWindowController::buildViews()
{
    m_grouped = new GroupedView(*m_table, *m_model, this);
    m_rows->setGroupedView(m_grouped);
    m_views = new QStackedWidget(this);
    m_views->addWidget(m_table);
    m_views->addWidget(m_grouped->view());
    m_graph = new TrafficGraph(this);
    m_graph->hide();
    m_split = new QSplitter(Qt::Vertical, this);
    m_split->addWidget(m_views);
    m_split->addWidget(m_graph);
    m_split->setCollapsible(0, false);
    m_split->setStretchFactor(0, 1);
    m_split->setSizes({560, 200});
    connect(m_table->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        if (!m_groupedShown)
            updateGraphSubject();
    });
    connect(m_grouped, &GroupedView::selectionChanged, this, [this] {
        if (m_groupedShown)
            updateGraphSubject();
    });
    return m_split;
}

QAction* CVWindowController::groupByApplicationAction() const
{
    return m_toolbar->groupAction();
}

QAction* CVWindowController::trafficGraphAction() const
{
    return m_toolbar->graphAction();
}

void CVWindowController::setGroupedByApplication(bool grouped)
{
    {
        const QSignalBlocker blocker(m_toolbar->groupAction());
        m_toolbar->groupAction()->setChecked(grouped);
    }
    if (!m_host && m_prefs.defaultsStore().objectForKey(kGroupedKey).toBool() != grouped)
        m_prefs.defaultsStore().setObject(kGroupedKey, grouped);
    if (grouped == m_groupedShown)
        return;
    // What was highlighted stays so: its applications, or, back in the table, its connections.
    const LsofItemList highlighted = highlightedConnections();
    m_groupedShown = grouped;
    m_rows->setGrouped(grouped);
    if (grouped) {
        m_grouped->followTableHeader();
        m_grouped->setItems(items(), ordering());
        m_grouped->selectApplicationsOf(highlighted);
        m_views->setCurrentWidget(m_grouped->view());
    } else {
        QSet<const LsofItem*> wanted;
        for (const LsofItemPtr& item : highlighted)
            wanted.insert(item.get());
        QList<int> rows;
        for (int row = 0; row < items().size() && rows.size() < wanted.size(); ++row) {
            if (wanted.contains(items().at(row).get()))
                rows.append(row);
        }
        m_table->selectRowNumbers(rows);
        m_views->setCurrentWidget(m_table);
    }
    updateGraphSubject();
}

void CVWindowController::setTrafficGraphShown(bool shown)
{
    {
        const QSignalBlocker blocker(m_toolbar->graphAction());
        m_toolbar->graphAction()->setChecked(shown);
    }
    if (!m_host && m_prefs.defaultsStore().objectForKey(kGraphKey).toBool() != shown)
        m_prefs.defaultsStore().setObject(kGraphKey, shown);
    m_graph->setVisible(shown);
}

LsofItemList CVWindowController::highlightedConnections() const
{
    if (m_groupedShown)
        return m_grouped->selectedConnections();
    LsofItemList highlighted;
    const LsofItemList& rows = items();
    for (int row : m_table->selectedRowNumbers()) {
        if (row < rows.size())
            highlighted.append(rows.at(row));
    }
    return highlighted;
}

void CVWindowController::updateGraphSubject()
{
    // An application stays the subject while its connections come and go.
    QStringList identity;
    QStringList names;
    int connections = 0;
    const auto addName = [&names](const QString& name) {
        if (!names.contains(name))
            names.append(name);
    };
    const ApplicationTreeModel* tree = m_grouped->model();
    const QModelIndexList groupedRows =
        m_groupedShown ? m_grouped->selectedRows() : QModelIndexList();
    for (const QModelIndex& row : groupedRows) {
        if (const LsofItemPtr item = tree->itemAt(row)) {
            identity.append(u"c:"_s + QString::number(quintptr(item.get())));
            ++connections;
        } else {
            identity.append(u"a:"_s + tree->applicationAt(row)->key);
        }
        addName(tree->applicationAt(row)->name);
    }
    const LsofItemList highlighted = m_groupedShown ? LsofItemList() : highlightedConnections();
    for (const LsofItemPtr& item : highlighted)
        identity.append(u"c:"_s + QString::number(quintptr(item.get())));
    connections += int(highlighted.size());
    if (identity == m_graph->subjectIdentity())
        return;
    for (qsizetype i = 0; i < highlighted.size() && names.size() < 2; ++i)
        addName(m_model->cellText(*highlighted.at(i), ConnectionTableModel::applicationColumn()));

    QString title;
    if (names.size() == 1)
        title = connections == 0
                    ? names.constFirst()
                    : (connections == 1 ? tr("a connection of %1")
                                        : tr("%n connections of %1", nullptr, connections))
                          .arg(names.constFirst());
    else
        title = tr("%n selected rows", nullptr, int(identity.size()));
    m_graph->showSubject(identity, title);
}

void CVWindowController::feedGraph()
{
    updateGraphSubject();
    m_graph->addPass(QDateTime::currentMSecsSinceEpoch(), TrafficTotals::of(m_originalItems),
                     TrafficTotals::of(highlightedConnections()));
}

void CVWindowController::updateStatusBar()
{
    m_status->showCounts(items().size(), m_originalItems.size());
    m_status->showTraffic(TrafficTotals::of(items()));
    m_status->showOrigin(m_source.lastOrigin(), m_privileged, m_host ? m_host->host() : QString());
    QString problem = m_lastProblem;
    if (m_filterGaveUp) {
        const QString gaveUp = tr("The search took too long; some connections are not shown.");
        problem = problem.isEmpty() ? gaveUp : problem + u' ' + gaveUp;
    }
    m_status->showProblem(problem);
}

void CVWindowController::updateSearchFeedback()
{
    QString fieldError;
    QString statusError;
    if (m_expressionError) {
        const auto profile = chosenFilterProfile();
        if (profile) {
            statusError = tr("The saved search \"%1\" is not a valid expression, so every "
                             "connection is shown: %2")
                              .arg(profile->profileName(), m_expressionError->toString());
        } else if (!m_searchField->text().trimmed().isEmpty()) {
            fieldError = tr("Not a valid search expression, so every connection is shown: %1")
                             .arg(m_expressionError->toString());
            statusError = fieldError;
        }
    } else if (!m_keywordError.isEmpty()) {
        fieldError =
            tr("Not a valid search pattern, so no connection matches: %1").arg(m_keywordError);
        statusError = fieldError;
    }
    m_searchField->showError(fieldError);
    m_status->showSearchError(statusError);
}

void CVWindowController::restoreWindowState()
{
    const QByteArray geometry = m_prefs.defaultsStore().objectForKey(kGeometryKey).toByteArray();
    if (geometry.isEmpty() || !restoreGeometry(geometry)) {
        // At most 1280 wide, where the built-in columns fit; smaller screens get all they have.
        const QRect available = screen()->availableGeometry();
        resize(std::min(1280, available.width()), std::min(760, available.height()));
    }
    m_columnLayout->restore();
    m_grouped->followTableHeader();
    setGroupedByApplication(m_prefs.defaultsStore().objectForKey(kGroupedKey).toBool());
    setTrafficGraphShown(m_prefs.defaultsStore().objectForKey(kGraphKey).toBool());
}

void CVWindowController::saveWindowState()
{
    // The saved layout is the main window's; another machine's window borrows it.
    if (m_host)
        return;
    m_prefs.defaultsStore().setObject(kGeometryKey, saveGeometry());
    m_columnLayout->save();
}

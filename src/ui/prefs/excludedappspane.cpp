#include "excludedappspane.h"

#include "cvpreferencesexcludeappsdatasource.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QListView>
#include <QMenu>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

ExcludedAppsPane::ExcludedAppsPane(
    CVPreferencesExcludeAppsDataSource& apps,
    std::function<QList<PreferencesServices::ApplicationChoice>()> listed, QWidget* parent)
    : QGroupBox(tr("Applications Left Out of Notifications"), parent), m_apps(apps),
      m_listed(std::move(listed)), m_view(new QListView(this)),
      m_add(new QPushButton(QIcon::fromTheme(u"list-add"_s), tr("Add"), this)),
      m_remove(new QPushButton(QIcon::fromTheme(u"list-remove"_s), tr("Remove"), this)),
      m_menu(new QMenu(this))
{
    m_view->setModel(&m_apps);
    m_view->setIconSize(QSize(24, 24));
    m_view->setUniformItemSizes(true);
    m_view->setTextElideMode(Qt::ElideMiddle);
    m_apps.setSelectionModel(m_view->selectionModel());

    m_add->setMenu(m_menu);
    connect(m_menu, &QMenu::aboutToShow, this, &ExcludedAppsPane::addMenu);
    connect(m_remove, &QPushButton::clicked, this, &ExcludedAppsPane::removeRequested);
    connect(m_view->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &ExcludedAppsPane::updateRemoveButton);
    connect(&m_apps, &QAbstractItemModel::modelReset, this, &ExcludedAppsPane::updateRemoveButton);
    updateRemoveButton();

    auto* hint = new QLabel(tr("Connections of these programs are still listed and logged, but "
                               "raise no desktop notification."),
                            this);
    hint->setWordWrap(true);
    hint->setForegroundRole(QPalette::PlaceholderText);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_add);
    buttons->addWidget(m_remove);
    buttons->addStretch(1);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(hint);
    layout->addWidget(m_view, 1);
    layout->addLayout(buttons);
}

QMenu* ExcludedAppsPane::addMenu()
{
    m_menu->clear();
    const QList<PreferencesServices::ApplicationChoice> listed =
        m_listed ? m_listed() : QList<PreferencesServices::ApplicationChoice>();
    const QStringList excluded = m_apps.excludeApps();
    if (!listed.isEmpty())
        m_menu->addSection(tr("Applications in the List"));
    for (const auto& app : listed) {
        QAction* item =
            m_menu->addAction(CVPreferencesExcludeAppsDataSource::iconForPath(app.path), app.name);
        item->setToolTip(app.path);
        item->setStatusTip(app.path);
        // Already left out: shown, so the list reads whole, but not offered twice.
        item->setEnabled(!excluded.contains(app.path));
        connect(item, &QAction::triggered, this,
                [this, path = app.path] { Q_EMIT applicationChosen(path); });
    }
    if (!listed.isEmpty())
        m_menu->addSeparator();
    m_menu->addAction(QIcon::fromTheme(u"document-open"_s), tr("Choose a Program…"), this,
                      &ExcludedAppsPane::chooseProgramRequested);
    m_menu->setToolTipsVisible(true);
    return m_menu;
}

void ExcludedAppsPane::updateRemoveButton()
{
    m_remove->setEnabled(m_view->selectionModel()->hasSelection());
}

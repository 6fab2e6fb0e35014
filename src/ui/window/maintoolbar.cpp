#include "maintoolbar.h"

#include "searchfield.h"
#include "segmentedcontrol.h"

#include <QComboBox>
#include <QIcon>
#include <QToolButton>
#include <QWidgetAction>

using namespace Qt::StringLiterals;

MainToolbar::MainToolbar(QWidget* parent) : QToolBar(tr("Filters"), parent)
{
    setObjectName(u"CVMainToolbar"_s);
    setMovable(false);
    setFloatable(false);
    setToolButtonStyle(Qt::ToolButtonIconOnly);

    // Our own icon: themes draw this one grey, which reads as disabled.
    m_refreshAction = addAction(QIcon(u":/corvina/icons/refresh.svg"_s), tr("Refresh"));
    m_refreshAction->setToolTip(tr("Refresh now (Ctrl+R)"));
    if (auto* button = qobject_cast<QToolButton*>(widgetForAction(m_refreshAction)))
        button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);

    m_refreshButton = new QComboBox(this);
    for (int seconds : {0, 1, 2, 3, 5, 10})
        m_refreshButton->addItem(seconds == 0 ? tr("Off") : tr("%n s", nullptr, seconds), seconds);
    addItem(u"CVToolbarRefreshItem"_s, m_refreshButton, tr("How often the list refreshes"));
    addSeparator();

    // The labels are the values of the items' type and protocol fields.
    m_typeControl = new SegmentedControl({u"IPv4"_s, u"IPv6"_s}, this);
    m_protocolControl = new SegmentedControl({u"TCP"_s, u"UDP"_s, u"Other"_s}, this);
    m_remoteControl = new SegmentedControl({tr("Remote only")}, this);
    for (SegmentedControl* control : {m_typeControl, m_protocolControl}) {
        for (int i = 0; i < control->segmentCount(); ++i)
            control->setSelected(true, i);
    }
    addItem(u"CVToolbarTypeItem"_s, m_typeControl, tr("Address types shown"));
    addItem(u"CVToolbarProtocolItem"_s, m_protocolControl, tr("Protocols shown"));
    addItem(u"CVToolbarAddressAndPortItem"_s, m_remoteControl,
            tr("Show only connections with a remote address"));
    addSeparator();

    m_profileButton = new QComboBox(this);
    m_profileButton->addItem(tr("No Saved Search"));
    m_profileButton->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    addItem(u"CVToolbarFilterProfileItem"_s, m_profileButton, tr("Filter by a saved search"));
    addSeparator();

    m_groupAction = addAction(QIcon(u":/corvina/icons/group.svg"_s), tr("By Application"));
    m_groupAction->setToolTip(tr("One row per application, its connections beneath"));
    m_graphAction = addAction(QIcon(u":/corvina/icons/graph.svg"_s), tr("Traffic Graph"));
    m_graphAction->setToolTip(
        tr("Send and receive rates of the selection, or of the whole machine, below the table"));
    for (QAction* toggle : {m_groupAction, m_graphAction}) {
        toggle->setCheckable(true);
        if (auto* button = qobject_cast<QToolButton*>(widgetForAction(toggle)))
            button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    }

    auto* spacer = new QWidget(this);
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    addWidget(spacer);

    m_searchField = new SearchField(this);
    addItem(u"CVToolbarSearchItem"_s, m_searchField,
            tr("Keywords, comma-separated alternatives or a regular expression; "
               "a search expression when switched on in the menu"));
}

QAction* MainToolbar::addItem(const QString& identifier, QWidget* view, const QString& toolTip)
{
    auto* item = new QWidgetAction(this);
    item->setObjectName(identifier);
    m_toolTips.insert(view, toolTip);
    if (auto* field = qobject_cast<SearchField*>(view))
        field->setHelpToolTip(toolTip);
    else
        view->setToolTip(toolTip);
    item->setDefaultWidget(view);
    addAction(item);
    return item;
}

void MainToolbar::showRefreshInterval(qint64 seconds)
{
    const qint64 shown = std::max<qint64>(seconds, 0);
    int index = m_refreshButton->findData(shown);
    if (index < 0) {
        m_refreshButton->addItem(tr("%n s", nullptr, int(shown)), shown);
        index = m_refreshButton->count() - 1;
    }
    m_refreshButton->setCurrentIndex(index);
}

QList<QWidget*> MainToolbar::filterViews() const
{
    return {m_typeControl, m_protocolControl, m_remoteControl, m_searchField};
}

void MainToolbar::showSavedSearchDecides(const QString& profileName)
{
    const bool decides = !profileName.isEmpty();
    const QString why = tr("The saved search \"%1\" decides which connections are shown. "
                           "Choose \"No Saved Search\" to filter here.")
                            .arg(profileName);
    for (QWidget* view : filterViews()) {
        view->setEnabled(!decides);
        if (view == m_searchField)
            m_searchField->setHelpToolTip(decides ? why : m_toolTips.value(view));
        else
            view->setToolTip(decides ? why : m_toolTips.value(view));
    }
}

#include "toolbarstate.h"

#include "prefs/userdefaults.h"
#include "segmentedcontrol.h"

#include <QLineEdit>
#include <QToolBar>

using namespace Qt::StringLiterals;

QString ToolbarState::keyForIdentifier(const QString& identifier)
{
    return identifier + u"State"_s;
}

void ToolbarState::save(const QToolBar& toolbar, UserDefaults& defaults)
{
    const auto actions = toolbar.actions();
    for (QAction* action : actions) {
        const QString identifier = action->objectName();
        if (identifier.isEmpty())
            continue;
        QWidget* view = toolbar.widgetForAction(action);
        QString value;
        if (auto* segments = qobject_cast<SegmentedControl*>(view))
            value = segments->stateText();
        else if (auto* field = qobject_cast<QLineEdit*>(view))
            value = field->text();
        else
            continue;
        if (value.isNull())
            value = u""_s;
        const QString key = keyForIdentifier(identifier);
        // Every write announces a settings change; an unchanged state need not.
        const QVariant stored = defaults.objectForKey(key);
        if (stored.typeId() == QMetaType::QString && stored.toString() == value)
            continue;
        defaults.setObject(key, value);
    }
}

void ToolbarState::restore(const QToolBar& toolbar, const UserDefaults& defaults)
{
    const auto actions = toolbar.actions();
    for (QAction* action : actions) {
        const QString identifier = action->objectName();
        if (identifier.isEmpty())
            continue;
        const QVariant stored = defaults.objectForKey(keyForIdentifier(identifier));
        if (!stored.isValid() || stored.typeId() != QMetaType::QString)
            continue;
        const QString value = stored.toString();
        QWidget* view = toolbar.widgetForAction(action);
        if (auto* segments = qobject_cast<SegmentedControl*>(view))
            segments->restoreState(value);
        else if (auto* field = qobject_cast<QLineEdit*>(view))
            field->setText(value);
    }
}

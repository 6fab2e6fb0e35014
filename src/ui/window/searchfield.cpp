#include "searchfield.h"

#include <QAction>
#include <QIcon>
#include <QMenu>

using namespace Qt::StringLiterals;

SearchField::SearchField(QWidget* parent) : QLineEdit(parent), m_template(new QMenu(this))
{
    setPlaceholderText(tr("Search"));
    setClearButtonEnabled(true);
    setMinimumWidth(220);

    QAction* expression = m_template->addAction(tr("Use Search Expression"));
    expression->setData(int(UseSearchExpressionTag));
    expression->setCheckable(true);
    QAction* save = m_template->addAction(tr("Save Search…"));
    save->setData(int(SaveSearchTag));
    save->setEnabled(false);

    QAction* menuButton = addAction(QIcon::fromTheme(u"edit-find"_s, QIcon::fromTheme(u"search"_s)),
                                    QLineEdit::LeadingPosition);
    menuButton->setToolTip(tr("Search options"));
    connect(menuButton, &QAction::triggered, this, &SearchField::popUpMenu);
}

QAction* SearchField::itemWithTag(const QMenu* menu, int tag)
{
    if (!menu)
        return nullptr;
    const auto actions = menu->actions();
    for (QAction* action : actions) {
        if (tagOfItem(action) == tag)
            return action;
    }
    return nullptr;
}

int SearchField::tagOfItem(const QAction* item)
{
    bool ok = false;
    const int tag = item ? item->data().toInt(&ok) : 0;
    return ok ? tag : 0;
}

QMenu* SearchField::buildPopUpMenu()
{
    auto* menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    const auto actions = m_template->actions();
    for (const QAction* source : actions) {
        QAction* item = menu->addAction(source->text());
        item->setData(source->data());
        item->setCheckable(source->isCheckable());
        item->setChecked(source->isChecked());
        item->setEnabled(source->isEnabled());
        connect(item, &QAction::triggered, this, [this, item] {
            // Qt has already flipped a checkable item; the command does its own flip.
            if (item->isCheckable())
                item->setChecked(!item->isChecked());
            Q_EMIT menuItemTriggered(item);
        });
    }
    return menu;
}

void SearchField::setHelpToolTip(const QString& text)
{
    m_helpToolTip = text;
    if (m_error.isEmpty())
        setToolTip(text);
}

void SearchField::showError(const QString& error)
{
    if (error == m_error)
        return;
    m_error = error;
    QPalette tinted = QPalette();
    if (!error.isEmpty()) {
        tinted.setColor(QPalette::Base, QColor(0xfd, 0xe2, 0xe0));
        tinted.setColor(QPalette::Text, QColor(0x5f, 0x0f, 0x0a));
    }
    setPalette(tinted);
    setToolTip(error.isEmpty() ? m_helpToolTip : error);
}

void SearchField::popUpMenu()
{
    QMenu* menu = buildPopUpMenu();
    menu->popup(mapToGlobal(QPoint(0, height())));
}

#pragma once

#include <QLineEdit>

class QMenu;

// The toolbar's search field. Its menu opens from the magnifier at the left and is rebuilt
// from a template on every pop-up, so the template is where the menu's lasting state lives.
class SearchField final : public QLineEdit {
    Q_OBJECT
public:
    enum Tag { UseSearchExpressionTag = 100, SaveSearchTag = 101 };

    explicit SearchField(QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(SearchField)

    QMenu* searchMenuTemplate() const { return m_template; }
    static QAction* itemWithTag(const QMenu* menu, int tag);
    static int tagOfItem(const QAction* item);

    // A fresh copy of the template, its items wired to menuItemTriggered().
    QMenu* buildPopUpMenu();
    void popUpMenu();

    // The tooltip shown while the search is fine.
    void setHelpToolTip(const QString& text);
    // Why the text is not applied as typed: the field is tinted and its tooltip says so.
    // Empty: the text is fine.
    void showError(const QString& error);
    const QString& error() const { return m_error; }

Q_SIGNALS:
    // An item of a live menu was chosen; the item is the sender of the command.
    void menuItemTriggered(QAction* item);

private:
    QMenu* m_template;
    QString m_helpToolTip;
    QString m_error;
};

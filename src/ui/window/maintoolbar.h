#pragma once

#include <QHash>
#include <QToolBar>

class QComboBox;
class SearchField;
class SegmentedControl;

// The main window's toolbar and its items, each under its identifier (the action's object
// name), which also names its saved state. The window wires the items to its commands.
class MainToolbar final : public QToolBar {
    Q_OBJECT
public:
    explicit MainToolbar(QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(MainToolbar)

    QAction* refreshAction() const { return m_refreshAction; }
    // Off, 1, 2, 3, 5 and 10 seconds; the item data is the number of seconds.
    QComboBox* refreshIntervalButton() const { return m_refreshButton; }
    // Shows `seconds`, adding an entry for a period the list does not offer.
    void showRefreshInterval(qint64 seconds);
    SegmentedControl* typeControl() const { return m_typeControl; }
    SegmentedControl* protocolControl() const { return m_protocolControl; }
    SegmentedControl* hasRemoteAddressControl() const { return m_remoteControl; }
    QComboBox* filterProfileButton() const { return m_profileButton; }
    SearchField* searchField() const { return m_searchField; }
    // Checkable: one row per application, and the traffic graph below the table.
    QAction* groupAction() const { return m_groupAction; }
    QAction* graphAction() const { return m_graphAction; }

    // While a saved search is chosen it alone decides what is shown: the segments and the
    // search field are shown inactive and say so. An empty name: none is chosen.
    void showSavedSearchDecides(const QString& profileName);

private:
    QAction* addItem(const QString& identifier, QWidget* view, const QString& toolTip);
    QList<QWidget*> filterViews() const;

    QAction* m_refreshAction;
    QComboBox* m_refreshButton;
    SegmentedControl* m_typeControl;
    SegmentedControl* m_protocolControl;
    SegmentedControl* m_remoteControl;
    QComboBox* m_profileButton;
    QAction* m_groupAction;
    QAction* m_graphAction;
    SearchField* m_searchField;
    QHash<QWidget*, QString> m_toolTips;
};

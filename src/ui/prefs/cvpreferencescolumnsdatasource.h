#pragma once

#include <QAbstractListModel>
#include <QMenu>
#include <QPointer>

class QAction;
class UserDefaults;

// The main window's column menu as a check list: row i is the menu's item i, checked when the
// column is shown. Checking a row chooses the menu item, exactly as the user would in the
// header's menu; the list follows every change of the settings (the window saves its columns
// there).
class CVPreferencesColumnsDataSource final : public QAbstractListModel {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(CVPreferencesColumnsDataSource)

public:
    CVPreferencesColumnsDataSource(UserDefaults& defaults, QMenu* tableHeaderMenu,
                                   QObject* parent = nullptr);

    QMenu* tableHeaderMenu() const { return m_tableHeaderMenu; }
    // For the application shell when the main window's menu arrives after this list.
    void setTableHeaderMenu(QMenu* menu);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

public slots:
    void reload();

private:
    QAction* itemAt(int row) const;

    QPointer<QMenu> m_tableHeaderMenu;
};

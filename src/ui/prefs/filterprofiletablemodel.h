#pragma once

#include <QAbstractTableModel>

#include <memory>

class CVFilterProfileInfo;
class CVPrefsHelper;

// The saved searches as an editable table of name and expression, over the list the settings
// object keeps. An edit is stored at once through the record's key-value path; when the database
// does not take it, the row keeps its stored value and editFailed() says why. An expression
// that does not parse is marked with a warning and its tooltip gives the parser's message.
class FilterProfileTableModel final : public QAbstractTableModel {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(FilterProfileTableModel)

public:
    enum Column { NameColumn, ExpressionColumn, ColumnCount };

    explicit FilterProfileTableModel(CVPrefsHelper& prefs, QObject* parent = nullptr);

    std::shared_ptr<CVFilterProfileInfo> profileAt(int row) const;
    // Why a stored expression does not parse, or empty.
    static QString expressionProblem(const QString& expression);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

signals:
    void editFailed(const QString& message);

private:
    void reload();
    static QString keyOfColumn(int column);

    CVPrefsHelper& m_prefs;
    QList<std::shared_ptr<CVFilterProfileInfo>> m_profiles;
};

#pragma once

#include "snapshot/lsofitem.h"

#include <QAbstractTableModel>
#include <QColor>
#include <QHash>
#include <QIcon>

// The connection table's rows: the filtered list `items`, one column per entry of
// itemColumns(). Sorting is not done here: the full snapshot comes sorted (ItemOrdering) and
// the filtered result is handed in, so the row numbers of both lists refer to the same order.
class ConnectionTableModel final : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Role {
        // The value sorting compares: a number for PID, the ports and traffic (invalid where
        // unknown), text otherwise.
        RawValueRole = Qt::UserRole + 1,
        StatusRole,
        ProcessPathRole,
    };

    // Colours of the settings, already turned into QColor.
    struct Colors {
        QColor text = Qt::black;
        QColor list = Qt::white;
        QColor fresh = Qt::green;
        QColor changed = Qt::yellow;
        QColor closed = Qt::red;
    };

    explicit ConnectionTableModel(QObject* parent = nullptr);
    Q_DISABLE_COPY_MOVE(ConnectionTableModel)

    static LsofItem::Key columnKey(int column);
    static QString columnTitle(int column);
    static int applicationColumn();
    // Whether a fresh window shows the column: all but "Type", "FD", "Device", "Path", "Sent",
    // "Received" and "RTT", which the column menu offers.
    static bool isBuiltInColumn(int column);

    // Replaces the rows. When the new list holds the very same objects in the same order,
    // only the rows whose status, state, traffic or host name changed are repainted.
    void setItems(const LsofItemList& items);
    const LsofItemList& items() const { return m_items; }

    void setColors(const Colors& colors);
    const Colors& colors() const { return m_colors; }
    // The list's colour while the rows are stale: what changed is old news.
    QColor backgroundForStatus(qint32 status) const;
    // The text colour, faded towards the background while the rows are stale.
    QColor textColor() const;

    // Rows of another machine: their processes are not this machine's, so the application
    // column shows the command name without an icon, and the path is unknown.
    void setRemote(bool remote);
    bool isRemote() const { return m_remote; }
    // The rows of a snapshot that could not be renewed: kept, but drawn faded.
    void setStale(bool stale);
    bool isStale() const { return m_stale; }
    // The text a cell shows, and what copying it gives.
    QString cellText(const LsofItem& item, int column) const;
    // What a cell of `column` shows of `item` in `role`; the grouped view's connection rows
    // read their cells here too.
    QVariant itemData(const LsofItem& item, int column, int role) const;
    QIcon iconForItem(const LsofItem& item) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;

private:
    // The parts of a row that change while its connection stays open. Host names are not
    // among them: only rows whose name was shown are checked for one that has landed.
    struct RowSignature {
        qint32 status = 0;
        QString state;
        LsofItem::Traffic traffic;
        friend bool operator==(const RowSignature&, const RowSignature&) = default;
    };
    static RowSignature signatureOf(const LsofItem& item);

    LsofItemList m_items;
    QList<RowSignature> m_signatures;
    // Row -> the host name its cell showed, since the rows were last replaced.
    mutable QHash<int, QString> m_shownHostnames;
    Colors m_colors;
    bool m_remote = false;
    bool m_stale = false;
    mutable QHash<QString, QIcon> m_iconCache;
};

#pragma once

#include "snapshot/lsofitem.h"

#include <QHash>
#include <QList>
#include <QString>

#include <optional>

// The keyword search's verdicts of the last pass, row by row, kept from one refresh to the
// next by whoever filters the same rows again (the window). Searching a row joins its texts
// and matches them, about a microsecond at 10 000 rows: 10 ms of the GUI thread at every
// refresh while a search is typed in. A row whose state, host name and traffic figures are
// what they were under the same search keeps its verdict.
class KeywordVerdicts final {
public:
    // Starts a pass under this search; another search forgets every verdict.
    void beginPass(const QString& pattern, const QList<LsofItem::Key>& keys, qsizetype rows);
    // The verdict kept for the item, if nothing it is searched in has changed.
    std::optional<bool> find(const LsofItem& item, const QString& hostname);
    void keep(const LsofItem& item, const QString& hostname, bool verdict);
    qsizetype size() const { return m_verdicts.size(); }

private:
    struct Verdict {
        quint64 serial = 0; // the item's: an address reused by a later item is not it
        QString state, hostname;
        LsofItem::Traffic traffic;
        bool passes = false;
        quint64 pass = 0;
    };
    LsofItem::Traffic trafficOf(const LsofItem& item) const;

    QString m_pattern;
    QList<LsofItem::Key> m_keys;
    bool m_readsTraffic = false;
    quint64 m_pass = 0;
    QHash<const LsofItem*, Verdict> m_verdicts;
};

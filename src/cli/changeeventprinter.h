#pragma once

#include "itemprinter.h"
#include "snapshot/lsofitem.h"

#include <QDateTime>
#include <QTextStream>

#include <functional>

// Prints the changes of a watch session, one per line: a readable line, a row of the CSV
// log's columns (header once), or a JSON object with the event, the time, the host and every
// item key.
class ChangeEventPrinter final {
public:
    ChangeEventPrinter(QTextStream& out, ItemPrinter::Format format, QString hostName);

    // "new", "changed" or "closed" for the change statuses 1, 2 and 3; null otherwise.
    static QString eventName(qint32 status);

    // Prints the items of one pass that changed (the others are skipped), then flushes. With
    // `opened`, every item is printed as "new": so are the short-lived connections, which are
    // printed again, as "closed", among the changed items.
    void print(const LsofItemList& items, bool opened = false);
    // Prints the `count` open connections of a pass that moved the most bytes per second (sent
    // and received together), most first; connections with no known rate are left out. In
    // JSON the event is "top" with the connection's "rank"; in CSV the action is "Top".
    void printTop(const LsofItemList& items, int count);

    void setClock(std::function<QDateTime()> clock) { m_clock = std::move(clock); }

private:
    QString tableLine(const LsofItem& item, const QString& event, const QDateTime& time) const;
    QString jsonLine(const LsofItem& item, const QString& event, const QDateTime& time) const;
    QString topLine(const LsofItem& item, int rank, const QDateTime& time) const;
    void printCsv(const LsofItemList& changed, const QDateTime& time, bool opened);

    QTextStream& m_out;
    ItemPrinter::Format m_format;
    QString m_host;
    std::function<QDateTime()> m_clock;
    bool m_wroteCsvHeader = false;
};

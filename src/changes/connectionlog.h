#pragma once

#include "changes/chcsvwriter.h"
#include "snapshot/lsofitem.h"

#include <QDateTime>

#include <functional>
#include <memory>

class CVPrefsHelper;

// The CSV connection log: one row per new, changed or closed connection, in the file the
// preferences name (one per day with the daily split). The file stays open between passes and
// is reopened when its name changes; each pass ends with one flush to disk.
class ConnectionLog final {
public:
    explicit ConnectionLog(CVPrefsHelper& prefs);
    ~ConnectionLog();
    Q_DISABLE_COPY_MOVE(ConnectionLog)

    // "Time", "Timestamp", "Action", then the item's titles.
    static QStringList titles();

    // Makes sure the writer writes to the current log file.
    void setupCSVWriter();
    // Time (long local date and time with zone), seconds since 1970, action: taken once a pass.
    QStringList timeFieldsForAction(const QString& action) const;
    // One pass: the time fields once, one row per item, then a flush.
    void writePass(const QString& action, const LsofItemList& items);
    // The item's part of a row for `action`: its CSV fields, except that a short-lived
    // connection's "New" row shows the state the kernel last gave it, not "Closed".
    static QStringList itemFields(const LsofItem& item, const QString& action);
    // Flushes and closes the file (at the end of a terminal session, for one).
    void close();

    void setClock(std::function<QDateTime()> clock) { m_clock = std::move(clock); }
    QString currentFileName() const { return m_fileName; }

private:
    CVPrefsHelper& m_prefs;
    std::unique_ptr<CHCSVWriter> m_writer;
    QString m_fileName;
    // Why the last writer could not open its file, said once until one opens.
    QString m_openFailure;
    std::function<QDateTime()> m_clock;
};

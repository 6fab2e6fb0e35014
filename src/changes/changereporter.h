#pragma once

#include "snapshot/lsoffetcher.h"

#include <functional>

class CVPrefsHelper;
class ConnectionLog;

// Reports one change-detection pass as the settings ask: an announcement grouped by
// application (delivered as a desktop notification), a message in the system log, and rows in
// the CSV log. Runs on the acquisition thread.
class ChangeReporter final : public ChangeReporting {
public:
    // What a pass announces: a heading and the assembled lines.
    struct Announcement {
        QString title;
        QStringList lines;
    };
    using AnnouncementSink = std::function<void(const Announcement&)>;

    ChangeReporter(CVPrefsHelper& prefs, ConnectionLog& log);

    bool needsNotifyOrLogNewConnections() const override;
    bool needsNotifyOrLogConnectionStateChange() const override;
    void notifyNewItems(const LsofItemList& items) override;
    void notifyChangedItems(const LsofItemList& items) override;

    // Receives the announcements when "announce" is on for their kind; may be called on the
    // acquisition thread. Without a sink the lines are assembled and dropped.
    void setAnnouncementSink(AnnouncementSink sink) { m_sink = std::move(sink); }

    // Where the console messages go when the settings ask for them: the journal, as one entry
    // per connection, when `journal` takes them (answers true); the system log otherwise. The
    // default writes to the systemd journal where it runs; null means the system log always.
    using JournalWriter = std::function<bool(const LsofItemList& items)>;
    void setJournalWriter(JournalWriter journal) { m_journal = std::move(journal); }
    // The machine the messages speak of, for the journal's entries: this one unless set.
    void setHost(const QString& host) { m_host = host; }

    // Hands every console message to `echo` as well, whatever the console settings say (a
    // terminal session shows them); the system log still gets them only when asked.
    void setConsoleEcho(std::function<void(const QString&)> echo) { m_echo = std::move(echo); }

    // The assembled lines, for the items already selected and grouped by these rules.
    static QStringList newItemsAnnouncement(const LsofItemList& items, const QStringList& excluded,
                                            bool resolveHostnames);
    static QStringList changedItemsAnnouncement(const LsofItemList& items,
                                                const QStringList& excluded, bool resolveHostnames);
    // The console messages, "New Connections\n…" and "State Changed\n…".
    static QString newItemsMessage(const LsofItemList& newItems);
    static QString changedItemsMessage(const LsofItemList& changedItems);

private:
    void writeConsoleMessage(const LsofItemList& items, const QString& message,
                             const QString& settingKey);

    CVPrefsHelper& m_prefs;
    ConnectionLog& m_log;
    AnnouncementSink m_sink;
    JournalWriter m_journal;
    QString m_host;
    std::function<void(const QString&)> m_echo;
};

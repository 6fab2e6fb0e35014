#pragma once

#include "persistence/sqliteinstancemanager.h"
#include "prefs/cvprefshelper.h"
#include "prefs/userdefaults.h"
#include "snapshot/snapshotsource.h"
#include "support/itemspec.h"

#include <QMainWindow>
#include <QTemporaryDir>

#include <memory>

class CVWindowController;

// Hands out scripted snapshots: a request stays pending until the test delivers.
class FakeSnapshotSource final : public SnapshotSource {
    Q_OBJECT
public:
    using SnapshotSource::SnapshotSource;

    bool requestSnapshot() override
    {
        if (m_pending)
            return false;
        m_pending = true;
        ++m_requests;
        m_requestedOrdering = ordering();
        return true;
    }
    Origin lastOrigin() const override { return {Road::Direct, Collector::Lsof, 2}; }

    // Answers the pending request, as the worker would; `sortedBy` is the order the items
    // are claimed to be in.
    void deliver(const LsofItemList& items, const QString& problem = {},
                 const ItemOrdering& sortedBy = {})
    {
        m_pending = false;
        Q_EMIT snapshotReady(items, problem, sortedBy);
    }
    // The order the window asked for with the last request.
    const ItemOrdering& requestedOrdering() const { return m_requestedOrdering; }
    bool pending() const { return m_pending; }
    int requests() const { return m_requests; }

private:
    bool m_pending = false;
    int m_requests = 0;
    ItemOrdering m_requestedOrdering;
};

// A settings store and a saved-search database in a temporary folder, with the helper over
// the store.
struct TestSettings {
    TestSettings();
    ~TestSettings();
    // A new store and helper over the same file, as after a restart.
    void reopen();
    QTemporaryDir dir;
    std::unique_ptr<UserDefaults> defaults;
    std::unique_ptr<CVPrefsHelper> prefs;
    std::unique_ptr<SQLiteInstanceManager> database;
};

// A connection of `app` to `remote`:`port`, established when it is TCP.
inline LsofItemPtr peer(const QString& app, const QString& pid, const QString& remote,
                        const QString& port, const QString& protocol = QStringLiteral("TCP"))
{
    ItemSpec spec{app, pid, protocol};
    spec.remoteAddress = remote;
    spec.remotePort = port;
    if (protocol == QStringLiteral("TCP") && !remote.isNull())
        spec.state = QStringLiteral("ESTABLISHED");
    return makeItem(spec);
}

inline LsofItemPtr tcp(const QString& app, const QString& pid, qint32 status = 0)
{
    const LsofItemPtr item = peer(app, pid, QStringLiteral("93.184.216.34"), QStringLiteral("443"));
    item->setStatus(status);
    return item;
}

inline LsofItemPtr udp(const QString& app, const QString& pid)
{
    return makeItem({app, pid, QStringLiteral("UDP")});
}

// Whether the status bar says `text`, in a label it shows or in its passing message.
bool statusSays(const QMainWindow& window, const QString& text);

// Opens the row's menu, as a right click on it does, and closes it again: the commands are
// then set up for that row.
void openMenuOn(CVWindowController& window, int row);

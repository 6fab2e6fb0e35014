#pragma once

#include "persistence/sqliteinstancemanager.h"
#include "prefs/cvprefshelper.h"
#include "prefs/userdefaults.h"
#include "snapshot/snapshotsource.h"

#include <QTemporaryDir>

#include <memory>

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
        return true;
    }
    Road lastRoad() const override { return Road::Direct; }

    // Answers the pending request, as the worker would.
    void deliver(const LsofItemList& items, const QString& problem = {})
    {
        m_pending = false;
        Q_EMIT snapshotReady(items, problem);
    }
    bool pending() const { return m_pending; }
    int requests() const { return m_requests; }

private:
    bool m_pending = false;
    int m_requests = 0;
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

struct ItemSpec {
    QString app;
    QString pid;
    QString protocol = QStringLiteral("TCP");
    QString type = QStringLiteral("IPv4");
    QString localAddress = QStringLiteral("192.168.1.20");
    QString localPort = QStringLiteral("50000");
    QString remoteAddress = QString();
    QString remotePort = QString();
    QString state = QString();
    qint32 status = 0;
};

LsofItemPtr makeItem(const ItemSpec& spec);

#include "localsnapshotsource.h"

#include <QFileInfo>
#include <QProcess>

using namespace Qt::StringLiterals;

LocalSnapshotSource::LocalSnapshotSource(QObject* parent) : SnapshotSource(parent)
{
    qRegisterMetaType<LsofItemList>();
}

LocalSnapshotSource::~LocalSnapshotSource()
{
    if (m_worker) {
        m_worker->wait();
        delete m_worker;
    }
}

bool LocalSnapshotSource::requestSnapshot()
{
    if (m_worker && m_worker->isRunning())
        return false;
    delete m_worker;
    m_worker = QThread::create([this] {
        QString program;
        for (const QString& candidate : {u"/usr/sbin/lsof"_s, u"/usr/bin/lsof"_s}) {
            if (QFileInfo(candidate).isExecutable()) {
                program = candidate;
                break;
            }
        }
        LsofItemList items;
        QString problem;
        if (program.isEmpty()) {
            problem = tr("lsof is not installed, so no connections can be listed.");
        } else {
            QProcess lsof;
            lsof.start(program, {u"-i"_s, u"-n"_s, u"-P"_s, u"+c"_s, u"0"_s});
            if (!lsof.waitForFinished(10000)) {
                lsof.kill();
                lsof.waitForFinished();
                problem = tr("lsof did not answer within 10 seconds.");
            } else {
                items =
                    m_fetcher.parseLsofResult(QString::fromLocal8Bit(lsof.readAllStandardOutput()));
                m_fetcher.processLsofItemsChanges(items);
            }
        }
        QMetaObject::invokeMethod(
            this, [this, items, problem] { Q_EMIT snapshotReady(items, problem); },
            Qt::QueuedConnection);
    });
    m_worker->start();
    return true;
}

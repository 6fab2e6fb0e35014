#include "lsofsnapshotworker.h"

LsofSnapshotWorker::LsofSnapshotWorker(LsofFetcher& fetcher, QObject* parent)
    : SnapshotSource(parent), m_fetcher(fetcher), m_context(new QObject)
{
    qRegisterMetaType<LsofItemList>();
    m_thread.setObjectName(QStringLiteral("corvina-acquisition"));
    m_context->moveToThread(&m_thread);
    connect(&m_thread, &QThread::finished, m_context, &QObject::deleteLater);
    m_thread.start();
}

LsofSnapshotWorker::~LsofSnapshotWorker()
{
    // A pass waiting for the helper gives up, so the thread ends now; a reply that comes later
    // finds nobody waiting and is dropped.
    m_fetcher.cancel();
    m_thread.quit();
    m_thread.wait();
}

bool LsofSnapshotWorker::requestSnapshot()
{
    if (m_busy.exchange(true))
        return false;
    // Read now, on the thread that sets them.
    const ItemOrdering ordering = this->ordering();
    const Collector collector = this->collector();
    QMetaObject::invokeMethod(m_context, [this, ordering, collector] {
        if (m_fetcher.collector() != collector)
            m_fetcher.setCollector(collector);
        m_fetcher.getCurrentItemsWithCompletion([this, ordering](const LsofItemList& items) {
            LsofItem::readProcessRecords(items);
            const LsofItemList sorted = ordering.sorted(items);
            const Origin origin = m_fetcher.lastOrigin();
            const QString problem = m_fetcher.lastProblem();
            QMetaObject::invokeMethod(
                this,
                [this, sorted, origin, problem, ordering] {
                    deliver(sorted, origin, problem, ordering);
                },
                Qt::QueuedConnection);
        });
    });
    return true;
}

void LsofSnapshotWorker::deliver(const LsofItemList& items, const Origin& origin,
                                 const QString& problem, const ItemOrdering& sortedBy)
{
    m_origin = origin;
    m_busy.store(false);
    Q_EMIT snapshotReady(items, problem, sortedBy);
}

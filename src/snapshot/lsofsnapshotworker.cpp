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
    m_thread.quit();
    m_thread.wait();
}

bool LsofSnapshotWorker::requestSnapshot()
{
    if (m_busy.exchange(true))
        return false;
    // Read now, on the thread that sets it.
    const ItemOrdering ordering = this->ordering();
    QMetaObject::invokeMethod(m_context, [this, ordering] {
        m_fetcher.getCurrentItemsWithCompletion([this, ordering](const LsofItemList& items) {
            LsofItem::readProcessRecords(items);
            const LsofItemList sorted = ordering.sorted(items);
            const Road road = m_fetcher.lastRoad();
            const QString problem = m_fetcher.lastProblem();
            QMetaObject::invokeMethod(
                this,
                [this, sorted, road, problem, ordering] {
                    deliver(sorted, road, problem, ordering);
                },
                Qt::QueuedConnection);
        });
    });
    return true;
}

void LsofSnapshotWorker::deliver(const LsofItemList& items, Road road, const QString& problem,
                                 const ItemOrdering& sortedBy)
{
    m_road = road;
    m_busy.store(false);
    Q_EMIT snapshotReady(items, problem, sortedBy);
}

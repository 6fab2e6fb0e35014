#include "remotesnapshotsource.h"

#include "remote/sshcollector.h"

RemoteSnapshotSource::RemoteSnapshotSource(const HostSpec& host, QObject* parent)
    : SnapshotSource(parent), m_worker(m_fetcher)
{
    // Every pass goes through ssh, bounded as a whole; no road of this machine is taken.
    AcquisitionRoads roads;
    roads.runRemote = [collector = SshCollector(host)] {
        const SshCollector::Result result = collector.collect();
        return AcquisitionRoads::Remote{result.output, result.problem};
    };
    roads.remoteHost = host.text();
    m_fetcher.setRoads(std::move(roads));
    connect(&m_worker, &SnapshotSource::snapshotReady, this, &SnapshotSource::snapshotReady);
}

bool RemoteSnapshotSource::requestSnapshot()
{
    m_worker.setOrdering(ordering());
    m_worker.setCollector(collector());
    return m_worker.requestSnapshot();
}

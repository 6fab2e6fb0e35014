#include "cliacquisition.h"

#include "prefs/cvprefshelper.h"
#include "prefs/prefkeys.h"
#include "prefs/userdefaults.h"
#include "remote/sshcollector.h"
#include "snapshot/lsoffetcher.h"

#include <future>

namespace CliAcquisition {

AcquisitionRoads::HelperChoice helperChoice(const QString& socketPath)
{
    AcquisitionRoads::HelperChoice choice;
    choice.mode = socketPath.isEmpty() ? AcquisitionRoads::HelperChoice::Mode::Auto
                                       : AcquisitionRoads::HelperChoice::Mode::Socket;
    choice.socketPath = socketPath;
    return choice;
}

std::optional<QString> configure(LsofFetcher& fetcher, const Source& source)
{
    AcquisitionRoads roads = AcquisitionRoads::system(helperChoice(source.helperSocket));
    if (!source.host.isEmpty()) {
        QString problem;
        const std::optional<HostSpec> host = HostSpec::parse(source.host, &problem);
        if (!host)
            return problem;
        roads.runRemote = [collector = SshCollector(*host)] {
            const SshCollector::Result result = collector.collect();
            return AcquisitionRoads::Remote{result.output, result.problem};
        };
        roads.remoteHost = host->text();
    }
    fetcher.setRoads(std::move(roads));
    const QString chosen = source.collector.isEmpty()
                               ? CVPrefsHelper::sharedHelper().defaultsStore().stringForKey(
                                     PrefKeys::SnapshotCollector)
                               : source.collector;
    fetcher.setCollector(
        LsofFetcher::collectorNamed(chosen).value_or(SnapshotSource::Collector::Native));
    return std::nullopt;
}

LsofItemList acquire(LsofFetcher& fetcher)
{
    std::promise<LsofItemList> done;
    std::future<LsofItemList> result = done.get_future();
    fetcher.getCurrentItemsWithCompletion(
        [&done](const LsofItemList& items) { done.set_value(items); });
    return result.get();
}

} // namespace CliAcquisition

#include "cliacquisition.h"

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

LsofItemList acquire(LsofFetcher& fetcher)
{
    std::promise<LsofItemList> done;
    std::future<LsofItemList> result = done.get_future();
    fetcher.getCurrentItemsWithCompletion(
        [&done](const LsofItemList& items) { done.set_value(items); });
    return result.get();
}

} // namespace CliAcquisition

#pragma once

#include "snapshot/acquisitionroads.h"
#include "snapshot/lsofitem.h"

class LsofFetcher;

// Taking snapshots from the terminal, shared by the verbs that do.
namespace CliAcquisition {

// The installed helper, or the daemon on `socketPath` when one is named.
AcquisitionRoads::HelperChoice helperChoice(const QString& socketPath);
// One acquisition, waited for: on the helper road the answer comes on another thread.
LsofItemList acquire(LsofFetcher& fetcher);

} // namespace CliAcquisition

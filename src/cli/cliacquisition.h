#pragma once

#include "snapshot/acquisitionroads.h"
#include "snapshot/lsofitem.h"

#include <optional>

class LsofFetcher;

// Taking snapshots from the terminal, shared by the verbs that do.
namespace CliAcquisition {

// The installed helper, or the daemon on `socketPath` when one is named.
AcquisitionRoads::HelperChoice helperChoice(const QString& socketPath);

// Where the terminal's snapshots come from: the helper (or the daemon on `helperSocket`), the
// collector named (empty: the setting), or another machine over ssh.
struct Source {
    QString helperSocket;
    QString collector;
    QString host;
};
// Sets the fetcher's roads and collector; a one-line message when the host is no valid
// [user@]HOST[:port].
std::optional<QString> configure(LsofFetcher& fetcher, const Source& source);
// One acquisition, waited for: on the helper road the answer comes on another thread.
LsofItemList acquire(LsofFetcher& fetcher);

} // namespace CliAcquisition

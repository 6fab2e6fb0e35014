#pragma once

#include "socketowners.h"

#include "privileged/helperprotocol.h"

#include <QHash>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

class HelperConnection;

// Socket owners noted by the privileged helper daemon, for a collector that runs as an
// ordinary user and so cannot load the eBPF program itself: the daemon loads it and keeps it,
// and each pass asks the daemon once about all its short-lived sockets (socketOwnersWithReply,
// docs/helper-protocol.md). Asked on the collector's own thread, each request bounded by the
// client's reply time-out.
class HelperSocketOwners final : public SocketOwners {
public:
    explicit HelperSocketOwners(const QString& socketPath, std::chrono::milliseconds replyTimeout =
                                                               HelperProtocol::kReplyTimeout);
    ~HelperSocketOwners() override;
    HelperSocketOwners(const HelperSocketOwners&) = delete;
    HelperSocketOwners& operator=(const HelperSocketOwners&) = delete;

    // Asks about no socket: the daemon loads its program now, so that the sockets of the
    // passes to come are noted from their first moment, and says whether it can.
    QString start() override;
    QString prefetch(const QList<quint64>& cookies) override;
    std::optional<Owner> ownerOf(quint64 cookie) override { return m_owners.value(cookie); }

private:
    // Asks about `cookies`, at most kMaxOwnerCookies. Empty when answered or when the daemon
    // was only busy (then no owner is known this time); else why it cannot answer.
    QString ask(std::vector<std::uint64_t> cookies);

    std::string m_socketPath;
    std::chrono::milliseconds m_replyTimeout;
    std::unique_ptr<HelperConnection> m_connection;
    // What the last prefetch learned.
    QHash<quint64, std::optional<Owner>> m_owners;
};

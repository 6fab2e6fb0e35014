#pragma once

#include <QByteArrayView>
#include <QtGlobal>

#include <functional>

// One dump of the kernel's socket table: which sockets to list and what to add to each.
struct DiagQuery {
    quint8 family = 0;     // AF_INET or AF_INET6
    quint8 protocol = 0;   // IPPROTO_TCP, IPPROTO_UDP, IPPROTO_UDPLITE
    quint32 states = 0;    // bit n set: sockets in TCP state n
    quint8 extensions = 0; // bit n - 1 set: attribute n (INET_DIAG_INFO and so on)
};

// Where the collector's socket dumps come from: the kernel through netlink, or, in tests, a
// script of answers and failures.
class SocketDiagSource {
public:
    virtual ~SocketDiagSource() = default;

    // Called with each answer of a dump: one netlink message, header and payload.
    using MessageSink = std::function<void(QByteArrayView message)>;

    // Runs one dump, handing every answer to `sink` as it arrives. Answers 0 when the dump
    // completed, or the errno that ended it (the kernel's refusal, or a broken stream).
    virtual int dump(const DiagQuery& query, const MessageSink& sink) = 0;
};

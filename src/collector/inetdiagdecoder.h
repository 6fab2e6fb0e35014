#pragma once

#include "diagsocket.h"

#include <QByteArrayView>

#include <optional>

// Turns one answer of a socket dump into a DiagSocket. Pure, and safe on any bytes: the
// kernel's answers arrive here, and so do a fuzzer's.
class InetDiagDecoder final {
public:
    struct Result {
        std::optional<DiagSocket> socket;
        // Why there is no socket: a fixed English phrase.
        const char* error = nullptr;
    };

    // `message` is one netlink message (header, struct inet_diag_msg, attributes): an answer of
    // a dump for `protocol`, which such a message does not name, or, with `protocol` 0, a
    // destroy notice, which names it in an attribute.
    static Result decode(QByteArrayView message, quint8 protocol);
};

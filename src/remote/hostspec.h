#pragma once

#include <QString>

#include <optional>

// The machine to watch, as the user wrote it: [user@]HOST[:port], where an IPv6 address with a
// port is written in brackets ([fe80::1]:2222) and a bare IPv6 address has no port.
//
// Everything here ends up on ssh's command line, so whatever could be read as an option or
// split into two words is refused rather than quoted.
class HostSpec final {
public:
    // The parsed host, or nullopt with `problem` set to one sentence saying what is wrong.
    static std::optional<HostSpec> parse(const QString& text, QString* problem = nullptr);

    // Empty when ssh's own default (the config's User, else the local name) applies.
    QString user() const { return m_user; }
    QString host() const { return m_host; }
    // 0 when ssh's own default (the config's Port, else 22) applies.
    int port() const { return m_port; }
    // As the user wrote it, for messages and the CORVINA_HOST field.
    QString text() const { return m_text; }

private:
    HostSpec() = default;

    QString m_user;
    QString m_host;
    int m_port = 0;
    QString m_text;
};

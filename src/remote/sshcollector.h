#pragma once

#include "remote/boundedprocess.h"
#include "remote/hostspec.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <chrono>

// Takes one snapshot of another machine through the system's ssh: `corvina sockets` there when
// Corvina is installed, lsof otherwise, so the text is in lsof's layout either way. ssh runs
// non-interactively, so the user's keys, agent and ~/.ssh/config apply and nothing ever asks
// for a password; a pass is one ssh process, bounded as a whole.
class SshCollector final {
public:
    // What ran on the other side: only `corvina sockets` gives traffic figures.
    enum class Source { Unknown, Corvina, Lsof };
    enum class Failure {
        None,
        SshMissing,
        Unreachable,
        HostKeyRefused,
        AuthenticationRefused,
        NoCollector,
        RemoteCommandFailed,
        TimedOut,
    };

    struct Result {
        QByteArray output; // lsof's text layout, as it came; empty on failure
        Source source = Source::Unknown;
        Failure failure = Failure::None;
        QString problem; // one sentence for the user when the pass failed
        bool ok() const { return failure == Failure::None; }
    };

    struct Options {
        // The whole pass: connecting, logging in and collecting.
        std::chrono::milliseconds passBound{30000};
        std::chrono::seconds connectTimeout{10};
    };

    explicit SshCollector(HostSpec host);
    SshCollector(HostSpec host, Options options);

    // Runs one pass; blocks for at most the pass bound. Call it off the GUI thread.
    Result collect() const;

    const HostSpec& host() const { return m_host; }
    // ssh's arguments, the program itself left out.
    QStringList sshArguments() const;
    // What the other side runs, through its POSIX shell whatever the login shell is. It says
    // on standard error which collector it started, on a line of its own.
    static QString remoteCommand();

private:
    Result interpret(BoundedProcess::Outcome outcome) const;
    Result connectionFailure(const QString& errors) const;

    HostSpec m_host;
    Options m_options;
};

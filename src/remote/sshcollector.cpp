#include "sshcollector.h"

#include <QStandardPaths>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// The remote snippet's report of what it started, a line of its own on standard error.
constexpr QByteArrayView kSourceMarker = "@corvina-source ";
// Printed on standard output just before the collector starts: whatever a login script of the
// other side printed comes before it and is dropped.
constexpr QByteArrayView kOutputMarker = "@corvina-output\n";

// ssh's own exit status when it could not connect or log in; the remote command's otherwise.
constexpr int kSshFailed = 255;
constexpr int kNoCollector = 127;

struct SplitErrors {
    QByteArray marker; // "corvina", "lsof", "none", or empty when the snippet never ran
    QString text;      // everything else, trimmed
};

SplitErrors splitErrors(const QByteArray& errors)
{
    SplitErrors split;
    QByteArrayList kept;
    for (const QByteArray& line : errors.split('\n')) {
        if (split.marker.isEmpty() && line.startsWith(kSourceMarker))
            split.marker = line.mid(kSourceMarker.size()).trimmed();
        else
            kept << line;
    }
    split.text = QString::fromUtf8(kept.join('\n')).trimmed();
    return split;
}

// The collector's output, without what came before the snippet's marker. Without the marker (an
// authorized_keys entry that forces its own command) all of it.
QByteArray collectorOutput(QByteArray output)
{
    if (output.startsWith(kOutputMarker))
        return output.sliced(kOutputMarker.size());
    const QByteArray afterLine = '\n' + kOutputMarker.toByteArray();
    const qsizetype marker = output.indexOf(afterLine);
    if (marker >= 0)
        return output.sliced(marker + 1 + kOutputMarker.size());
    return output;
}

QString firstLine(const QString& text)
{
    return text.section(u'\n', 0, 0).trimmed();
}

QString lastLine(const QString& text)
{
    return text.section(u'\n', -1).trimmed();
}

QString seconds(std::chrono::milliseconds bound)
{
    return QString::number(double(bound.count()) / 1000.0);
}

} // namespace

SshCollector::SshCollector(HostSpec host) : SshCollector(std::move(host), Options{}) {}

SshCollector::SshCollector(HostSpec host, Options options)
    : m_host(std::move(host)), m_options(options)
{
}

QString SshCollector::remoteCommand()
{
    // Single quotes around a snippet free of single quotes, backslashes and "!": the login shell
    // may be bash, fish or csh, and each hands it to sh untouched. lsof lives in /usr/sbin on some
    // systems, off an ordinary user's PATH.
    return u"sh -c '"
           u"PATH=\"$PATH:/usr/sbin:/sbin\"; "
           u"if command -v corvina >/dev/null 2>&1; then "
           u"echo \"@corvina-source corvina\" >&2; echo @corvina-output; exec corvina sockets; fi; "
           u"if command -v lsof >/dev/null 2>&1; then "
           u"echo \"@corvina-source lsof\" >&2; echo @corvina-output; exec lsof -i -n -P +c 0; "
           u"fi; "
           u"echo \"@corvina-source none\" >&2; exit 127'"_s;
}

QStringList SshCollector::sshArguments() const
{
    const auto connectTimeout = std::max<qint64>(
        1, std::min<qint64>(m_options.connectTimeout.count(),
                            std::chrono::ceil<std::chrono::seconds>(m_options.passBound).count()));
    // No terminal, no prompts; nothing forwarded: a watched machine has no use for the agent or
    // the display, and a forwarding in the user's config could fail a pass.
    QStringList args = {u"-T"_s,
                        u"-x"_s,
                        u"-a"_s,
                        u"-o"_s,
                        u"BatchMode=yes"_s,
                        u"-o"_s,
                        u"ClearAllForwardings=yes"_s,
                        u"-o"_s,
                        u"ConnectTimeout=%1"_s.arg(connectTimeout)};
    if (m_host.port() > 0)
        args << u"-p"_s << QString::number(m_host.port());
    if (!m_host.user().isEmpty())
        args << u"-l"_s << m_host.user();
    // "--" ends ssh's options: the host is never read as one, whatever it looks like.
    args << u"--"_s << m_host.host() << remoteCommand();
    return args;
}

SshCollector::Result SshCollector::collect() const
{
    const QString ssh = QStandardPaths::findExecutable(u"ssh"_s);
    if (ssh.isEmpty()) {
        Result result;
        result.failure = Failure::SshMissing;
        result.problem = u"ssh was not found on PATH; install the OpenSSH client to watch "
                         u"another machine."_s;
        return result;
    }
    return interpret(BoundedProcess::run(QStringList{ssh} + sshArguments(), m_options.passBound));
}

SshCollector::Result SshCollector::interpret(BoundedProcess::Outcome outcome) const
{
    Result result;
    const QString host = m_host.text();
    const SplitErrors errors = splitErrors(outcome.errors);
    if (errors.marker == "corvina")
        result.source = Source::Corvina;
    else if (errors.marker == "lsof")
        result.source = Source::Lsof;

    if (!outcome.started) {
        result.failure = Failure::SshMissing;
        result.problem = u"ssh could not be started."_s;
    } else if (outcome.timedOut) {
        result.failure = Failure::TimedOut;
        result.problem =
            u"%1 did not answer within %2 seconds."_s.arg(host, seconds(m_options.passBound));
    } else if (outcome.tooLarge) {
        result.failure = Failure::RemoteCommandFailed;
        result.problem =
            u"%1 sent more than any snapshot can hold, so its answer was dropped."_s.arg(host);
    } else if (errors.marker.isEmpty() && outcome.exitCode == kSshFailed) {
        return connectionFailure(errors.text);
    } else if (errors.marker == "none" && outcome.exitCode == kNoCollector) {
        result.failure = Failure::NoCollector;
        result.problem =
            u"Neither corvina nor lsof is installed on %1; install one of them there."_s.arg(host);
    } else if (outcome.exitCode != 0 && collectorOutput(outcome.output).isEmpty() &&
               !errors.text.isEmpty()) {
        // lsof also exits 1, silently, when there is not one socket: that is an empty snapshot.
        result.failure = Failure::RemoteCommandFailed;
        result.problem = u"The collection command failed on %1 (exit status %2): %3"_s.arg(
            host, QString::number(outcome.exitCode), firstLine(errors.text));
    } else {
        result.output = collectorOutput(std::move(outcome.output));
        return result;
    }
    return result;
}

SshCollector::Result SshCollector::connectionFailure(const QString& errors) const
{
    const QString host = m_host.text();
    Result result;
    result.failure = Failure::Unreachable;
    if (errors.contains(u"Permission denied"_s)) {
        result.failure = Failure::AuthenticationRefused;
        result.problem = u"%1 refused the login: Corvina logs in with ssh keys only, never a "
                         u"password; set up key login (for example with ssh-copy-id)."_s.arg(host);
    } else if (errors.contains(u"Host key verification failed"_s)) {
        result.failure = Failure::HostKeyRefused;
        result.problem = u"The host key of %1 is unknown or has changed; connect once with "
                         u"\"ssh %1\" to check and accept it."_s.arg(host);
    } else if (errors.contains(u"Could not resolve hostname"_s)) {
        result.problem = u"Could not reach %1: its name does not resolve."_s.arg(host);
    } else if (errors.contains(u"Connection refused"_s)) {
        result.problem =
            u"Could not reach %1: the connection was refused (is sshd running there?)."_s.arg(host);
    } else if (errors.contains(u"timed out"_s)) {
        result.problem = u"Could not reach %1: the connection timed out."_s.arg(host);
    } else if (errors.contains(u"No route to host"_s) ||
               errors.contains(u"Network is unreachable"_s)) {
        result.problem = u"Could not reach %1: there is no route to it."_s.arg(host);
    } else {
        const QString why = lastLine(errors);
        result.problem = why.isEmpty() ? u"ssh could not connect to %1."_s.arg(host)
                                       : u"ssh could not connect to %1: %2"_s.arg(host, why);
    }
    return result;
}

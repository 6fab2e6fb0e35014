#include "metricsfile.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// A label value as the text format wants it: backslash, double quote and line feed escaped.
QByteArray escaped(const QString& value)
{
    QByteArray out;
    for (char c : value.toUtf8()) {
        if (c == '\\')
            out += "\\\\";
        else if (c == '"')
            out += "\\\"";
        else if (c == '\n')
            out += "\\n";
        else
            out += c;
    }
    return out;
}

void family(QByteArray& out, const char* name, const char* type, const char* help)
{
    out += QByteArray("# HELP ") + name + ' ' + help + '\n';
    out += QByteArray("# TYPE ") + name + ' ' + type + '\n';
}

// Writes `content` to a temporary file beside `path`, syncs it and renames it over `path`: a
// reader sees the old file or the new one, never a part, and a full disk leaves the old one.
// The temporary name does not end in ".prom", so node_exporter never reads it. Empty on
// success, else why it failed. (QSaveFile is not used: Qt 6.4's commits a file cut short by a
// full disk as if it were whole.)
QString replaceFile(const QString& path, const QByteArray& content)
{
    const QFileInfo target(path);
    QByteArray temporary =
        QFile::encodeName(target.absolutePath() + u"/."_s + target.fileName() + u".XXXXXX"_s);
    const int fd = mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0)
        return qt_error_string(errno);
    // node_exporter runs as its own user: keep the old file's mode, or make it readable.
    struct stat old {};
    fchmod(fd, stat(QFile::encodeName(path).constData(), &old) == 0 ? old.st_mode & 07777 : 0644);

    int error = 0;
    for (qsizetype done = 0; done < content.size() && error == 0;) {
        const ssize_t wrote =
            ::write(fd, content.constData() + done, size_t(content.size() - done));
        if (wrote > 0)
            done += wrote;
        else if (wrote == 0)
            error = EIO;
        else if (errno != EINTR)
            error = errno;
    }
    if (error == 0 && fsync(fd) != 0)
        error = errno;
    if (close(fd) != 0 && error == 0)
        error = errno;
    if (error == 0 && rename(temporary.constData(), QFile::encodeName(path).constData()) != 0)
        error = errno;
    if (error != 0) {
        unlink(temporary.constData());
        return qt_error_string(error);
    }
    return {};
}

QByteArray applicationLabel(const QString& application)
{
    return "application=\"" + escaped(application) + '"';
}

void addKnown(std::optional<qint64>& sum, const std::optional<qint64>& figure)
{
    if (figure)
        sum = sum.value_or(0) + *figure;
}

} // namespace

MetricsFile::MetricsFile(QString path, const QString& host) : m_path(std::move(path))
{
    if (!host.isEmpty())
        m_hostLabel = "host=\"" + escaped(host) + '"';
}

void MetricsFile::sample(QByteArray& out, const char* name, const QByteArray& labels,
                         const QByteArray& value) const
{
    out += name;
    QByteArray all = m_hostLabel;
    if (!all.isEmpty() && !labels.isEmpty())
        all += ',';
    all += labels;
    if (!all.isEmpty())
        out += '{' + all + '}';
    out += ' ' + value + '\n';
}

QString MetricsFile::countedApplication(const QString& name)
{
    const QString other = QString::fromLatin1(kOtherApplications);
    const qsizetype named = m_counts.size() - (m_counts.contains(other) ? 1 : 0);
    if (m_counts.contains(name) || named < kMaxApplications - 1)
        return name;
    return other;
}

void MetricsFile::count(const LsofItemList& items, PassCost cost)
{
    m_byProtocolAndState.clear();
    m_byApplication.clear();
    for (const LsofItemPtr& item : items) {
        const qint32 status = item->status();
        const QString application = item->localizedAppName();
        if (status == 1 || status == 3) {
            Counts& counts = m_counts[countedApplication(application)];
            counts.opened += status == 1 || item->isShortLived() ? 1 : 0;
            counts.closed += status == 3 ? 1 : 0;
            counts.shortLived += status == 3 && item->isShortLived() ? 1 : 0;
        }
        if (status == 3)
            continue;
        ++m_byProtocolAndState[{item->protocol(), item->state()}];
        ApplicationFigures& figures = m_byApplication[application];
        ++figures.connections;
        const LsofItem::Traffic traffic = item->traffic();
        addKnown(figures.bytesSent, traffic.bytesSent);
        addKnown(figures.bytesReceived, traffic.bytesReceived);
        addKnown(figures.sendRate, traffic.sendRate);
        addKnown(figures.receiveRate, traffic.receiveRate);
    }
    foldApplications();
    m_cost = cost;
    ++m_passes;
}

// Keeps the applications with the most connections and sums up the rest, so that a machine
// running thousands of differently named programs still gives a bounded file.
void MetricsFile::foldApplications()
{
    if (m_byApplication.size() <= kMaxApplications)
        return;
    QList<std::pair<QString, ApplicationFigures>> ranked;
    for (auto it = m_byApplication.cbegin(); it != m_byApplication.cend(); ++it)
        ranked.append({it.key(), it.value()});
    std::stable_sort(ranked.begin(), ranked.end(), [](const auto& a, const auto& b) {
        return a.second.connections > b.second.connections;
    });
    m_byApplication.clear();
    ApplicationFigures other;
    for (qsizetype i = 0; i < ranked.size(); ++i) {
        if (i < kMaxApplications - 1) {
            m_byApplication.insert(ranked[i].first, ranked[i].second);
            continue;
        }
        const ApplicationFigures& figures = ranked[i].second;
        other.connections += figures.connections;
        addKnown(other.bytesSent, figures.bytesSent);
        addKnown(other.bytesReceived, figures.bytesReceived);
        addKnown(other.sendRate, figures.sendRate);
        addKnown(other.receiveRate, figures.receiveRate);
    }
    m_byApplication.insert(QString::fromLatin1(kOtherApplications), other);
}

void MetricsFile::appendGauges(QByteArray& out) const
{
    family(out, "corvina_connections", "gauge",
           "Open connections by protocol and state (empty for sockets without one, as UDP).");
    for (auto it = m_byProtocolAndState.cbegin(); it != m_byProtocolAndState.cend(); ++it) {
        sample(out, "corvina_connections",
               "protocol=\"" + escaped(it.key().first) + "\",state=\"" + escaped(it.key().second) +
                   '"',
               QByteArray::number(it.value()));
    }
    family(out, "corvina_application_connections", "gauge", "Open connections per application.");
    for (auto it = m_byApplication.cbegin(); it != m_byApplication.cend(); ++it) {
        sample(out, "corvina_application_connections", applicationLabel(it.key()),
               QByteArray::number(it.value().connections));
    }
}

void MetricsFile::appendTraffic(QByteArray& out) const
{
    // The kernel's traffic figures exist only where the built-in collector gave them.
    using Figure = std::optional<qint64> ApplicationFigures::*;
    const struct {
        const char* name;
        const char* help;
        Figure figure;
    } traffic[] = {
        {"corvina_application_sent_bytes",
         "Bytes sent over the application's open TCP connections.", &ApplicationFigures::bytesSent},
        {"corvina_application_received_bytes",
         "Bytes received over the application's open TCP connections.",
         &ApplicationFigures::bytesReceived},
        {"corvina_application_send_rate_bytes_per_second",
         "Bytes per second sent by the application over the last pass.",
         &ApplicationFigures::sendRate},
        {"corvina_application_receive_rate_bytes_per_second",
         "Bytes per second received by the application over the last pass.",
         &ApplicationFigures::receiveRate},
    };
    for (const auto& metric : traffic) {
        const bool known =
            std::any_of(m_byApplication.cbegin(), m_byApplication.cend(),
                        [&](const auto& f) { return (f.*metric.figure).has_value(); });
        if (!known)
            continue;
        family(out, metric.name, "gauge", metric.help);
        for (auto it = m_byApplication.cbegin(); it != m_byApplication.cend(); ++it) {
            if (const std::optional<qint64> value = it.value().*metric.figure)
                sample(out, metric.name, applicationLabel(it.key()), QByteArray::number(*value));
        }
    }
}

void MetricsFile::appendCounters(QByteArray& out) const
{
    using Count = qint64 Counts::*;
    const struct {
        const char* name;
        const char* help;
        Count count;
    } counters[] = {
        {"corvina_new_connections_total", "Connections seen opening, per application.",
         &Counts::opened},
        {"corvina_closed_connections_total", "Connections seen closing, per application.",
         &Counts::closed},
        {"corvina_short_lived_connections_total",
         "Connections opened and closed between two passes, per application.", &Counts::shortLived},
    };
    for (const auto& metric : counters) {
        family(out, metric.name, "counter", metric.help);
        for (auto it = m_counts.cbegin(); it != m_counts.cend(); ++it) {
            sample(out, metric.name, applicationLabel(it.key()),
                   QByteArray::number(it.value().*metric.count));
        }
    }
}

QByteArray MetricsFile::text() const
{
    QByteArray out;
    appendGauges(out);
    appendTraffic(out);
    appendCounters(out);
    family(out, "corvina_pass_cpu_seconds", "gauge",
           "CPU time the last pass took, Corvina's and its collector's.");
    sample(out, "corvina_pass_cpu_seconds", {}, QByteArray::number(m_cost.cpuSeconds, 'g', 9));
    family(out, "corvina_pass_duration_seconds", "gauge", "How long the last pass took.");
    sample(out, "corvina_pass_duration_seconds", {},
           QByteArray::number(m_cost.durationSeconds, 'g', 9));
    family(out, "corvina_passes_total", "counter", "Passes since Corvina started.");
    sample(out, "corvina_passes_total", {}, QByteArray::number(m_passes));
    return out;
}

QString MetricsFile::write() const
{
    const QString problem = replaceFile(m_path, text());
    if (problem.isEmpty())
        return {};
    return u"Could not write the metrics file %1: %2."_s.arg(m_path, problem);
}

QString MetricsFile::writePass(const LsofItemList& items, PassCost cost)
{
    count(items, cost);
    return write();
}

#include "lsoftextwriter.h"

#include <QList>
#include <QString>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

// Widths of the columns that align to their content: at least their titles.
struct Widths {
    qsizetype command = 7, pid = 3, user = 4, fd = 2, device = 6, node = 4;
};

// The FD column's number and its mode letter; lsof puts the letter one place past the title.
std::pair<QStringView, QStringView> splitFd(const QString& fd)
{
    qsizetype digits = 0;
    while (digits < fd.size() && fd[digits].isDigit())
        ++digits;
    return {QStringView(fd).left(digits), QStringView(fd).mid(digits)};
}

Widths widthsOf(const SocketRecords& records)
{
    Widths w;
    for (const SocketRecord& r : records) {
        w.command = std::max(w.command, r.processName.size());
        w.pid = std::max(w.pid, r.processId.size());
        w.user = std::max(w.user, r.user.size());
        w.fd = std::max(w.fd, splitFd(r.fileDescriptor).first.size());
        w.device = std::max(w.device, r.device.size());
        w.node = std::max(w.node, r.protocol.size());
    }
    return w;
}

QString endpoint(const QString& address, const QString& port)
{
    return address + u':' + port;
}

QString nameOf(const SocketRecord& r)
{
    QString name = endpoint(r.localAddress, r.localPort);
    if (!r.remoteAddress.isNull() || !r.remotePort.isNull())
        name += u"->"_s + endpoint(r.remoteAddress, r.remotePort);
    // lsof ends a line without a state with a blank.
    return name + (r.state.isNull() ? u" "_s : u" ("_s + r.state + u')');
}

QString socketLine(const SocketRecord& r, const Widths& w)
{
    const auto [number, mode] = splitFd(r.fileDescriptor);
    return r.processName.leftJustified(w.command) + u' ' + r.processId.rightJustified(w.pid) +
           u' ' + r.user.rightJustified(w.user) + u' ' + number.toString().rightJustified(w.fd) +
           mode.toString().leftJustified(1) + u"  "_s + r.type.leftJustified(4) + u' ' +
           r.device.rightJustified(w.device) + u' ' + r.sizeAndOffset.rightJustified(8) + u' ' +
           r.protocol.rightJustified(w.node) + u' ' + nameOf(r);
}

QString figuresLine(const SocketRecord& r)
{
    QString line;
    if (r.cookie)
        line += u" cookie="_s + QString::number(*r.cookie);
    if (r.bytesSent)
        line += u" sent="_s + QString::number(*r.bytesSent);
    if (r.bytesReceived)
        line += u" received="_s + QString::number(*r.bytesReceived);
    if (r.rtt)
        line += u" rtt="_s + QString::number(*r.rtt, 'f', 3);
    if (line.isEmpty())
        return line;
    return u"#corvina socket "_s + r.processId + u' ' + r.fileDescriptor + u' ' + r.device + line;
}

QString closedLine(const SocketRecord& r)
{
    QString line = u"#corvina closed cookie="_s + QString::number(r.cookie.value_or(0)) +
                   u" type="_s + r.type + u" protocol="_s + r.protocol + u" local="_s +
                   endpoint(r.localAddress, r.localPort);
    const auto add = [&line](QStringView name, const QString& value) {
        if (!value.isNull())
            line += u' ' + name + u'=' + value;
    };
    if (!r.remoteAddress.isNull())
        add(u"remote", endpoint(r.remoteAddress, r.remotePort));
    add(u"state", r.state);
    add(u"sent", r.bytesSent ? QString::number(*r.bytesSent) : QString());
    add(u"received", r.bytesReceived ? QString::number(*r.bytesReceived) : QString());
    add(u"rtt", r.rtt ? QString::number(*r.rtt, 'f', 3) : QString());
    add(u"pid", r.processId);
    add(u"command", r.processName);
    add(u"user", r.user);
    return line;
}

// "ADDRESS:PORT" at its last colon (an IPv6 address is bracketed).
std::pair<QString, QString> splitEndpoint(const QString& text)
{
    const qsizetype colon = text.lastIndexOf(u':');
    if (colon < 0)
        return {text, QString()};
    return {text.left(colon), text.mid(colon + 1)};
}

} // namespace

QByteArray LsofTextWriter::write(const SocketRecords& records, bool traffic,
                                 const SocketRecords& closed)
{
    const Widths w = widthsOf(records);
    QString text = u"COMMAND"_s.leftJustified(w.command) + u' ' + u"PID"_s.rightJustified(w.pid) +
                   u' ' + u"USER"_s.rightJustified(w.user) + u' ' + u"FD"_s.rightJustified(w.fd) +
                   u"   TYPE "_s + u"DEVICE"_s.rightJustified(w.device) + u" SIZE/OFF "_s +
                   u"NODE"_s.rightJustified(w.node) + u" NAME\n"_s;
    for (const SocketRecord& record : records)
        text += socketLine(record, w) + u'\n';
    for (const SocketRecord& record : records) {
        if (const QString line = traffic ? figuresLine(record) : QString(); !line.isEmpty())
            text += line + u'\n';
    }
    for (const SocketRecord& record : closed) {
        if (record.cookie)
            text += closedLine(record) + u'\n';
    }
    return text.toUtf8();
}

bool LsofTextWriter::readClosedLine(QByteArrayView line, SocketRecords& closed)
{
    static constexpr QByteArrayView prefix = "#corvina closed ";
    if (!line.startsWith(prefix))
        return false;
    SocketRecord r;
    for (const QByteArray& word : line.sliced(prefix.size()).toByteArray().split(' ')) {
        const qsizetype equals = word.indexOf('=');
        if (equals <= 0)
            continue;
        const QByteArray name = word.left(equals);
        const QString value = QString::fromUtf8(word.mid(equals + 1));
        bool ok = false;
        if (name == "cookie") {
            const quint64 n = value.toULongLong(&ok);
            r.cookie = ok ? std::optional(n) : std::nullopt;
        } else if (name == "type" || name == "protocol" || name == "state") {
            (name == "type" ? r.type : name == "protocol" ? r.protocol : r.state) = value;
        } else if (name == "local" || name == "remote") {
            const auto [address, port] = splitEndpoint(value);
            (name == "local" ? r.localAddress : r.remoteAddress) = address;
            (name == "local" ? r.localPort : r.remotePort) = port;
        } else if (name == "sent" || name == "received") {
            const qint64 n = value.toLongLong(&ok);
            (name == "sent" ? r.bytesSent : r.bytesReceived) = ok ? std::optional(n) : std::nullopt;
        } else if (name == "rtt") {
            const double ms = value.toDouble(&ok);
            r.rtt = ok ? std::optional(ms) : std::nullopt;
        } else if (name == "pid" || name == "command" || name == "user") {
            (name == "pid" ? r.processId : name == "command" ? r.processName : r.user) = value;
        }
    }
    if (r.cookie && !r.type.isNull() && !r.protocol.isNull() && !r.localAddress.isNull())
        closed.append(r);
    return true;
}

QByteArray LsofTextWriter::socketKey(const SocketRecord& record)
{
    return (record.processId + u' ' + record.fileDescriptor + u' ' + record.device).toUtf8();
}

bool LsofTextWriter::readFiguresLine(QByteArrayView line, FiguresBySocket& figures)
{
    static constexpr QByteArrayView prefix = "#corvina socket ";
    if (!line.startsWith(prefix))
        return line.startsWith("#corvina ");
    const QList<QByteArray> words = line.sliced(prefix.size()).toByteArray().split(' ');
    if (words.size() < 3)
        return true;
    Figures& f = figures[words[0] + ' ' + words[1] + ' ' + words[2]];
    for (qsizetype i = 3; i < words.size(); ++i) {
        const qsizetype equals = words[i].indexOf('=');
        const QByteArray name = words[i].left(equals);
        const QByteArray value = words[i].mid(equals + 1);
        bool ok = false;
        if (name == "cookie") {
            const quint64 n = value.toULongLong(&ok);
            f.cookie = ok ? std::optional(n) : std::nullopt;
        } else if (name == "sent" || name == "received") {
            const qint64 n = value.toLongLong(&ok);
            (name == "sent" ? f.bytesSent : f.bytesReceived) = ok ? std::optional(n) : std::nullopt;
        } else if (name == "rtt") {
            const double ms = value.toDouble(&ok);
            f.rtt = ok ? std::optional(ms) : std::nullopt;
        }
    }
    return true;
}

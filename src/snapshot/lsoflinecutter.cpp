#include "lsoflinecutter.h"

#include "lsofitem.h"
#include "texttable.h"

#include <algorithm>

using namespace Qt::StringLiterals;

// The helpers live in this unnamed namespace, not in the class: the library is built with -fPIC,
// and the compiler inlines into the cuts only what no other definition can replace at link time.
namespace {

using Endpoint = LsofLineCutter::Endpoint;
using Fields = LsofLineCutter::Fields;

bool isDigit(QChar c)
{
    return c >= u'0' && c <= u'9';
}

// The process id: the run of digits that ends under the last character of "PID", extended
// leftwards for as long as digits go. Linux process ids reach seven digits, wider than any
// fixed cut. Without a digit there, the classic five-character cut from the first digit.
std::optional<QStringView> cutProcessId(QStringView line, qsizetype pidTitle)
{
    const qsizetype last = pidTitle + 2;
    if (last < line.size() && isDigit(line[last])) {
        qsizetype first = last;
        while (first > 0 && isDigit(line[first - 1]))
            --first;
        return line.mid(first, last - first + 1);
    }
    const qsizetype start = pidTitle - 2;
    if (start < 0 || start + 5 > line.size())
        return std::nullopt;
    const QStringView cut = line.mid(start, 5);
    for (qsizetype i = 0; i < cut.size(); ++i) {
        if (isDigit(cut[i]))
            return cut.mid(i).trimmed();
    }
    return std::nullopt;
}

// A cut that stays inside the line, or nothing.
bool fits(QStringView line, qsizetype start, qsizetype length)
{
    return start >= 0 && length >= 0 && start + length <= line.size();
}

enum class Side { Local, Remote };

// A cut as text: an empty cut is an empty text, never a null one.
QString cutText(QStringView view)
{
    return view.isEmpty() ? u""_s : view.toString();
}

// One endpoint: only the last ":" separates the port, so "[fe80::1%lo0]:5353" keeps its
// address whole and "*:*" gives "*", "*" and 0.
Endpoint splitEndpoint(QStringView text)
{
    qsizetype colon = text.size() - 1;
    while (colon >= 0 && text[colon] != u':')
        --colon;
    if (colon < 0)
        return {QStringView(), text, true};
    return {text.left(colon), text.mid(colon + 1), true};
}

// NAME is "endpoints" or "endpoints (STATE)"; endpoints are "local" or "local->remote". A text
// that does not split into exactly two parts at its separator is not split at all. (Plain
// loops: this runs for every line of every refresh.)
void splitName(QStringView name, Fields& fields)
{
    qsizetype blank = -1;
    int blanks = 0;
    for (qsizetype i = 0; i < name.size() && blanks < 2; ++i) {
        if (name[i] == u' ') {
            if (blanks++ == 0)
                blank = i;
        }
    }
    QStringView endpoints = name;
    if (blanks == 1) {
        // Linux lsof ends UDP endpoints with a blank: a part too short to be "(STATE)" is no
        // state, and the endpoints are still parsed.
        const QStringView state = name.mid(blank + 1);
        if (state.size() >= 2) {
            fields.state = state.mid(1, state.size() - 2);
            fields.hasState = true;
        }
        endpoints = name.left(blank);
    }
    qsizetype arrow = -1;
    int arrows = 0;
    for (qsizetype i = 0; i + 1 < endpoints.size() && arrows < 2; ++i) {
        if (endpoints[i] == u'-' && endpoints[i + 1] == u'>') {
            if (arrows++ == 0)
                arrow = i;
            ++i;
        }
    }
    if (arrows == 1) {
        fields.remote = splitEndpoint(endpoints.mid(arrow + 2));
        endpoints = endpoints.left(arrow);
    }
    fields.local = splitEndpoint(endpoints);
}

void setEndpoint(const Endpoint& endpoint, LsofItem& item, Side side)
{
    const QString address = cutText(endpoint.address);
    const qint64 number = LsofItem::integerValue(endpoint.port);
    if (side == Side::Local) {
        item.setLocalAddress(address);
        item.setLocalPort(cutText(endpoint.port));
        item.setLocalPortNumber(number);
    } else {
        item.setRemoteAddress(address);
        item.setRemotePort(cutText(endpoint.port));
        item.setRemotePortNumber(number);
    }
}

} // namespace

std::optional<LsofLineCutter> LsofLineCutter::fromHeader(QStringView header)
{
    static constexpr std::array<QStringView, TitleCount> titles = {
        u"PID", u"USER", u"FD", u"TYPE", u"DEVICE", u"SIZE/OFF", u"NODE", u"NAME"};
    Positions positions{};
    for (int t = 0; t < TitleCount; ++t) {
        positions[t] = header.indexOf(titles[t]);
        if (positions[t] < 0)
            return std::nullopt;
    }
    return LsofLineCutter(positions);
}

LsofLineCutter::LsofLineCutter(const Positions& p)
    : m_p(p), m_userStart(p[PidTitle] + 4), m_userLength(p[UserTitle] - p[PidTitle]),
      m_fdStart(p[UserTitle] + 5), m_fdLength(p[FdTitle] - p[UserTitle] - 2),
      m_deviceStart(p[TypeTitle] + 5), m_deviceLength(p[DeviceTitle] - p[TypeTitle] + 1),
      m_sizeStart(p[DeviceTitle] + 7), m_sizeLength(p[SizeOffTitle] - p[DeviceTitle] + 1),
      m_protocolStart(p[SizeOffTitle] + 9), m_protocolLength(p[NodeTitle] - p[SizeOffTitle] - 5)
{
}

std::optional<LsofLineCutter::Fields> LsofLineCutter::cut(QStringView line) const
{
    if (line.size() < m_p[NameTitle])
        return std::nullopt;
    if (!fits(line, 0, m_p[PidTitle]) || !fits(line, m_userStart, m_userLength) ||
        !fits(line, m_fdStart, m_fdLength) || !fits(line, m_p[TypeTitle], 4) ||
        !fits(line, m_deviceStart, m_deviceLength) || !fits(line, m_sizeStart, m_sizeLength) ||
        !fits(line, m_protocolStart, m_protocolLength))
        return std::nullopt;
    const std::optional<QStringView> processId = cutProcessId(line, m_p[PidTitle]);
    if (!processId)
        return std::nullopt;

    Fields fields;
    // Command names keep what precedes their last blank: PID digits that run into the
    // command's cut go.
    fields.processName = line.left(m_p[PidTitle]).trimmed();
    const qsizetype blank = fields.processName.lastIndexOf(u' ');
    if (blank >= 0)
        fields.processName = fields.processName.left(blank).trimmed();
    fields.processId = *processId;
    fields.protocol = line.mid(m_protocolStart, m_protocolLength).trimmed();
    fields.user = line.mid(m_userStart, m_userLength).trimmed();
    fields.type = line.mid(m_p[TypeTitle], 4).trimmed();
    fields.device = line.mid(m_deviceStart, m_deviceLength).trimmed();
    fields.sizeAndOffset = line.mid(m_sizeStart, m_sizeLength).trimmed();
    fields.fileDescriptor = line.mid(m_fdStart, m_fdLength).trimmed();
    splitName(line.mid(m_p[NameTitle]), fields);
    return fields;
}

SocketRecord LsofLineCutter::record(const Fields& fields, TextTable& texts)
{
    SocketRecord record;
    record.processName = texts.text(fields.processName);
    record.processId = texts.text(fields.processId);
    record.user = texts.text(fields.user);
    record.fileDescriptor = texts.text(fields.fileDescriptor);
    record.type = texts.text(fields.type);
    record.device = texts.text(fields.device);
    record.sizeAndOffset = texts.text(fields.sizeAndOffset);
    record.protocol = texts.text(fields.protocol);
    record.localAddress = texts.text(fields.local.address);
    record.localPort = texts.text(fields.local.port);
    if (fields.remote.present) {
        record.remoteAddress = texts.text(fields.remote.address);
        record.remotePort = texts.text(fields.remote.port);
    }
    if (fields.hasState)
        record.state = texts.text(fields.state);
    record.identifier = LsofItem::identifierOf(record);
    return record;
}

void LsofLineCutter::parseConnection(const QString& text, LsofItem& item)
{
    Fields fields;
    splitName(text, fields);
    if (fields.hasState)
        item.setState(cutText(fields.state));
    if (fields.remote.present)
        setEndpoint(fields.remote, item, Side::Remote);
    setEndpoint(fields.local, item, Side::Local);
}

void LsofLineCutter::parseAddressAndPort(const QString& text, LsofItem& item, const QString& side)
{
    const Endpoint endpoint = splitEndpoint(text);
    if (side == u"local" || side == u"remote") {
        setEndpoint(endpoint, item, side == u"local" ? Side::Local : Side::Remote);
        return;
    }
    // Any other side names its keys by the "%@Address", "%@Port", "%@PortNumber" rule.
    item.setValue(QString(side % u"Address"), cutText(endpoint.address));
    item.setValue(QString(side % u"Port"), cutText(endpoint.port));
    item.setValue(QString(side % u"PortNumber"), LsofItem::integerValue(endpoint.port));
}

QString LsofLineCutter::substring(QStringView text, qsizetype start, qsizetype length)
{
    return cutText(text.mid(start, length).trimmed());
}

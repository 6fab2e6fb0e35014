#include "lsoflinecutter.h"

#include "lsofitem.h"
#include "textpool.h"

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

void setEndpoint(const Endpoint& endpoint, LsofItem& item, Side side, TextPool* pool)
{
    const QString address = cutText(endpoint.address);
    const qint64 number = LsofItem::integerValue(endpoint.port);
    if (side == Side::Local) {
        item.setLocalAddress(address);
        item.setLocalPort(cutText(endpoint.port));
        item.setLocalPortNumber(number);
    } else {
        item.setRemoteAddress(address);
        item.setRemotePort(pool ? pool->text(endpoint.port) : cutText(endpoint.port));
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

// Fields are cut by character, as lsof lays them out; a line of plain ASCII (nearly every one) is
// widened byte by byte.
void LsofLineCutter::widenLine(QByteArrayView line, QString& out)
{
    out.resize(line.size());
    char16_t* const to = reinterpret_cast<char16_t*>(out.data());
    uchar high = 0;
    for (qsizetype i = 0; i < line.size(); ++i) {
        const uchar byte = uchar(line[i]);
        high |= byte;
        to[i] = byte;
    }
    if (high & 0x80)
        out = QString::fromUtf8(line);
}

void LsofLineCutter::writeIdentifier(const Fields& f, QString& out)
{
    static const QString null = u"(null)"_s;
    const QStringView remoteAddress = f.remote.present ? f.remote.address : QStringView(null);
    const QStringView remotePort = f.remote.present ? f.remote.port : QStringView(null);
    const std::array<QStringView, 9> parts = {f.processId,     f.type,       f.protocol,
                                              f.local.address, f.local.port, remoteAddress,
                                              remotePort,      f.device,     f.fileDescriptor};
    static constexpr std::array<char16_t, 8> separators = {u'-', u'-', u'-', u':',
                                                           u'-', u':', u'-', u':'};
    qsizetype length = qsizetype(separators.size());
    for (const QStringView part : parts)
        length += part.size();
    out.resize(length);
    QChar* cursor = out.data();
    for (size_t i = 0; i < parts.size(); ++i) {
        cursor = std::copy(parts[i].begin(), parts[i].end(), cursor);
        if (i < separators.size())
            *cursor++ = QChar(separators[i]);
    }
}

// Texts that repeat from line to line come from the pool. The device and the local port are
// nearly unique, and addresses are too many on a busy machine: a copy costs less than finding one
// among tens of thousands of pooled texts, at places the cache no longer holds.
void LsofLineCutter::fillItem(LsofItem& item, const Fields& fields, TextPool& pool)
{
    item.setProcessName(pool.text(fields.processName));
    item.setProcessId(pool.text(fields.processId));
    item.setProtocol(pool.text(fields.protocol));
    item.setUser(pool.text(fields.user));
    item.setType(pool.text(fields.type));
    item.setDevice(cutText(fields.device));
    item.setSizeAndOffset(pool.text(fields.sizeAndOffset));
    item.setFileDescriptor(pool.text(fields.fileDescriptor));
    setEndpoint(fields.local, item, Side::Local, &pool);
    if (fields.remote.present)
        setEndpoint(fields.remote, item, Side::Remote, &pool);
}

void LsofLineCutter::parseConnection(const QString& text, LsofItem& item)
{
    Fields fields;
    splitName(text, fields);
    if (fields.hasState)
        item.setState(cutText(fields.state));
    if (fields.remote.present)
        setEndpoint(fields.remote, item, Side::Remote, nullptr);
    setEndpoint(fields.local, item, Side::Local, nullptr);
}

void LsofLineCutter::parseAddressAndPort(const QString& text, LsofItem& item, const QString& side)
{
    const Endpoint endpoint = splitEndpoint(text);
    if (side == u"local" || side == u"remote") {
        setEndpoint(endpoint, item, side == u"local" ? Side::Local : Side::Remote, nullptr);
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

#include "portservicemap.h"

#include "platform/systemlog.h"

#include <QFile>

#include <netdb.h>
#include <netinet/in.h>

#include <array>

using namespace Qt::StringLiterals;

namespace {

// Only the canonical decimal text of a port names a row: "080" or "*" never match.
std::optional<int> portNumber(QStringView port)
{
    if (port.isEmpty() || port.size() > 5 || (port.size() > 1 && port.front() == u'0'))
        return std::nullopt;
    int value = 0;
    for (const QChar c : port) {
        if (c < u'0' || c > u'9')
            return std::nullopt;
        value = value * 10 + (c.unicode() - u'0');
    }
    if (value > 65535)
        return std::nullopt;
    return value;
}

// Whether `protocol` is `known` but for case. Protocols are short ASCII words; anything else
// takes Qt's Unicode comparison.
bool sameProtocol(QStringView protocol, QStringView known)
{
    if (protocol.size() != known.size())
        return false;
    for (qsizetype i = 0; i < protocol.size(); ++i) {
        char16_t a = protocol[i].unicode(), b = known[i].unicode();
        if (a >= 0x80 || b >= 0x80)
            return protocol.compare(known, Qt::CaseInsensitive) == 0;
        if (a >= u'A' && a <= u'Z')
            a += u'a' - u'A';
        if (b >= u'A' && b <= u'Z')
            b += u'a' - u'A';
        if (a != b)
            return false;
    }
    return true;
}

} // namespace

PortServiceMap::PortServiceMap(const QString& table, Fallback fallback)
    : m_fallback(std::move(fallback))
{
    m_protocols = {u"tcp"_s, u"udp"_s, u"sctp"_s};
    const auto rows = QStringView(table).split(u'\n');
    for (QStringView line : rows) {
        const auto fields = line.split(u'\t');
        if (line.startsWith(u'#') || fields.size() < 2 || fields[1].trimmed().isEmpty())
            continue;
        const qsizetype slash = fields[0].indexOf(u'/');
        const QString protocol = fields[0].mid(slash + 1).trimmed().toString().toLower();
        if (slash > 0 && !protocol.isEmpty() && !m_protocols.contains(protocol))
            m_protocols.append(protocol);
    }
    for (QStringView line : rows) {
        const auto fields = line.split(u'\t');
        if (line.startsWith(u'#') || fields.size() < 2 || fields[1].trimmed().isEmpty())
            continue;
        const qsizetype slash = fields[0].indexOf(u'/');
        const auto key =
            slash > 0 ? rowKey(fields[0].left(slash).trimmed(), fields[0].mid(slash + 1).trimmed())
                      : std::nullopt;
        if (!key)
            continue;
        Service service{fields[1].trimmed().toString(), {}};
        if (fields.size() > 2 && !fields[2].trimmed().isEmpty())
            service.description = fields[2].trimmed().toString();
        m_table.insert(*key, std::move(service));
    }
}

PortServiceMap& PortServiceMap::sharedMap()
{
    static PortServiceMap* map = [] {
        QFile file(u":/corvina/port-services.tsv"_s);
        if (!file.open(QIODevice::ReadOnly))
            SystemLog::write(u"port service table missing, using the system's services only"_s);
        return new PortServiceMap(QString::fromUtf8(file.readAll()));
    }();
    return *map;
}

QList<PortServiceMap::Row> PortServiceMap::systemServices()
{
    QList<Row> rows;
    servent entry{};
    servent* result = nullptr;
    std::array<char, 4096> buffer{};
    setservent(0);
    while (getservent_r(&entry, buffer.data(), buffer.size(), &result) == 0 && result) {
        if (result->s_name && result->s_proto)
            rows.append(Row{ntohs(quint16(result->s_port)), QString::fromLatin1(result->s_proto),
                            Service{QString::fromLocal8Bit(result->s_name), {}}});
    }
    endservent();
    return rows;
}

std::optional<quint32> PortServiceMap::rowKey(QStringView port, QStringView protocol) const
{
    const auto number = portNumber(port);
    if (!number)
        return std::nullopt;
    for (qsizetype i = 0; i < m_protocols.size(); ++i) {
        if (sameProtocol(protocol, m_protocols[i]))
            return quint32(i) << 16 | quint32(*number);
    }
    return std::nullopt;
}

void PortServiceMap::loadFallback() const
{
    std::call_once(m_fallbackLoaded, [this] {
        if (!m_fallback)
            return;
        for (const Row& row : m_fallback()) {
            const auto rowAt = rowKey(QString::number(row.port), row.protocol);
            if (rowAt && !row.service.name.isEmpty() && !m_fallbackRows.contains(*rowAt))
                m_fallbackRows.insert(*rowAt, row.service);
        }
    });
}

const PortServiceMap::Service* PortServiceMap::lookup(QStringView port, QStringView protocol) const
{
    const auto key = rowKey(port, protocol);
    if (!key)
        return nullptr;
    if (const auto it = m_table.constFind(*key); it != m_table.cend())
        return &*it;
    loadFallback();
    if (const auto it = m_fallbackRows.constFind(*key); it != m_fallbackRows.cend())
        return &*it;
    return nullptr;
}

QString PortServiceMap::nameForPort(QStringView port, QStringView protocol) const
{
    const auto service = lookup(port, protocol);
    return service ? service->name : QString();
}

QString PortServiceMap::descriptionForPort(QStringView port, QStringView protocol) const
{
    const auto service = lookup(port, protocol);
    return service ? service->description : QString();
}

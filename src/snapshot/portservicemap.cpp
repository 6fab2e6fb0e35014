#include "portservicemap.h"

#include "platform/systemlog.h"

#include <QFile>

#include <netdb.h>
#include <netinet/in.h>

#include <array>

using namespace Qt::StringLiterals;

namespace {

// Ephemeral ports miss the table and are remembered as misses; past this many answers the
// memory is dropped and rebuilt from the ports in use.
constexpr qsizetype kMaxFallbackAnswers = 8192;

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

std::optional<PortServiceMap::Service> PortServiceMap::systemServiceForPort(int port,
                                                                            const QString& protocol)
{
    servent entry{};
    servent* result = nullptr;
    std::array<char, 1024> buffer{};
    const QByteArray proto = protocol.toLatin1();
    if (getservbyport_r(htons(quint16(port)), proto.constData(), &entry, buffer.data(),
                        buffer.size(), &result) != 0 ||
        result == nullptr || result->s_name == nullptr)
        return std::nullopt;
    return Service{QString::fromLocal8Bit(result->s_name), {}};
}

std::optional<quint32> PortServiceMap::rowKey(QStringView port, QStringView protocol) const
{
    const auto number = portNumber(port);
    if (!number)
        return std::nullopt;
    for (qsizetype i = 0; i < m_protocols.size(); ++i) {
        if (protocol.compare(m_protocols[i], Qt::CaseInsensitive) == 0)
            return quint32(i) << 16 | quint32(*number);
    }
    return std::nullopt;
}

std::optional<PortServiceMap::Service> PortServiceMap::lookup(QStringView port,
                                                              QStringView protocol) const
{
    const auto key = rowKey(port, protocol);
    if (!key)
        return std::nullopt;
    if (const auto it = m_table.constFind(*key); it != m_table.cend())
        return *it;
    if (!m_fallback)
        return std::nullopt;

    {
        QMutexLocker locker(&m_fallbackLock);
        if (const auto it = m_fallbackAnswers.constFind(*key); it != m_fallbackAnswers.cend())
            return *it;
    }
    // Asked outside the lock: the system call may read a file.
    auto answer = m_fallback(int(*key & 0xffff), m_protocols[*key >> 16]);
    QMutexLocker locker(&m_fallbackLock);
    if (m_fallbackAnswers.size() >= kMaxFallbackAnswers)
        m_fallbackAnswers.clear();
    m_fallbackAnswers.insert(*key, answer);
    return answer;
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

#include "lsofgenerator.h"

#include <QStringList>

using namespace Qt::StringLiterals;

namespace {

constexpr int kProcesses = 300;
const QStringList kStates = {u"ESTABLISHED"_s, u"LISTEN"_s,    u"SYN_SENT"_s,  u"CLOSE_WAIT"_s,
                             u"TIME_WAIT"_s,   u"FIN_WAIT1"_s, u"FIN_WAIT2"_s, u"LAST_ACK"_s};
const QStringList kNames = {u"firefox-esr"_s,     u"chromium"_s, u"sshd"_s,
                            u"systemd-resolve"_s, u"postgres"_s, u"nginx"_s,
                            u"avahi-daemon"_s,    u"cupsd"_s,    u"thunderbird"_s,
                            u"signal-desktop"_s,  u"python3"_s,  u"node"_s};

} // namespace

LsofGenerator::LsofGenerator(int lines, double churn, unsigned seed)
    : m_random(seed), m_churn(churn), m_nextFd(kProcesses, 3)
{
    m_sockets.reserve(size_t(lines));
    for (int i = 0; i < lines; ++i)
        m_sockets.push_back(makeSocket());
}

LsofGenerator::Socket LsofGenerator::makeSocket()
{
    Socket s;
    s.process = int(m_random() % kProcesses);
    s.fd = m_nextFd[size_t(s.process)]++;
    s.device = m_nextDevice++;
    s.ipv6 = m_random() % 4 == 0;
    s.udp = m_random() % 5 == 0;
    const int port = 1024 + int(m_random() % 60000);
    const QString address = s.ipv6 ? u"[2001:db8::%1]"_s.arg(m_random() % 500, 0, 16)
                                   : u"10.0.%1.%2"_s.arg(m_random() % 200).arg(m_random() % 250);
    s.local = address + u':' + QString::number(port);
    const unsigned kind = m_random() % 10;
    s.state = kind == 0 ? 1 : kind == 1 ? int(2 + m_random() % 6) : 0;
    if (!s.udp && s.state != 1) {
        s.remote = (s.ipv6 ? u"[2001:db8:1::%1]"_s.arg(m_random() % 4000, 0, 16)
                           : u"198.51.%1.%2"_s.arg(m_random() % 100).arg(m_random() % 250)) +
                   u':' + QString::number(int(m_random() % 3) ? 443 : 80);
    }
    return s;
}

QString LsofGenerator::text() const
{
    // Columns as lsof lays them out: COMMAND left-aligned, PID, USER, DEVICE, SIZE/OFF and NODE
    // right-aligned under their titles, the descriptor's mode letter one past "FD".
    struct Row {
        QString command, pid, user, fd, type, device, node, name;
    };
    std::vector<Row> rows;
    rows.reserve(m_sockets.size());
    qsizetype command = 7, pid = 3, user = 4, fd = 2, device = 6;
    for (const Socket& s : m_sockets) {
        Row row;
        row.command = kNames[s.process % kNames.size()];
        row.pid = QString::number(4000 + s.process * 7);
        row.user = u"user"_s + QString::number(s.process % 3);
        row.fd = QString::number(s.fd) + u'u';
        row.type = s.ipv6 ? u"IPv6"_s : u"IPv4"_s;
        row.device = QString::number(s.device);
        row.node = s.udp ? u"UDP"_s : u"TCP"_s;
        row.name = s.local;
        if (!s.remote.isEmpty())
            row.name += u"->"_s + s.remote;
        row.name += s.udp ? u" "_s : QString(u" ("_s + kStates[s.state] + u')');
        command = std::max(command, row.command.size());
        pid = std::max(pid, row.pid.size());
        user = std::max(user, row.user.size());
        fd = std::max(fd, row.fd.size() - 1);
        device = std::max(device, row.device.size());
        rows.push_back(std::move(row));
    }
    QString out;
    out.reserve(qsizetype(rows.size()) * 120);
    out += u"COMMAND"_s.leftJustified(command) + u' ' + u"PID"_s.rightJustified(pid) + u' ' +
           u"USER"_s.rightJustified(user) + u' ' + u"FD"_s.rightJustified(fd) + u"   TYPE "_s +
           u"DEVICE"_s.rightJustified(device) + u" SIZE/OFF NODE NAME\n"_s;
    for (const Row& row : rows) {
        out += row.command.leftJustified(command) + u' ' + row.pid.rightJustified(pid) + u' ' +
               row.user.rightJustified(user) + u' ' + row.fd.rightJustified(fd + 1) + u"  "_s +
               row.type + u' ' + row.device.rightJustified(device) + u"      0t0 "_s +
               row.node.rightJustified(4) + u' ' + row.name + u'\n';
    }
    return out;
}

void LsofGenerator::next()
{
    const int changes = std::max(1, int(double(m_sockets.size()) * m_churn));
    for (int i = 0; i < changes; ++i) {
        const size_t at = m_random() % m_sockets.size();
        switch (m_random() % 3) {
        case 0:
            if (!m_sockets[at].udp && m_sockets[at].state != 1)
                m_sockets[at].state = int(m_random() % kStates.size());
            break;
        case 1:
            m_sockets.erase(m_sockets.begin() + std::ptrdiff_t(at));
            m_sockets.push_back(makeSocket());
            break;
        default:
            m_sockets.insert(m_sockets.begin() + std::ptrdiff_t(at), makeSocket());
            m_sockets.pop_back();
            break;
        }
    }
}

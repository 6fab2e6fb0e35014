// The built-in collector against lsof on this machine: every field of every row, for processes
// of the test's own holding every kind of socket lsof lists.

#include "collector/nativecollector.h"
#include "helperchild.h"
#include "livesockets.h"
#include "snapshot/lsoflinecutter.h"

#include <gtest/gtest.h>

#include <QFileInfo>
#include <QProcess>

#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

QString lsofProgram()
{
    for (const QString& path : {u"/usr/sbin/lsof"_s, u"/usr/bin/lsof"_s}) {
        if (QFileInfo(path).isExecutable())
            return path;
    }
    return {};
}

QString pidList(const QList<pid_t>& pids)
{
    QStringList texts;
    for (const pid_t pid : pids)
        texts << QString::number(pid);
    return texts.join(u',');
}

// A row's fields in the record's order, remote side and state as "-" when absent.
QStringList fieldsOf(const SocketRecord& r)
{
    const auto orAbsent = [](const QString& text) { return text.isNull() ? u"-"_s : text; };
    return {r.processName,
            r.processId,
            r.user,
            r.fileDescriptor,
            r.type,
            r.device,
            r.sizeAndOffset,
            r.protocol,
            r.localAddress,
            r.localPort,
            orAbsent(r.remoteAddress),
            orAbsent(r.remotePort),
            orAbsent(r.state)};
}

QStringList fieldsOf(const LsofLineCutter::Fields& f)
{
    const auto text = [](QStringView view) { return view.toString(); };
    return {text(f.processName),
            text(f.processId),
            text(f.user),
            text(f.fileDescriptor),
            text(f.type),
            text(f.device),
            text(f.sizeAndOffset),
            text(f.protocol),
            text(f.local.address),
            text(f.local.port),
            f.remote.present ? text(f.remote.address) : u"-"_s,
            f.remote.present ? text(f.remote.port) : u"-"_s,
            f.hasState ? text(f.state) : u"-"_s};
}

// lsof's rows for these processes, cut as the application cuts them.
std::optional<QList<QStringList>> lsofRows(const QString& program, const QList<pid_t>& pids)
{
    QProcess lsof;
    lsof.start(program,
               {u"-a"_s, u"-p"_s, pidList(pids), u"-i"_s, u"-n"_s, u"-P"_s, u"+c"_s, u"0"_s});
    if (!lsof.waitForFinished(30000))
        return std::nullopt;
    const QStringList lines = QString::fromUtf8(lsof.readAllStandardOutput()).split(u'\n');
    const std::optional<LsofLineCutter> cutter = LsofLineCutter::fromHeader(lines.value(0));
    if (!cutter)
        return std::nullopt;
    QList<QStringList> rows;
    for (qsizetype i = 1; i < lines.size(); ++i) {
        if (const auto fields = cutter->cut(lines[i]))
            rows.append(fieldsOf(*fields));
    }
    return rows;
}

} // namespace

TEST(LsofDifferential, everyFieldOfEveryRowIsWhatLsofPrints)
{
    const QString lsof = lsofProgram();
    if (lsof.isEmpty())
        GTEST_SKIP() << "lsof is not installed (looked for /usr/sbin/lsof and /usr/bin/lsof): "
                        "nothing to compare the built-in collector with";

    LiveSockets sockets;
    const int listener4 = sockets.listener("127.0.0.1");
    const int listener6 = sockets.listener("::");
    sockets.connectedPair(listener4, "127.0.0.1");
    sockets.connectedPair(listener6, "::1");
    sockets.connectedPair(listener6, "127.0.0.1"); // IPv4-mapped on an IPv6 socket
    const auto [waiting, closedPeer] = sockets.connectedPair(listener4, "127.0.0.1");
    sockets.close(closedPeer); // CLOSE_WAIT
    const auto [finishing, peer] = sockets.connectedPair(listener4, "127.0.0.1");
    shutdown(finishing, SHUT_WR); // FIN_WAIT2 against CLOSE_WAIT
    ASSERT_TRUE(LiveSockets::waitForState(finishing, TCP_FIN_WAIT2));
    ASSERT_TRUE(LiveSockets::waitForState(waiting, TCP_CLOSE_WAIT));
    const int full = sockets.listener("127.0.0.1", 0);
    // One connection fills the queue; the next ones stay in SYN_SENT.
    ASSERT_TRUE(LiveSockets::waitForState(sockets.stalledConnect(full), TCP_ESTABLISHED));
    sockets.stalledConnect(full);
    sockets.stalledConnect(full);
    sockets.datagram("0.0.0.0");
    sockets.datagram("127.0.0.1", "127.0.0.1", 53);
    sockets.datagram("127.0.0.1", "127.0.0.1", 0); // connected to port 0
    sockets.datagram("::1");
    sockets.datagram("::", "::1", 53);
    sockets.datagram("::ffff:127.0.0.1");
    sockets.datagram("127.0.0.1", nullptr, 0, IPPROTO_UDPLITE);
    sockets.adopt(socket(AF_INET, SOCK_STREAM, 0)); // neither bound nor listed by lsof
    // A listener shared with a forked child; a connection passed to another over SCM_RIGHTS;
    // names with a blank, and with non-ASCII letters (this one the widest on the machine).
    const int shared = sockets.listener("127.0.0.1");
    HelperChild sharer({shared});
    HelperChild receiver;
    const auto [passed, passedPeer] = sockets.connectedPair(listener6, "::1");
    ASSERT_GE(receiver.receive(passed), 0);
    sockets.close(passed);
    HelperChild blank;
    blank.rename("my server");
    blank.listen();
    HelperChild foreign;
    foreign.rename("\xc3\xa9  \xc3\xbc  x  y  z");
    foreign.listen();

    const QList<pid_t> pids = {getpid(), sharer.pid(), receiver.pid(), blank.pid(), foreign.pid()};
    const SocketRecords ours = recordsOf(NativeCollector().collect(), pids);
    const std::optional<QList<QStringList>> theirs = lsofRows(lsof, pids);
    ASSERT_TRUE(theirs) << "lsof did not answer";

    ASSERT_EQ(ours.size(), theirs->size());
    ASSERT_GE(ours.size(), 25);
    for (qsizetype i = 0; i < ours.size(); ++i)
        EXPECT_EQ(fieldsOf(ours[i]), theirs->at(i)) << "row " << i;
}

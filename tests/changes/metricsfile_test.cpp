#include "changes/metricsfile.h"
#include "snapshot/lsofdata.h"
#include "snapshot/lsoffetcher.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <sys/resource.h>
#include <thread>

namespace {

// The captured sequence, its process given an id above any pid_max, so that no process of this
// machine lends the items its name.
QString replayed(const char* name)
{
    return lsofData(name)
        .replace(u"COMMAND         PID"_s, u"COMMAND            PID"_s)
        .replace(u"echo\\x20server 6362"_s, u"echo\\x20server 4999999"_s);
}

QByteArray contents(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

LsofItemPtr connection(const QString& application, int n)
{
    LsofItemPtr item = LsofItem::create();
    item->setProcessName(application);
    item->setProcessId(u"4999999"_s);
    item->setProtocol(u"TCP"_s);
    item->setLocalAddress(u"10.0.0.1"_s);
    item->setLocalPort(QString::number(40000 + n));
    item->setRemoteAddress(u"198.51.%1.%2"_s.arg(n / 250).arg(n % 250));
    item->setRemotePort(QString::number(1000 + n));
    item->setState(u"ESTABLISHED"_s);
    item->setStatus(1);
    return item;
}

// One sample line of the text format: a name, labels, a value.
const QRegularExpression kSample(
    uR"(^([a-z_]+)(\{([a-z_]+="(?:[^"\\\n]|\\[\\"n])*")(,[a-z_]+="(?:[^"\\\n]|\\[\\"n])*")*\})? -?[0-9.e+]+$)"_s);

class MetricsFileTest : public ::testing::Test {
protected:
    LsofItemList pass(const char* name) { return detectPass(m_fetcher, replayed(name)); }

    QTemporaryDir m_dir;
    QString m_path = m_dir.filePath(u"corvina.prom"_s);
    LsofFetcher m_fetcher;
};

} // namespace

TEST_F(MetricsFileTest, TwoReplayedSnapshots)
{
    MetricsFile metrics(m_path);
    ASSERT_EQ(metrics.writePass(pass("sequence-1.txt"), {0.5, 2}), u""_s);
    ASSERT_EQ(metrics.writePass(pass("sequence-2.txt"), {0.25, 1.5}), u""_s);
    EXPECT_EQ(contents(m_path),
              "# HELP corvina_connections Open connections by protocol and state (empty for "
              "sockets without one, as UDP).\n"
              "# TYPE corvina_connections gauge\n"
              "corvina_connections{protocol=\"TCP\",state=\"CLOSE_WAIT\"} 1\n"
              "corvina_connections{protocol=\"TCP\",state=\"ESTABLISHED\"} 2\n"
              "corvina_connections{protocol=\"TCP\",state=\"FIN_WAIT2\"} 1\n"
              "corvina_connections{protocol=\"TCP\",state=\"LISTEN\"} 1\n"
              "corvina_connections{protocol=\"UDP\",state=\"\"} 2\n"
              "# HELP corvina_application_connections Open connections per application.\n"
              "# TYPE corvina_application_connections gauge\n"
              "corvina_application_connections{application=\"echo server\"} 7\n"
              "# HELP corvina_new_connections_total Connections seen opening, per application.\n"
              "# TYPE corvina_new_connections_total counter\n"
              "corvina_new_connections_total{application=\"echo server\"} 2\n"
              "# HELP corvina_closed_connections_total Connections seen closing, per "
              "application.\n"
              "# TYPE corvina_closed_connections_total counter\n"
              "corvina_closed_connections_total{application=\"echo server\"} 0\n"
              "# HELP corvina_short_lived_connections_total Connections opened and closed "
              "between two passes, per application.\n"
              "# TYPE corvina_short_lived_connections_total counter\n"
              "corvina_short_lived_connections_total{application=\"echo server\"} 0\n"
              "# HELP corvina_pass_cpu_seconds CPU time the last pass took, Corvina's and its "
              "collector's.\n"
              "# TYPE corvina_pass_cpu_seconds gauge\n"
              "corvina_pass_cpu_seconds 0.25\n"
              "# HELP corvina_pass_duration_seconds How long the last pass took.\n"
              "# TYPE corvina_pass_duration_seconds gauge\n"
              "corvina_pass_duration_seconds 1.5\n"
              "# HELP corvina_passes_total Passes since Corvina started.\n"
              "# TYPE corvina_passes_total counter\n"
              "corvina_passes_total 2\n");

    // The second pair closes; one survivor tells its traffic, a short-lived one came and went.
    LsofItemList third = pass("sequence-3.txt");
    for (const LsofItemPtr& item : third) {
        if (item->fileDescriptor() == u"4u"_s)
            item->setTraffic({100, 50, std::nullopt, std::nullopt, 0.5});
        if (item->fileDescriptor() == u"5u"_s)
            item->setTraffic({7, std::nullopt, 3, std::nullopt, std::nullopt});
    }
    LsofItemPtr brief = connection(u"echo server"_s, 1);
    brief->setStatus(3);
    brief->setShortLived(true);
    third << brief;
    ASSERT_EQ(metrics.writePass(third, {}), u""_s);
    const QByteArray text = contents(m_path);
    for (const char* line :
         {"corvina_application_connections{application=\"echo server\"} 5\n",
          "corvina_application_sent_bytes{application=\"echo server\"} 107\n",
          "corvina_application_received_bytes{application=\"echo server\"} 50\n",
          "corvina_application_send_rate_bytes_per_second{application=\"echo server\"} 3\n",
          "corvina_new_connections_total{application=\"echo server\"} 3\n",
          "corvina_closed_connections_total{application=\"echo server\"} 3\n",
          "corvina_short_lived_connections_total{application=\"echo server\"} 1\n",
          "corvina_passes_total 3\n"})
        EXPECT_TRUE(text.contains(line)) << line;
    // A state no open connection is in any more is gone, not shown as 0.
    EXPECT_FALSE(text.contains("state=\"ESTABLISHED\""));
    // No figure was told of received rates, so that family is left out, not shown as 0.
    EXPECT_FALSE(text.contains("receive_rate"));
}

TEST_F(MetricsFileTest, LabelsStayBoundedAndEscaped)
{
    const int applications = MetricsFile::kMaxApplications + 50;
    LsofItemList items;
    for (int n = 0; n < applications; ++n) {
        // The first applications hold the most connections and keep their own series.
        for (int copy = 0; copy < (n < 10 ? 3 : 1); ++copy)
            items << connection(u"app%1"_s.arg(n, 3, 10, QChar(u'0')), n * 3 + copy);
    }
    items << connection(u"we\"ird\\\nname"_s, 999);

    MetricsFile metrics(m_path);
    metrics.count(items, {});
    const QByteArray text = metrics.text();
    QSet<QString> labelNames;
    QSet<QString> applicationsSeen;
    qint64 connections = 0;
    qint64 opened = 0;
    static const QRegularExpression label(uR"re(([a-z_]+)="((?:[^"\\]|\\.)*)")re"_s);
    for (const QByteArray& line : text.split('\n')) {
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        const QString sample = QString::fromUtf8(line);
        ASSERT_TRUE(kSample.match(sample).hasMatch()) << line.constData();
        for (auto it = label.globalMatch(sample); it.hasNext();) {
            const QRegularExpressionMatch match = it.next();
            labelNames << match.captured(1);
            if (match.captured(1) == u"application"_s)
                applicationsSeen << match.captured(2);
        }
        const qint64 value = sample.section(u' ', -1).toLongLong();
        connections += sample.startsWith(u"corvina_application_connections{"_s) ? value : 0;
        opened += sample.startsWith(u"corvina_new_connections_total{"_s) ? value : 0;
    }
    EXPECT_EQ(labelNames, (QSet<QString>{u"protocol"_s, u"state"_s, u"application"_s}));
    EXPECT_EQ(applicationsSeen.size(), MetricsFile::kMaxApplications);
    EXPECT_TRUE(applicationsSeen.contains(u"app000"_s));
    EXPECT_TRUE(applicationsSeen.contains(u"(other)"_s));
    // Folding loses no connection: the series still add up to every one.
    EXPECT_EQ(connections, items.size());
    EXPECT_EQ(opened, items.size());
    const QByteArray allEstablished =
        "corvina_connections{protocol=\"TCP\",state=\"ESTABLISHED\"} " +
        QByteArray::number(items.size()) + '\n';
    EXPECT_TRUE(text.contains(allEstablished));

    // A watched machine's name goes on every series, with the same escapes.
    MetricsFile few(m_path, u"web\"1"_s);
    few.count({connection(u"we\"ird\\\nname"_s, 1)}, {});
    const QByteArray fewText = few.text();
    EXPECT_TRUE(fewText.contains("corvina_application_connections{host=\"web\\\"1\","
                                 "application=\"we\\\"ird\\\\\\nname\"} 1\n"));
    EXPECT_TRUE(fewText.contains("corvina_passes_total{host=\"web\\\"1\"} 1\n"));
}

TEST_F(MetricsFileTest, AReaderNeverSeesAPartialFile)
{
    const LsofItemList small = pass("sequence-1.txt");
    LsofItemList large;
    for (int n = 0; n < 500; ++n)
        large << connection(u"app%1"_s.arg(n % 40), n);

    MetricsFile metrics(m_path);
    ASSERT_EQ(metrics.writePass(small, {}), u""_s);
    std::atomic<bool> writing = true;
    std::atomic<int> reads = 0;
    std::atomic<int> partial = 0;
    std::thread reader([&] {
        while (writing) {
            const QByteArray text = contents(m_path);
            const QList<QByteArray> lines = text.split('\n');
            const bool complete = text.endsWith('\n') && lines.size() >= 2 &&
                                  lines.at(lines.size() - 2).startsWith("corvina_passes_total ");
            bool parses = true;
            for (const QByteArray& line : lines) {
                if (!line.isEmpty() && !line.startsWith('#'))
                    parses = parses && kSample.match(QString::fromUtf8(line)).hasMatch();
            }
            partial += complete && parses ? 0 : 1;
            ++reads;
        }
    });
    for (int i = 0; i < 300; ++i)
        ASSERT_EQ(metrics.writePass(i % 2 ? small : large, {}), u""_s);
    writing = false;
    reader.join();
    EXPECT_GT(reads, 0);
    EXPECT_EQ(partial, 0);
}

TEST_F(MetricsFileTest, AFailedWriteSaysWhyAndKeepsThePreviousFile)
{
    MetricsFile metrics(m_path);
    ASSERT_EQ(metrics.writePass(pass("sequence-1.txt"), {}), u""_s);
    const QByteArray before = contents(m_path);

    // A full disk, as root can have it too: writes past the file-size limit fail.
    rlimit saved{};
    getrlimit(RLIMIT_FSIZE, &saved);
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit tiny = saved;
    tiny.rlim_cur = 64;
    setrlimit(RLIMIT_FSIZE, &tiny);
    const QString problem = metrics.writePass(pass("sequence-2.txt"), {});
    setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, oldHandler);
    EXPECT_TRUE(problem.startsWith(u"Could not write the metrics file "_s + m_path + u": "_s))
        << problem.toStdString();
    EXPECT_EQ(contents(m_path), before);
    EXPECT_EQ(QDir(m_dir.path()).entryList(QDir::Files | QDir::Hidden),
              QStringList{u"corvina.prom"_s});

    MetricsFile nowhere(m_dir.filePath(u"missing/corvina.prom"_s));
    EXPECT_TRUE(nowhere.writePass({}, {}).startsWith(u"Could not write the metrics file "_s));
}

TEST_F(MetricsFileTest, PromtoolAcceptsTheFile)
{
    const QString promtool = QStandardPaths::findExecutable(u"promtool"_s);
    if (promtool.isEmpty())
        GTEST_SKIP() << "promtool is not installed (Debian package prometheus)";
    MetricsFile metrics(m_path, u"web1"_s);
    metrics.count(pass("sequence-1.txt"), {});
    LsofItemList items = pass("sequence-2.txt");
    items.first()->setTraffic({1, 2, 3, 4, 5.5});
    items << connection(u"we\"ird\\\nname"_s, 7);
    ASSERT_EQ(metrics.writePass(items, {0.01, 0.02}), u""_s);

    QProcess check;
    check.setStandardInputFile(m_path);
    check.start(promtool, {u"check"_s, u"metrics"_s});
    ASSERT_TRUE(check.waitForFinished(30000));
    EXPECT_EQ(check.exitCode(), 0)
        << check.readAllStandardOutput().constData() << check.readAllStandardError().constData();
}

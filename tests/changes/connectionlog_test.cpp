#include "reportingtest.h"

#include <QDir>
#include <QFileInfo>

#include <sys/resource.h>

namespace {

const QString kTitles = u"Time,Timestamp,Action,Process Id,Localized App Name,Type,Protocol,"
                        u"Local Address,Local Port,Local Port Name,Remote Address,"
                        u"Remote Hostname,Remote Port,Remote Port Name,State,Process Path"_s;

class ConnectionLogTest : public ReportingTest {
protected:
    void SetUp() override
    {
        m_now = QDateTime(QDate(2026, 11, 22), QTime(23, 59, 30));
        const auto clock = [this] { return m_now; };
        m_prefs.setClock(clock);
        m_log.setClock(clock);
        m_store.setBool(PrefKeys::LogConnectionStateChangeToCSVFiles, true);
    }

    QStringList rows(const QString& name) const
    {
        QFile file(folder() + u'/' + name);
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(file.readAll()).split(u'\n');
    }
    // A pass over these connections, on descriptors 3, 4 and so on.
    void pass(const QStringList& names)
    {
        QStringList lines;
        for (int fd = 3; fd < names.size() + 3; ++fd)
            lines << tcpLine(fd, names[fd - 3]);
        ReportingTest::pass(lines);
    }

    QDateTime m_now;
};

// Everything after the time column, which follows the user's locale and time zone.
QString afterTime(const QString& row, const QDateTime& time)
{
    return row.mid(row.indexOf(u',' + QString::number(time.toSecsSinceEpoch())) + 1);
}

} // namespace

TEST_F(ConnectionLogTest, NewFileStartsWithTitlesAndRowsCarryThePassTime)
{
    pass({u"*:22 (LISTEN)"_s});
    pass({u"*:22 (LISTEN)"_s, u"10.0.0.2:50000->198.51.100.7:443 (ESTABLISHED)"_s});
    const QStringList lines = rows(u"CorvinaLog-20261122.csv"_s);
    ASSERT_EQ(lines.size(), 3) << lines.join(u'|').toStdString();
    EXPECT_EQ(lines[0], kTitles);
    EXPECT_EQ(afterTime(lines[1], m_now),
              QString(QString::number(m_now.toSecsSinceEpoch()) +
                      u",New,42,app,IPv4,TCP,10.0.0.2,50000,,198.51.100.7,,443,https,"
                      u"ESTABLISHED,app"_s));
    EXPECT_TRUE(lines[1].startsWith(u'"')) << "the long date holds a comma and is quoted";
    EXPECT_EQ(lines[2], u""_s);
}

TEST_F(ConnectionLogTest, ClosedConnectionsAreStateChangesAndMidnightStartsANewFile)
{
    pass({u"*:22 (LISTEN)"_s});
    pass({u"*:22 (LISTEN)"_s, u"10.0.0.2:50000->198.51.100.7:443 (ESTABLISHED)"_s});
    m_now = m_now.addSecs(60);
    pass({u"*:22 (LISTEN)"_s});

    const QStringList before = rows(u"CorvinaLog-20261122.csv"_s);
    const QStringList after = rows(u"CorvinaLog-20261123.csv"_s);
    ASSERT_EQ(before.size(), 3);
    ASSERT_EQ(after.size(), 3) << after.join(u'|').toStdString();
    EXPECT_EQ(after[0], kTitles);
    EXPECT_TRUE(
        afterTime(after[1], m_now)
            .startsWith(QString::number(m_now.toSecsSinceEpoch()) + u",State Changed,42,"_s));
    EXPECT_TRUE(after[1].endsWith(u",443,https,Closed,app"_s));

    // With the split off, every pass goes to one file.
    m_store.setBool(PrefKeys::CSVFilesLogSplitEveryDay, false);
    pass({u"*:22 (LISTEN)"_s, u"*:23 (LISTEN)"_s});
    EXPECT_EQ(rows(u"CorvinaLog.csv"_s).size(), 3);
}

TEST_F(ConnectionLogTest, ReopeningAppendsWithoutASecondTitleRow)
{
    pass({u"*:22 (LISTEN)"_s});
    pass({u"*:22 (LISTEN)"_s, u"*:23 (LISTEN)"_s});
    m_log.close();
    ConnectionLog restarted(m_prefs);
    restarted.setClock([this] { return m_now; });
    ChangeReporter reporter(m_prefs, restarted);
    m_fetcher.setReporter(&reporter);
    pass({u"*:22 (LISTEN)"_s, u"*:23 (LISTEN)"_s, u"*:24 (LISTEN)"_s});
    const QStringList lines = rows(u"CorvinaLog-20261122.csv"_s);
    ASSERT_EQ(lines.size(), 4);
    EXPECT_EQ(lines.count(kTitles), 1);
}

TEST_F(ConnectionLogTest, AnUnwritableFolderSaysWhyOnceAndLoggingResumes)
{
    pass({u"*:22 (LISTEN)"_s});
    // A file where the folder should be: nothing can be created there.
    QFile blocker(folder());
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    pass({u"*:22 (LISTEN)"_s, u"*:23 (LISTEN)"_s});
    pass({u"*:22 (LISTEN)"_s, u"*:23 (LISTEN)"_s, u"*:26 (LISTEN)"_s});
    pass({u"*:22 (LISTEN)"_s, u"*:23 (LISTEN)"_s, u"*:24 (LISTEN)"_s});
    EXPECT_EQ(m_logged.size(), 1) << "each pass tries again, quietly: "
                                  << m_logged.join(u'|').toStdString();

    QFile::remove(folder());
    pass({u"*:22 (LISTEN)"_s, u"*:23 (LISTEN)"_s, u"*:24 (LISTEN)"_s, u"*:25 (LISTEN)"_s});
    const QStringList lines = rows(u"CorvinaLog-20261122.csv"_s);
    ASSERT_EQ(lines.size(), 3) << "the folder came back with the next writer";
    EXPECT_TRUE(lines[1].contains(u",25,"_s));
}

namespace {

// Lowers this process's file-size limit while it lives. Writes past it fail with EFBIG (the CSV
// writer ignores SIGXFSZ), as they would on a full file system.
class FileSizeLimit final {
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        getrlimit(RLIMIT_FSIZE, &m_original);
        rlimit lowered = m_original;
        lowered.rlim_cur = bytes;
        m_set = setrlimit(RLIMIT_FSIZE, &lowered) == 0;
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &m_original); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    bool isSet() const { return m_set; }

private:
    rlimit m_original{};
    bool m_set = false;
};

} // namespace

// The disk fills up in the middle of a row: the rows before stay as they were, the user is
// told once however many passes fail, and when space comes back the next row starts on a line
// of its own instead of running on from the cut one.
TEST_F(ConnectionLogTest, AFullDiskSaysSoOnceKeepsEarlierRowsAndLoggingResumes)
{
    pass({u"*:22 (LISTEN)"_s});
    pass({u"*:22 (LISTEN)"_s, u"*:23 (LISTEN)"_s});
    const QString file = folder() + u"/CorvinaLog-20261122.csv"_s;
    QFile before(file);
    ASSERT_TRUE(before.open(QIODevice::ReadOnly));
    const QByteArray written = before.readAll();
    before.close();
    ASSERT_TRUE(written.contains(",23,"));
    {
        FileSizeLimit limit(rlim_t(written.size() + 12));
        ASSERT_TRUE(limit.isSet());
        pass({u"*:22 (LISTEN)"_s, u"*:23 (LISTEN)"_s, u"*:24 (LISTEN)"_s});
        pass({u"*:22 (LISTEN)"_s, u"*:23 (LISTEN)"_s, u"*:24 (LISTEN)"_s, u"*:25 (LISTEN)"_s});
        pass({u"*:22 (LISTEN)"_s, u"*:23 (LISTEN)"_s, u"*:24 (LISTEN)"_s, u"*:25 (LISTEN)"_s,
              u"*:26 (LISTEN)"_s});
    }
    EXPECT_EQ(m_logged.size(), 1) << m_logged.join(u'|').toStdString();
    pass({u"*:22 (LISTEN)"_s, u"*:23 (LISTEN)"_s, u"*:24 (LISTEN)"_s, u"*:25 (LISTEN)"_s,
          u"*:26 (LISTEN)"_s, u"*:27 (LISTEN)"_s});

    QFile after(file);
    ASSERT_TRUE(after.open(QIODevice::ReadOnly));
    const QByteArray now = after.readAll();
    EXPECT_TRUE(now.startsWith(written));
    const QList<QByteArray> lines = now.mid(written.size()).split('\n');
    ASSERT_EQ(lines.size(), 3) << now.mid(written.size()).toStdString();
    EXPECT_EQ(lines[0].size(), 12) << "the cut row keeps what fitted";
    EXPECT_TRUE(lines[1].contains(",27,") && lines[1].endsWith(",LISTEN,app"))
        << lines[1].toStdString();
    EXPECT_TRUE(lines[1].startsWith('"')) << "the new row stands on its own line";
    EXPECT_EQ(lines[2], QByteArray());
}

// A log folder deleted while its file is open is made again only when the next file is begun
// (here at midnight), not at every pass; from then on rows are written again, under a new
// title row.
TEST_F(ConnectionLogTest, ADeletedFolderComesBackWithTheNextFile)
{
    pass({u"*:22 (LISTEN)"_s});
    pass({u"*:22 (LISTEN)"_s, u"*:23 (LISTEN)"_s});
    ASSERT_TRUE(QDir(folder()).removeRecursively());
    pass({u"*:22 (LISTEN)"_s, u"*:23 (LISTEN)"_s, u"*:24 (LISTEN)"_s});
    EXPECT_FALSE(QFileInfo::exists(folder()));
    EXPECT_TRUE(m_logged.isEmpty()) << m_logged.join(u'|').toStdString();

    m_now = m_now.addSecs(60);
    pass({u"*:22 (LISTEN)"_s, u"*:23 (LISTEN)"_s, u"*:24 (LISTEN)"_s, u"*:25 (LISTEN)"_s});
    const QStringList lines = rows(u"CorvinaLog-20261123.csv"_s);
    ASSERT_EQ(lines.size(), 3) << lines.join(u'|').toStdString();
    EXPECT_EQ(lines[0], kTitles);
    EXPECT_TRUE(lines[1].contains(u",25,"_s));
}

#include "reportingtest.h"

namespace {

class ReporterTest : public ReportingTest {
protected:
    void SetUp() override
    {
        m_store.setBool(PrefKeys::LogNewConnectionToSystemConsole, true);
        m_store.setBool(PrefKeys::LogConnectionStateChangeToSystemConsole, true);
        m_store.setBool(PrefKeys::LogNewConnectionToCSVFiles, false);
        m_store.setBool(PrefKeys::NotifyConnectionsStateChange, true);
        m_reporter.setJournalWriter({}); // the system log, whether or not journald runs here
        m_reporter.setAnnouncementSink(
            [this](const ChangeReporter::Announcement& a) { m_announced << a; });
    }

    QList<ChangeReporter::Announcement> m_announced;
};

QString tcp(const QString& command, int fd, const QString& name)
{
    return tcpLine(fd, name, command);
}

} // namespace

TEST_F(ReporterTest, ConsoleMessagesForNewAndChangedConnections)
{
    pass({tcp(u"app"_s, 3, u"10.0.0.2:51000->198.51.100.7:443 (ESTABLISHED)"_s)});
    pass({tcp(u"app"_s, 3, u"10.0.0.2:51000->198.51.100.7:443 (ESTABLISHED)"_s),
          tcp(u"foo"_s, 4, u"*:8080 (LISTEN)"_s),
          lsofLine(u"dns"_s, 42, u"5u"_s, u"IPv6"_s, 9005, u"UDP"_s, u"[fe80::1%lo0]:5353 "_s)});
    ASSERT_EQ(m_logged.size(), 1);
    // A "%" reaches the log as written, never as a conversion.
    EXPECT_EQ(m_logged[0], u"New Connections\nfoo *:8080\ndns [fe80::1%lo0]:5353"_s);

    m_logged.clear();
    pass({tcp(u"foo"_s, 4, u"*:8080 (LISTEN)"_s)});
    ASSERT_EQ(m_logged.size(), 1);
    EXPECT_EQ(m_logged[0], u"State Changed\n"
                           u"app 10.0.0.2:51000 => 198.51.100.7:443  ESTABLISHED => Closed\n"
                           u"dns [fe80::1%lo0]:5353  (null)"_s.replace(u"(null)"_s, u"Closed"_s));
}

// Where the journal takes a pass's connections, the system log does not get the message too;
// where it refuses them, the system log does.
TEST_F(ReporterTest, TheJournalTakesTheConsoleMessagesWhereItRuns)
{
    QList<LsofItemList> journaled;
    bool journalTakes = true;
    m_reporter.setJournalWriter([&](const LsofItemList& items) {
        journaled << items;
        return journalTakes;
    });
    pass({tcp(u"app"_s, 3, u"10.0.0.2:51000->198.51.100.7:443 (ESTABLISHED)"_s)});
    pass({tcp(u"app"_s, 3, u"10.0.0.2:51000->198.51.100.7:443 (ESTABLISHED)"_s),
          tcp(u"foo"_s, 4, u"*:8080 (LISTEN)"_s)});
    ASSERT_EQ(journaled.size(), 1);
    ASSERT_EQ(journaled[0].size(), 1);
    EXPECT_EQ(journaled[0][0]->processName(), u"foo"_s);
    EXPECT_TRUE(m_logged.isEmpty());

    journalTakes = false;
    pass({tcp(u"foo"_s, 4, u"*:8080 (LISTEN)"_s)});
    ASSERT_EQ(journaled.size(), 2);
    ASSERT_EQ(m_logged.size(), 1);
    EXPECT_TRUE(m_logged[0].startsWith(u"State Changed\n"_s));
}

TEST_F(ReporterTest, StateChangeWithoutAnOldStateShowsOnlyTheNewOne)
{
    pass({tcp(u"app"_s, 3, u"10.0.0.2:5000"_s)});
    pass({tcp(u"app"_s, 3, u"10.0.0.2:5000"_s)});
    m_logged.clear();
    // Same identifier, now with a state: the earlier pass had none, so nothing changed.
    pass({tcp(u"app"_s, 3, u"10.0.0.2:5000 (LISTEN)"_s)});
    EXPECT_TRUE(m_logged.isEmpty());

    pass({});
    LsofItem item;
    item.setProcessName(u"app"_s);
    item.setLocalAddress(u"10.0.0.2"_s);
    item.setLocalPort(u"5000"_s);
    item.setState(u"CLOSE_WAIT"_s);
    EXPECT_EQ(ChangeReporter::changedItemsMessage({std::shared_ptr<LsofItem>(&item, [](auto*) {})}),
              u"State Changed\napp 10.0.0.2:5000  CLOSE_WAIT"_s);
}

TEST_F(ReporterTest, AnnouncementsGroupByApplicationAndSkipListeners)
{
    pass({tcp(u"idle"_s, 2, u"*:22 (LISTEN)"_s)});
    QStringList lines = {tcp(u"idle"_s, 2, u"*:22 (LISTEN)"_s),
                         tcp(u"srv"_s, 3, u"*:80 (LISTEN)"_s)};
    for (int fd = 10; fd < 22; ++fd)
        lines << tcp(u"browser"_s, fd,
                     u"10.0.0.2:%1->198.51.100.7:443 (ESTABLISHED)"_s.arg(50000 + fd));
    pass(lines);

    ASSERT_EQ(m_announced.size(), 1);
    EXPECT_EQ(m_announced[0].title, u"New Connections"_s);
    // Twelve connections to one endpoint: one application line, one endpoint line.
    EXPECT_EQ(m_announced[0].lines, (QStringList{u"browser"_s, u"  198.51.100.7:443"_s}));
    // The console still lists every new connection, listeners included.
    ASSERT_EQ(m_logged.size(), 1);
    EXPECT_EQ(m_logged[0].count(u'\n'), 13);
}

TEST_F(ReporterTest, ExcludedApplicationsAreLoggedButNotAnnounced)
{
    m_prefs.addExcludeAppForGrowNotification(u"browser"_s);
    pass({tcp(u"idle"_s, 2, u"*:22 (LISTEN)"_s)});
    pass({tcp(u"idle"_s, 2, u"*:22 (LISTEN)"_s),
          tcp(u"browser"_s, 3, u"10.0.0.2:50000->198.51.100.7:443 (ESTABLISHED)"_s)});
    EXPECT_TRUE(m_announced.isEmpty());
    EXPECT_EQ(m_logged.size(), 1);

    m_store.setBool(PrefKeys::NotifyNewConnections, false);
    m_prefs.removeExcludeAppForGrowlNotification(u"browser"_s);
    pass({tcp(u"idle"_s, 2, u"*:22 (LISTEN)"_s),
          tcp(u"browser"_s, 3, u"10.0.0.2:50000->198.51.100.7:443 (ESTABLISHED)"_s),
          tcp(u"browser"_s, 4, u"10.0.0.2:50001->198.51.100.7:443 (ESTABLISHED)"_s)});
    EXPECT_TRUE(m_announced.isEmpty()) << "announcing new connections is switched off";
}

TEST_F(ReporterTest, ChangedAnnouncementCarriesEndpointAndStates)
{
    pass({tcp(u"app"_s, 3, u"10.0.0.2:51000->198.51.100.7:443 (SYN_SENT)"_s),
          tcp(u"app"_s, 4, u"*:8080 (LISTEN)"_s)});
    pass({tcp(u"app"_s, 3, u"10.0.0.2:51000->198.51.100.7:443 (ESTABLISHED)"_s)});
    ASSERT_EQ(m_announced.size(), 1);
    EXPECT_EQ(m_announced[0].title, u"State Changed"_s);
    EXPECT_EQ(m_announced[0].lines,
              (QStringList{u"app"_s, u"  198.51.100.7:443\n    SYN_SENT => ESTABLISHED"_s,
                           u"  Closed"_s}))
        << "the listener was seen once: it has no old state";
}

// A connection that opened and closed between two passes is logged as both: "New" (in the
// state the kernel last gave it) and then "State Changed" to "Closed", in the console and CSV.
TEST_F(ReporterTest, AShortLivedConnectionIsLoggedNewThenClosed)
{
    m_store.setBool(PrefKeys::LogNewConnectionToCSVFiles, true);
    m_store.setBool(PrefKeys::LogConnectionStateChangeToCSVFiles, true);
    const QString listener = tcp(u"app"_s, 3, u"*:8080 (LISTEN)"_s);
    pass({listener});
    m_logged.clear();
    pass({listener, u"#corvina closed cookie=9 type=IPv4 protocol=TCP local=10.0.0.2:51000 "
                    u"remote=198.51.100.7:443 state=CLOSE sent=1002 pid=42 command=curl"_s});

    EXPECT_EQ(m_logged, (QStringList{
                            u"New Connections\ncurl 10.0.0.2:51000 => 198.51.100.7:443"_s,
                            u"State Changed\ncurl 10.0.0.2:51000 => 198.51.100.7:443  "
                            u"CLOSE => Closed"_s,
                        }));
    QFile log(m_prefs.logFolder() + u'/' + m_log.currentFileName());
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    const QStringList rows = QString::fromUtf8(log.readAll()).split(u'\n', Qt::SkipEmptyParts);
    ASSERT_EQ(rows.size(), 3);
    EXPECT_TRUE(rows[1].contains(u",New,42,curl,IPv4,TCP,10.0.0.2,51000,"_s));
    EXPECT_TRUE(rows[1].contains(u",CLOSE,"_s));
    EXPECT_TRUE(rows[2].contains(u",State Changed,42,curl,"_s));
    EXPECT_TRUE(rows[2].contains(u",Closed,"_s));
}

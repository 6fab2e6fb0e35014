#include "platform/journal.h"
#include "platform/systemlog.h"
#include "snapshot/lsofdata.h"
#include "snapshot/lsoffetcher.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QThread>
#include <QUuid>

#include <gtest/gtest.h>

namespace {

class JournalTest : public ::testing::Test {
protected:
    LsofItemList pass(const QStringList& lines)
    {
        return detectPass(m_fetcher, kLsofHeader + u'\n' + lines.join(u'\n'));
    }

    static LsofItemPtr find(const LsofItemList& items, const QString& fd)
    {
        for (const LsofItemPtr& item : items) {
            if (item->fileDescriptor() == fd)
                return item;
        }
        ADD_FAILURE() << "no item with descriptor " << fd.toStdString();
        return LsofItem::create();
    }

    LsofFetcher m_fetcher;
};

const QString kPeer = u"10.0.0.2:51000->198.51.100.7:443"_s;

// A field of journalctl's JSON: a string, or an array of bytes for values it cannot print.
QByteArray jsonField(const QJsonObject& entry, const QString& name)
{
    const QJsonValue value = entry.value(name);
    if (value.isString())
        return value.toString().toUtf8();
    QByteArray bytes;
    for (const QJsonValue& byte : value.toArray())
        bytes.append(char(byte.toInt()));
    return bytes;
}

} // namespace

TEST_F(JournalTest, EntriesCarryEachConnectionsFields)
{
    pass({tcpLine(3, kPeer + u" (ESTABLISHED)"_s), tcpLine(5, kPeer + u"0 (ESTABLISHED)"_s)});
    const LsofItemList second =
        pass({tcpLine(3, kPeer + u" (ESTABLISHED)"_s), tcpLine(4, u"*:8080 (LISTEN)"_s),
              tcpLine(5, kPeer + u"0 (CLOSE_WAIT)"_s)});

    const LsofItemPtr listener = find(second, u"4u"_s);
    EXPECT_EQ(Journal::eventOf(*listener), Journal::Event::New);
    EXPECT_EQ(
        Journal::entry(listener, Journal::Event::New, u"web1"_s),
        (QByteArrayList{"MESSAGE=New Connections\napp *:8080",
                        "MESSAGE_ID=e4d0c5b690db4a538d7f37cdc66c4240", "PRIORITY=6",
                        "SYSLOG_IDENTIFIER=Corvina", "CORVINA_EVENT=new", "CORVINA_HOST=web1",
                        "CORVINA_PROTOCOL=TCP", "CORVINA_LOCAL_ADDRESS=*",
                        "CORVINA_LOCAL_PORT=8080", "CORVINA_STATE=LISTEN", "CORVINA_PID=42",
                        "CORVINA_PROCESS=app", "CORVINA_APPLICATION=app", "CORVINA_USER=root"}));

    const LsofItemPtr changed = find(second, u"5u"_s);
    EXPECT_EQ(Journal::eventOf(*changed), Journal::Event::Changed);
    const QByteArrayList changedEntry = Journal::entry(changed, Journal::Event::Changed, u"h"_s);
    EXPECT_EQ(changedEntry.first(), "MESSAGE=State Changed\napp 10.0.0.2:51000 => "
                                    "198.51.100.7:4430  ESTABLISHED => CLOSE_WAIT");
    EXPECT_TRUE(changedEntry.contains("MESSAGE_ID=1c4bf520e6bc4393be74582c34515ec9"));
    EXPECT_TRUE(changedEntry.contains("CORVINA_REMOTE_PORT=4430"));
    EXPECT_TRUE(changedEntry.contains("CORVINA_OLD_STATE=ESTABLISHED"));
    EXPECT_FALSE(Journal::eventOf(*find(second, u"3u"_s)));

    const LsofItemList third = pass({tcpLine(4, u"*:8080 (LISTEN)"_s)});
    const LsofItemPtr closed = find(third, u"3u"_s);
    EXPECT_EQ(Journal::eventOf(*closed), Journal::Event::Closed);
    closed->setTraffic({1000, 2000, 10, 20, 0.25});
    const QByteArrayList closedEntry = Journal::entry(closed, Journal::Event::Closed, u"h"_s);
    for (const char* field : {"MESSAGE_ID=0c248a9692c542e9bfcfc0e173fc1c30", "CORVINA_EVENT=closed",
                              "CORVINA_STATE=Closed", "CORVINA_OLD_STATE=ESTABLISHED",
                              "CORVINA_REMOTE_ADDRESS=198.51.100.7", "CORVINA_BYTES_SENT=1000",
                              "CORVINA_BYTES_RECEIVED=2000", "CORVINA_SEND_RATE=10",
                              "CORVINA_RECEIVE_RATE=20", "CORVINA_RTT_MS=0.25"})
        EXPECT_TRUE(closedEntry.contains(field)) << field;

    // journald drops a field whose name is not upper-case letters, digits and "_".
    static const QRegularExpression name(u"^[A-Z0-9][A-Z0-9_]*="_s);
    const QByteArrayList all =
        Journal::entry(listener, Journal::Event::New, u"h"_s) + changedEntry + closedEntry;
    for (const QByteArray& field : all)
        EXPECT_TRUE(name.match(QString::fromUtf8(field)).hasMatch()) << field.constData();
}

TEST_F(JournalTest, WithoutAJournalThePassGoesToSyslogWhole)
{
    if (Journal::isAvailable())
        GTEST_SKIP() << "journald runs here, so syslog is never used";
    const LsofItemList items = pass({tcpLine(3, kPeer + u" (ESTABLISHED)"_s)});
    EXPECT_FALSE(Journal::writeItems(items, u"h"_s));

    QStringList logged;
    SystemLog::setEcho([&](const QString& message) { logged << message; });
    Journal::writePass(items, u"New Connections\nthe pass"_s, u"h"_s);
    SystemLog::setEcho({});
    EXPECT_EQ(logged, QStringList{u"New Connections\nthe pass"_s});
}

TEST_F(JournalTest, AnEntryReadsBackWhole)
{
    if (!Journal::isAvailable())
        GTEST_SKIP() << "journald is not running here (no /run/systemd/journal/socket)";
    if (QStandardPaths::findExecutable(u"journalctl"_s).isEmpty())
        GTEST_SKIP() << "journalctl is not installed";
    const LsofItemList items = pass({tcpLine(3, kPeer + u" (ESTABLISHED)"_s)});
    const QByteArray token = QUuid::createUuid().toByteArray(QUuid::Id128);
    QByteArrayList fields = Journal::entry(items.first(), Journal::Event::New, u"web1"_s);
    fields << "CORVINA_TEST_TOKEN=" + token;
    ASSERT_TRUE(Journal::send(fields));

    QJsonObject found;
    for (int attempt = 0; attempt < 50 && found.isEmpty(); ++attempt) {
        QProcess journalctl;
        journalctl.start(u"journalctl"_s, {u"-o"_s, u"json"_s, u"--no-pager"_s,
                                           u"CORVINA_TEST_TOKEN="_s + QString::fromUtf8(token)});
        journalctl.waitForFinished(10000);
        const QByteArray line = journalctl.readAllStandardOutput().trimmed();
        if (!line.isEmpty())
            found = QJsonDocument::fromJson(line.split('\n').first()).object();
        else
            QThread::msleep(100);
    }
    ASSERT_FALSE(found.isEmpty()) << "the entry never showed in journalctl";
    EXPECT_EQ(jsonField(found, u"MESSAGE"_s),
              "New Connections\napp 10.0.0.2:51000 => 198.51.100.7:443");
    EXPECT_EQ(jsonField(found, u"MESSAGE_ID"_s), Journal::kNewMessageId);
    EXPECT_EQ(jsonField(found, u"CORVINA_EVENT"_s), "new");
    EXPECT_EQ(jsonField(found, u"CORVINA_REMOTE_ADDRESS"_s), "198.51.100.7");
    EXPECT_EQ(jsonField(found, u"CORVINA_HOST"_s), "web1");
    EXPECT_EQ(jsonField(found, u"SYSLOG_IDENTIFIER"_s), "Corvina");
}

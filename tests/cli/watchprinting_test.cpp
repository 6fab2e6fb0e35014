#include "changeeventprinter.h"
#include "changes/connectionlog.h"
#include "watchoptions.h"
#include "watchreporter.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QTimeZone>

#include <gtest/gtest.h>

namespace {

// Stands for the application's reporter (system log, CSV log): says what it wants, counts what
// it was given.
class SettingsReporter final : public ChangeReporting {
public:
    bool wantsNew = false;
    bool wantsChanged = false;
    int newPasses = 0;
    int changedPasses = 0;
    bool needsNotifyOrLogNewConnections() const override { return wantsNew; }
    bool needsNotifyOrLogConnectionStateChange() const override { return wantsChanged; }
    void notifyNewItems(const LsofItemList&) override { ++newPasses; }
    void notifyChangedItems(const LsofItemList&) override { ++changedPasses; }
};

// The three captured snapshots watched in a row, printed in `format`: the second brings two
// new connections and two state changes, the third closes the two new ones.
QStringList watchCaptures(ItemPrinter::Format format, const QDateTime& clock,
                          SettingsReporter* settings = nullptr)
{
    QString text;
    QTextStream out(&text);
    ChangeEventPrinter printer(out, format, u"bench-7"_s);
    printer.setClock([clock] { return clock; });
    WatchReporter reporter(printer, settings);
    LsofFetcher fetcher;
    fetcher.setReporter(&reporter);
    for (const char* name : {"sequence-1.txt", "sequence-2.txt", "sequence-3.txt"}) {
        QFile file(QStringLiteral(CORVINA_TEST_DATA "/") + QString::fromUtf8(name));
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        LsofItemList items = fetcher.parseLsofOutput(file.readAll());
        fetcher.processLsofItemsChanges(items);
    }
    return text.split(u'\n', Qt::SkipEmptyParts);
}

const QDateTime kClock(QDate(2024, 3, 5), QTime(14, 7, 9), QTimeZone(2 * 3600));

} // namespace

// Every change is printed whatever the settings want; the settings' reporter is asked only
// for what it wants.
TEST(WatchPrinting, TableShowsEveryChangeOnALineOfItsOwn)
{
    SettingsReporter settings;
    const QStringList lines = watchCaptures(ItemPrinter::Format::Table, kClock, &settings);
    const QStringList expected = {
        u"new      "_s, u"6362  TCP  127.0.0.1:49680  127.0.0.1:36993  ESTABLISHED"_s,
        u"new      "_s, u"6362  TCP  127.0.0.1:36993  127.0.0.1:49680  ESTABLISHED"_s,
        u"changed  "_s, u"6362  TCP  127.0.0.1:49664  127.0.0.1:36993  ESTABLISHED → CLOSE_WAIT"_s,
        u"changed  "_s, u"6362  TCP  127.0.0.1:36993  127.0.0.1:49664  ESTABLISHED → FIN_WAIT2"_s,
        u"closed   "_s, u"6362  TCP  127.0.0.1:49680  127.0.0.1:36993  Closed"_s,
        u"closed   "_s, u"6362  TCP  127.0.0.1:36993  127.0.0.1:49680  Closed"_s,
    };
    ASSERT_EQ(lines.size(), expected.size() / 2) << lines.join(u'\n').toStdString();
    for (qsizetype i = 0; i < lines.size(); ++i) {
        EXPECT_TRUE(lines[i].startsWith(u"2024-03-05 14:07:09  "_s + expected[2 * i]))
            << lines[i].toStdString();
        EXPECT_TRUE(lines[i].endsWith(expected[2 * i + 1])) << lines[i].toStdString();
    }
    EXPECT_EQ(settings.newPasses + settings.changedPasses, 0);

    settings.wantsChanged = true;
    EXPECT_EQ(watchCaptures(ItemPrinter::Format::Table, kClock, &settings), lines);
    EXPECT_EQ(settings.newPasses, 0);
    EXPECT_EQ(settings.changedPasses, 3) << "once a pass";
}

TEST(WatchPrinting, CsvHasTheConnectionLogsColumnsAndHeaderOnce)
{
    const QStringList lines = watchCaptures(ItemPrinter::Format::Csv, kClock);
    ASSERT_EQ(lines.size(), 7);
    EXPECT_EQ(lines[0], ConnectionLog::titles().join(u','));
    EXPECT_EQ(ConnectionLog::titles().size(), 16);
    // The long date holds commas, so it is quoted as the log quotes it.
    const QString time = u"\""_s + QLocale().toString(kClock, QLocale::LongFormat) + u"\","_s +
                         QString::number(kClock.toSecsSinceEpoch()) + u',';
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const QString action = i <= 2 ? u"New,"_s : u"State Changed,"_s;
        EXPECT_TRUE(lines[i].startsWith(time + action + u"6362,"_s)) << lines[i].toStdString();
    }
    EXPECT_TRUE(lines[6].contains(u",127.0.0.1,36993,"_s));
    EXPECT_TRUE(lines[6].contains(u",Closed,"_s));
}

TEST(WatchPrinting, JsonObjectsCarryEventTimeHostAndEveryItemKey)
{
    const QStringList lines = watchCaptures(ItemPrinter::Format::Json, kClock);
    ASSERT_EQ(lines.size(), 6);
    LsofItem sample;
    const QStringList itemKeys =
        QJsonDocument::fromJson(ItemPrinter::jsonObject(sample, std::nullopt).toUtf8())
            .object()
            .keys();
    QStringList events;
    for (const QString& line : lines) {
        QJsonParseError error;
        const QJsonObject object = QJsonDocument::fromJson(line.toUtf8(), &error).object();
        ASSERT_EQ(error.error, QJsonParseError::NoError) << line.toStdString();
        events << object[u"event"_s].toString();
        EXPECT_EQ(object[u"time"_s].toString(), u"2024-03-05T14:07:09+02:00"_s);
        EXPECT_EQ(object[u"host"_s].toString(), u"bench-7"_s);
        EXPECT_EQ(object.size(), itemKeys.size() + 3);
        for (const QString& key : itemKeys)
            EXPECT_TRUE(object.contains(key)) << key.toStdString();
    }
    EXPECT_EQ(events, QStringList({u"new"_s, u"new"_s, u"changed"_s, u"changed"_s, u"closed"_s,
                                   u"closed"_s}));

    const QDateTime utc(QDate(2024, 3, 5), QTime(12, 7, 9), QTimeZone::utc());
    const QJsonObject first =
        QJsonDocument::fromJson(watchCaptures(ItemPrinter::Format::Json, utc).first().toUtf8())
            .object();
    EXPECT_EQ(first[u"time"_s].toString(), u"2024-03-05T12:07:09+00:00"_s);
}

TEST(WatchOptions, ReadsEachOptionAndRefusesTheRest)
{
    WatchOptions options;
    EXPECT_FALSE(WatchOptions::parse({u"--interval"_s, u"5"_s, u"--format"_s, u"json"_s,
                                      u"--helper-socket"_s, u"/tmp/h.sock"_s, u"--no-resolve"_s},
                                     options));
    EXPECT_EQ(options.interval, 5);
    EXPECT_EQ(options.format, ItemPrinter::Format::Json);
    EXPECT_EQ(options.helperSocket, u"/tmp/h.sock"_s);
    EXPECT_TRUE(options.noResolve);
    EXPECT_FALSE(WatchOptions::parse({u"--source"_s, u"lsof"_s, u"--host"_s, u"db1"_s, u"--top"_s,
                                      u"3"_s, u"--metrics-file"_s, u"/tmp/c.prom"_s},
                                     options));
    EXPECT_EQ(options.source, u"lsof"_s);
    EXPECT_EQ(options.host, u"db1"_s);
    EXPECT_EQ(options.top, 3);
    EXPECT_EQ(options.metricsFile, u"/tmp/c.prom"_s);

    for (const QStringList& bad : {QStringList{u"--interval"_s, u"0"_s},
                                   {u"--interval"_s, u"86401"_s},
                                   {u"--format"_s, u"xml"_s},
                                   {u"--format"_s},
                                   {u"--keyword"_s, u"x"_s},
                                   {u"--source"_s, u"ss"_s},
                                   {u"--top"_s, u"x"_s},
                                   {u"extra"_s}}) {
        WatchOptions ignored;
        const auto error = WatchOptions::parse(bad, ignored);
        ASSERT_TRUE(error) << bad.join(u' ').toStdString();
        EXPECT_FALSE(error->contains(u'\n'));
    }
}

// The busiest open connections, most bytes a second first; those with no known rate and the
// closed ones are left out.
TEST(WatchPrinting, TopTalkersAreTheBusiestOpenConnections)
{
    LsofFetcher fetcher;
    QFile file(QStringLiteral(CORVINA_TEST_DATA "/sequence-1.txt"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    LsofItemList items = fetcher.parseLsofOutput(file.readAll());
    ASSERT_GE(items.size(), 4);
    items[0]->setTraffic({100, 100, 10, 0, {}});
    items[1]->setTraffic({100, 100, 500, 700, {}});
    items[2]->setTraffic({100, 100, 5000, 0, {}});
    items[2]->setStatus(3);
    items[3]->setTraffic({100, 100, 0, 90, {}});

    QString text;
    QTextStream out(&text);
    ChangeEventPrinter json(out, ItemPrinter::Format::Json, u"bench-7"_s);
    json.setClock([] { return kClock; });
    json.printTop(items, 2);
    const QStringList lines = text.split(u'\n', Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), 2);
    const QJsonObject first = QJsonDocument::fromJson(lines[0].toUtf8()).object();
    EXPECT_EQ(first[u"event"_s].toString(), u"top"_s);
    EXPECT_EQ(first[u"rank"_s].toInt(), 1);
    EXPECT_EQ(first[u"identifier"_s].toString(), items[1]->identifier());
    EXPECT_EQ(QJsonDocument::fromJson(lines[1].toUtf8()).object()[u"identifier"_s].toString(),
              items[3]->identifier());

    text.clear();
    ChangeEventPrinter table(out, ItemPrinter::Format::Table, u"bench-7"_s);
    table.printTop(items, 10);
    EXPECT_EQ(text.count(u'\n'), 3);
    EXPECT_TRUE(text.contains(u"send 500 B/s"_s)) << text.toStdString();
}

// A short-lived connection is one "new" and one "closed" event of the same pass, both marked.
TEST(WatchPrinting, AShortLivedConnectionIsNewAndClosedInOnePass)
{
    QString text;
    QTextStream out(&text);
    ChangeEventPrinter printer(out, ItemPrinter::Format::Json, u"bench-7"_s);
    WatchReporter reporter(printer, nullptr);
    LsofFetcher fetcher;
    fetcher.setReporter(&reporter);
    QFile file(QStringLiteral(CORVINA_TEST_DATA "/sequence-1.txt"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray snapshot = file.readAll();
    for (const QByteArray& closed :
         {QByteArray(), QByteArray("#corvina closed cookie=7 type=IPv4 protocol=UDP "
                                   "local=10.0.0.2:40000 remote=192.0.2.53:53 pid=42\n")}) {
        LsofItemList items = fetcher.parseLsofOutput(QByteArray(snapshot + closed));
        fetcher.processLsofItemsChanges(items);
    }
    QStringList events;
    for (const QString& line : text.split(u'\n', Qt::SkipEmptyParts)) {
        const QJsonObject object = QJsonDocument::fromJson(line.toUtf8()).object();
        events << object[u"event"_s].toString() + u' ' + object[u"remotePort"_s].toString();
        EXPECT_TRUE(object[u"shortLived"_s].toBool());
    }
    EXPECT_EQ(events, (QStringList{u"new 53"_s, u"closed 53"_s}));
}

#include "lsofdata.h"
#include "snapshot/lsoffetcher.h"

#include <gtest/gtest.h>

namespace {

// Every field of an item, "|" between them, "-" for an absent one.
QString fields(const LsofItem& item)
{
    const auto text = [](const QString& field) { return field.isNull() ? u"-"_s : field; };
    const auto number = [](std::optional<qint64> n) { return n ? QString::number(*n) : u"-"_s; };
    return QStringList{item.processName(),
                       item.processId(),
                       QString::number(item.PID()),
                       item.user(),
                       item.fileDescriptor(),
                       item.type(),
                       item.device(),
                       item.sizeAndOffset(),
                       item.protocol(),
                       text(item.localAddress()),
                       text(item.localPort()),
                       number(item.localPortNumber()),
                       text(item.remoteAddress()),
                       text(item.remotePort()),
                       number(item.remotePortNumber()),
                       text(item.state())}
        .join(u'|');
}

QStringList fields(const LsofItemList& items)
{
    QStringList all;
    for (const LsofItemPtr& item : items)
        all << fields(*item);
    return all;
}

} // namespace

TEST(LsofParser, CutsEveryFieldOfRealOutput)
{
    LsofFetcher fetcher;
    const LsofItemList items = fetcher.parseLsofResult(lsofData("sequence-1.txt"));
    // Linux lsof ends UDP endpoints with a blank: no state, endpoints still parsed.
    EXPECT_EQ(fields(items),
              (QStringList{u"echo server|6362|6362|root|3u|IPv4|11790|0t0|TCP|"
                           u"127.0.0.1|36993|36993|-|-|-|LISTEN"_s,
                           u"echo server|6362|6362|root|4u|IPv4|11791|0t0|TCP|"
                           u"127.0.0.1|49664|49664|127.0.0.1|36993|36993|ESTABLISHED"_s,
                           u"echo server|6362|6362|root|5u|IPv4|11792|0t0|TCP|"
                           u"127.0.0.1|36993|36993|127.0.0.1|49664|49664|ESTABLISHED"_s,
                           u"echo server|6362|6362|root|6u|IPv4|11793|0t0|UDP|"
                           u"127.0.0.1|33956|33956|-|-|-|-"_s,
                           u"echo server|6362|6362|root|7u|IPv6|11794|0t0|UDP|"
                           u"[::1]|58847|58847|-|-|-|-"_s}));
    EXPECT_EQ(items[1]->identifier(), u"6362-IPv4-TCP-127.0.0.1:49664-127.0.0.1:36993-11791:4u"_s);
    // Without a remote side the identifier prints the null text, and device and descriptor
    // still tell sockets of one process apart.
    EXPECT_EQ(items[3]->identifier(), u"6362-IPv4-UDP-127.0.0.1:33956-(null):(null)-11793:6u"_s);
}

TEST(LsofParser, WideColumnsKeepWholeProcessIdsUsersAndDescriptors)
{
    LsofFetcher fetcher;
    const LsofItemList items = fetcher.parseLsofResult(lsofData("wide.txt"));
    ASSERT_EQ(items.size(), 5);
    for (const LsofItemPtr& item : items) {
        EXPECT_EQ(item->processName(), u"python3"_s);
        // Five characters would have cut this to 45674: another process, perhaps.
        EXPECT_EQ(item->processId(), u"2345674"_s);
        EXPECT_EQ(item->PID(), 2345674);
        EXPECT_EQ(item->user(), u"corvinatestlonguser"_s);
    }
    EXPECT_EQ(items[0]->fileDescriptor(), u"1105u"_s);
    EXPECT_EQ(items[4]->fileDescriptor(), u"1109u"_s);
    EXPECT_EQ(items[4]->localAddress(), u"[fe80::fc:ff:fe00:1]"_s);
}

TEST(LsofParser, CraftedEndpointsNamesAndShortLines)
{
    LsofFetcher fetcher;
    const LsofItemList items = fetcher.parseLsofResult(lsofData("crafted.txt"));
    // The line cut short is skipped. Only the last ":" separates the port: the scope and
    // brackets stay in the address. Two blanks in NAME: no state; the whole text is endpoints.
    EXPECT_EQ(fields(items),
              (QStringList{u"mDNSRespo|4711|4711|nobody|9u|IPv6|40123|0t0|UDP|"
                           u"[fe80::1%lo0]|5353|5353|-|-|-|-"_s,
                           u"weird%|4712|4712|nobody|10u|IPv4|40124|0t0|TCP|*|*|0|-|-|-|-"_s,
                           u"sshd|4713|4713|root|11u|IPv4|40125|0t0|TCP|10.0.0.2|22|22|"
                           u"198.51.100.7|51000 (ESTABLISHED) extra|51000|-"_s}));
}

TEST(LsofParser, ConnectionTextForms)
{
    struct Case {
        QString name, local, localPort, remote, remotePort, state;
    };
    const Case cases[] = {
        {u"10.0.0.2:51000->198.51.100.7:443 (ESTABLISHED)"_s, u"10.0.0.2"_s, u"51000"_s,
         u"198.51.100.7"_s, u"443"_s, u"ESTABLISHED"_s},
        {u"*:*"_s, u"*"_s, u"*"_s, {}, {}, {}},
        {u"[::1]:631 (LISTEN)"_s, u"[::1]"_s, u"631"_s, {}, {}, u"LISTEN"_s},
        {u"8080"_s, u""_s, u"8080"_s, {}, {}, {}},
        {u"a->b->c"_s, u""_s, u"a->b->c"_s, {}, {}, {}},
        {u""_s, u""_s, u""_s, {}, {}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name.toStdString());
        LsofItem item;
        LsofFetcher::parseConnection(c.name, item);
        EXPECT_EQ(item.localAddress(), c.local);
        EXPECT_EQ(item.localPort(), c.localPort);
        EXPECT_EQ(item.remoteAddress(), c.remote);
        EXPECT_EQ(item.remotePort(), c.remotePort);
        EXPECT_EQ(item.state(), c.state);
        EXPECT_EQ(item.state().isNull(), c.state.isNull());
    }
}

TEST(LsofParser, RefusesWhatItCannotCutWithoutTouchingTheSnapshot)
{
    LsofFetcher fetcher;
    LsofItemList first = fetcher.parseLsofResult(lsofData("sequence-1.txt"));
    fetcher.processLsofItemsChanges(first);
    const LsofItemList kept = fetcher.previousSnapshot();

    const QString garbage[] = {
        QString(),
        u""_s,
        u"no header here\nat all\n"_s,
        u"COMMAND PID USER FD TYPE DEVICE SIZE/OFF NODE\nmissing the NAME title\n"_s,
        // Titles in an absurd order: every cut would fall outside its line or run backwards.
        u"NAME NODE SIZE/OFF DEVICE TYPE FD USER PID COMMAND\nx 1 2 3 4 5 6 7 8 9 10 11 12\n"_s,
        u"COMMAND  PID USER   FD   TYPE DEVICE SIZE/OFF NODE NAME\n\xFFFD\xFFFD\n\n\n"_s,
        u"\n\n\n"_s,
    };
    for (const QString& text : garbage) {
        EXPECT_TRUE(fetcher.parseLsofResult(text).isEmpty()) << text.toStdString();
        EXPECT_EQ(fetcher.previousSnapshot(), kept);
    }
}

TEST(LsofParser, HeaderOnlyStillDropsClosedItemsAndRebuildsTheMap)
{
    LsofFetcher fetcher;
    LsofItemList items = fetcher.parseLsofResult(lsofData("sequence-2.txt"));
    fetcher.processLsofItemsChanges(items);
    items = fetcher.parseLsofResult(lsofData("sequence-3.txt"));
    fetcher.processLsofItemsChanges(items);
    ASSERT_EQ(fetcher.previousSnapshot().size(), 7) << "two closed items carried one more pass";

    EXPECT_TRUE(fetcher.parseLsofResult(kLsofHeader + u"\n"_s).isEmpty());
    EXPECT_EQ(fetcher.previousSnapshot().size(), 5);
    EXPECT_EQ(fetcher.detector().identifierCount(), 5);
    for (const LsofItemPtr& item : fetcher.previousSnapshot())
        EXPECT_NE(item->status(), 3);
}

TEST(LsofParser, ReusesTheEarlierObjectAndSwapsStates)
{
    LsofFetcher fetcher;
    LsofItemList first = fetcher.parseLsofResult(lsofData("sequence-1.txt"));
    fetcher.processLsofItemsChanges(first);
    LsofItemList second = fetcher.parseLsofResult(lsofData("sequence-2.txt"));
    ASSERT_EQ(second.size(), 7);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(second[i], first[i]) << "line " << i << " keeps its object";
    EXPECT_EQ(second[1]->state(), u"CLOSE_WAIT"_s);
    EXPECT_EQ(second[1]->oldState(), u"ESTABLISHED"_s);
    // Fields other than the state keep their earlier values.
    EXPECT_EQ(second[1]->device(), u"11791"_s);
    EXPECT_EQ(fetcher.detector().previousItem(second[1]->identifier()), second[1]);
}

// lsof's output is parsed as the bytes it printed. Columns line up by character, so a line with
// characters beyond ASCII is cut by character like any other, and reads as unchanged next time.
TEST(LsofParser, OutputBytesAreCutByCharacter)
{
    const QString text =
        u"COMMAND         PID USER   FD   TYPE DEVICE SIZE/OFF NODE NAME\n"_s +
        u"Grüße-dienst"_s.leftJustified(14) +
        u" 6362 root    4u  IPv4  11791      0t0  TCP 127.0.0.1:49664->127.0.0.1:36993 "
        u"(ESTABLISHED)\n"
        u"echo\\x20server 6362 root    5u  IPv4  11792      0t0  TCP 127.0.0.1:36993 (LISTEN)\n"_s;
    const QByteArray output = text.toUtf8();
    LsofFetcher fetcher;
    LsofItemList items = fetcher.parseLsofOutput(output);
    ASSERT_EQ(items.size(), 2);
    EXPECT_EQ(fields(*items[0]), u"Grüße-dienst|6362|6362|root|4u|IPv4|11791|0t0|TCP|127.0.0.1|"
                                 u"49664|49664|127.0.0.1|36993|36993|ESTABLISHED"_s);
    EXPECT_EQ(items[1]->processName(), u"echo server"_s);

    LsofFetcher fromText;
    const LsofItemList same = fromText.parseLsofResult(text);
    ASSERT_EQ(same.size(), items.size());
    for (qsizetype i = 0; i < items.size(); ++i)
        EXPECT_EQ(same[i]->identifier(), items[i]->identifier());

    fetcher.processLsofItemsChanges(items);
    const LsofItemList again = fetcher.parseLsofOutput(output);
    ASSERT_EQ(again.size(), 2);
    for (qsizetype i = 0; i < again.size(); ++i) {
        EXPECT_EQ(again[i], items[i]) << "line " << i << " keeps its object";
        EXPECT_EQ(again[i]->status(), 0);
    }
}

TEST(LsofParser, DuplicateIdentifiersInOneOutput)
{
    LsofFetcher fetcher;
    const QString line = lsofLine(u"app"_s, 42, u"3u"_s, u"IPv4"_s, 100, u"TCP"_s,
                                  u"10.0.0.2:5000->10.0.0.3:80 (%1)"_s);
    LsofItemList first = fetcher.parseLsofResult(kLsofHeader + u'\n' + line.arg(u"SYN_SENT"_s));
    fetcher.processLsofItemsChanges(first);
    const LsofItemList next = fetcher.parseLsofResult(
        kLsofHeader + u'\n' + line.arg(u"ESTABLISHED"_s) + u'\n' + line.arg(u"FIN_WAIT1"_s) +
        u'\n' + line.arg(u"FIN_WAIT2"_s) + u'\n');
    ASSERT_EQ(next.size(), 3);
    EXPECT_EQ(next[0], first[0]);
    EXPECT_EQ(next[0]->state(), u"ESTABLISHED"_s);
    // The second line yields the object made for the first line, now with the second state.
    EXPECT_NE(next[1], first[0]);
    EXPECT_EQ(next[1]->state(), u"FIN_WAIT1"_s);
    EXPECT_EQ(next[1]->oldState(), u"SYN_SENT"_s);
    EXPECT_EQ(next[1]->device(), u"100"_s);
    // A third line goes on the same way: the object made for the second line.
    EXPECT_NE(next[2], next[1]);
    EXPECT_EQ(next[2]->state(), u"FIN_WAIT2"_s);
    EXPECT_EQ(next[2]->oldState(), u"SYN_SENT"_s);
}

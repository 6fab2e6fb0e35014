#include "lsofdata.h"
#include "snapshot/lsofitem.h"
#include "snapshot/lsoftextreader.h"
#include "snapshot/lsoftextwriter.h"
#include "support/records.h"

#include <gtest/gtest.h>

namespace {

SocketRecords withIdentifiers(SocketRecords records)
{
    for (SocketRecord& r : records)
        r.identifier = LsofItem::identifierOf(r);
    return records;
}

} // namespace

// What the writer prints, any reader of lsof's text reads back as the same records: wide
// columns, IPv6, a protocol longer than its title, a socket without a state, and the traffic
// figures lsof cannot print.
TEST(LsofTextWriter, ItsTextReadsBackAsTheSameRecords)
{
    const SocketRecord listener =
        socketRecord(u"postgres|812|postgres|5u|IPv4|1546699|0t0|TCP|127.0.0.1|5432|-|-|LISTEN"_s);
    SocketRecord peer = socketRecord(u"psql\\x20client|4194301|postgres|1234u|IPv6|88|0t0|TCP|"
                                     u"[::1]|40000|[::1]|5432|ESTABLISHED"_s);
    peer.cookie = 4097;
    peer.bytesSent = 16777216;
    peer.bytesReceived = 0;
    peer.rtt = 0.042;
    const SocketRecord lite = socketRecord(u"a|7|postgres|3r|IPv4|1546699|0t0|UDPLITE|*|*"_s);
    const SocketRecords records = withIdentifiers({listener, peer, lite});

    const QByteArray text = LsofTextWriter::write(records);
    EXPECT_EQ(LsofTextReader::records(text), records);
    const QByteArray plain = LsofTextWriter::write(records, false);
    EXPECT_FALSE(plain.contains("#corvina"));
    ASSERT_TRUE(LsofTextReader::records(plain));
    EXPECT_FALSE(LsofTextReader::records(plain)->at(1).bytesSent);

    // A reader kept across outputs takes a line it saw before with this output's figures.
    LsofTextReader kept;
    ASSERT_TRUE(kept.read(text));
    ASSERT_TRUE(kept.read(plain));
    EXPECT_EQ(kept.records(), LsofTextReader::records(plain));
}

// lsof's own output, read and written again, reads as it did.
TEST(LsofTextWriter, RealOutputSurvivesARoundTrip)
{
    for (const char* name : {"sequence-1.txt", "sequence-3.txt", "wide.txt"}) {
        const std::optional<SocketRecords> records =
            LsofTextReader::records(lsofData(name).toUtf8());
        ASSERT_TRUE(records) << name;
        EXPECT_EQ(LsofTextReader::records(LsofTextWriter::write(*records)), records) << name;
    }
}

// The sockets that closed since the collector's last pass travel on lines of their own, each
// field it knows and none it does not; one without a cookie cannot be matched and is left out.
TEST(LsofTextWriter, ClosedSocketsTravelOnLinesOfTheirOwn)
{
    SocketRecord full = socketRecord(u"Web\\x20Content|4242|ann|-|IPv6|-|-|TCP|[2001:db8::2]|"
                                     u"51000|[2001:db8::1]|443|CLOSE"_s);
    full.cookie = 81985529216486895;
    full.bytesSent = 1002;
    full.bytesReceived = 501;
    full.rtt = 1.5;
    SocketRecord bare = socketRecord(u"-|-|-|-|IPv4|-|-|UDP|*|5353"_s);
    bare.cookie = 7;
    SocketRecord unmatched = bare;
    unmatched.cookie.reset();

    const QByteArray text = LsofTextWriter::write({}, true, {full, bare, unmatched});
    LsofTextReader reader;
    ASSERT_TRUE(reader.read(text));
    EXPECT_TRUE(reader.records().isEmpty());
    EXPECT_EQ(reader.closed(), (SocketRecords{full, bare}));
    ASSERT_TRUE(reader.read(LsofTextWriter::write({})));
    EXPECT_TRUE(reader.closed().isEmpty());
}

namespace {

QByteArray output(const QString& header, const QList<int>& fds)
{
    QString text = header + u'\n';
    for (int fd : fds) {
        text +=
            lsofLine(u"app"_s, 42, QString::number(fd) + u'u', u"IPv4"_s, 100 + fd, u"TCP"_s,
                     u"10.0.0.2:50%1->10.0.0.3:80 (ESTABLISHED)"_s.arg(fd, 2, 10, QChar(u'0'))) +
            u'\n';
    }
    return text.toUtf8();
}

} // namespace

// A reader that read earlier outputs gives, for every output, what a fresh reader gives: lines it
// saw last time are taken as they were only when the titles stand where they stood, and a line
// printed twice gives two records.
TEST(LsofTextReader, AKeptReaderReadsEveryOutputAsAFreshOneDoes)
{
    const QString moved = QString(kLsofHeader).replace(u" NAME"_s, u"  NAME"_s);
    const QList<QByteArray> outputs = {
        output(kLsofHeader, {1, 2, 3}),
        output(kLsofHeader, {2, 3, 4, 4}),
        output(moved, {2, 3, 4}),
        QByteArray("no header here\n"),
        output(kLsofHeader, {3, 1}),
        lsofData("sequence-1.txt").toUtf8(),
        lsofData("sequence-2.txt").toUtf8(),
    };
    LsofTextReader kept;
    for (qsizetype i = 0; i < outputs.size(); ++i) {
        const std::optional<SocketRecords> fresh = LsofTextReader::records(outputs[i]);
        ASSERT_EQ(kept.read(outputs[i]), fresh.has_value()) << "output " << i;
        EXPECT_EQ(kept.records(), fresh.value_or(SocketRecords())) << "output " << i;
    }
    EXPECT_EQ(LsofTextReader::records(outputs[1])->size(), 4);
    EXPECT_NE(LsofTextReader::records(outputs[2])->at(0).localAddress,
              LsofTextReader::records(outputs[1])->at(0).localAddress)
        << "the moved title shifts the cut";
}

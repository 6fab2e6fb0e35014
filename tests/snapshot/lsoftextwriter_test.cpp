#include "lsofdata.h"
#include "snapshot/lsofitem.h"
#include "snapshot/lsoftextreader.h"
#include "snapshot/lsoftextwriter.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

SocketRecord record(const QString& name, const QString& pid, const QString& fd,
                    const QString& protocol)
{
    SocketRecord r;
    r.processName = name;
    r.processId = pid;
    r.user = u"postgres"_s;
    r.fileDescriptor = fd;
    r.type = u"IPv4"_s;
    r.device = u"1546699"_s;
    r.sizeAndOffset = u"0t0"_s;
    r.protocol = protocol;
    r.localAddress = u"127.0.0.1"_s;
    r.localPort = u"5432"_s;
    return r;
}

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
    SocketRecord listener = record(u"postgres"_s, u"812"_s, u"5u"_s, u"TCP"_s);
    listener.state = u"LISTEN"_s;
    SocketRecord peer = record(u"psql\\x20client"_s, u"4194301"_s, u"1234u"_s, u"TCP"_s);
    peer.type = u"IPv6"_s;
    peer.device = u"88"_s;
    peer.localAddress = u"[::1]"_s;
    peer.localPort = u"40000"_s;
    peer.remoteAddress = u"[::1]"_s;
    peer.remotePort = u"5432"_s;
    peer.state = u"ESTABLISHED"_s;
    peer.cookie = 4097;
    peer.bytesSent = 16777216;
    peer.bytesReceived = 0;
    peer.rtt = 0.042;
    SocketRecord lite = record(u"a"_s, u"7"_s, u"3r"_s, u"UDPLITE"_s);
    lite.localAddress = u"*"_s;
    lite.localPort = u"*"_s;
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
    SocketRecord full;
    full.cookie = 81985529216486895;
    full.type = u"IPv6"_s;
    full.protocol = u"TCP"_s;
    full.localAddress = u"[2001:db8::2]"_s;
    full.localPort = u"51000"_s;
    full.remoteAddress = u"[2001:db8::1]"_s;
    full.remotePort = u"443"_s;
    full.state = u"CLOSE"_s;
    full.bytesSent = 1002;
    full.bytesReceived = 501;
    full.rtt = 1.5;
    full.processId = u"4242"_s;
    full.processName = u"Web\\x20Content"_s;
    full.user = u"ann"_s;
    SocketRecord bare;
    bare.cookie = 7;
    bare.type = u"IPv4"_s;
    bare.protocol = u"UDP"_s;
    bare.localAddress = u"*"_s;
    bare.localPort = u"5353"_s;
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

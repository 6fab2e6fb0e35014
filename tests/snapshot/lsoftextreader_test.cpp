#include "lsofdata.h"
#include "snapshot/lsoftextreader.h"

#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

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

#include "lsoftextreader.h"

#include "lsoflinecutter.h"

#include <QString>

#include <cstring>

namespace {

// The line that starts at `start`, without its line feed.
QByteArrayView lineFrom(QByteArrayView text, qsizetype start)
{
    const void* end = std::memchr(text.data() + start, '\n', size_t(text.size() - start));
    const qsizetype length =
        end ? static_cast<const char*>(end) - (text.data() + start) : text.size() - start;
    return text.sliced(start, length);
}

// Decodes into `out`, whose storage is reused from line to line. lsof lines its columns up by
// character, so a line with letters beyond ASCII is decoded before it is cut.
void decodeLine(QByteArrayView line, QString& out)
{
    out.resize(line.size());
    char16_t* const to = reinterpret_cast<char16_t*>(out.data());
    uchar high = 0;
    for (qsizetype i = 0; i < line.size(); ++i) {
        high |= uchar(line[i]);
        to[i] = uchar(line[i]);
    }
    if (high & 0x80)
        out = QString::fromUtf8(line);
}

} // namespace

std::optional<SocketRecords> LsofTextReader::records(QByteArrayView output)
{
    SocketRecords records;
    if (!LsofTextReader().read(output, records))
        return std::nullopt;
    return records;
}

bool LsofTextReader::read(QByteArrayView output, SocketRecords& records)
{
    records.clear();
    if (output.isEmpty())
        return false;
    const QByteArrayView header = lineFrom(output, 0);
    const std::optional<LsofLineCutter> cutter =
        LsofLineCutter::fromHeader(QString::fromUtf8(header));
    if (!cutter)
        return false;

    QString line;
    for (qsizetype start = header.size() + 1; start < output.size();) {
        const QByteArrayView bytes = lineFrom(output, start);
        start += bytes.size() + 1;
        decodeLine(bytes, line);
        if (const std::optional<LsofLineCutter::Fields> fields = cutter->cut(line))
            records.append(LsofLineCutter::record(*fields, m_texts));
    }
    // A line has a dozen texts, most of them shared with other lines.
    m_texts.bound(8 * records.size() + 1024);
    return true;
}

#include "lsoftextreader.h"

#include "lsoflinecutter.h"
#include "lsoftextwriter.h"

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

// The line as text, in `out`, whose storage is reused from line to line. lsof lines its columns
// up by character, so a line with letters beyond ASCII is decoded before it is cut.
const QString& decoded(QByteArrayView line, QString& out)
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
    return out;
}

} // namespace

std::optional<SocketRecords> LsofTextReader::records(QByteArrayView output)
{
    LsofTextReader reader;
    if (!reader.read(output))
        return std::nullopt;
    return reader.records();
}

bool LsofTextReader::read(QByteArrayView output)
{
    const QByteArrayView header = output.isEmpty() ? output : lineFrom(output, 0);
    const std::optional<LsofLineCutter> cutter =
        LsofLineCutter::fromHeader(QString::fromUtf8(header));
    if (!cutter) {
        forgetLines();
        return false;
    }
    const bool sameTitles = m_titles == cutter->positions();
    m_closed.clear();
    SocketRecords previous;
    previous.swap(m_records);
    m_records.reserve(previous.size() + 16);
    QHash<QByteArray, qsizetype> previousLines;
    previousLines.swap(m_lines);
    m_lines.reserve(previousLines.size());
    const QByteArray kept = output.toByteArray(); // the next read's lines borrow it

    QString buffer;
    LsofTextWriter::FiguresBySocket figures;
    for (qsizetype start = header.size() + 1; start < kept.size();) {
        const QByteArrayView bytes = lineFrom(kept, start);
        start += bytes.size() + 1;
        if (bytes.startsWith('#') && (LsofTextWriter::readClosedLine(bytes, m_closed) ||
                                      LsofTextWriter::readFiguresLine(bytes, figures)))
            continue;
        const QByteArray line = QByteArray::fromRawData(bytes.data(), bytes.size());
        const auto seen = sameTitles ? previousLines.find(line) : previousLines.end();
        if (seen != previousLines.end() && *seen >= 0) {
            m_records.append(std::move(previous[*seen]));
            *seen = -1;
        } else if (const auto fields = cutter->cut(decoded(bytes, buffer))) {
            m_records.append(LsofLineCutter::record(*fields, m_texts));
        } else {
            continue;
        }
        m_lines.insert(line, m_records.size() - 1);
    }
    // Records kept from the last output carry its figures: they are set anew whenever either
    // output had any.
    const bool hadFigures = std::exchange(m_hadFigures, !figures.isEmpty());
    if (hadFigures || m_hadFigures)
        applyFigures(figures);
    m_output = kept;
    m_titles = cutter->positions();
    // A line has a dozen texts, most of them shared with other lines.
    m_texts.bound(8 * m_records.size() + 1024);
    return true;
}

void LsofTextReader::applyFigures(const LsofTextWriter::FiguresBySocket& figures)
{
    for (SocketRecord& record : m_records) {
        const LsofTextWriter::Figures f = figures.value(LsofTextWriter::socketKey(record));
        record.cookie = f.cookie;
        record.bytesSent = f.bytesSent;
        record.bytesReceived = f.bytesReceived;
        record.rtt = f.rtt;
    }
}

void LsofTextReader::forgetLines()
{
    m_records.clear();
    m_closed.clear();
    m_lines.clear();
    m_output.clear();
    m_titles.reset();
}

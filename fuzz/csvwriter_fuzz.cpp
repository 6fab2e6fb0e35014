// Writes fields with the CSV writer in string mode and reads them back with a strict reader
// of the writer's quoting (doubled quotes and doubled backslashes inside double quotes): every
// field must come back exactly. The first two bytes choose the delimiter; the rest are UTF-16
// code units, U+FFFF ending a field and U+FFFE ending a line.

#include "changes/chcsvwriter.h"
#include "fuzzcheck.h"
#include "fuzzinput.h"

#include <optional>
#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

using Lines = QList<QStringList>;

bool isLineBreak(QChar c)
{
    const char16_t u = c.unicode();
    return (u >= 0x0A && u <= 0x0D) || u == 0x85 || u == 0x2028 || u == 0x2029;
}

// Nothing when the text is not exactly what the writer may produce.
std::optional<Lines> readStrictly(const QString& text, QChar delimiter)
{
    Lines lines;
    QStringList fields;
    qsizetype i = 0;
    const qsizetype n = text.size();
    while (i < n) {
        QString field;
        if (text[i] == u'"') {
            ++i;
            for (;;) {
                if (i >= n)
                    return std::nullopt;
                const QChar c = text[i];
                if (c == u'"' || c == u'\\') {
                    if (i + 1 < n && text[i + 1] == c) {
                        field += c;
                        i += 2;
                        continue;
                    }
                    if (c == u'\\')
                        return std::nullopt;
                    ++i;
                    break;
                }
                field += c;
                ++i;
            }
        } else {
            while (i < n && text[i] != delimiter && text[i] != u'\n') {
                if (isLineBreak(text[i]) || text[i] == u'"' || text[i] == u'\\')
                    return std::nullopt;
                field += text[i++];
            }
            if (field.startsWith(u'#'))
                return std::nullopt;
        }
        fields << field;
        if (i >= n)
            return std::nullopt; // every line ends with a line end
        if (text[i] == delimiter) {
            ++i;
            continue;
        }
        if (text[i] != u'\n')
            return std::nullopt;
        ++i;
        lines << fields;
        fields.clear();
    }
    if (!fields.isEmpty())
        return std::nullopt;
    return lines;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2)
        return 0;
    const QChar delimiter(char16_t(data[0] | (data[1] << 8)));
    CHCSVWriter writer = CHCSVWriter::forWritingToString();
    try {
        writer.setDelimiter(QString(delimiter));
    } catch (const std::invalid_argument&) {
        require(isLineBreak(delimiter) || delimiter == u'"' || delimiter == u'#' ||
                    delimiter == u'\\',
                "a usable delimiter was refused");
        return 0;
    }
    require(!isLineBreak(delimiter) && delimiter != u'"' && delimiter != u'#' && delimiter != u'\\',
            "an unusable delimiter was taken");

    const QString units = FuzzInput::utf16Of(data + 2, size - 2);
    Lines written;
    QStringList line;
    QString field;
    const auto endLine = [&] {
        line << field;
        field.clear();
        writer.writeLineWithFields(line);
        written << line;
        line.clear();
    };
    for (QChar c : units) {
        if (c == QChar(0xFFFF)) {
            line << field;
            field.clear();
        } else if (c == QChar(0xFFFE)) {
            endLine();
        } else {
            field += c;
        }
    }
    if (!field.isEmpty() || !line.isEmpty())
        endLine();

    const std::optional<Lines> read = readStrictly(writer.stringValue(), delimiter);
    require(read.has_value(), "the writer produced text its quoting rules do not allow");
    require(*read == written, "fields did not survive the round trip");
    return 0;
}

#include "itemprinter.h"

#include "changes/chcsvwriter.h"
#include "snapshot/itemcolumns.h"

using namespace Qt::StringLiterals;

namespace {

// Appends the text as a JSON string. Most values need no escape at all and go in whole.
void appendJsonString(QString& out, QStringView text)
{
    out += u'"';
    qsizetype plain = 0;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        if (c >= 0x20 && c != u'"' && c != u'\\')
            continue;
        out += text.mid(plain, i - plain);
        plain = i + 1;
        switch (c) {
        case u'"':
            out += u"\\\""_s;
            break;
        case u'\\':
            out += u"\\\\"_s;
            break;
        case u'\n':
            out += u"\\n"_s;
            break;
        case u'\r':
            out += u"\\r"_s;
            break;
        case u'\t':
            out += u"\\t"_s;
            break;
        default:
            out += u"\\u"_s + QString::number(c, 16).rightJustified(4, u'0');
        }
    }
    out += text.mid(plain);
    out += u'"';
}

// The keys of a JSON object, in this order: a contract other tools read.
const QList<LsofItem::Key>& jsonKeys()
{
    using K = LsofItem::Key;
    static const QList<K> keys = {
        K::status,
        K::processName,
        K::processId,
        K::PID,
        K::protocol,
        K::localAddress,
        K::localPort,
        K::localPortNumber,
        K::remoteAddress,
        K::remotePort,
        K::remotePortNumber,
        K::state,
        K::oldState,
        K::user,
        K::type,
        K::sizeAndOffset,
        K::device,
        K::fileDescriptor,
        K::identifier,
        K::localPortName,
        K::remotePortName,
        K::localizedAppName,
        K::processPath,
        // Added later, hence last: tools that read the first keys by position keep working.
        K::remoteHostname,
        K::bytesSent,
        K::bytesReceived,
        K::sendRate,
        K::receiveRate,
        K::rtt,
        K::shortLived,
    };
    return keys;
}

} // namespace

std::optional<ItemPrinter::Format> ItemPrinter::formatForName(const QString& name)
{
    if (name == u"table")
        return Format::Table;
    if (name == u"csv")
        return Format::Csv;
    if (name == u"json")
        return Format::Json;
    return std::nullopt;
}

QString ItemPrinter::jsonString(QStringView text)
{
    QString out;
    appendJsonString(out, text);
    return out;
}

QString ItemPrinter::jsonObject(const LsofItem& item, std::optional<int> snapshot)
{
    // The member names, quoted and followed by ":", made once.
    static const QStringList names = [] {
        QStringList list;
        for (const LsofItem::Key key : jsonKeys()) {
            QString name;
            appendJsonString(name, LsofItem::nameForKey(key));
            list << name + u':';
        }
        return list;
    }();
    QString line;
    line.reserve(640);
    line += u'{';
    const QList<LsofItem::Key>& keys = jsonKeys();
    for (qsizetype i = 0; i < keys.size(); ++i) {
        if (i > 0)
            line += u',';
        line += names[i];
        const QVariant value = item.value(keys[i]);
        if (!value.isValid())
            line += u"null"_s;
        else if (value.typeId() == QMetaType::LongLong)
            line += QString::number(value.toLongLong());
        else if (value.typeId() == QMetaType::Double)
            line += QString::number(value.toDouble(), 'f', 3);
        else if (value.typeId() == QMetaType::Bool)
            line += value.toBool() ? u"true"_s : u"false"_s;
        else
            appendJsonString(line, value.toString());
    }
    if (snapshot)
        line += u",\"snapshot\":"_s + QString::number(*snapshot);
    line += u'}';
    return line;
}

void ItemPrinter::print(const LsofItemList& items, std::optional<int> snapshot)
{
    switch (m_format) {
    case Format::Json:
        for (const LsofItemPtr& item : items)
            m_out << jsonObject(*item, snapshot) << '\n';
        break;
    case Format::Table:
        printTable(items);
        break;
    case Format::Csv:
        printCsv(items);
        break;
    }
    m_out.flush();
}

void ItemPrinter::printTable(const LsofItemList& items)
{
    const QList<ItemColumn>& columns = itemColumns();
    QList<QStringList> rows;
    rows.reserve(items.size() + 1);
    QStringList header;
    for (const ItemColumn& column : columns)
        header << column.title;
    rows << header;
    for (const LsofItemPtr& item : items) {
        QStringList row;
        for (const ItemColumn& column : columns)
            row << displayText(*item, column);
        rows << row;
    }
    QList<qsizetype> widths(columns.size(), 0);
    for (const QStringList& row : rows) {
        for (qsizetype c = 0; c < row.size(); ++c)
            widths[c] = std::max(widths[c], row[c].size());
    }
    for (const QStringList& row : rows) {
        QString line;
        for (qsizetype c = 0; c < row.size(); ++c) {
            if (c + 1 == row.size())
                line += row[c];
            else
                line += row[c].leftJustified(widths[c] + 2);
        }
        m_out << line << '\n';
    }
}

void ItemPrinter::printCsv(const LsofItemList& items)
{
    // The same quoting as the connection log, so one reader reads both.
    CHCSVWriter writer = CHCSVWriter::forWritingToString();
    const QList<ItemColumn>& columns = itemColumns();
    if (!m_wroteCsvHeader) {
        QStringList header;
        for (const ItemColumn& column : columns)
            header << column.title;
        writer.writeLineWithFields(header);
        m_wroteCsvHeader = true;
    }
    for (const LsofItemPtr& item : items) {
        QStringList row;
        for (const ItemColumn& column : columns)
            row << item->text(column.key);
        writer.writeLineWithFields(row);
    }
    m_out << writer.stringValue();
}

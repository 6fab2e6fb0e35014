#include "changeeventprinter.h"

#include "changes/chcsvwriter.h"
#include "changes/connectionlog.h"
#include "snapshot/itemcolumns.h"

#include <QLocale>

#include <algorithm>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

// A missing value still takes a place on the line, so the fields stay countable.
QString shown(const QString& text)
{
    return text.isEmpty() ? u"-"_s : text;
}

QString endpoint(const QString& address, const QString& port)
{
    if (address.isEmpty())
        return u"-"_s;
    // An IPv6 address is bracketed, so its colons do not run into the port's.
    const bool bracket = address.contains(u':') && !address.startsWith(u'[');
    const QString host = bracket ? u'[' + address + u']' : address;
    return port.isEmpty() ? host : host + u':' + port;
}

// The time as RFC 3339 with its offset written out (+00:00 rather than Z, so every line
// reads alike).
QString rfc3339(const QDateTime& time)
{
    const int offset = time.offsetFromUtc();
    const int minutes = std::abs(offset) / 60;
    return time.toString(u"yyyy-MM-ddTHH:mm:ss"_s) + (offset < 0 ? u'-' : u'+') +
           u"%1:%2"_s.arg(minutes / 60, 2, 10, QChar(u'0')).arg(minutes % 60, 2, 10, QChar(u'0'));
}

qint64 totalRate(const LsofItem& item)
{
    const LsofItem::Traffic traffic = item.traffic();
    return traffic.sendRate.value_or(0) + traffic.receiveRate.value_or(0);
}

// The open connections with a known rate, busiest first (ties in list order).
LsofItemList topTalkers(const LsofItemList& items, int count)
{
    LsofItemList known;
    for (const LsofItemPtr& item : items) {
        const LsofItem::Traffic traffic = item->traffic();
        if (item->status() != 3 && (traffic.sendRate || traffic.receiveRate))
            known << item;
    }
    std::stable_sort(known.begin(), known.end(), [](const LsofItemPtr& a, const LsofItemPtr& b) {
        return totalRate(*a) > totalRate(*b);
    });
    return known.mid(0, count);
}

} // namespace

ChangeEventPrinter::ChangeEventPrinter(QTextStream& out, ItemPrinter::Format format,
                                       QString hostName)
    : m_out(out), m_format(format), m_host(std::move(hostName)),
      m_clock([] { return QDateTime::currentDateTime(); })
{
}

QString ChangeEventPrinter::eventName(qint32 status)
{
    switch (status) {
    case 1:
        return u"new"_s;
    case 2:
        return u"changed"_s;
    case 3:
        return u"closed"_s;
    default:
        return {};
    }
}

void ChangeEventPrinter::print(const LsofItemList& items, bool opened)
{
    LsofItemList changed;
    for (const LsofItemPtr& item : items) {
        if (opened || !eventName(item->status()).isNull())
            changed << item;
    }
    if (changed.isEmpty())
        return;
    const QDateTime time = m_clock();
    if (m_format == ItemPrinter::Format::Csv) {
        printCsv(changed, time, opened);
    } else {
        for (const LsofItemPtr& item : changed) {
            const QString event = opened ? eventName(1) : eventName(item->status());
            m_out << (m_format == ItemPrinter::Format::Json ? jsonLine(*item, event, time)
                                                            : tableLine(*item, event, time))
                  << '\n';
        }
    }
    m_out.flush();
}

void ChangeEventPrinter::printTop(const LsofItemList& items, int count)
{
    const LsofItemList top = topTalkers(items, count);
    const QDateTime time = m_clock();
    CHCSVWriter writer = CHCSVWriter::forWritingToString();
    for (qsizetype i = 0; i < top.size(); ++i) {
        const LsofItem& item = *top.at(i);
        if (m_format == ItemPrinter::Format::Json) {
            const QString object = jsonLine(item, u"top"_s, time);
            m_out << object.left(object.size() - 1) << ",\"rank\":" << (i + 1) << "}\n";
        } else if (m_format == ItemPrinter::Format::Csv) {
            if (!std::exchange(m_wroteCsvHeader, true))
                writer.writeLineWithFields(ConnectionLog::titles());
            writer.writeFieldsWithArray(QStringList{QLocale().toString(time, QLocale::LongFormat),
                                                    QString::number(time.toSecsSinceEpoch()),
                                                    u"Top"_s});
            writer.writeLineWithFields(item.csvLineFields());
        } else {
            m_out << topLine(item, int(i + 1), time) << '\n';
        }
    }
    m_out << writer.stringValue();
    m_out.flush();
}

QString ChangeEventPrinter::topLine(const LsofItem& item, int rank, const QDateTime& time) const
{
    const LsofItem::Traffic traffic = item.traffic();
    const auto rate = [](std::optional<qint64> r) { return r ? humanRate(*r) : u"-"_s; };
    const QStringList fields = {
        time.toString(u"yyyy-MM-dd HH:mm:ss"_s),
        QString(u"top "_s + QString::number(rank)).leftJustified(7),
        shown(item.localizedAppName()),
        shown(item.processId()),
        shown(item.protocol()),
        endpoint(item.localAddress(), item.localPort()),
        endpoint(item.remoteAddress(), item.remotePort()),
        QString(u"send "_s + rate(traffic.sendRate)),
        QString(u"receive "_s + rate(traffic.receiveRate)),
    };
    return fields.join(u"  "_s);
}

QString ChangeEventPrinter::tableLine(const LsofItem& item, const QString& event,
                                      const QDateTime& time) const
{
    QString state = shown(item.state());
    // A short-lived connection opens in the state the kernel last gave it.
    if (event == eventName(1) && item.isShortLived())
        state = shown(item.oldState());
    else if (item.status() != 1 && !item.oldState().isEmpty())
        state = item.oldState() + u" → "_s + state;
    const QStringList fields = {
        time.toString(u"yyyy-MM-dd HH:mm:ss"_s),
        event.leftJustified(7),
        shown(item.localizedAppName()),
        shown(item.processId()),
        shown(item.protocol()),
        endpoint(item.localAddress(), item.localPort()),
        endpoint(item.remoteAddress(), item.remotePort()),
        state,
    };
    return fields.join(u"  "_s);
}

QString ChangeEventPrinter::jsonLine(const LsofItem& item, const QString& event,
                                     const QDateTime& time) const
{
    const QString object = ItemPrinter::jsonObject(item, std::nullopt);
    return u"{\"event\":"_s + ItemPrinter::jsonString(event) + u",\"time\":"_s +
           ItemPrinter::jsonString(rfc3339(time)) + u",\"host\":"_s +
           ItemPrinter::jsonString(m_host) + u',' + QStringView(object).mid(1);
}

void ChangeEventPrinter::printCsv(const LsofItemList& changed, const QDateTime& time, bool opened)
{
    // The connection log's columns and quoting, its time fields and its actions.
    CHCSVWriter writer = CHCSVWriter::forWritingToString();
    if (!std::exchange(m_wroteCsvHeader, true))
        writer.writeLineWithFields(ConnectionLog::titles());
    const QString longTime = QLocale().toString(time, QLocale::LongFormat);
    const QString seconds = QString::number(time.toSecsSinceEpoch());
    for (const LsofItemPtr& item : changed) {
        const QString action = opened || item->status() == 1 ? u"New"_s : u"State Changed"_s;
        writer.writeFieldsWithArray(QStringList{longTime, seconds, action});
        writer.writeLineWithFields(ConnectionLog::itemFields(*item, action));
    }
    m_out << writer.stringValue();
}

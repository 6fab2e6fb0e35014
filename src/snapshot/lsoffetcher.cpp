#include "lsoffetcher.h"

#include "lsoflinecutter.h"

LsofFetcher& LsofFetcher::shared()
{
    static LsofFetcher fetcher;
    return fetcher;
}

void LsofFetcher::parseConnection(const QString& text, LsofItem& item)
{
    LsofLineCutter::parseConnection(text, item);
}

void LsofFetcher::parseAddressAndPort(const QString& text, LsofItem& item, const QString& side)
{
    LsofLineCutter::parseAddressAndPort(text, item, side);
}

QString LsofFetcher::substring(QStringView text, qsizetype start, qsizetype length)
{
    return LsofLineCutter::substring(text, start, length);
}

LsofItemList LsofFetcher::parseLsofResult(const QString& text)
{
    return parseLsofOutput(text.toUtf8());
}

LsofItemList LsofFetcher::parseLsofOutput(QByteArrayView output)
{
    return m_reader.read(output) ? matchRecords(m_reader.records(), m_reader.closed())
                                 : LsofItemList();
}

LsofItemList LsofFetcher::matchRecords(const SocketRecords& records, const SocketRecords& closed)
{
    return m_detector.match(records, closed);
}

void LsofFetcher::processLsofItemsChanges(LsofItemList& items)
{
    if (items.isEmpty())
        return;
    m_detector.detect(items);
    if (!m_reporter)
        return;
    if (m_reporter->needsNotifyOrLogNewConnections())
        m_reporter->notifyNewItems(items);
    if (m_reporter->needsNotifyOrLogConnectionStateChange())
        m_reporter->notifyChangedItems(items);
}

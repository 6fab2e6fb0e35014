#include "journal.h"

#include "changes/changereporter.h"
#include "platform/systemlog.h"

#include <QFileInfo>

#include <sys/uio.h>
#include <vector>

// The sending function's own file and line would only name our build folder in every entry.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

using namespace Qt::StringLiterals;

namespace {

// journald's native socket; sd_journal_sendv talks to it.
const QString kJournalSocket = u"/run/systemd/journal/socket"_s;

void add(QByteArrayList& fields, const char* name, const QString& value)
{
    if (!value.isEmpty())
        fields << QByteArray(name) + '=' + value.toUtf8();
}

void add(QByteArrayList& fields, const char* name, const std::optional<qint64>& value)
{
    if (value)
        fields << QByteArray(name) + '=' + QByteArray::number(*value);
}

QByteArray eventName(Journal::Event event)
{
    switch (event) {
    case Journal::Event::New:
        return "new";
    case Journal::Event::Changed:
        return "changed";
    case Journal::Event::Closed:
        return "closed";
    }
    return {};
}

const char* messageId(Journal::Event event)
{
    switch (event) {
    case Journal::Event::New:
        return Journal::kNewMessageId;
    case Journal::Event::Changed:
        return Journal::kChangedMessageId;
    case Journal::Event::Closed:
        return Journal::kClosedMessageId;
    }
    return "";
}

void addTraffic(QByteArrayList& fields, const LsofItem::Traffic& traffic)
{
    add(fields, "CORVINA_BYTES_SENT", traffic.bytesSent);
    add(fields, "CORVINA_BYTES_RECEIVED", traffic.bytesReceived);
    add(fields, "CORVINA_SEND_RATE", traffic.sendRate);
    add(fields, "CORVINA_RECEIVE_RATE", traffic.receiveRate);
    if (traffic.rtt)
        fields << "CORVINA_RTT_MS=" + QByteArray::number(*traffic.rtt, 'g', 6);
}

} // namespace

bool Journal::isAvailable()
{
    return QFileInfo(kJournalSocket).exists();
}

std::optional<Journal::Event> Journal::eventOf(const LsofItem& item)
{
    switch (item.status()) {
    case 1:
        return Event::New;
    case 2:
        return Event::Changed;
    case 3:
        return Event::Closed;
    default:
        return std::nullopt;
    }
}

QByteArrayList Journal::entry(const LsofItemPtr& itemPtr, Event event, const QString& host)
{
    const LsofItem& item = *itemPtr;
    const LsofItemList alone = {itemPtr};
    const QString message = event == Event::New ? ChangeReporter::newItemsMessage(alone)
                                                : ChangeReporter::changedItemsMessage(alone);
    QByteArrayList fields = {
        "MESSAGE=" + message.toUtf8(), QByteArray("MESSAGE_ID=") + messageId(event), "PRIORITY=6",
        "SYSLOG_IDENTIFIER=Corvina",   "CORVINA_EVENT=" + eventName(event),
    };
    add(fields, "CORVINA_HOST", host);
    add(fields, "CORVINA_PROTOCOL", item.protocol());
    add(fields, "CORVINA_LOCAL_ADDRESS", item.localAddress());
    add(fields, "CORVINA_LOCAL_PORT", item.localPort());
    add(fields, "CORVINA_REMOTE_ADDRESS", item.remoteAddress());
    add(fields, "CORVINA_REMOTE_PORT", item.remotePort());
    add(fields, "CORVINA_STATE", item.state());
    if (event != Event::New)
        add(fields, "CORVINA_OLD_STATE", item.oldState());
    add(fields, "CORVINA_PID", item.processId());
    add(fields, "CORVINA_PROCESS", item.processName());
    add(fields, "CORVINA_APPLICATION", item.localizedAppName());
    add(fields, "CORVINA_USER", item.user());
    addTraffic(fields, item.traffic());
    if (item.isShortLived())
        fields << "CORVINA_SHORT_LIVED=1";
    return fields;
}

bool Journal::send(const QByteArrayList& fields)
{
    if (fields.isEmpty())
        return false;
    // sd_journal_sendv writes a value with a line break in its length-prefixed form, so
    // multi-line messages arrive whole.
    std::vector<iovec> parts;
    parts.reserve(size_t(fields.size()));
    for (const QByteArray& field : fields)
        parts.push_back({const_cast<char*>(field.constData()), size_t(field.size())});
    return sd_journal_sendv(parts.data(), int(parts.size())) == 0;
}

bool Journal::writeItems(const LsofItemList& items, const QString& host)
{
    if (!isAvailable())
        return false;
    bool sentAny = false;
    for (const LsofItemPtr& item : items) {
        const std::optional<Event> event = eventOf(*item);
        if (!event)
            continue;
        const bool sent = send(entry(item, *event, host));
        if (!sent && !sentAny)
            return false;
        sentAny = true;
    }
    return true;
}

void Journal::writePass(const LsofItemList& items, const QString& message, const QString& host)
{
    if (!writeItems(items, host))
        SystemLog::write(message);
}

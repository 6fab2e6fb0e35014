#include "changereporter.h"

#include "changes/connectionlog.h"
#include "platform/journal.h"
#include "platform/systemlog.h"
#include "prefs/cvprefshelper.h"
#include "prefs/prefkeys.h"

#include <QMap>
#include <QSysInfo>

using namespace Qt::StringLiterals;

namespace {

// How a null text prints in these messages.
QString shown(const QString& text)
{
    return text.isNull() ? u"(null)"_s : text;
}

QString remoteSuffix(const LsofItem& item)
{
    const QString address = item.remoteAddress();
    if (address.isEmpty())
        return u""_s;
    return u" => "_s + address + u':' + shown(item.remotePort());
}

QString stateText(const LsofItem& item)
{
    const QString before = item.oldState();
    return (before.isNull() ? u""_s : before) + (before.isEmpty() ? u""_s : u" => "_s) +
           shown(item.state());
}

QString hostPart(const LsofItem& item, bool resolveHostnames)
{
    if (resolveHostnames) {
        const QString name = item.remoteHostname();
        if (!name.isEmpty())
            return name;
    }
    return shown(item.remoteAddress());
}

void appendOnce(QStringList& lines, const QString& line)
{
    if (!lines.contains(line))
        lines << line;
}

using Groups = QMap<QString, LsofItemList>;

QStringList assemble(const Groups& groups, const std::function<QString(const LsofItem&)>& lineFor)
{
    QStringList lines;
    for (const LsofItemList& group : groups) {
        lines << shown(group.first()->localizedAppName());
        for (const LsofItemPtr& item : group)
            appendOnce(lines, lineFor(*item));
    }
    return lines;
}

} // namespace

ChangeReporter::ChangeReporter(CVPrefsHelper& prefs, ConnectionLog& log)
    : m_prefs(prefs), m_log(log), m_host(QSysInfo::machineHostName())
{
    if (Journal::isAvailable())
        m_journal = [this](const LsofItemList& items) {
            return Journal::writeItems(items, m_host);
        };
}

bool ChangeReporter::needsNotifyOrLogNewConnections() const
{
    return m_echo || m_prefs.needsNotifyOrLogNewConnections();
}

bool ChangeReporter::needsNotifyOrLogConnectionStateChange() const
{
    return m_echo || m_prefs.needsNotifyOrLogConnectionStateChange();
}

QStringList ChangeReporter::newItemsAnnouncement(const LsofItemList& items,
                                                 const QStringList& excluded, bool resolveHostnames)
{
    // Listening sockets and others without a peer are logged but never announced.
    Groups groups;
    for (const LsofItemPtr& item : items) {
        const QString path = item->processPath();
        if (!item->remoteAddress().isEmpty() && !excluded.contains(path))
            groups[path] << item;
    }
    return assemble(groups, [&](const LsofItem& item) -> QString {
        return u"  "_s + hostPart(item, resolveHostnames) + u':' + shown(item.remotePort());
    });
}

QStringList ChangeReporter::changedItemsAnnouncement(const LsofItemList& items,
                                                     const QStringList& excluded,
                                                     bool resolveHostnames)
{
    Groups groups;
    for (const LsofItemPtr& item : items) {
        const QString path = item->processPath();
        if (!excluded.contains(path))
            groups[path] << item;
    }
    return assemble(groups, [&](const LsofItem& item) -> QString {
        const QString endpoint = item.remoteAddress().isEmpty()
                                     ? u""_s
                                     : u"  "_s + hostPart(item, resolveHostnames) + u':' +
                                           shown(item.remotePort()) + u"\n  "_s;
        return endpoint + u"  "_s + stateText(item);
    });
}

QString ChangeReporter::newItemsMessage(const LsofItemList& newItems)
{
    QStringList lines;
    for (const LsofItemPtr& item : newItems) {
        lines << shown(item->localizedAppName()) + u' ' + shown(item->localAddress()) + u':' +
                     shown(item->localPort()) + remoteSuffix(*item);
    }
    return u"New Connections\n"_s + lines.join(u'\n');
}

QString ChangeReporter::changedItemsMessage(const LsofItemList& changedItems)
{
    QStringList lines;
    for (const LsofItemPtr& item : changedItems) {
        lines << shown(item->localizedAppName()) + u' ' + shown(item->localAddress()) + u':' +
                     shown(item->localPort()) + remoteSuffix(*item) + u"  "_s + stateText(*item);
    }
    return u"State Changed\n"_s + lines.join(u'\n');
}

void ChangeReporter::writeConsoleMessage(const LsofItemList& items, const QString& message,
                                         const QString& settingKey)
{
    if (m_prefs.boolForKey(settingKey) && !(m_journal && m_journal(items)))
        SystemLog::write(message, !m_echo);
    if (m_echo)
        m_echo(message);
}

void ChangeReporter::notifyNewItems(const LsofItemList& items)
{
    // A short-lived connection opened in this pass as well as closed.
    LsofItemList selected;
    for (const LsofItemPtr& item : items) {
        if (item->status() == 1 || (item->status() == 3 && item->isShortLived()))
            selected << item;
    }
    const QStringList lines = newItemsAnnouncement(selected, m_prefs.excludeAppsForGrowl(),
                                                   m_prefs.resolveRemoteAddressInGrowl());
    if (!lines.isEmpty() && m_prefs.notifyNewConnections() && m_sink)
        m_sink({u"New Connections"_s, lines});
    if (selected.isEmpty())
        return;
    writeConsoleMessage(selected, newItemsMessage(selected),
                        PrefKeys::LogNewConnectionToSystemConsole);
    if (m_prefs.boolForKey(PrefKeys::LogNewConnectionToCSVFiles))
        m_log.writePass(u"New"_s, selected);
}

void ChangeReporter::notifyChangedItems(const LsofItemList& items)
{
    LsofItemList selected;
    for (const LsofItemPtr& item : items) {
        const qint32 status = item->status();
        if (status == 2 || status == 3)
            selected << item;
    }
    const QStringList lines = changedItemsAnnouncement(selected, m_prefs.excludeAppsForGrowl(),
                                                       m_prefs.resolveRemoteAddressInGrowl());
    if (!lines.isEmpty() && m_prefs.notifyConnectionsStateChange() && m_sink)
        m_sink({u"State Changed"_s, lines});
    if (selected.isEmpty())
        return;
    writeConsoleMessage(selected, changedItemsMessage(selected),
                        PrefKeys::LogConnectionStateChangeToSystemConsole);
    if (m_prefs.boolForKey(PrefKeys::LogConnectionStateChangeToCSVFiles))
        m_log.writePass(u"State Changed"_s, selected);
}

#pragma once

#include "snapshot/lsofitem.h"

#include <QByteArrayList>
#include <QString>

#include <optional>

// Change messages as structured entries of the systemd journal, so that a log shipper or
// `journalctl CORVINA_EVENT=new` finds each connection with its fields.
//
// One entry per connection, not per pass: fields belong to one connection, and an entry of
// several connections could not say which address goes with which process. Each entry's
// MESSAGE is the console message the pass would give for that connection alone ("New
// Connections\n…" or "State Changed\n…"), built by the same functions.
namespace Journal {

enum class Event { New, Changed, Closed };

// Fixed for good: catalogues, alerts and saved queries match on them.
inline constexpr char kNewMessageId[] = "e4d0c5b690db4a538d7f37cdc66c4240";
inline constexpr char kChangedMessageId[] = "1c4bf520e6bc4393be74582c34515ec9";
inline constexpr char kClosedMessageId[] = "0c248a9692c542e9bfcfc0e173fc1c30";

// Whether journald listens on this machine.
bool isAvailable();

// What an item's status reports: 1 new, 2 changed, 3 closed; nothing for an unchanged item.
std::optional<Event> eventOf(const LsofItem& item);

// The entry for one connection as "FIELD=value" texts, UTF-8; fields the item does not know
// are left out. `host` names the machine watched (this one, or the one reached over ssh).
QByteArrayList entry(const LsofItemPtr& item, Event event, const QString& host);

// Sends one entry; false when journald is not there or refused it.
bool send(const QByteArrayList& fields);

// Sends the entry of every new, changed or closed item; false, with nothing sent, when the
// journal is not there or refused the first entry, so that the caller can use syslog instead.
bool writeItems(const LsofItemList& items, const QString& host);

// A pass's console message: as entries of its items into the journal when it is there, else
// as the one message into syslog (SystemLog::write).
void writePass(const LsofItemList& items, const QString& message, const QString& host);

} // namespace Journal

#pragma once

#include <QMutex>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>
#include <optional>

class IdentifierMap;
class RunningApplication;

// One internet socket of one process: one line of lsof's output.
//
// An item is created and filled by the parser on the acquisition worker; from then on only
// `status`, `state` and `oldState` change (the parser and change detection carry one object
// from snapshot to snapshot), while the GUI thread reads. Those three fields and the lazily
// computed values are therefore guarded by a per-item lock; every other field is written
// before the item is published and never again.
class LsofItem final {
public:
    // Every key an item answers by name, in the order of its fields.
    enum class Key {
        status,
        processName,
        PID,
        processId,
        protocol,
        localPort,
        localPortNumber,
        localPortName,
        localAddress,
        remotePort,
        remotePortNumber,
        remotePortName,
        remoteAddress,
        remoteHostname,
        state,
        processPath,
        user,
        type,
        sizeAndOffset,
        device,
        oldState,
        fileDescriptor,
        identifier,
        localizedAppName,
    };

    LsofItem() = default;
    Q_DISABLE_COPY_MOVE(LsofItem)

    // A new item, laid out for the refresh: the parser makes its items this way.
    static std::shared_ptr<LsofItem> create();

    static std::optional<Key> keyForName(QStringView name);
    static QString nameForKey(Key key);
    // All keys, in field order (the order of the command line's JSON objects).
    static const QList<Key>& allKeys();
    // Leading blanks, an optional sign, then decimal digits up to the first other character;
    // 0 when there are none (so "*" is 0).
    static qint64 integerValue(QStringView text);

    // Key-value access. Numbers come back as qint64, texts as QString; a null field is an
    // invalid QVariant. An unknown key reads as invalid and is refused on write.
    QVariant value(Key key) const;
    QVariant value(QStringView name) const;
    bool setValue(Key key, const QVariant& value);
    bool setValue(QStringView name, const QVariant& value);
    // The value as text, the way a field prints ("" for null): what the keyword search and
    // the table's display read.
    QString text(Key key) const;
    // The field of a text key that is written before the item is published and never again,
    // so that it can be read in place from any thread; null for the other keys.
    const QString* fixedText(Key key) const;

    qint32 status() const;
    void setStatus(qint32 status);

    QString processName() const { return m_processName; }
    // Undoes lsof's escapes: "\x" becomes "%" and the result is percent-decoded as UTF-8;
    // a name that does not decode becomes null.
    void setProcessName(const QString& name);

    // Always derived from `processId`: 0 when that is not a number.
    qint64 PID() const;
    QString processId() const { return m_processId; }
    void setProcessId(const QString& value) { m_processId = value; }

    QString protocol() const { return m_protocol; }
    void setProtocol(const QString& value) { m_protocol = value; }
    QString localPort() const { return m_localPort; }
    void setLocalPort(const QString& value) { m_localPort = value; }
    std::optional<qint64> localPortNumber() const { return m_localPortNumber; }
    void setLocalPortNumber(std::optional<qint64> value) { m_localPortNumber = value; }
    QString localAddress() const { return m_localAddress; }
    void setLocalAddress(const QString& value) { m_localAddress = value; }
    QString remotePort() const { return m_remotePort; }
    void setRemotePort(const QString& value) { m_remotePort = value; }
    std::optional<qint64> remotePortNumber() const { return m_remotePortNumber; }
    void setRemotePortNumber(std::optional<qint64> value) { m_remotePortNumber = value; }
    QString remoteAddress() const { return m_remoteAddress; }
    void setRemoteAddress(const QString& value) { m_remoteAddress = value; }
    QString user() const { return m_user; }
    void setUser(const QString& value) { m_user = value; }
    QString type() const { return m_type; }
    void setType(const QString& value) { m_type = value; }
    QString sizeAndOffset() const { return m_sizeAndOffset; }
    void setSizeAndOffset(const QString& value) { m_sizeAndOffset = value; }
    QString device() const { return m_device; }
    void setDevice(const QString& value) { m_device = value; }
    QString fileDescriptor() const { return m_fileDescriptor; }
    void setFileDescriptor(const QString& value) { m_fileDescriptor = value; }

    QString state() const;
    void setState(const QString& value);
    QString oldState() const;
    void setOldState(const QString& value);

    // "%@-%@-%@-%@:%@-%@:%@-%@:%@" of processId, type, protocol, localAddress, localPort,
    // remoteAddress, remotePort, device, fileDescriptor; built on first call, then fixed.
    QString identifier() const;
    // Takes the identifier its creator already built (it must be what identifier() would
    // build); a no-op once the identifier is known.
    void adoptIdentifier(const QString& identifier);
    // "<LsofItem: 0x…>: identifier"
    QString description() const;

    // The item's part of a CSV log row: thirteen titles, the keys read for them (each title
    // without blanks, first letter lower-cased), and the values ("" for null).
    static QStringList csvTitles();
    static QStringList csvKeys();
    QStringList csvLineFields() const;

    // Derived values (service names, host name, process information), computed on demand.
    // Service names come from the port table on every call.
    QString localPortName() const;
    QString remotePortName() const;
    // The cached reverse name of remoteAddress ("" when it has none), or null while unknown:
    // a miss queues a background look-up. Addresses under 8 characters are never looked up.
    QString remoteHostname() const;
    // The same from the cache alone: a miss starts no look-up.
    QString cachedRemoteHostname() const;
    // Grows whenever a host name is stored; while it stands still, cachedRemoteHostname()
    // answers as before.
    static quint64 hostnameGeneration();

    // What the keyword search last made of this item, kept because most rows do not change
    // between two refreshes: the joined text, what it depended on, and the verdict of the last
    // pattern searched in it. The stamps are the search's own; zero means none.
    struct SearchCache {
        QString text;
        QString state;
        QString hostname;
        quint64 textStamp = 0;
        quint64 hostnameGeneration = 0;
        quint64 patternStamp = 0;
        bool matched = false;
    };
    // Runs `read` on the search cache and the state, under the item's lock, and gives back what
    // it returns: a row's cache is checked without copying it.
    template <typename Read> auto readSearchCache(Read&& read) const
    {
        QMutexLocker locker(&m_lock);
        return read(std::as_const(m_searchCache), std::as_const(m_state));
    }
    // Replaces the cache; the texts it held are let go after the lock.
    void setSearchCache(SearchCache cache) const;
    // Asks memory for the fields reading `key` starts from (for names derived from the process:
    // its id and command name). A pass that reads one column of many items asks a few items
    // ahead, so that their cold fields arrive together instead of one after the other.
    void prefetchField(Key key) const;
    // Asks memory for what letting go of the item reads: every line of the item; then, once
    // those have arrived, the blocks of the texts it alone holds. A big snapshot's closed
    // items are cold when they go, and their destruction waits for each of these in turn.
    void prefetchForRelease() const;
    void prefetchOwnTexts() const;
    // Whether the item holds its process's record already, so that asking for it reads
    // nothing.
    bool hasRunningApplication() const;
    // Finds the record of every process the items name, for the items that have none yet, as
    // runningApplication() would. The acquisition worker calls it after each pass: the window
    // asks for these records as it paints and sorts, and reading /proc then would hold up the
    // GUI thread for every process a snapshot brings.
    static void readProcessRecords(const QList<std::shared_ptr<LsofItem>>& items);
    // Bundle path, else executable path, else processName; kept per processId (100 entries).
    QString processPath() const;
    // The application's localized name, else processName; computed on every call.
    QString localizedAppName() const;
    // The process's record, kept in the item once found; a miss is asked again next time.
    std::shared_ptr<const RunningApplication> runningApplication() const;
    // Icon name (or icon file path) for the process, "application-x-executable" when it has
    // none; kept per processId (100 entries).
    QString processIcon() const;
    // Looks the address up on the calling thread and caches its name.
    void resolveHostname(const QString& address) const;
    static QString nameForPort(const QString& port, const QString& protocol);
    static QString descriptionForPort(const QString& port, const QString& protocol);

private:
    // A parse lists the item again: the state becomes the old state, `state` (when given) the
    // new one, and the status is set, all under one lock. A state that is already the old one
    // is not written again, which spares a connection that stays as it was two reference
    // counts.
    void carryState(const QString* state, qint32 status);

    // What a refresh reads and writes of an item that stays as it was comes first: with the
    // shared count that precedes the object (LsofItem::create aligns the two), it is one
    // cache line, and a pass over a hundred thousand items waits for one line of each.
    //
    // Bookkeeping of the parse that last listed this item, for the next parse: the identifier
    // map that lists this very object under its identifier, if any; which parse (0: none);
    // where it stands in that parse's list; a hash of its line and where that line starts in
    // the parse's text; the hash of its identifier (IdentifierMap::hashOf) once a parse or a
    // map has it, which a line that changed is matched by.
    friend class LsofFetcher;
    friend class IdentifierMap;
    const IdentifierMap* m_listedIn = nullptr;
    quint32 m_passMark = 0;
    qint32 m_previousIndex = -1;
    size_t m_lineHash = 0;
    qsizetype m_passLineStart = -1;
    size_t m_identifierHash = 0;
    qint32 m_status = 0;
    // The status is 0 and the old state is the very state: carrying the state over to another
    // pass would change nothing, and the fields need not be read.
    bool m_settled = false;

    mutable QMutex m_lock;
    QString m_state;
    QString m_oldState;
    mutable QString m_identifier;

    QString m_processName;
    QString m_processId;
    QString m_protocol;
    QString m_localPort;
    std::optional<qint64> m_localPortNumber;
    QString m_localAddress;
    QString m_remotePort;
    std::optional<qint64> m_remotePortNumber;
    QString m_remoteAddress;
    QString m_user;
    QString m_type;
    QString m_sizeAndOffset;
    QString m_device;
    QString m_fileDescriptor;
    mutable std::shared_ptr<const RunningApplication> m_app;
    mutable SearchCache m_searchCache;
};

using LsofItemPtr = std::shared_ptr<LsofItem>;
using LsofItemList = QList<LsofItemPtr>;

// Asks memory for an item's reference count and first lines: a pass over a list in an order
// other than the snapshot's (a sorted table) otherwise waits for each item in turn.
inline void prefetchItem(const LsofItemPtr& item)
{
    const char* const bytes = reinterpret_cast<const char*>(item.get());
    __builtin_prefetch(bytes - sizeof(long), 1); // make_shared puts the count just before
    __builtin_prefetch(bytes + 64);
}

// Empties the list. When it is the last holder of its items, they are let go in order with the
// ones a few places ahead asked of memory first: a big snapshot's items are cold by the time
// it is dropped, and giving up each reference waits for its item otherwise.
void releaseItems(LsofItemList& items);
// Lets go of the references in [first, last) of a list nobody else holds, in the same way;
// the list keeps its length, with those places empty.
void releaseItemRange(LsofItemList& items, qsizetype first, qsizetype last);

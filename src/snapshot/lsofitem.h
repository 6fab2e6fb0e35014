#pragma once

#include "socketrecord.h"

#include <QMutex>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>
#include <optional>

class RunningApplication;

// One internet socket of one process: one line of lsof's output, or its like from the kernel.
//
// An item is made from a collector's record on the acquisition worker; from then on only
// `status`, `state`, `oldState` and the traffic figures change (change detection carries one
// object from snapshot to snapshot), while the GUI thread reads. Those fields and the lazily
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
        bytesSent,
        bytesReceived,
        sendRate,
        receiveRate,
        rtt,
        shortLived,
    };

    LsofItem() = default;
    Q_DISABLE_COPY_MOVE(LsofItem)

    static std::shared_ptr<LsofItem> create();
    // An item holding the record's fields (the command name unescaped), with the record's
    // identifier when the caller has it already.
    static std::shared_ptr<LsofItem> fromRecord(const SocketRecord& record,
                                                const QString& identifier = {});
    // What identifier() gives for an item made from the record; the second form writes it over
    // `out`, reusing its room.
    static QString identifierOf(const SocketRecord& record);
    static void writeIdentifier(const SocketRecord& record, QString& out);

    static std::optional<Key> keyForName(QStringView name);
    static QString nameForKey(Key key);
    // All keys, in field order (the order of the command line's JSON objects).
    static const QList<Key>& allKeys();
    // Leading blanks, an optional sign, then decimal digits up to the first other character;
    // 0 when there are none (so "*" is 0).
    static qint64 integerValue(QStringView text);

    // Key-value access. Numbers come back as qint64 (the round-trip time as a double, in
    // milliseconds), texts as QString, `shortLived` as bool; a null field is an invalid QVariant.
    // An unknown key reads as invalid and is refused on write.
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

    // What the kernel tells of a TCP connection (the built-in collector only); each figure is
    // unknown, never 0, where it was not told. Rates are bytes per second over the last pass.
    struct Traffic {
        std::optional<qint64> bytesSent;
        std::optional<qint64> bytesReceived;
        std::optional<qint64> sendRate;
        std::optional<qint64> receiveRate;
        std::optional<double> rtt; // milliseconds
        bool operator==(const Traffic&) const = default;
    };
    Traffic traffic() const;
    void setTraffic(const Traffic& traffic);
    // A pass lists the item again: its state now, the one before and its figures, in one step.
    void relist(const QString& state, const QString& oldState, const Traffic& traffic);
    // The kernel's cookie of the socket, which follows it for its whole life.
    std::optional<quint64> cookie() const { return m_cookie; }
    // The machine the socket is on, as the user named it (ssh); empty for this machine. The
    // process of another machine's socket is not looked for here: its names come from lsof's.
    QString host() const { return m_host; }
    void setHost(const QString& host) { m_host = host; }
    // Opened and closed between two refreshes: seen only by the kernel's notice of its end.
    bool isShortLived() const { return m_shortLived; }
    // A number no other item of this run has: tells an item from a later one made where it was.
    quint64 serial() const { return m_serial; }
    void setShortLived(bool shortLived) { m_shortLived = shortLived; }
    void setFileDescriptor(const QString& value) { m_fileDescriptor = value; }

    QString state() const;
    void setState(const QString& value);
    QString oldState() const;
    void setOldState(const QString& value);

    // "%@-%@-%@-%@:%@-%@:%@-%@:%@" of processId, type, protocol, localAddress, localPort,
    // remoteAddress, remotePort, device, fileDescriptor; built on first call, then fixed.
    QString identifier() const;
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
    void setTrafficValue(Key key, const QVariant& value);

    qint32 m_status = 0;
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
    std::optional<quint64> m_cookie;
    QString m_host;
    bool m_shortLived = false;
    const quint64 m_serial = newSerial();
    static quint64 newSerial();
    Traffic m_traffic;
    mutable std::shared_ptr<const RunningApplication> m_app;
};

using LsofItemPtr = std::shared_ptr<LsofItem>;
using LsofItemList = QList<LsofItemPtr>;

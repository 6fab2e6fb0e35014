#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

#include <functional>
#include <mutex>
#include <optional>

// Service name and description of a port, keyed like "443/tcp" (protocol in lower case).
// The table shipped with the program answers first. For a port it lacks, the system's services
// database answers: read whole, once, on the first such miss, because asking it port by port
// (getservbyport parses the file on every call) would cost tens of microseconds for each of
// the thousands of ephemeral ports a refresh shows. Protocols other than those of the table and
// tcp, udp and sctp have no names.
class PortServiceMap final {
public:
    struct Service {
        QString name;
        QString description; // null when the table has none
    };
    struct Row {
        int port = 0;
        QString protocol;
        Service service;
    };
    // Every row of a secondary source, read when the table first misses.
    using Fallback = std::function<QList<Row>()>;

    // `table` is the text of the shipped resource: "port/protocol<TAB>name<TAB>description"
    // per line, "#" lines ignored.
    explicit PortServiceMap(const QString& table, Fallback fallback = systemServices);
    Q_DISABLE_COPY_MOVE(PortServiceMap)

    // The application's table, loaded from the resource on first use.
    static PortServiceMap& sharedMap();
    // The system's services database, through getservent_r(3).
    static QList<Row> systemServices();

    // Reads the secondary source now rather than at the first miss (a no-op once read), for
    // callers that must not wait for it later.
    void loadFallback() const;

    QString nameForPort(QStringView port, QStringView protocol) const;
    QString descriptionForPort(QStringView port, QStringView protocol) const;
    qsizetype count() const { return m_table.size(); }

private:
    // Rows are keyed by port and the protocol's index in m_protocols, so a look-up (tens of
    // thousands per refresh, more when the table sorts by service) allocates nothing.
    std::optional<quint32> rowKey(QStringView port, QStringView protocol) const;
    // Null when the port has no row. Rows never move once loaded.
    const Service* lookup(QStringView port, QStringView protocol) const;

    QStringList m_protocols; // lower case; fixed after construction
    QHash<quint32, Service> m_table;
    Fallback m_fallback;
    mutable std::once_flag m_fallbackLoaded;
    mutable QHash<quint32, Service> m_fallbackRows; // fixed once loaded
};

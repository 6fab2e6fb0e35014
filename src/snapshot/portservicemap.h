#pragma once

#include <QHash>
#include <QMutex>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

// Service name and description of a port, keyed like "443/tcp" (protocol in lower case).
// The table shipped with the program answers first; a port it lacks is asked of the system's
// services database once, and that answer (a missing one included) is remembered. Protocols
// other than those of the table and tcp, udp and sctp have no names.
class PortServiceMap final {
public:
    struct Service {
        QString name;
        QString description; // null when the table has none
    };
    // Asked for (port, lower-case protocol) rows the table lacks.
    using Fallback = std::function<std::optional<Service>(int port, const QString& protocol)>;

    // `table` is the text of the shipped resource: "port/protocol<TAB>name<TAB>description"
    // per line, "#" lines ignored.
    explicit PortServiceMap(const QString& table, Fallback fallback = systemServiceForPort);
    Q_DISABLE_COPY_MOVE(PortServiceMap)

    // The application's table, loaded from the resource on first use.
    static PortServiceMap& sharedMap();
    // getservbyport_r(3) over the system's services database.
    static std::optional<Service> systemServiceForPort(int port, const QString& protocol);

    QString nameForPort(QStringView port, QStringView protocol) const;
    QString descriptionForPort(QStringView port, QStringView protocol) const;
    qsizetype count() const { return m_table.size(); }

private:
    // Rows are keyed by port and the protocol's index in m_protocols, so a look-up (tens of
    // thousands per refresh, more when the table sorts by service) allocates nothing.
    std::optional<quint32> rowKey(QStringView port, QStringView protocol) const;
    std::optional<Service> lookup(QStringView port, QStringView protocol) const;

    QStringList m_protocols; // lower case; fixed after construction
    QHash<quint32, Service> m_table;
    Fallback m_fallback;
    mutable QMutex m_fallbackLock;
    mutable QHash<quint32, std::optional<Service>> m_fallbackAnswers;
};

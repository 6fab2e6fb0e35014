#pragma once

#include <QByteArrayView>
#include <QString>
#include <QStringView>

#include <array>
#include <optional>

#include "socketrecord.h"

class LsofItem;
class TextTable;

// Cuts lsof's data lines into fields at the places its header's titles give. The offsets follow
// lsof's layout, in which these columns end under the end of their titles. The fields of a cut
// are views into the line.
class LsofLineCutter final {
    enum Title {
        PidTitle,
        UserTitle,
        FdTitle,
        TypeTitle,
        DeviceTitle,
        SizeOffTitle,
        NodeTitle,
        NameTitle,
        TitleCount
    };

public:
    // Where each title first occurs in the header.
    using Positions = std::array<qsizetype, TitleCount>;

    struct Endpoint {
        QStringView address;
        QStringView port;
        bool present = false;
    };

    // The cut fields of one line, still pointing into lsof's text.
    struct Fields {
        QStringView processName, processId, protocol, user, type, device, sizeAndOffset,
            fileDescriptor;
        QStringView state;
        bool hasState = false;
        Endpoint local, remote;
    };

    // The cutter for the lines under `header`; nothing when a title is missing from it.
    static std::optional<LsofLineCutter> fromHeader(QStringView header);

    const Positions& positions() const { return m_p; }

    // The fields of one line, or nothing for a line too short or one on which a cut would fall
    // outside the line.
    std::optional<Fields> cut(QStringView line) const;

    // The record of a line's fields, its texts taken from `texts`.
    static SocketRecord record(const Fields& fields, TextTable& texts);

    // The state and endpoints of a NAME column's text.
    static void parseConnection(const QString& text, LsofItem& item);
    // One endpoint's address, port and port number, under the keys `side` names.
    static void parseAddressAndPort(const QString& text, LsofItem& item, const QString& side);
    // Characters [start, start + length) with blanks and line ends trimmed at both ends.
    static QString substring(QStringView text, qsizetype start, qsizetype length);

private:
    explicit LsofLineCutter(const Positions& p);

    Positions m_p;
    qsizetype m_userStart, m_userLength, m_fdStart, m_fdLength, m_deviceStart, m_deviceLength,
        m_sizeStart, m_sizeLength, m_protocolStart, m_protocolLength;
};

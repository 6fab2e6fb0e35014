#pragma once

#include "lsoflinecutter.h"
#include "lsoftextwriter.h"
#include "socketrecord.h"
#include "texttable.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QHash>

#include <optional>

// The lsof collector's reading half: the records of the text `lsof -i -n -P +c 0` printed.
// Columns are found by the titles of the header line, and every data line is cut at fixed
// places from them; a line that cannot be cut is left out.
//
// The "#corvina" lines LsofTextWriter adds give the records their traffic figures, and the
// sockets that closed since the collector's last pass.
//
// A reader kept from one output to the next does less: lsof prints nearly the same lines every
// time, and a line printed last time, under the same titles, gives the record it gave then.
class LsofTextReader final {
public:
    // Nothing when the output has no text or its header lacks a title: such an output says
    // nothing about the sockets, not even that there are none. A header alone gives no records.
    static std::optional<SocketRecords> records(QByteArrayView output);

    // Reads an output into records(); false, with no records, where records() gives nothing.
    bool read(QByteArrayView output);
    // The records of the last output read, in its order.
    const SocketRecords& records() const { return m_records; }
    // The sockets its "#corvina closed" lines name: those that closed since the collector's
    // last pass.
    const SocketRecords& closed() const { return m_closed; }

private:
    void applyFigures(const LsofTextWriter::FiguresBySocket& figures);
    void forgetLines();

    SocketRecords m_records;
    SocketRecords m_closed;
    // The last output's bytes, which m_lines' keys borrow, and its titles' positions.
    QByteArray m_output;
    std::optional<LsofLineCutter::Positions> m_titles;
    // A line of the last output → the place of its record in m_records (-1: already taken).
    QHash<QByteArray, qsizetype> m_lines;
    bool m_hadFigures = false;
    TextTable m_texts;
};

#pragma once

#include "socketrecord.h"
#include "texttable.h"

#include <QByteArrayView>

#include <optional>

// The lsof collector's reading half: the records of the text `lsof -i -n -P +c 0` printed.
// Columns are found by the titles of the header line, and every data line is cut at fixed
// places from them; a line that cannot be cut is left out. A reader kept from one output to the
// next shares the texts the two have in common.
class LsofTextReader final {
public:
    // Nothing when the output has no text or its header lacks a title: such an output says
    // nothing about the sockets, not even that there are none. A header alone gives no records.
    static std::optional<SocketRecords> records(QByteArrayView output);
    // The same into `records`, whose room is reused (a big snapshot's list is tens of
    // megabytes); false, with `records` emptied, where the other gives nothing.
    bool read(QByteArrayView output, SocketRecords& records);

private:
    TextTable m_texts;
};

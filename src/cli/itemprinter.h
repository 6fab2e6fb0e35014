#pragma once

#include "snapshot/lsofitem.h"

#include <QTextStream>

#include <optional>

// Prints items in one of the command line's formats.
class ItemPrinter final {
public:
    enum class Format { Table, Csv, Json };
    static std::optional<Format> formatForName(const QString& name);

    ItemPrinter(QTextStream& out, Format format) : m_out(out), m_format(format) {}

    // `snapshot` is the index of the replayed file, written into JSON objects when given.
    void print(const LsofItemList& items, std::optional<int> snapshot = std::nullopt);

    static QString jsonObject(const LsofItem& item, std::optional<int> snapshot);
    // `text` as a JSON string, quoted and escaped.
    static QString jsonString(QStringView text);

private:
    void printTable(const LsofItemList& items);
    void printCsv(const LsofItemList& items);

    QTextStream& m_out;
    Format m_format;
    bool m_wroteCsvHeader = false;
};

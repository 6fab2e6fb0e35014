#pragma once

#include "itemprinter.h"

#include <QStringList>

#include <optional>

// The options of `corvina watch`, parsed. Each option is one branch of parse() and one field
// here, so a new one is added without touching the others.
struct WatchOptions {
    std::optional<qint64> interval; // seconds; unset: the refresh setting
    ItemPrinter::Format format = ItemPrinter::Format::Table;
    QString helperSocket;
    bool noResolve = false;
    QString source; // "native" or "lsof"; empty: the setting
    QString host;   // [user@]HOST[:port] watched over ssh; empty: this machine
    std::optional<int> top;
    QString metricsFile;

    // Fills the options from the arguments (the verb excluded); the answer is a one-line
    // message on bad usage.
    static std::optional<QString> parse(const QStringList& arguments, WatchOptions& options);
};

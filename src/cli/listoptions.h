#pragma once

#include "filter/itemfilter.h"
#include "itemprinter.h"

#include <QStringList>

#include <optional>

// The options of `list` and `replay`, parsed, with the filter they ask for.
struct ListOptions {
    ItemPrinter::Format format = ItemPrinter::Format::Table;
    QString input; // list: lsof output to read instead of running lsof ("-": standard input)
    bool hasInput = false;
    bool noLog = false;
    bool noResolve = false;
    QString helperSocket;
    QString source; // "native" or "lsof"; empty: the setting
    QString host;   // [user@]HOST[:port] listed over ssh; empty: this machine
    QString keyword;
    std::optional<QString> expression;
    QString profile;
    QStringList hiddenTypes;
    QStringList hiddenProtocols;
    bool remoteOnly = false;
    QStringList files; // positional arguments

    // Which options a verb accepts, by name.
    enum Accepts : unsigned {
        Format = 1,
        Input = 2,
        Filters = 4,
        NoLog = 8,
        NoResolve = 16,
        HelperSocket = 32,
        Files = 64,
        Source = 128, // --source and --host
    };

    // Fills the options from the arguments; the answer is a one-line message on bad usage.
    static std::optional<QString> parse(const QStringList& arguments, unsigned accepts,
                                        ListOptions& options);

    // The filter these options ask for; `profileExpression` is the chosen saved search's.
    ItemFilter filter(const std::optional<QString>& profileExpression) const;
};

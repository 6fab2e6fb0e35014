#pragma once

#include "filter/itemfilter.h"
#include "snapshot/lsofitem.h"

#include <QStringList>
#include <QTextStream>

#include <optional>

struct ListOptions;

// The terminal face of Corvina: `corvina VERB [options]`. Exit status 0 on success, 2 on bad
// usage (with a one-line message), 1 when an input cannot be read.
class CommandLine final {
public:
    CommandLine(QTextStream& out, QTextStream& err) : m_out(out), m_err(err) {}

    // True when the first argument names a verb of ours.
    static bool isCommand(const QStringList& arguments);
    // `arguments` excludes the program name.
    int run(const QStringList& arguments);

private:
    int usageError(const QString& message);
    int failure(const QString& message);
    // Builds the filter the options ask for; an exit status when that fails.
    std::optional<int> prepareFilter(const ListOptions& options, ItemFilter* filter);
    void reportFilterProblems(const ItemFilter::Result& result);
    int replay(const QStringList& arguments);
    int list(const QStringList& arguments);

    QTextStream& m_out;
    QTextStream& m_err;
};

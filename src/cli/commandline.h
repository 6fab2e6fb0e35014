#pragma once

#include <QStringList>
#include <QTextStream>

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
    int replay(const QStringList& arguments);
    int list(const QStringList& arguments);
    int watch(const QStringList& arguments);

    QTextStream& m_out;
    QTextStream& m_err;
};

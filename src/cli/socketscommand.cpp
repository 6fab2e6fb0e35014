#include "socketscommand.h"

#include "collector/nativecollector.h"
#include "snapshot/lsoftextwriter.h"

using namespace Qt::StringLiterals;

namespace SocketsCommand {

QString usage()
{
    return u"usage: corvina sockets [--plain]\n"
           "Prints every TCP and UDP socket this user may see, as the kernel lists them, in the\n"
           "text of lsof -i -n -P +c 0, with the socket cookies and TCP traffic figures on\n"
           "'#corvina socket' lines after the table. 'corvina list --input FILE' and 'corvina\n"
           "replay' read it back.\n"
           "  --plain                 leave the '#corvina' lines out (lsof's text alone)\n"_s;
}

std::optional<QByteArray> text(NativeCollector& collector, bool figures, QString* refusal)
{
    const SocketRecords records = collector.collect();
    if (records.isEmpty() && !collector.refusal().isEmpty()) {
        *refusal = collector.refusal();
        return std::nullopt;
    }
    return LsofTextWriter::write(records, figures);
}

int run(const QStringList& args, QTextStream& out, QTextStream& err)
{
    NativeCollector collector;
    return run(args, out, err, collector);
}

int run(const QStringList& args, QTextStream& out, QTextStream& err, NativeCollector& collector)
{
    bool plain = false;
    for (const QString& arg : args) {
        if (arg == u"--help" || arg == u"-h") {
            out << usage();
            out.flush();
            return 0;
        }
        if (arg != u"--plain") {
            err << "corvina: unknown option '" << arg << "'\n" << usage();
            err.flush();
            return 2;
        }
        plain = true;
    }
    QString refusal;
    const std::optional<QByteArray> snapshot = text(collector, !plain, &refusal);
    if (!snapshot) {
        err << "corvina: " << refusal << '\n';
        err.flush();
        return 1;
    }
    out << QString::fromUtf8(*snapshot);
    out.flush();
    return 0;
}

} // namespace SocketsCommand

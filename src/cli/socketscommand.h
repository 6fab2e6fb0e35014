#pragma once

#include <QByteArray>
#include <QStringList>
#include <QTextStream>

#include <optional>

class NativeCollector;

// `corvina sockets [--plain]`: the built-in collector's snapshot as `lsof -i -n -P +c 0` prints
// it, followed by the "#corvina socket" lines of what lsof cannot print (left out with --plain),
// so that `list --input` and `replay` read it back to the same rows. corvina-sockets, the
// program the helper daemon runs as root, is this verb alone.
namespace SocketsCommand {

QString usage();
// The snapshot's text, or nullopt with the collector's refusal in `refusal`.
std::optional<QByteArray> text(NativeCollector& collector, bool figures, QString* refusal);
// Exit status: 0, 1 when the kernel refused (its sentence on `err`), 2 on bad usage.
int run(const QStringList& args, QTextStream& out, QTextStream& err);
int run(const QStringList& args, QTextStream& out, QTextStream& err, NativeCollector& collector);

} // namespace SocketsCommand

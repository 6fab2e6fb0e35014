#pragma once

#include <QStringList>
#include <QTextStream>

// `corvina close IDENTIFIER [--helper-socket PATH]`: closes the TCP connection whose item
// identifier (as `list --format json` prints it) is IDENTIFIER, found in a fresh snapshot of the
// built-in collector. With CAP_NET_ADMIN (root) the kernel is asked directly, else through the
// helper daemon. Exit status: 0 closed, 1 not closed (one line says why), 2 bad usage or not a
// TCP connection with a remote side.
namespace CloseCommand {

QString usage();
int run(const QStringList& args, QTextStream& out, QTextStream& err);

} // namespace CloseCommand

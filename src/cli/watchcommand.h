#pragma once

#include <QStringList>
#include <QTextStream>

// `corvina watch [options]`: the refresh cycle in a terminal, printing every change of every
// pass until SIGINT or SIGTERM. `arguments` exclude the verb. Exit status 0 when stopped, 2 on
// bad usage (one-line message).
int runWatchCommand(const QStringList& arguments, QTextStream& out, QTextStream& err);

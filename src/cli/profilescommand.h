#pragma once

#include <QStringList>
#include <QTextStream>

// `corvina profiles list | add NAME EXPRESSION | delete PK`: the saved searches in the
// application's database. `args` excludes the verb. Exit status 0 on success, 2 on bad usage
// (one-line message), 1 when the database cannot be opened or written.
int runProfilesCommand(const QStringList& args, QTextStream& out, QTextStream& err);

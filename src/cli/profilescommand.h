#pragma once

#include <QStringList>
#include <QTextStream>

// `corvina profiles list | add NAME EXPRESSION | delete NAME|KEY`: the saved searches in the
// application's database. `args` excludes the verb. Exit status 0 on success, 2 on bad usage
// (one-line message; an expression that does not parse, a name several profiles share), 1
// when the database cannot be opened or written or no profile has the key or name.
int runProfilesCommand(const QStringList& args, QTextStream& out, QTextStream& err);

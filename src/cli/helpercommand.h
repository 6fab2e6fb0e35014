#pragma once

#include <QStringList>
#include <QTextStream>

// `corvina helper status|install|remove-instructions [--helper-socket PATH]`. `args` excludes
// the verb. Exit status 0 on success, 1 when the helper does not answer or the installation
// failed, 2 on bad usage.
int runHelperCommand(const QStringList& args, QTextStream& out, QTextStream& err);

// The commands that undo `corvina-helper --install`, in the order to run them.
QStringList helperRemoveCommands();

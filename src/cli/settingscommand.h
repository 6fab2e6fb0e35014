#pragma once

#include <QStringList>
#include <QTextStream>

class UserDefaults;

// `corvina settings list | get KEY | set KEY VALUE | reset KEY` over the same store as the
// preferences window. Values are written as the store's readers expect them: booleans
// true/false, colours #AARRGGBB, integers, lists as JSON arrays. `arguments` follow the verb.
// Exit status 0 on success, 2 on bad usage or a value of the wrong kind, 1 when the settings
// file cannot be written.
int runSettingsCommand(const QStringList& arguments, QTextStream& out, QTextStream& err);
int runSettingsCommand(const QStringList& arguments, QTextStream& out, QTextStream& err,
                       UserDefaults& store);

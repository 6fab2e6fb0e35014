#include "verbusage.h"

#include <QHash>

using namespace Qt::StringLiterals;

namespace {

const QString kFilterOptions =
    u"  --keyword TEXT          keep rows any column of which matches TEXT (a pattern)\n"
    "  --filter EXPRESSION     keep rows for which the predicate holds\n"
    "  --profile NAME          use the saved search NAME\n"
    "  --hide-type IPv4|IPv6   hide a type (repeatable)\n"
    "  --hide-protocol TCP|UDP|Other\n"
    "                          hide a protocol (repeatable)\n"
    "  --remote-only           only rows with a remote address\n"
    "  --no-resolve            do not look up remote host names\n"_s;

const QString kSourceOptions =
    u"  --source native|lsof    the built-in collector (the kernel's socket dump) or lsof\n"
    "                          (default: the setting, native)\n"
    "  --host [USER@]HOST[:PORT]\n"
    "                          another machine, through the system's ssh\n"_s;

const QHash<QString, QString>& verbTexts()
{
    static const QHash<QString, QString> texts = {
        {u"watch"_s,
         u"usage: corvina watch [--interval S] [--format table|csv|json] [--helper-socket PATH]\n"
         "                     [--no-resolve] [--source native|lsof] [--host HOST]\n"
         "                     [--top N] [--metrics-file PATH]\n"
         "Runs the refresh cycle in the terminal and prints every change of every pass (new,\n"
         "changed, closed), whatever the console-log settings; the system log and the CSV log\n"
         "still get what the settings ask for. Ctrl-C ends.\n"
         "  --interval S            seconds between passes, 1 to 86400 (default: the setting)\n"
         "  --format table|csv|json one line per change (table, the default), the CSV log's\n"
         "                          columns, or one JSON object per change\n"
         "  --helper-socket PATH    ask the helper daemon on PATH\n"
         "  --no-resolve            do not look up remote host names\n"_s +
             kSourceOptions +
             u"  --top N                 after each pass, the N busiest connections\n"
             "  --metrics-file PATH     rewrite PATH after each pass as Prometheus text\n"
             "                          (node_exporter's textfile collector)\n"_s},
        {u"list"_s,
         u"usage: corvina list [--input FILE] [--format table|csv|json] [filters] [--no-log]\n"
         "                    [--helper-socket PATH] [--source native|lsof] [--host HOST]\n"
         "Takes one snapshot (or reads saved lsof output), filters it and prints it.\n"
         "  --input FILE            read lsof output from FILE (- for standard input)\n"
         "  --format table|csv|json aligned columns (default), CSV, or one JSON object a line\n"_s +
             kFilterOptions +
             u"  --no-log                accepted for symmetry with replay; list logs nothing\n"
             "  --helper-socket PATH    ask the helper daemon on PATH\n"_s +
             kSourceOptions},
        {u"replay"_s,
         u"usage: corvina replay [--format table|csv|json] [filters] [--no-log] FILE...\n"
         "Runs each saved lsof output through parsing, change detection and reporting, in\n"
         "order, as one refresh each.\n"
         "  --format table|csv|json aligned columns (default), CSV, or one JSON object a line\n"_s +
             kFilterOptions +
             u"  --no-log                write no system-log messages nor CSV rows\n"_s},
        {u"profiles"_s,
         u"usage: corvina profiles list | add NAME EXPRESSION | delete NAME|KEY\n"
         "The saved searches. 'add' refuses an expression that does not parse; 'delete'\n"
         "takes a key as 'list' shows it, or a name that only one saved search has.\n"_s},
        {u"settings"_s,
         u"usage: corvina settings list | get KEY | set KEY VALUE | reset KEY\n"
         "The desktop application's settings: booleans true/false, colours #AARRGGBB, lists\n"
         "as JSON arrays. 'list' shows every key with its value.\n"_s},
        {u"helper"_s,
         u"usage: corvina helper status | install | remove-instructions [--helper-socket PATH]\n"
         "The privileged helper: whether it is installed and answering, installing it\n"
         "(through pkexec), and the commands that remove it.\n"_s},
    };
    return texts;
}

} // namespace

namespace VerbUsage {

QString general()
{
    return u"Usage: corvina [VERB [OPTIONS]]\n"
           "\n"
           "Without a verb, the desktop application starts (with no display, 'watch' runs).\n"
           "\n"
           "  watch [OPTIONS]        the refresh cycle in a terminal, printing every change\n"
           "  list [OPTIONS]         one snapshot, filtered, printed\n"
           "  replay [OPTIONS] FILE...\n"
           "                         saved lsof outputs through parsing, change detection, "
           "reporting\n"
           "  sockets [--plain]      the built-in collector's snapshot as lsof's text\n"
           "  close IDENTIFIER       close one TCP connection (root, or through the helper)\n"
           "  profiles list | add NAME EXPRESSION | delete NAME|KEY\n"
           "  settings list | get KEY | set KEY VALUE | reset KEY\n"
           "  helper status | install | remove-instructions\n"
           "\n"
           "'corvina VERB --help' shows a verb's options.\n"
           "Exit status: 0 success, 1 an input could not be read, 2 bad usage.\n"
           "See man corvina and docs/predicates.md for the expression language.\n"_s;
}

QString forVerb(const QString& verb)
{
    return verbTexts().value(verb);
}

} // namespace VerbUsage

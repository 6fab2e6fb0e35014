#include "cli/commandline.h"

#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Corvina"));
    QTextStream out(stdout);
    QTextStream err(stderr);
    CommandLine commandLine(out, err);
    return commandLine.run(QCoreApplication::arguments().mid(1));
}

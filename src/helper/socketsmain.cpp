// corvina-sockets: `corvina sockets` as a program of its own, which the helper daemon runs as
// root to see every process's sockets without starting the desktop application. No options
// but --plain: root runs it for anyone who may ask.

#include "cli/socketscommand.h"
#include "collector/nativecollector.h"

#include <cstdio>
#include <cstring>

int main(int argc, char** argv)
{
    bool plain = false;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--plain") != 0) {
            std::fputs("usage: corvina-sockets [--plain]\n", stderr);
            return 2;
        }
        plain = true;
    }
    NativeCollector collector;
    QString refusal;
    const std::optional<QByteArray> text = SocketsCommand::text(collector, !plain, &refusal);
    if (!text) {
        std::fprintf(stderr, "corvina-sockets: %s\n", refusal.toLocal8Bit().constData());
        return 1;
    }
    std::fwrite(text->constData(), 1, static_cast<std::size_t>(text->size()), stdout);
    return std::fflush(stdout) == 0 ? 0 : 1;
}

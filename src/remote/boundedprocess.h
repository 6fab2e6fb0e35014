#pragma once

#include <QByteArray>
#include <QStringList>

#include <chrono>

// Runs a program with a bound on the whole run and collects both its outputs. The program
// runs in a process group of its own, with standard input from /dev/null; at the bound the
// whole group is killed, so neither the program nor anything it started outlives the call.
class BoundedProcess final {
public:
    struct Outcome {
        QByteArray output; // standard output, as it came
        QByteArray errors; // standard error, its first kMaxErrors bytes
        int exitCode = -1; // -1 unless it exited on its own
        bool started = false;
        bool timedOut = false;
        bool tooLarge = false; // printed more than kMaxOutput and was killed
    };

    // Far beyond any real snapshot (100 000 sockets print about 12 MiB).
    static constexpr qsizetype kMaxOutput = 256 * 1024 * 1024;
    static constexpr qsizetype kMaxErrors = 64 * 1024;

    // `argv[0]` is the program's path; it is not looked up on PATH.
    static Outcome run(const QStringList& argv, std::chrono::milliseconds bound);
};

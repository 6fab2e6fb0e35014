#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

// Runs one program synchronously, as root may safely do it: fixed argument list, a clean
// environment, no shell, standard input from /dev/null, standard error discarded, the open-file
// limit lowered in the child and a hard time bound after which the child is killed.
class LsofRunner final {
public:
    struct Options {
        std::string program;
        std::vector<std::string> arguments;
        std::chrono::milliseconds timeout{10000};
        // lsof walks every possible descriptor number; a high limit makes it take seconds.
        unsigned long fileLimit = 1024;
        // Output beyond this is a failure rather than unbounded memory.
        std::size_t maxOutput = 64 * 1024 * 1024;
    };

    enum class Outcome { Ok, NotStarted, TimedOut, Crashed, TooMuchOutput, NotUtf8 };

    struct Result {
        Outcome outcome = Outcome::NotStarted;
        std::string output;
        // The text when the run succeeded and printed valid UTF-8, else null.
        std::optional<std::string> text() const
        {
            if (outcome == Outcome::Ok)
                return output;
            return std::nullopt;
        }
    };

    static Result run(const Options& options);

    // The first executable among `candidates`; empty when there is none.
    static std::string firstExecutable(const std::vector<std::string>& candidates);
};

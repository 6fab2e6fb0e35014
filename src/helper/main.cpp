#include "cvhelpertool.h"
#include "helperinstaller.h"

#include <charconv>
#include <csignal>
#include <cstring>
#include <iostream>
#include <string>
#include <systemd/sd-daemon.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr const char* kUsage =
    "usage: corvina-helper                 serve the socket systemd passes (socket activation)\n"
    "       corvina-helper --socket PATH [--allow-uid UID]... [--lsof PATH]\n"
    "                      [--sockets-program PATH] [--request-timeout MS]\n"
    "                      [--idle-timeout MS] [--lsof-timeout MS] [--sockets-timeout MS]\n"
    "                      [--max-connections N] [--max-per-peer N] [--without-ebpf]\n"
    "                                      serve a socket of its own (tests, manual runs)\n"
    "       corvina-helper --install [--destdir DIR]\n"
    "       corvina-helper --version\n";

OVPrivilegeToolBase* runningTool = nullptr;

void onStopSignal(int)
{
    if (runningTool != nullptr)
        runningTool->requestStop();
}

struct Arguments {
    bool install = false;
    bool version = false;
    std::string destdir;
    std::string socketPath;
    std::vector<uid_t> allowedUids;
    CVHelperTool::Programs programs;
    OVPrivilegeToolBase::Options tool;
};

// The numeric options, all for a daemon of one's own (tests, manual runs), and what each sets.
bool setNumericOption(const std::string& option, unsigned long number, Arguments* args)
{
    using std::chrono::milliseconds;
    if (option == "--allow-uid")
        args->allowedUids.push_back(static_cast<uid_t>(number));
    else if (option == "--request-timeout")
        args->tool.requestTimeout = milliseconds(number);
    else if (option == "--idle-timeout")
        args->tool.idleTimeout = milliseconds(number);
    else if (option == "--lsof-timeout")
        args->programs.lsofTimeout = milliseconds(number);
    else if (option == "--sockets-timeout")
        args->programs.collectTimeout = milliseconds(number);
    else if (option == "--max-connections" && number > 0)
        args->tool.maxConnections = number;
    else if (option == "--max-per-peer" && number > 0)
        args->tool.maxConnectionsPerPeer = number;
    else
        return false;
    return true;
}

bool parseNumber(const std::string& text, unsigned long* out)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *out);
    return error == std::errc() && end == text.data() + text.size() && !text.empty();
}

bool parseArguments(int argc, char** argv, Arguments* args, std::string* error)
{
    bool testOnlyOption = false;
    // Asked first whether an option is a numeric one at all.
    Arguments probe;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        const auto value = [&](std::string* out) {
            if (i + 1 >= argc) {
                *error = "option " + option + " needs a value";
                return false;
            }
            *out = argv[++i];
            return true;
        };
        std::string text;
        unsigned long number = 0;
        if (option == "--install") {
            args->install = true;
        } else if (option == "--version") {
            args->version = true;
        } else if (option == "--destdir") {
            if (!value(&args->destdir))
                return false;
        } else if (option == "--socket") {
            if (!value(&args->socketPath))
                return false;
        } else if (option == "--without-ebpf") {
            args->programs.socketOwners = false;
            testOnlyOption = true;
        } else if (option == "--lsof" || option == "--sockets-program") {
            if (!value(option == "--lsof" ? &args->programs.lsofPath : &args->programs.socketsPath))
                return false;
            testOnlyOption = true;
        } else if (option.rfind("--", 0) == 0 && setNumericOption(option, 1, &probe)) {
            if (!value(&text))
                return false;
            if (!parseNumber(text, &number) || !setNumericOption(option, number, args)) {
                *error = "option " + option + " needs a number, not '" + text + "'";
                return false;
            }
            testOnlyOption = true;
        } else {
            *error = "unknown option '" + option + "'";
            return false;
        }
    }
    // The socket-activated daemon is the one root runs for everybody: it always uses the fixed
    // programs, the fixed limits and the fixed peer policy.
    if (testOnlyOption && args->socketPath.empty()) {
        *error = "--allow-uid, --lsof, --sockets-program, --without-ebpf, the time-out and the "
                 "connection options need --socket";
        return false;
    }
    return true;
}

std::string ownExecutable(const char* argv0)
{
    std::vector<char> buffer(4096);
    const ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size() - 1);
    if (length <= 0)
        return argv0;
    return std::string(buffer.data(), static_cast<std::size_t>(length));
}

} // namespace

int main(int argc, char** argv)
{
    Arguments args;
    std::string error;
    if (!parseArguments(argc, argv, &args, &error)) {
        std::cerr << "corvina-helper: " << error << '\n' << kUsage;
        return 2;
    }
    if (args.version) {
        std::cout << CVHelperTool::kVersion << '\n';
        return 0;
    }
    if (args.install)
        return HelperInstaller(args.destdir).install(ownExecutable(argv[0]));

    OVPrivilegeToolBase::Options options = args.tool;
    options.policy = PeerPolicy(PeerPolicy::kDefaultGroup, args.allowedUids);
    CVHelperTool tool(options, args.programs);
    if (!args.socketPath.empty()) {
        if (!tool.listenOn(args.socketPath, &error)) {
            std::cerr << "corvina-helper: " << error << '\n';
            return 1;
        }
    } else {
        const int count = sd_listen_fds(1);
        if (count != 1) {
            std::cerr << "corvina-helper: systemd passed no socket (" << count
                      << "); use --socket PATH to run on a socket of its own\n"
                      << kUsage;
            return 2;
        }
        tool.adoptListener(SD_LISTEN_FDS_START);
    }

    runningTool = &tool;
    struct sigaction stop {};
    stop.sa_handler = onStopSignal;
    sigemptyset(&stop.sa_mask);
    ::sigaction(SIGTERM, &stop, nullptr);
    ::sigaction(SIGINT, &stop, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    tool.run();
    runningTool = nullptr;
    return 0;
}

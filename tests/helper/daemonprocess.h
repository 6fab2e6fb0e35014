#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

// A real corvina-helper process on a socket in a temporary folder.
class DaemonProcess final {
public:
    DaemonProcess() = default;
    ~DaemonProcess();
    DaemonProcess(const DaemonProcess&) = delete;
    DaemonProcess& operator=(const DaemonProcess&) = delete;

    static std::string executable();

    // Starts the daemon with `--socket socketPath` and `extraArguments`, and waits until it
    // accepts connections. False if it did not come up.
    bool start(const std::string& socketPath, const std::vector<std::string>& extraArguments);
    // SIGTERM and wait; the exit status, or -1 if it had to be killed.
    int stop(std::chrono::milliseconds patience = std::chrono::milliseconds(3000));
    void kill();
    bool isRunning();
    pid_t pid() const { return m_pid; }

    // Runs the executable with `arguments` and returns its exit status (stdout/err discarded).
    static int runToCompletion(const std::vector<std::string>& arguments);

private:
    pid_t m_pid = -1;
};

// Sends one raw request on a fresh connection and reads one reply frame: the reply's status
// byte and text, or nullopt when the daemon closed the connection without a whole frame.
struct RawReply {
    int operation = -1;
    int status = -1;
    std::string text;
};
std::optional<RawReply> rawRequest(const std::string& socketPath, const std::string& bytes,
                                   std::chrono::milliseconds timeout = std::chrono::seconds(5));
// rawRequest, asked again while the daemon answers `busy` (as a client's next refresh would),
// until `timeout` has passed.
std::optional<RawReply>
rawRequestServed(const std::string& socketPath, const std::string& bytes,
                 std::chrono::milliseconds timeout = std::chrono::seconds(10));
// A correctly framed request for `operation`.
std::string requestBytes(int operation);

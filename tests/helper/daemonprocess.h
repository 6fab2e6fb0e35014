#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
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

// Reply statuses as the wire spells them.
constexpr int kStatusNull = 0;
constexpr int kStatusText = 1;
constexpr int kStatusRefused = 2;
constexpr int kStatusBadRequest = 3;
constexpr int kStatusBusy = 4;

// Runs `body` in a forked child as the user nobody, after `ready` has run in the parent; the
// child's exit status is what `body` answered, -2 when there is no user nobody.
int asNobody(const std::function<int()>& body, const std::function<void()>& ready = {});

// A temporary folder (reachable by the other users the tests act as) holding the daemon's
// socket; the daemon, when still running at the end, must stop cleanly on SIGTERM.
class DaemonTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    // An executable shell script in the folder.
    std::string script(const std::string& name, const std::string& body, unsigned mode = 0755);

    std::string m_dir;
    std::string m_socket;
    DaemonProcess m_daemon;
};

#include "daemonprocess.h"

#include "privileged/framedsocket.h"
#include "privileged/helperprotocol.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <pwd.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace {

pid_t spawn(const std::vector<std::string>& arguments)
{
    std::vector<std::string> words = arguments;
    words.insert(words.begin(), DaemonProcess::executable());
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0)
        pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

} // namespace

std::string DaemonProcess::executable()
{
    return CORVINA_BINARY_DIR "/src/helper/corvina-helper";
}

DaemonProcess::~DaemonProcess()
{
    kill();
}

bool DaemonProcess::start(const std::string& socketPath,
                          const std::vector<std::string>& extraArguments)
{
    std::vector<std::string> arguments = {"--socket", socketPath};
    arguments.insert(arguments.end(), extraArguments.begin(), extraArguments.end());
    m_pid = spawn(arguments);
    if (m_pid < 0)
        return false;
    for (int attempt = 0; attempt < 200; ++attempt) {
        std::string error;
        if (FramedSocket::connectTo(socketPath, &error).isValid())
            return true;
        if (!isRunning())
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

bool DaemonProcess::isRunning()
{
    if (m_pid < 0)
        return false;
    int status = 0;
    if (::waitpid(m_pid, &status, WNOHANG) == m_pid) {
        m_pid = -1;
        return false;
    }
    return true;
}

int DaemonProcess::stop(std::chrono::milliseconds patience)
{
    if (m_pid < 0)
        return -1;
    ::kill(m_pid, SIGTERM);
    const auto deadline = std::chrono::steady_clock::now() + patience;
    int status = 0;
    while (std::chrono::steady_clock::now() < deadline) {
        if (::waitpid(m_pid, &status, WNOHANG) == m_pid) {
            m_pid = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    kill();
    return -1;
}

void DaemonProcess::kill()
{
    if (m_pid < 0)
        return;
    ::kill(m_pid, SIGKILL);
    int status = 0;
    ::waitpid(m_pid, &status, 0);
    m_pid = -1;
}

int DaemonProcess::runToCompletion(const std::vector<std::string>& arguments)
{
    const pid_t pid = spawn(arguments);
    if (pid < 0)
        return -1;
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::optional<RawReply> rawRequestServed(const std::string& socketPath, const std::string& bytes,
                                         std::chrono::milliseconds timeout)
{
    const auto deadline = FramedSocket::Clock::now() + timeout;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - FramedSocket::Clock::now());
        auto reply = rawRequest(socketPath, bytes, left);
        if (!reply || reply->status != static_cast<int>(HelperProtocol::Status::Busy) ||
            left.count() <= 20)
            return reply;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

std::string requestBytes(int operation)
{
    std::string bytes(4, '\0');
    bytes[3] = 2;
    bytes += static_cast<char>(HelperProtocol::kProtocolVersion);
    bytes += static_cast<char>(operation);
    return bytes;
}

std::optional<RawReply> rawRequest(const std::string& socketPath, const std::string& bytes,
                                   std::chrono::milliseconds timeout)
{
    std::string error;
    FramedSocket socket = FramedSocket::connectTo(socketPath, &error);
    if (!socket.isValid())
        return std::nullopt;
    const auto deadline = FramedSocket::Clock::now() + timeout;
    socket.writeRaw(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size(), deadline);
    std::vector<std::uint8_t> payload;
    if (socket.readFrame(payload, HelperProtocol::kMaxReplyFrame, deadline) !=
            FramedSocket::Result::Ok ||
        payload.size() < HelperProtocol::kReplyHeaderSize)
        return std::nullopt;
    return RawReply{payload[1], payload[2], std::string(payload.begin() + 3, payload.end())};
}

int asNobody(const std::function<int()>& body, const std::function<void()>& ready)
{
    const passwd* nobody = ::getpwnam("nobody");
    if (nobody == nullptr)
        return -2;
    int go[2];
    if (::pipe(go) != 0)
        return -1;
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(go[1]);
        if (::setgid(nobody->pw_gid) != 0 || ::setuid(nobody->pw_uid) != 0)
            ::_exit(100);
        char byte = 0;
        if (::read(go[0], &byte, 1) != 1)
            ::_exit(101);
        ::_exit(body());
    }
    ::close(go[0]);
    if (ready)
        ready();
    [[maybe_unused]] const ssize_t written = ::write(go[1], "g", 1);
    ::close(go[1]);
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void DaemonTest::SetUp()
{
    char pattern[] = "/tmp/corvina-helper-XXXXXX";
    ASSERT_NE(::mkdtemp(pattern), nullptr);
    m_dir = pattern;
    ::chmod(m_dir.c_str(), 0755);
    m_socket = m_dir + "/helper.sock";
}

void DaemonTest::TearDown()
{
    if (m_daemon.isRunning()) {
        EXPECT_EQ(m_daemon.stop(), 0) << "the daemon must stop cleanly on SIGTERM";
    }
    std::filesystem::remove_all(m_dir);
}

std::string DaemonTest::script(const std::string& name, const std::string& body, unsigned mode)
{
    const std::string path = m_dir + "/" + name;
    std::ofstream(path) << "#!/bin/sh\n" << body << "\n";
    ::chmod(path.c_str(), mode);
    return path;
}

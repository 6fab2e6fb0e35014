#include "collector/destroylistener.h"
#include "collector/helpersocketowners.h"
#include "collector/nativecollector.h"
#include "daemonprocess.h"
#include "loopbackconnection.h"
#include "privileged/helperprotocol.h"
#include "privileged/ownersreply.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>

using namespace std::chrono_literals;
using namespace HelperProtocol;

namespace {

std::string ownersRequest(const std::vector<std::uint64_t>& cookies)
{
    Request request(Operation::SocketOwners);
    request.cookies = cookies;
    const std::vector<std::uint8_t> payload = encodeRequest(request);
    std::string bytes(kFrameHeaderSize, '\0');
    putLength(reinterpret_cast<std::uint8_t*>(bytes.data()), std::uint32_t(payload.size()));
    return bytes + std::string(payload.begin(), payload.end());
}

// A child named `name` connects to `listener` on the loopback interface, tells its socket's
// cookie, sends a few bytes and exits, gone before anyone reads /proc: its pid and that cookie.
std::pair<pid_t, std::uint64_t> shortLivedChild(int listener, const char* name)
{
    int cookiePipe[2];
    EXPECT_EQ(::pipe(cookiePipe), 0);
    const std::uint16_t port = LoopbackConnection::identityOf(listener).localPort;
    const pid_t child = ::fork();
    if (child == 0) {
        ::prctl(PR_SET_NAME, name);
        const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
        std::uint64_t cookie = 0;
        socklen_t length = sizeof(cookie);
        const bool done =
            ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
            ::getsockopt(fd, SOL_SOCKET, SO_COOKIE, &cookie, &length) == 0 &&
            ::write(cookiePipe[1], &cookie, sizeof(cookie)) == ssize_t(sizeof(cookie)) &&
            ::send(fd, "hello", 5, 0) == 5;
        ::_exit(done ? 0 : 1);
    }
    const int accepted = ::accept(listener, nullptr, nullptr);
    char buffer[16];
    while (::recv(accepted, buffer, sizeof(buffer), 0) > 0) {
    }
    ::close(accepted);
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0) << "the child could not connect and send";
    std::uint64_t cookie = 0;
    EXPECT_EQ(::read(cookiePipe[0], &cookie, sizeof(cookie)), ssize_t(sizeof(cookie)));
    ::close(cookiePipe[0]);
    ::close(cookiePipe[1]);
    return {child, cookie};
}

class SocketOwnersTest : public DaemonTest {
protected:
    void startDaemon(std::vector<std::string> arguments = {})
    {
        arguments.insert(arguments.end(),
                         {"--allow-uid", std::to_string(::getuid()), "--request-timeout", "300"});
        ASSERT_TRUE(m_daemon.start(m_socket, arguments));
    }
    // The daemon's answer about `cookies`, read as the client reads it.
    std::optional<OwnersReply::Answer> ask(const std::vector<std::uint64_t>& cookies)
    {
        const auto reply = rawRequest(m_socket, ownersRequest(cookies));
        if (!reply || reply->status != kStatusText || reply->operation != 6) {
            ADD_FAILURE() << "no text reply: " << (reply ? reply->text : "the daemon hung up");
            return std::nullopt;
        }
        DecodeError error;
        auto answer = OwnersReply::parse(reply->text, &error);
        EXPECT_TRUE(answer) << error.message << ": " << reply->text;
        return answer;
    }
};

// Each malformed request is answered `bad request` at once: a frame longer than its operation
// allows is refused before its body is sent (the daemon's 300 ms read time-out would otherwise
// close the connection unanswered).
TEST_F(SocketOwnersTest, RefusesMalformedAndOversizedRequests)
{
    startDaemon();
    const auto head = [](std::uint32_t length, int operation, std::string rest = {}) {
        std::string bytes(4, '\0');
        putLength(reinterpret_cast<std::uint8_t*>(bytes.data()), length);
        return bytes + '\1' + char(operation) + rest;
    };
    const std::string twoCookies = ownersRequest({1, 2}).substr(kFrameHeaderSize + 4);
    const struct {
        const char* name;
        std::string bytes;
        const char* says;
    } cases[] = {
        {"count above 4096", head(4, 6, std::string("\x10\x01", 2)), "at most 4096"},
        {"count 3, two cookies", head(20, 6, std::string("\0\3", 2) + twoCookies), "28 bytes"},
        {"count 1, two cookies", head(20, 6, std::string("\0\1", 2) + twoCookies), "12 bytes"},
        {"count cut short", head(3, 6, std::string(1, '\0')), "count"},
        {"4097 cookies claimed, body unsent", head(4 + 8 * 4097, 6), "too large"},
        {"version request claiming 100 bytes", head(100, 2), "too large"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto reply = rawRequest(m_socket, c.bytes, 2s);
        ASSERT_TRUE(reply);
        EXPECT_EQ(reply->status, kStatusBadRequest);
        EXPECT_NE(reply->text.find(c.says), std::string::npos) << reply->text;
    }
    const auto full = ask(std::vector<std::uint64_t>(kMaxOwnerCookies, 42));
    ASSERT_TRUE(full) << "the largest request is served";
    EXPECT_TRUE(full->unavailable || full->owners.empty());
}

// The whole road: a child connects, sends and exits, and the daemon names it by its socket's
// cookie, with a command that needs escaping on the wire; this process's connecting socket is
// named once however often asked; an accepted socket (made by the kernel, still open) and a
// cookie nobody has are left out. A daemon without the program says why instead.
TEST_F(SocketOwnersTest, NamesTheOwnersItNotedAndLeavesOutTheRest)
{
    DaemonProcess without;
    ASSERT_TRUE(without.start(m_dir + "/without.sock",
                              {"--allow-uid", std::to_string(::getuid()), "--without-ebpf"}));
    const auto refused = rawRequest(m_dir + "/without.sock", ownersRequest({1}));
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->text, "unavailable: turned off for this daemon (--without-ebpf)");
    EXPECT_EQ(without.stop(), 0);

    startDaemon();
    const auto loaded = ask({});
    ASSERT_TRUE(loaded);
    if (loaded->unavailable)
        GTEST_SKIP() << "the eBPF program cannot run here: " << *loaded->unavailable;
    EXPECT_TRUE(loaded->owners.empty());
    const LoopbackConnection connection;
    const std::uint64_t client = LoopbackConnection::identityOf(connection.client).cookie;
    const std::uint64_t server = LoopbackConnection::identityOf(connection.server).cookie;
    std::string command;
    std::getline(std::ifstream("/proc/self/comm"), command);
    const char name[] = "kid \xc3\xa9\\1";
    const auto [child, cookie] = shortLivedChild(connection.listener, name);

    const auto answer = ask({cookie, client, 0x5eed, server, client});
    ASSERT_TRUE(answer);
    // The reply promises no order.
    const std::map<std::uint64_t, OwnersReply::Owner> expected = {
        {client, {client, std::uint32_t(::getpid()), ::geteuid(), command}},
        {cookie, {cookie, std::uint32_t(child), ::geteuid(), name}}};
    std::map<std::uint64_t, OwnersReply::Owner> owners;
    for (const OwnersReply::Owner& owner : answer->owners)
        EXPECT_TRUE(owners.emplace(owner.cookie, owner).second) << "answered twice";
    EXPECT_EQ(owners, expected);
}

// The record of `cookie` among the collector's closed sockets after its next pass: "PID
// COMMAND", " " without a process, or "not closed".
QString processOfClosed(NativeCollector& collector, std::uint64_t cookie)
{
    std::this_thread::sleep_for(200ms);
    collector.collect();
    for (const SocketRecord& record : collector.closed()) {
        if (record.cookie == cookie)
            return record.processId + QLatin1Char(' ') + record.processName;
    }
    return QStringLiteral("not closed");
}

// What an ordinary user runs: the collector picks the daemon for owners, asks it about each
// pass's short-lived sockets, and names a child of the user's that connected and exited. Run
// as the user nobody (when the test runs as root), in a child that reports what it saw.
TEST_F(SocketOwnersTest, AnOrdinaryUsersCollectorNamesShortLivedSocketsThroughTheDaemon)
{
    const passwd* nobody = ::getpwnam("nobody");
    if (::geteuid() == 0 && nobody == nullptr)
        GTEST_SKIP() << "no user 'nobody' to act as an ordinary user";
    const uid_t user = ::geteuid() == 0 ? nobody->pw_uid : ::geteuid();
    startDaemon({"--allow-uid", std::to_string(user)});
    const auto loaded = ask({});
    ASSERT_TRUE(loaded);
    if (loaded->unavailable)
        GTEST_SKIP() << "the eBPF program cannot run here: " << *loaded->unavailable;
    int report[2];
    ASSERT_EQ(::pipe(report), 0);
    const pid_t collecting = ::fork();
    if (collecting == 0) {
        if (::geteuid() == 0 && (::setgid(nobody->pw_gid) != 0 || ::setuid(user) != 0))
            ::_exit(1);
        const auto collector = NativeCollector::listening(QString::fromStdString(m_socket));
        const LoopbackConnection listening;
        collector->collect();
        const auto [child, cookie] = shortLivedChild(listening.listener, "corvkid");
        const QByteArray seen =
            (QString::number(child) + QLatin1Char('=') + processOfClosed(*collector, cookie) +
             QLatin1Char('|') + collector->problem())
                .toUtf8();
        ::_exit(::write(report[1], seen.constData(), size_t(seen.size())) == seen.size() ? 0 : 1);
    }
    ::close(report[1]);
    char buffer[4096];
    const ssize_t got = ::read(report[0], buffer, sizeof(buffer));
    ::close(report[0]);
    int status = -1;
    ::waitpid(collecting, &status, 0);
    ASSERT_GT(got, 0) << "the collecting child reported nothing";
    const QStringList seen = QString::fromUtf8(buffer, got).split(QLatin1Char('='));
    ASSERT_EQ(seen.size(), 2);
    EXPECT_EQ(seen[1], QString(seen[0] + QStringLiteral(" corvkid|")));
}

// Once the daemon cannot be asked, the collector says so once and goes on without owners.
TEST_F(SocketOwnersTest, TheCollectorSaysOnceThatTheDaemonCannotBeAsked)
{
    startDaemon();
    NativeCollector::Sources sources;
    sources.notices = std::make_unique<DestroyListener>();
    sources.owners = std::make_unique<HelperSocketOwners>(QString::fromStdString(m_socket));
    NativeCollector collector(std::move(sources));
    const LoopbackConnection listening;
    collector.collect();
    EXPECT_EQ(m_daemon.stop(), 0);

    const auto [gone, goneCookie] = shortLivedChild(listening.listener, "corvkid");
    EXPECT_EQ(processOfClosed(collector, goneCookie), QStringLiteral(" "));
    EXPECT_TRUE(collector.problem().contains(QStringLiteral("which cannot be asked")))
        << collector.problem().toStdString();
    const auto [again, againCookie] = shortLivedChild(listening.listener, "corvkid");
    EXPECT_EQ(processOfClosed(collector, againCookie), QStringLiteral(" "));
    EXPECT_TRUE(collector.problem().isEmpty()) << "said once";
}

} // namespace

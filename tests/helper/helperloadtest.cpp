// Load test of the helper daemon (not part of CTest; scripts/helper-loadtest runs it): many
// clients ask for lsof's text (or, with --operation collect, corvina-sockets' text) over and
// over for a while, each on a fresh connection as the application does. With --idle N, N silent
// connections are opened first (from a child running as --idle-uid when given) and held through the
// run: a flood that must neither lock the others out nor make a client wait for the idle ones to
// time out. Prints what came back; exits 1 when any request was neither answered nor cleanly
// refused or turned away.

#include "privileged/framedsocket.h"
#include "privileged/helperprotocol.h"

#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

struct Counts {
    std::atomic<long> text{0};
    std::atomic<long> null{0};
    std::atomic<long> refused{0};
    std::atomic<long> badRequest{0};
    std::atomic<long> busy{0};
    std::atomic<long> connectFailed{0};
    std::atomic<long> timedOut{0};
    std::atomic<long> dropped{0};
    std::atomic<long> badReply{0};
    std::atomic<long> slowestMs{0};
};

void ask(const std::string& socketPath, HelperProtocol::Operation operation, Counts& counts)
{
    using HelperProtocol::Operation;
    using HelperProtocol::Status;
    const auto start = FramedSocket::Clock::now();
    std::string error;
    FramedSocket socket = FramedSocket::connectTo(socketPath, &error);
    if (!socket.isValid()) {
        ++counts.connectFailed;
        return;
    }
    const auto deadline = start + HelperProtocol::kReplyTimeout;
    FramedSocket::Result result =
        socket.writeFrame(HelperProtocol::encodeRequest({operation}), deadline);
    std::vector<std::uint8_t> payload;
    if (result == FramedSocket::Result::Ok)
        result = socket.readFrame(payload, HelperProtocol::kMaxReplyFrame, deadline);
    const long elapsed = long(
        std::chrono::duration_cast<std::chrono::milliseconds>(FramedSocket::Clock::now() - start)
            .count());
    for (long seen = counts.slowestMs.load(); elapsed > seen;) {
        if (counts.slowestMs.compare_exchange_weak(seen, elapsed))
            break;
    }
    if (result == FramedSocket::Result::TimedOut) {
        ++counts.timedOut;
        return;
    }
    if (result != FramedSocket::Result::Ok) {
        ++counts.dropped;
        return;
    }
    HelperProtocol::DecodeError decodeError;
    const auto reply = HelperProtocol::decodeReply(payload, &decodeError);
    if (!reply) {
        ++counts.badReply;
        return;
    }
    switch (reply->status) {
    case Status::Text:
        ++counts.text;
        break;
    case Status::Null:
        ++counts.null;
        break;
    case Status::Refused:
        ++counts.refused;
        break;
    case Status::BadRequest:
        ++counts.badRequest;
        break;
    case Status::Busy:
        ++counts.busy;
        break;
    }
}

bool number(const char* text, long* out)
{
    const char* end = text + std::strlen(text);
    const auto [stop, error] = std::from_chars(text, end, *out);
    return error == std::errc() && stop == end && *out >= 0;
}

// Silent connections held by a child process (running as `uid` unless it is negative) until
// this object goes away.
class IdleFlood {
public:
    IdleFlood(const std::string& socketPath, long count, long uid)
    {
        int ready[2];
        int release[2];
        if (::pipe(ready) != 0 || ::pipe(release) != 0)
            return;
        m_child = ::fork();
        if (m_child == 0) {
            ::close(ready[0]);
            ::close(release[1]);
            if (uid >= 0 &&
                (::setgid(static_cast<gid_t>(uid)) != 0 || ::setuid(static_cast<uid_t>(uid)) != 0))
                ::_exit(2);
            std::vector<FramedSocket> held;
            for (long i = 0; i < count; ++i) {
                std::string error;
                held.push_back(FramedSocket::connectTo(socketPath, &error));
            }
            const char done = 'r';
            [[maybe_unused]] const ssize_t written = ::write(ready[1], &done, 1);
            char ignored = 0;
            [[maybe_unused]] const ssize_t got = ::read(release[0], &ignored, 1);
            ::_exit(0);
        }
        ::close(ready[1]);
        ::close(release[0]);
        m_release = release[1];
        char done = 0;
        m_ready = m_child > 0 && ::read(ready[0], &done, 1) == 1;
        ::close(ready[0]);
    }
    ~IdleFlood()
    {
        if (m_release >= 0)
            ::close(m_release);
        if (m_child > 0)
            ::waitpid(m_child, nullptr, 0);
    }
    IdleFlood(const IdleFlood&) = delete;
    IdleFlood& operator=(const IdleFlood&) = delete;
    bool ready() const { return m_ready; }

private:
    pid_t m_child = -1;
    int m_release = -1;
    bool m_ready = false;
};

// One version request: what came back and how long it took.
void probe(const std::string& socketPath, long idle)
{
    using HelperProtocol::Operation;
    const auto start = FramedSocket::Clock::now();
    std::string error;
    FramedSocket socket = FramedSocket::connectTo(socketPath, &error);
    std::vector<std::uint8_t> payload;
    const auto deadline = start + HelperProtocol::kReplyTimeout;
    FramedSocket::Result result =
        socket.writeFrame(HelperProtocol::encodeRequest({Operation::GetVersion}), deadline);
    if (result == FramedSocket::Result::Ok)
        result = socket.readFrame(payload, HelperProtocol::kMaxReplyFrame, deadline);
    HelperProtocol::DecodeError decodeError;
    const auto reply = result == FramedSocket::Result::Ok
                           ? HelperProtocol::decodeReply(payload, &decodeError)
                           : std::nullopt;
    const long elapsed = long(
        std::chrono::duration_cast<std::chrono::milliseconds>(FramedSocket::Clock::now() - start)
            .count());
    static const char* const kStatuses[] = {"null", "text", "refused", "bad request", "busy"};
    std::printf("with %ld idle connections held, uid %u asked: %s after %ld ms\n", idle,
                unsigned(::getuid()),
                reply ? kStatuses[static_cast<int>(reply->status)] : FramedSocket::describe(result),
                elapsed);
}

struct Settings {
    std::string socketPath;
    long clients = 200;
    long seconds = 60;
    long idle = 0;
    long idleUid = -1;
    HelperProtocol::Operation operation = HelperProtocol::Operation::RunLsof;
};

bool parse(int argc, char** argv, Settings* settings)
{
    if (argc % 2 == 0)
        return false;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        const char* value = argv[i + 1];
        if (option == "--socket")
            settings->socketPath = value;
        else if (option == "--operation" &&
                 (std::strcmp(value, "lsof") == 0 || std::strcmp(value, "collect") == 0))
            settings->operation = std::strcmp(value, "lsof") == 0
                                      ? HelperProtocol::Operation::RunLsof
                                      : HelperProtocol::Operation::RunCollector;
        else if (!((option == "--clients" && number(value, &settings->clients)) ||
                   (option == "--seconds" && number(value, &settings->seconds)) ||
                   (option == "--idle" && number(value, &settings->idle)) ||
                   (option == "--idle-uid" && number(value, &settings->idleUid))))
            return false;
    }
    return !settings->socketPath.empty() && settings->clients > 0 && settings->seconds > 0;
}

} // namespace

int main(int argc, char** argv)
{
    Settings settings;
    if (!parse(argc, argv, &settings)) {
        std::fprintf(stderr,
                     "usage: corvina_helper_loadtest --socket PATH [--clients N] "
                     "[--seconds S] [--operation lsof|collect] [--idle N [--idle-uid UID]]\n");
        return 2;
    }
    std::unique_ptr<IdleFlood> flood;
    if (settings.idle > 0) {
        flood = std::make_unique<IdleFlood>(settings.socketPath, settings.idle, settings.idleUid);
        if (!flood->ready()) {
            std::fprintf(stderr, "could not open the idle connections\n");
            return 1;
        }
        probe(settings.socketPath, settings.idle);
    }

    Counts counts;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(settings.seconds);
    std::vector<std::thread> threads;
    for (long i = 0; i < settings.clients; ++i) {
        threads.emplace_back([&] {
            while (std::chrono::steady_clock::now() < end)
                ask(settings.socketPath, settings.operation, counts);
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    std::printf("clients %ld, seconds %ld\n"
                "answered with text %ld\nanswered null %ld\nrefused %ld\nbad request %ld\n"
                "turned away busy %ld\ncould not connect %ld\ntimed out %ld\n"
                "closed without a reply %ld\nunreadable reply %ld\nslowest answer ms %ld\n",
                settings.clients, settings.seconds, counts.text.load(), counts.null.load(),
                counts.refused.load(), counts.badRequest.load(), counts.busy.load(),
                counts.connectFailed.load(), counts.timedOut.load(), counts.dropped.load(),
                counts.badReply.load(), counts.slowestMs.load());
    const bool clean = counts.timedOut == 0 && counts.dropped == 0 && counts.badReply == 0 &&
                       counts.badRequest == 0;
    return clean ? 0 : 1;
}

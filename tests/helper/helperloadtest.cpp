// Load test of the helper daemon (not part of CTest; scripts/helper-loadtest runs it): many
// clients ask for lsof's text (or, with --operation collect, corvina-sockets' text) over and
// over for a while, each on a fresh connection as the application does. With --idle N, N silent
// connections are opened first (from a child running as --idle-uid when given) and held through the
// run: a flood that must neither lock the others out nor make a client wait for the idle ones to
// time out. Prints what came back; exits 1 when any request was neither answered nor cleanly
// refused or turned away.

#include "privileged/framedsocket.h"
#include "privileged/helperprotocol.h"
#include "silentclients.h"

#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// What became of one request: a reply's status (as its number), or one of these.
enum Outcome { kConnectFailed = 5, kTimedOut, kDropped, kBadReply, kOutcomes };
static_assert(static_cast<int>(HelperProtocol::Status::Busy) + 1 == kConnectFailed);
const char* const kOutcomeNames[kOutcomes] = {
    "answered null", "answered with text",     "refused",
    "bad request",   "turned away busy",       "could not connect",
    "timed out",     "closed without a reply", "unreadable reply"};

struct Counts {
    std::atomic<long> outcomes[kOutcomes] = {};
    std::atomic<long> slowestMs{0};
};

// Asks once on a fresh connection; the outcome and how long it took.
std::pair<int, long> ask(const std::string& socketPath, HelperProtocol::Operation operation)
{
    const auto start = FramedSocket::Clock::now();
    const auto elapsed = [start] {
        return long(std::chrono::duration_cast<std::chrono::milliseconds>(
                        FramedSocket::Clock::now() - start)
                        .count());
    };
    std::string error;
    FramedSocket socket = FramedSocket::connectTo(socketPath, &error);
    if (!socket.isValid())
        return {kConnectFailed, elapsed()};
    const auto deadline = start + HelperProtocol::kReplyTimeout;
    FramedSocket::Result result =
        socket.writeFrame(HelperProtocol::encodeRequest({operation}), deadline);
    std::vector<std::uint8_t> payload;
    if (result == FramedSocket::Result::Ok)
        result = socket.readFrame(payload, HelperProtocol::kMaxReplyFrame, deadline);
    if (result != FramedSocket::Result::Ok)
        return {result == FramedSocket::Result::TimedOut ? kTimedOut : kDropped, elapsed()};
    HelperProtocol::DecodeError decodeError;
    const auto reply = HelperProtocol::decodeReply(payload, &decodeError);
    return {reply ? static_cast<int>(reply->status) : kBadReply, elapsed()};
}

void count(const std::pair<int, long>& asked, Counts& counts)
{
    ++counts.outcomes[asked.first];
    for (long seen = counts.slowestMs.load(); asked.second > seen;) {
        if (counts.slowestMs.compare_exchange_weak(seen, asked.second))
            break;
    }
}

bool number(const char* text, long* out)
{
    const char* end = text + std::strlen(text);
    const auto [stop, error] = std::from_chars(text, end, *out);
    return error == std::errc() && stop == end && *out >= 0;
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
    std::unique_ptr<SilentClients> flood;
    if (settings.idle > 0) {
        const uid_t uid = settings.idleUid >= 0 ? uid_t(settings.idleUid) : ::getuid();
        flood = std::make_unique<SilentClients>(settings.socketPath, uid, int(settings.idle), 0);
        if (flood->busy() < 0) {
            std::fprintf(stderr, "could not open the idle connections\n");
            return 1;
        }
        const auto [outcome, ms] = ask(settings.socketPath, HelperProtocol::Operation::GetVersion);
        std::printf("with %ld idle connections held, uid %u asked: %s after %ld ms\n",
                    settings.idle, unsigned(::getuid()), kOutcomeNames[outcome], ms);
    }

    Counts counts;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(settings.seconds);
    std::vector<std::thread> threads;
    for (long i = 0; i < settings.clients; ++i) {
        threads.emplace_back([&] {
            while (std::chrono::steady_clock::now() < end)
                count(ask(settings.socketPath, settings.operation), counts);
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    std::printf("clients %ld, seconds %ld\n", settings.clients, settings.seconds);
    for (int outcome = 0; outcome < kOutcomes; ++outcome)
        std::printf("%s %ld\n", kOutcomeNames[outcome], counts.outcomes[outcome].load());
    std::printf("slowest answer ms %ld\n", counts.slowestMs.load());
    const bool clean = counts.outcomes[kTimedOut] == 0 && counts.outcomes[kDropped] == 0 &&
                       counts.outcomes[kBadReply] == 0 &&
                       counts.outcomes[int(HelperProtocol::Status::BadRequest)] == 0;
    return clean ? 0 : 1;
}

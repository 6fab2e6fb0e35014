// Load test of the helper daemon (not part of CTest; scripts/helper-loadtest runs it): many
// clients ask for lsof's text over and over for a while, each on a fresh connection as the
// application does. Prints what came back; exits 1 when any request was neither answered nor
// cleanly refused.

#include "privileged/framedsocket.h"
#include "privileged/helperprotocol.h"

#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Counts {
    std::atomic<long> text{0};
    std::atomic<long> null{0};
    std::atomic<long> refused{0};
    std::atomic<long> badRequest{0};
    std::atomic<long> connectFailed{0};
    std::atomic<long> timedOut{0};
    std::atomic<long> dropped{0};
    std::atomic<long> badReply{0};
    std::atomic<long> slowestMs{0};
};

void ask(const std::string& socketPath, Counts& counts)
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
        socket.writeFrame(HelperProtocol::encodeRequest({Operation::RunLsof}), deadline);
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
    }
}

bool number(const char* text, long* out)
{
    const char* end = text + std::strlen(text);
    const auto [stop, error] = std::from_chars(text, end, *out);
    return error == std::errc() && stop == end && *out > 0;
}

} // namespace

int main(int argc, char** argv)
{
    std::string socketPath;
    long clients = 200;
    long seconds = 60;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--socket")
            socketPath = argv[i + 1];
        else if (!((option == "--clients" && number(argv[i + 1], &clients)) ||
                   (option == "--seconds" && number(argv[i + 1], &seconds))))
            socketPath.clear(), i = argc;
    }
    if (socketPath.empty() || argc % 2 == 0) {
        std::fprintf(stderr, "usage: corvina_helper_loadtest --socket PATH [--clients N] "
                             "[--seconds S]\n");
        return 2;
    }

    Counts counts;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    std::vector<std::thread> threads;
    for (long i = 0; i < clients; ++i) {
        threads.emplace_back([&] {
            while (std::chrono::steady_clock::now() < end)
                ask(socketPath, counts);
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    std::printf("clients %ld, seconds %ld\n"
                "answered with text %ld\nanswered null %ld\nrefused %ld\nbad request %ld\n"
                "could not connect %ld\ntimed out %ld\nclosed without a reply %ld\n"
                "unreadable reply %ld\nslowest answer ms %ld\n",
                clients, seconds, counts.text.load(), counts.null.load(), counts.refused.load(),
                counts.badRequest.load(), counts.connectFailed.load(), counts.timedOut.load(),
                counts.dropped.load(), counts.badReply.load(), counts.slowestMs.load());
    const bool clean = counts.timedOut == 0 && counts.dropped == 0 && counts.badReply == 0 &&
                       counts.badRequest == 0;
    return clean ? 0 : 1;
}

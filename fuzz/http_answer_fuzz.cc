// What a receiver, or a stranger in its place, answers to an alert over HTTP. Input: a kind of sink, then a status, the
// header Retry-After and a body; or all bytes of the answer.
//
// An alert counts as taken by a good answer alone, and by one of a collector only when nothing was left out; what is shown
// of the answer, and the pause that it asks for, are within bounds.
#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <map>
#include <string>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "agent/sinks/sink.h"
#include "fuzz/fuzz.h"

namespace {

using Result = sinks::Outcome::Result;

// Of the answer's body, and what stands before it.
constexpr size_t kMostShown = 1024 + 100;

// Answers one request after the other with the same bytes, and hangs up.
class Receiver {
  public:
    Receiver() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in own = {};
        own.sin_family = AF_INET;
        own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const timeval patience = {10, 0}; // for who does not ask at all
        setsockopt(listener_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        auto *address = reinterpret_cast<sockaddr *>(&own);
        socklen_t size = sizeof own;
        fuzz::Expect(bind(listener_, address, size) == 0 && listen(listener_, 10) == 0 &&
                         getsockname(listener_, address, &size) == 0,
                     "no port of the loopback interface can be had");
        port_ = ntohs(own.sin_port);
    }

    [[nodiscard]] std::string Url() const { return "http://127.0.0.1:" + std::to_string(port_); }

    void AnswerOne(const std::string &answer) const
    {
        const int peer = accept(listener_, nullptr, nullptr);
        fuzz::Expect(peer >= 0, "the sink has sent nothing");
        ReadRequest(peer);
        // A client that has seen enough hangs up first.
        (void)send(peer, answer.data(), answer.size(), MSG_NOSIGNAL);
        shutdown(peer, SHUT_WR);
        char rest[512];
        while (recv(peer, rest, sizeof rest, 0) > 0) {
        }
        close(peer);
    }

  private:
    // To its end: what is not read would take the answer away with it.
    static void ReadRequest(int peer)
    {
        constexpr char kLength[] = "Content-Length: ";
        std::string request;
        size_t wanted = SIZE_MAX;
        char piece[4096];
        for (ssize_t got = 1; got > 0 && request.size() < wanted;) {
            got = recv(peer, piece, sizeof piece, 0);
            request.append(piece, static_cast<size_t>(std::max<ssize_t>(got, 0)));
            const size_t end = request.find("\r\n\r\n");
            const size_t length = request.find(kLength);
            if (end == std::string::npos || length == std::string::npos)
                continue;
            size_t body = 0;
            std::from_chars(&request[length + sizeof kLength - 1], &request[end], body);
            wanted = end + 4 + body;
        }
    }

    int listener_;
    int port_ = 0;
};

struct Answer {
    std::string bytes;
    int status = 0;          // 0: the bytes are anything
    bool leaves_out = false; // a collector's
    bool may_leave_out = false;
};

// The number of records that a collector has left out, in each form in which it can be written.
std::string PartialSuccess(fuzz::Input &input, bool *leaves_out)
{
    const uint64_t count = input.Number(8);
    *leaves_out = count > 0;
    constexpr std::array<std::array<const char *, 2>, 3> kForms = {
        {{"", ""}, {"\"", "\""}, {"", ".0e0"}}};
    const auto &[before, behind] = kForms[input.Byte() % kForms.size()];
    return R"({"partialSuccess":{"rejectedLogRecords":)" + std::string(before) +
           std::to_string(count) + behind + "}}";
}

Answer Draw(fuzz::Input &input, uint8_t bits)
{
    if ((bits & 4U) != 0)
        return {input.Rest()};
    Answer answer;
    answer.status = 200 + static_cast<int>(input.Number(2) % 400);
    std::string wish = input.Bytes(40);
    std::erase_if(wish, [](unsigned char c) { return c < ' '; });
    std::string body = (bits & 8U) != 0 ? PartialSuccess(input, &answer.leaves_out) : input.Rest();
    answer.leaves_out = answer.leaves_out && answer.status != 204; // which has no body
    answer.may_leave_out = body.find("rejectedLogRecords") != std::string::npos;
    answer.bytes = "HTTP/1.1 " + std::to_string(answer.status) + " So\r\nRetry-After: " + wish +
                   "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    return answer;
}

// The kinds that speak HTTP: a webhook, a collector's, and that which takes many at once.
enum Kind { kWebhook, kCollector, kAlertmanager, kKinds };

sinks::Outcome Send(const Receiver &receiver, Kind kind, const Answer &answer)
{
    sinks::SinkConfig config;
    config.name = "fuzzed";
    config.kind = &sinks::FindKind(kind == kAlertmanager ? "alertmanager" : "webhook");
    config.options = {{kind == kAlertmanager ? "peers" : "url", receiver.Url()}, {"timeout", "5"}};
    if (kind == kCollector)
        config.options["format"] = "otlp";
    sinks::Secrets secrets;
    const auto peers = config.Peers();
    auto sink = config.kind->open(config, peers.front(), secrets);
    sinks::Message message;
    message.alert.message = "one";
    message.key = "uuid/1";
    const sinks::Interrupt interrupt;
    std::thread receiving([&] { receiver.AnswerOne(answer.bytes); });
    auto outcome = sink->Send(std::span(&message, 1), interrupt);
    // Whoever still waits for more is told that there is none.
    sink.reset();
    receiving.join();
    return outcome;
}

// Is it what the status means, and what a collector says of the alert?
bool IsRight(Result result, Kind kind, const Answer &answer)
{
    constexpr int kOfReceiver[] = {401, 404, 407, 429, 503};
    if (answer.status < 300) {
        const bool is_collector = kind == kCollector;
        if (result == Result::kTaken)
            return !is_collector || !answer.leaves_out;
        return result == Result::kRefused && is_collector && answer.may_leave_out;
    }
    const bool is_of_receiver =
        answer.status < 400 || std::find(std::begin(kOfReceiver), std::end(kOfReceiver),
                                         answer.status) != std::end(kOfReceiver);
    return result == (is_of_receiver ? Result::kFailed : Result::kRefused);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const Receiver receiver;
    fuzz::Input input(data, size);
    const uint8_t bits = input.Byte();
    const Kind kind = static_cast<Kind>((bits & 3U) % kKinds);
    const Answer answer = Draw(input, bits);
    const sinks::Outcome outcome = Send(receiver, kind, answer);

    fuzz::Expect(outcome.answer.size() <= kMostShown, "too much of the answer is kept");
    fuzz::Expect(outcome.retry_after.count() >= 0, "the next try is in the past");
    const bool is_taken = outcome.result == Result::kTaken;
    fuzz::Expect(outcome.taken == (is_taken ? 1U : 0U), "the count is of another result");
    if (answer.status == 0)
        fuzz::Expect(!is_taken || answer.bytes.find(" 2") != std::string::npos,
                     "taken without a good answer");
    else
        fuzz::Expect(IsRight(outcome.result, kind, answer),
                     "not what a status means: " + outcome.answer);
    return 0;
}

// Kind "nats": a stream of a fleet's servers, from which a collector takes the alerts of all hosts.
//
// Each store has a subject of its own. What counts of it is the last message that the stream has: the sink asks for it
// each time it connects, and goes on behind it. So it does not matter what the servers have answered before, or have
// forgotten since: what they do not have is sent again, as long as the store keeps it.
//
//   syslogmon.alerts.UUID    the store's alerts, in the order of their IDs
//     Nats-Msg-Id            the alert's key: the servers drop what comes twice within minutes
//     Syslogmon-After        the ID of the alert that was sent before it: so a reader sees whether one is missing
//     Syslogmon-Dropped      how many have left the store in between, unsent, at its limit; most alerts have none
//   syslogmon.tests.UUID     marked test alerts, which no stream keeps
//
// Each message states the sequence that its subject has come to. The servers refuse it when another one has written
// there since: then the place is asked for again. When that is an alert that this store never had, this host or
// another one is a copy, which would write its own alerts among those of the first: the sink sends nothing more.
#include <algorithm>
#include <cstring>
#include <thread>

#include "agent/alerts/alert_store.h"
#include "agent/host/error.h"
#include "agent/host/here_and_now.h"
#include "agent/nats/pace.h"
#include "agent/sinks/alert_json.h"
#include "agent/sinks/delivery_store.h"
#include "agent/sinks/nats_options.h"
#include "agent/sinks/nats_subjects.h"
#include "agent/sinks/option_checks.h"
#include "agent/sinks/sink_kinds.h"

namespace sinks {

namespace {

// Alerts that are sent without a look at the store between them. Each waits for its answer.
constexpr size_t kAtOnce = 64;

// Bytes of a line in a message. A server takes messages of a megabyte at most, unless set otherwise; a line of the
// monitor is far shorter, and an alert has seven texts.
constexpr size_t kMaxLine = 32 * size_t{1024};

std::string HeaderOf(natsMsg *message, const char *name)
{
    const char *value = nullptr;
    return natsMsgHeader_Get(message, name, &value) == NATS_OK && value != nullptr ? value : "";
}

void Cut(std::string &text)
{
    text.resize(std::min(text.size(), kMaxLine));
}

// The same, small enough for every server.
Message Bounded(Message message)
{
    alerts::Alert &alert = message.alert;
    for (std::string *text :
         {&alert.message, &alert.last_message, &alert.summary, &alert.held_back.first,
          &alert.held_back.last, &alert.value, &alert.terms})
        Cut(*text);
    return message;
}

// Alerts of one host in a second. A storm there leaves the servers to the others; what waits is in the store.
constexpr char kPaceOption[] = "pace";

int64_t IdOfKey(const std::string &key)
{
    const size_t slash = key.rfind('/');
    return slash == std::string::npos ? 0 : strtoll(key.c_str() + slash + 1, nullptr, 10);
}

std::string CheckPace(const std::string &value)
{
    return CheckRange(value, 1, 100000, "alerts");
}

class NatsSink : public Sink {
  public:
    NatsSink(nats::Access access, const SinkConfig &config)
        : access_(std::move(access)), stream_(config.Get("stream")),
          subject_(kAlertSubject + config.store_uuid),
          test_subject_(kTestSubject + config.store_uuid),
          pace_(static_cast<int>(config.Number(kPaceOption)),
                std::chrono::nanoseconds(std::chrono::seconds(1)) / config.Number(kPaceOption))
    {
    }

    [[nodiscard]] size_t batch() const override { return kAtOnce; }

    int64_t LastTaken(host::Database &database, const Delivery &noted) override;
    Outcome Send(std::span<const Message> messages, const Interrupt &interrupt) override;

  private:
    const nats::Connection &Connected();
    int64_t AgeOfStream();
    Outcome SendTest(const Message &message);
    void Publish(const Message &message);

    nats::Access access_;
    std::string stream_;
    std::string subject_;
    std::string test_subject_;
    std::optional<nats::Connection> connection_;
    nats::Pace pace_;
    uint64_t sequence_ = 0; // in the stream, of the last message of the subject; 0: there is none
};

const nats::Connection &NatsSink::Connected()
{
    if (!connection_)
        connection_.emplace(access_);
    return *connection_;
}

// How long the stream keeps a message, in milliseconds; 0: for ever.
int64_t NatsSink::AgeOfStream()
{
    jsStreamInfo *found = nullptr;
    jsErrCode code{};
    const natsStatus status =
        js_GetStreamInfo(&found, Connected().stream(), stream_.c_str(), nullptr, &code);
    const nats::Owned<jsStreamInfo> info(found);
    if (status == NATS_NOT_FOUND)
        throw host::Error(
            "cannot send to the stream " + stream_, "the servers have none of that name",
            "have it made with syslogmon collect on the host that collects the alerts");
    Connected().Check(status, "ask for the stream " + stream_, code);
    return info->Config->MaxAge / 1000000; // nanoseconds
}

// The first alert that is kept and was stored at or after a moment; the one behind the newest: none was.
int64_t FirstSince(host::Database &database, int64_t since_ms)
{
    const auto found = alerts::ReadAlerts(database, 0, since_ms, 1);
    return found.empty() ? alerts::NewestAlertId(database) + 1 : found[0].id;
}

[[noreturn]] void TellOfCopy(const std::string &key)
{
    throw host::Error("cannot send as this host",
                      "another one writes under its name: the alert " + key +
                          " came from a copy of this store, on a machine that was cloned",
                      "run syslogmon fleet identity --new on the one that is the copy, and start "
                      "its daemon anew");
}

int64_t NatsSink::LastTaken(host::Database &database, const Delivery &noted)
{
    jsDirectGetMsgOptions last;
    jsDirectGetMsgOptions_Init(&last);
    last.LastBySubject = subject_.c_str();
    natsMsg *found = nullptr;
    const natsStatus status =
        js_DirectGetMsg(&found, Connected().stream(), stream_.c_str(), nullptr, &last);
    const nats::Owned<natsMsg> message(found);
    if (status == NATS_NOT_FOUND || status == NATS_NO_RESPONDERS) {
        const int64_t age_ms = AgeOfStream(); // or it tells that there is no stream
        if (status == NATS_NO_RESPONDERS)
            Connected().Check(status, "ask for the last alert of this host");
        sequence_ = 0;
        if (noted.delivered == 0)
            return noted.last_id; // nothing was ever sent
        // It has lost all, or all have become too old for it.
        return std::min(noted.last_id,
                        FirstSince(database, age_ms == 0 ? 0 : host::NowMs() - age_ms) - 1);
    }
    Connected().Check(status, "ask for the last alert of this host");
    const std::string key = HeaderOf(found, kKeyHeader);
    const int64_t id = IdOfKey(key);
    // Also of an alert that has left the store. By its number alone, one of a copy could pass for it.
    if (id <= 0 || id > alerts::NewestAlertId(database) || alerts::KeyOf(database, id) != key)
        TellOfCopy(key);
    sequence_ = strtoull(HeaderOf(found, JSSequence).c_str(), nullptr, 10);
    return id;
}

Outcome NatsSink::Send(std::span<const Message> messages, const Interrupt &interrupt)
{
    if (messages[0].is_test)
        return SendTest(messages[0]);
    size_t taken = 0;
    try {
        for (; taken < messages.size() && !interrupt.IsRaised(); ++taken) {
            std::this_thread::sleep_until(pace_.Next());
            pace_.Take(nats::Pace::Clock::now());
            Publish(Bounded(messages[taken]));
        }
    } catch (const host::Error &error) {
        return Failed(error.what(), taken);
    }
    return taken == messages.size() ? AllTaken(messages, "") : Failed("interrupted", taken);
}

// Nothing is ever refused for good: an alert that is too long is cut before, and all others go in order or wait.
void NatsSink::Publish(const Message &message)
{
    const std::string body = AlertJson(message);
    natsMsg *made = nullptr;
    Connected().Check(natsMsg_Create(&made, subject_.c_str(), nullptr, body.data(),
                                     static_cast<int>(body.size())),
                      "make a message");
    const nats::Owned<natsMsg> publication(made);
    natsMsgHeader_Set(made, kAfterHeader, std::to_string(message.after).c_str());
    if (message.lost > 0)
        natsMsgHeader_Set(made, kDroppedHeader, std::to_string(message.lost).c_str());
    jsPubOptions options;
    jsPubOptions_Init(&options);
    options.MsgId = message.key.c_str();
    options.ExpectStream = stream_.c_str();
    options.ExpectLastSubjectSeq = sequence_;
    options.ExpectNoMessage = sequence_ == 0;
    jsPubAck *answered = nullptr;
    jsErrCode code{};
    const natsStatus status = js_PublishMsg(&answered, Connected().stream(), made, &options, &code);
    const nats::Owned<jsPubAck> answer(answered);
    Connected().Check(status, "send to the stream " + stream_, code);
    // They had it before, but not as the last one. The place says what they have.
    if (answer->Duplicate)
        throw host::Error("cannot send the alert " + message.key,
                          "the servers remember it and do not have it",
                          "nothing is to be done: it is sent again in two minutes");
    sequence_ = answer->Sequence;
}

// The stream must be there, and this client must be let in.
Outcome NatsSink::SendTest(const Message &message)
{
    const std::string body = AlertJson(message);
    AgeOfStream();
    Connected().Check(natsConnection_Publish(Connected().raw(), test_subject_.c_str(), body.data(),
                                             static_cast<int>(body.size())),
                      "send a test");
    Connected().Flush();
    return AllTaken(std::span(&message, 1),
                    "the stream " + stream_ + " is there; the test went to " + test_subject_);
}

} // namespace

SinkKind NatsKind()
{
    SinkKind kind;
    kind.name = "nats";
    kind.help = "a stream of a fleet's NATS servers, from which syslogmon collect takes the alerts";
    kind.options = NatsOptions();
    kind.options.push_back(
        {"stream", "NAME", kDefaultStream, "the stream of the alerts", CheckStreamName});
    kind.options.push_back({"look", "SECONDS", "60",
                            "how often to ask the servers what they have, when nothing is sent",
                            CheckSeconds<1, 300>});
    kind.options.push_back(
        {kPaceOption, "NUMBER", "500",
         "how many alerts it sends in a second, and at once after a rest; the others wait",
         CheckPace});
    kind.open = [](const SinkConfig &config, const std::string &,
                   Secrets &secrets) -> std::unique_ptr<Sink> {
        return std::make_unique<NatsSink>(AccessOf(config, secrets), config);
    };
    kind.look = [](const SinkConfig &config) -> std::chrono::milliseconds {
        return std::chrono::seconds(config.Number("look"));
    };
    kind.warnings = PlainNatsWarnings;
    return kind;
}

} // namespace sinks

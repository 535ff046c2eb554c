#include "agent/fleet/stream_reader.h"

#include <ctime>
#include <thread>

#include <nlohmann/json.hpp>

#include "agent/fleet/stream_message.h"
#include "agent/host/error.h"
#include "agent/sinks/nats_subjects.h"

namespace fleet {

namespace {

using std::chrono::steady_clock;

constexpr int64_t kNanoseconds = int64_t{1000} * 1000 * 1000; // of a second
constexpr int64_t kMiB = int64_t{1} << 20U;

// Messages that are taken in one transaction, and their bytes: what is in memory at a time.
constexpr int kAtOnce = 500;
constexpr int64_t kBytesAtOnce = int64_t{8} * 1024 * 1024;
// How long a request for messages stands: for the first one, and for those behind it. Without an answer behind that, it is
// lost.
constexpr int64_t kRequestStands = kNanoseconds;
constexpr std::chrono::milliseconds kAnswerComes{1500};
// Those that are there already come one right behind the other.
constexpr std::chrono::milliseconds kShortWait{20};
// Servers that cannot answer are asked again behind it.
constexpr std::chrono::milliseconds kPause{200};
// What was delivered and not confirmed is delivered again behind it. A transaction waits for the monitor's pass at most.
constexpr int64_t kConfirmWithin = 120 * kNanoseconds;
// After so long without a message the servers are asked whether they still know this reader.
constexpr std::chrono::seconds kSilence{10};

// So often they are asked whether the last message that has come is still the one with its number. While they elect
// another one to lead, they are silent for longer.
constexpr std::chrono::seconds kLookAtPlace{1};
// The servers drop what comes twice within it. The place that is read back needs none of it.
constexpr int64_t kDuplicates = 120 * kNanoseconds;
// Bytes of a message: seven texts and labels, see agent/sinks/nats_sink.cc.
constexpr int32_t kMaxMessage = 512 * 1024;

// Of a moment as the servers write it, "2026-11-23T05:45:43.11027693Z", since 1970; 0: it is none.
int64_t NanosecondsIn(const std::string &text)
{
    tm moment{};
    const char *rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &moment);
    if (rest == nullptr)
        return 0;
    int64_t fraction = 0;
    int64_t unit = kNanoseconds;
    for (rest += *rest == '.' ? 1 : 0; *rest >= '0' && *rest <= '9' && unit > 1; ++rest) {
        unit /= 10;
        fraction += (*rest - '0') * unit;
    }
    return timegm(&moment) * kNanoseconds + fraction;
}

// What the servers say to the question for a message. Neither: nothing that can be read.
struct PlaceAnswer {
    bool is_there = false;
    bool is_gone = false;  // they have none of that number
    int64_t stored_ns = 0; // since 1970
};

PlaceAnswer PlaceAnswerIn(natsMsg *answer)
{
    using nlohmann::json;
    const json said =
        json::parse(std::string_view(natsMsg_GetData(answer),
                                     static_cast<size_t>(natsMsg_GetDataLength(answer))),
                    nullptr, false);
    const auto member = [](const json &of, const char *name) {
        return of.is_object() && of.contains(name) ? of[name] : json();
    };
    const json time = member(member(said, "message"), "time");
    const int64_t stored_ns = time.is_string() ? NanosecondsIn(time.get<std::string>()) : 0;
    return {stored_ns != 0, member(said, "error").is_object(), stored_ns};
}

} // namespace

StreamReader::StreamReader(const nats::Access &access, const sinks::SinkConfig &config,
                           std::string reader)
    : connection_(access), config_(config), stream_(config.Get("stream")), name_(std::move(reader)),
      inbox_(access.inbox + ".read-" +
             std::to_string(steady_clock::now().time_since_epoch().count())),
      heard_at_(steady_clock::now())
{
    FindStream();
    if (created_ == 0) {
        MakeStream();
        FindStream();
    }
}

void StreamReader::FindStream()
{
    jsStreamInfo *found = nullptr;
    jsErrCode code{};
    const natsStatus status =
        js_GetStreamInfo(&found, connection_.stream(), stream_.c_str(), nullptr, &code);
    const nats::Owned<jsStreamInfo> info(found);
    if (status == NATS_NOT_FOUND)
        return;
    connection_.Check(status, "ask for the stream " + stream_, code);
    created_ = info->Created;
}

void StreamReader::MakeStream()
{
    const char *subjects[] = {sinks::kAllAlerts};
    jsStreamConfig wanted;
    jsStreamConfig_Init(&wanted);
    wanted.Name = stream_.c_str();
    wanted.Description = "alerts of syslogmon";
    wanted.Subjects = subjects;
    wanted.SubjectsLen = 1;
    wanted.Replicas = config_.Number("replicas");
    wanted.MaxAge = config_.Number("keep") * 3600 * kNanoseconds;
    wanted.MaxMsgSize = kMaxMessage;
    // One that floods puts its own oldest ones out, and no other's; and what is taken waits behind so many of it at most.
    wanted.MaxMsgsPerSubject = config_.Number("keep-alerts");
    if (config_.Has("keep-mib"))
        wanted.MaxBytes = config_.Number("keep-mib") * kMiB;
    wanted.Discard = js_DiscardOld;
    wanted.Duplicates = kDuplicates;
    wanted.AllowDirect = true; // a host may ask for its own last alert, and for no other
    jsErrCode code{};
    const natsStatus status = js_AddStream(nullptr, connection_.stream(), &wanted, nullptr, &code);
    // Another collector has made it at this moment.
    if (code != JSStreamNameExistErr)
        connection_.Check(status, "make the stream " + stream_, code);
}

// Do the servers remember this reader as one that has confirmed all up to this sequence?
bool StreamReader::IsAt(uint64_t sequence)
{
    jsConsumerInfo *found = nullptr;
    jsErrCode code{};
    const natsStatus status = js_GetConsumerInfo(&found, connection_.stream(), stream_.c_str(),
                                                 name_.c_str(), nullptr, &code);
    const nats::Owned<jsConsumerInfo> info(found);
    if (status == NATS_NOT_FOUND)
        return false;
    connection_.Check(status, "ask for the reader of the stream " + stream_, code);
    if (info->NumAckPending == 0 && info->Delivered.Stream == sequence) {
        count_ = info->Delivered.Consumer;
        return true;
    }
    ForgetReader();
    return false;
}

void StreamReader::ForgetReader()
{
    jsErrCode code{};
    const natsStatus deleted =
        js_DeleteConsumer(connection_.stream(), stream_.c_str(), name_.c_str(), nullptr, &code);
    if (deleted != NATS_NOT_FOUND)
        connection_.Check(deleted, "begin anew in the stream " + stream_, code);
}

// Servers that were put back to an older disk, or are led by one that lacks the last messages, give the numbers of those
// anew. What has left the stream by its age is no sign of that. Nothing: while none of them leads, nobody knows.
std::optional<bool> StreamReader::HaveOther(uint64_t sequence, int64_t stored_ns)
{
    const std::string doing = "find the place in the stream " + stream_;
    const std::string question = "{\"seq\":" + std::to_string(sequence) + "}";
    natsMsg *found = nullptr;
    const natsStatus status = natsConnection_RequestString(
        &found, connection_.raw(), ("$JS.API.STREAM.MSG.GET." + stream_).c_str(), question.c_str(),
        connection_.timeout().count());
    const nats::Owned<natsMsg> answer(found);
    if (status == NATS_NO_RESPONDERS || (status == NATS_TIMEOUT && !connection_.IsRefused()))
        return std::nullopt;
    connection_.Check(status, doing);
    const PlaceAnswer said = PlaceAnswerIn(found);
    if (said.is_there)
        return stored_ns != 0 && said.stored_ns != stored_ns;
    // What cannot be read says nothing against it.
    if (!said.is_gone)
        return false;
    jsStreamInfo *told = nullptr;
    jsErrCode code{};
    connection_.Check(
        js_GetStreamInfo(&told, connection_.stream(), stream_.c_str(), nullptr, &code), doing,
        code);
    const nats::Owned<jsStreamInfo> info(told);
    return info->State.LastSeq < sequence;
}

// Returns whether to go on. While nobody says what is at the place, what is delivered behind it may be under numbers that the
// servers give anew, and then the next look would see nothing of that.
bool StreamReader::LookAtPlace()
{
    if (sequence_ == 0 || steady_clock::now() - place_seen_at_ < kLookAtPlace)
        return true;
    connection_.Flush(); // and tells when what was confirmed is refused
    const std::optional<bool> have_other = HaveOther(sequence_, sequence_stored_ns_);
    if (have_other.value_or(false))
        throw host::Error("cannot go on in the stream " + stream_,
                          "the servers have lost the message " + std::to_string(sequence_) +
                              ", which was taken, and give its number anew",
                          "nothing is to be done: what they have stored since is read again");
    if (!have_other) {
        std::this_thread::sleep_for(kPause);
        return false;
    }
    place_seen_at_ = steady_clock::now();
    return true;
}

// `is_known`: the place is where it was.
void StreamReader::MakeReader(const StreamPlace &place, bool is_known)
{
    jsConsumerConfig wanted;
    jsConsumerConfig_Init(&wanted);
    wanted.Durable = name_.c_str();
    wanted.Description = "syslogmon collect";
    wanted.DeliverPolicy = js_DeliverAll;
    if (is_known && place.sequence > 0) {
        wanted.DeliverPolicy = js_DeliverByStartSequence;
        wanted.OptStartSeq = place.sequence + 1;
    } else if (place.stored_ns > kClocksDifferMs * kNanosecondsInMs) {
        wanted.DeliverPolicy = js_DeliverByStartTime;
        wanted.OptStartTime = place.stored_ns - kClocksDifferMs * kNanosecondsInMs;
    }
    wanted.AckPolicy = js_AckAll;
    wanted.AckWait = kConfirmWithin;
    wanted.MaxAckPending = int64_t{2} * kAtOnce;
    jsErrCode code{};
    const natsStatus status =
        js_AddConsumer(nullptr, connection_.stream(), stream_.c_str(), &wanted, nullptr, &code);
    connection_.Check(status, "begin reading the stream " + stream_, code);
    count_ = 0;
}

void StreamReader::BeginBehind(const StreamPlace &place)
{
    const bool is_known =
        place.sequence == 0 || !HaveOther(place.sequence, place.stored_ns).value_or(false);
    if (!is_known)
        ForgetReader();
    if (!is_known || !IsAt(place.sequence))
        MakeReader(place, is_known);
    if (is_known) {
        sequence_ = place.sequence;
        sequence_stored_ns_ = place.stored_ns;
    }
    natsSubscription *subscription = nullptr;
    connection_.Check(
        natsConnection_SubscribeSync(&subscription, connection_.raw(), inbox_.c_str()),
        "read the stream " + stream_);
    subscription_.reset(subscription);
}

uint64_t StreamReader::Read()
{
    messages_.clear();
    if (LookAtPlace())
        Fetch();
    if (messages_.empty()) {
        LookAfterSilence();
        return 0;
    }
    heard_at_ = steady_clock::now();
    was_withheld_ = false;
    for (const auto &message : messages_)
        CheckOrder(message.get());
    return sequence_;
}

// The library's own way to do this, natsSubscription_FetchRequest, is not used: in its version 3.4.1 it writes behind the end
// of its list when messages of a request that has ended come together with those of the next one.
void StreamReader::Ask()
{
    const std::string subject = "$JS.API.CONSUMER.MSG.NEXT." + stream_ + "." + name_;
    const nlohmann::json question = {
        {"batch", kAtOnce}, {"max_bytes", kBytesAtOnce}, {"expires", kRequestStands}};
    connection_.Check(natsConnection_PublishRequestString(connection_.raw(), subject.c_str(),
                                                          inbox_.c_str(), question.dump().c_str()),
                      "read the stream " + stream_);
    asked_for_ = kAtOnce;
    asked_at_ = steady_clock::now();
}

// The first one is waited for; what is there already comes with it. The request may stand behind it, and then what comes
// next is the answer to it as well.
void StreamReader::Fetch()
{
    if (asked_for_ == 0)
        Ask();
    while (asked_for_ > 0) {
        natsMsg *found = nullptr;
        const natsStatus status = natsSubscription_NextMsg(
            &found, subscription_.get(), (messages_.empty() ? kAnswerComes : kShortWait).count());
        nats::Owned<natsMsg> message(found);
        if (status == NATS_TIMEOUT) {
            if (steady_clock::now() - asked_at_ > kAnswerComes)
                asked_for_ = 0;
            return;
        }
        // While the servers elect another one to lead, nobody is there to answer: they are asked again. How long that may
        // last is said by the look after a silence.
        if (status == NATS_NO_RESPONDERS) {
            asked_for_ = 0;
            if (messages_.empty())
                std::this_thread::sleep_for(kPause);
            return;
        }
        connection_.Check(status, "read the stream " + stream_);
        if (IsMessage(found)) {
            --asked_for_;
            messages_.push_back(std::move(message));
            continue;
        }
        asked_for_ = 0;
        if (messages_.empty() && !HasEnded(found))
            std::this_thread::sleep_for(kPause);
    }
}

// The servers count their deliveries. One that is missing, or comes once more, is seen by that.
void StreamReader::CheckOrder(natsMsg *message)
{
    const Delivery delivery = DeliveryOf(message);
    const bool is_next =
        delivery.times == 1 && delivery.number == count_ + 1 && delivery.sequence > sequence_;
    if (!is_next)
        throw host::Error("cannot go on in the stream " + stream_,
                          "the servers deliver the message " + std::to_string(delivery.sequence) +
                              " behind " + std::to_string(sequence_) + " out of order",
                          "nothing is to be done: it is read again from there");
    sequence_ = delivery.sequence;
    sequence_stored_ns_ = delivery.stored_ns;
    count_ = delivery.number;
}

std::vector<Arrived> StreamReader::Arrivals() const
{
    std::vector<Arrived> arrivals;
    for (const auto &message : messages_)
        arrivals.push_back(ArrivedOf(message.get()));
    return arrivals;
}

// All before the last one count as confirmed with it. When the word is lost, the next connection finds out.
void StreamReader::Confirm()
{
    const char *place = natsMsg_GetReply(messages_.back().get());
    connection_.Check(natsConnection_PublishString(connection_.raw(), place, "+ACK"),
                      "confirm what was read");
}

bool StreamReader::LookBack(Missing *missing, const Give &give) const
{
    return fleet::LookBack(connection_, stream_, missing, give);
}

void StreamReader::LookAfterSilence()
{
    if (steady_clock::now() - heard_at_ < kSilence)
        return;
    heard_at_ = steady_clock::now();
    jsConsumerInfo *found = nullptr;
    jsErrCode code{};
    const natsStatus status = js_GetConsumerInfo(&found, connection_.stream(), stream_.c_str(),
                                                 name_.c_str(), nullptr, &code);
    const nats::Owned<jsConsumerInfo> info(found);
    connection_.Check(status, "go on in the stream " + stream_, code);
    // What was stored at this moment may be on its way. What they had at the last look as well is not.
    // And what was delivered in its name and confirmed by somebody else comes no more.
    const bool is_withheld = info->NumPending > 0 || info->NumAckPending > 0 ||
                             (sequence_ > 0 && info->Delivered.Stream > sequence_);
    if (is_withheld && was_withheld_) {
        // Another one is begun at the place that the store knows, also when the servers say of this one that it is there.
        ForgetReader();
        throw host::Error("cannot go on in the stream " + stream_,
                          "the servers have messages behind " + std::to_string(sequence_) +
                              " and do not deliver them",
                          "nothing is to be done: it is read again from there");
    }
    was_withheld_ = is_withheld;
}

} // namespace fleet

#include "agent/fleet/stream_reader.h"

#include <cstring>

#include "agent/host/error.h"
#include "agent/sinks/nats_subjects.h"

namespace fleet {

namespace {

using std::chrono::steady_clock;

constexpr int64_t kNanoseconds = 1000 * 1000 * 1000; // of a second

// Messages that are taken in one transaction, and their bytes: what is in memory at a time.
constexpr int kAtOnce = 500;
constexpr int64_t kBytesAtOnce = int64_t{8} * 1024 * 1024;
// How long to wait for the first message, and then for those that are there already.
constexpr int64_t kWait = kNanoseconds;
constexpr int64_t kShortWait = kNanoseconds / 50;
// What was delivered and not confirmed is delivered again behind it. A transaction waits for the monitor's pass at most.
constexpr int64_t kConfirmWithin = 120 * kNanoseconds;
// After so long without a message the servers are asked whether they still know this reader.
constexpr std::chrono::seconds kSilence{10};

// The servers drop what comes twice within it. The place that is read back needs none of it.
constexpr int64_t kDuplicates = 120 * kNanoseconds;
// Bytes of a message: six texts and labels, see agent/sinks/nats_sink.cc.
constexpr int32_t kMaxMessage = 512 * 1024;

int64_t NumberIn(natsMsg *message, const char *header)
{
    const char *value = nullptr;
    const bool is_there = natsMsgHeader_Get(message, header, &value) == NATS_OK && value != nullptr;
    const int64_t number = is_there ? strtoll(value, nullptr, 10) : 0;
    return std::max<int64_t>(number, 0);
}

} // namespace

StreamReader::StreamReader(const nats::Access &access, const sinks::SinkConfig &config,
                           std::string reader)
    : connection_(access), config_(config), stream_(config.Get("stream")), name_(std::move(reader)),
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

void StreamReader::MakeReader(uint64_t sequence)
{
    jsConsumerConfig wanted;
    jsConsumerConfig_Init(&wanted);
    wanted.Durable = name_.c_str();
    wanted.Description = "syslogmon collect";
    wanted.DeliverPolicy = sequence == 0 ? js_DeliverAll : js_DeliverByStartSequence;
    wanted.OptStartSeq = sequence == 0 ? 0 : sequence + 1;
    wanted.AckPolicy = js_AckAll;
    wanted.AckWait = kConfirmWithin;
    wanted.MaxAckPending = 2 * kAtOnce;
    jsErrCode code{};
    const natsStatus status =
        js_AddConsumer(nullptr, connection_.stream(), stream_.c_str(), &wanted, nullptr, &code);
    connection_.Check(status, "begin reading the stream " + stream_, code);
    count_ = 0;
}

void StreamReader::BeginBehind(uint64_t sequence)
{
    if (!IsAt(sequence))
        MakeReader(sequence);
    sequence_ = sequence;
    jsSubOptions options;
    jsSubOptions_Init(&options);
    options.Stream = stream_.c_str();
    options.Consumer = name_.c_str();
    natsSubscription *subscription = nullptr;
    jsErrCode code{};
    const natsStatus status =
        js_PullSubscribe(&subscription, connection_.stream(), sinks::kAllAlerts, name_.c_str(),
                         nullptr, &options, &code);
    connection_.Check(status, "read the stream " + stream_, code);
    subscription_.reset(subscription);
}

// The first one is waited for; what is there already comes with it. While there is more than is taken at once, nothing
// is waited for.
uint64_t StreamReader::Read()
{
    messages_.clear();
    if (!was_full_) {
        Fetch(1, true);
        if (messages_.empty()) {
            LookAfterSilence();
            return 0;
        }
    }
    Fetch(kAtOnce, false);
    was_full_ = messages_.size() >= kAtOnce;
    if (messages_.empty())
        return 0;
    heard_at_ = steady_clock::now();
    was_withheld_ = false;
    for (const auto &message : messages_)
        CheckOrder(message.get());
    return sequence_;
}

void StreamReader::Fetch(int most, bool waits)
{
    jsFetchRequest request;
    jsFetchRequest_Init(&request);
    request.Batch = most;
    request.MaxBytes = most == 1 ? 0 : kBytesAtOnce;
    request.Expires = waits ? kWait : kShortWait;
    request.NoWait = !waits;
    natsMsgList list{};
    const natsStatus status = natsSubscription_FetchRequest(&list, subscription_.get(), &request);
    for (int i = 0; i < list.Count; ++i) {
        messages_.emplace_back(list.Msgs[i]);
        list.Msgs[i] = nullptr;
    }
    natsMsgList_Destroy(&list);
    // That there is none comes in several words.
    if (status != NATS_TIMEOUT && status != NATS_NOT_FOUND)
        connection_.Check(status, "read the stream " + stream_);
}

// The servers count their deliveries. One that is missing, or comes once more, is seen by that.
void StreamReader::CheckOrder(natsMsg *message)
{
    jsMsgMetaData *found = nullptr;
    connection_.Check(natsMsg_GetMetaData(&found, message),
                      "read a message of the stream " + stream_);
    const nats::Owned<jsMsgMetaData> data(found);
    const bool is_next = data->NumDelivered == 1 && data->Sequence.Consumer == count_ + 1 &&
                         data->Sequence.Stream > sequence_;
    if (!is_next)
        throw host::Error("cannot go on in the stream " + stream_,
                          "the servers deliver the message " +
                              std::to_string(data->Sequence.Stream) + " behind " +
                              std::to_string(sequence_) + " out of order",
                          "nothing is to be done: it is read again from there");
    sequence_ = data->Sequence.Stream;
    count_ = data->Sequence.Consumer;
}

std::vector<Arrived> StreamReader::Arrivals() const
{
    std::vector<Arrived> arrivals;
    for (const auto &message : messages_) {
        Arrived arrived;
        arrived.uuid = natsMsg_GetSubject(message.get()) + strlen(sinks::kAlertSubject);
        arrived.body.assign(natsMsg_GetData(message.get()),
                            static_cast<size_t>(natsMsg_GetDataLength(message.get())));
        arrived.after = NumberIn(message.get(), sinks::kAfterHeader);
        arrived.dropped = NumberIn(message.get(), sinks::kDroppedHeader);
        arrivals.push_back(std::move(arrived));
    }
    return arrivals;
}

// All before the last one count as confirmed with it. When the word is lost, the next connection finds out.
void StreamReader::Confirm()
{
    connection_.Check(natsMsg_Ack(messages_.back().get(), nullptr), "confirm what was read");
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
    const bool is_withheld = info->NumPending > 0 || info->NumAckPending > 0;
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

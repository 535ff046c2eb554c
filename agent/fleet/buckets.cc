#include "agent/fleet/buckets.h"

#include <cstdlib>

#include "agent/fleet/group_files.h"
#include "agent/host/error.h"

namespace fleet {

namespace {

constexpr int64_t kNanosecondsInMs = 1000000;
constexpr int64_t kForgottenAfter = int64_t{30} * 86400 * 1000 * kNanosecondsInMs;
constexpr int64_t kRevisions = 8;
constexpr char kOperation[] = "KV-Operation"; // a header; without it the message is a value
constexpr char kDeleted[] = "DEL";
// Of a message: its headers, and what the servers add.
constexpr int32_t kRoomForHeaders = 4096;

std::string StreamOf(const std::string &bucket)
{
    return "KV_" + bucket;
}

std::string HeaderOf(natsMsg *message, const char *name)
{
    const char *value = nullptr;
    return natsMsgHeader_Get(message, name, &value) == NATS_OK && value != nullptr ? value : "";
}

struct BucketForm {
    const char *name;
    const char *description;
    int64_t revisions;
    int64_t max_age; // nanoseconds; 0: for ever
    size_t max_value;
};

// Where the second one is, the first one is, too.
constexpr BucketForm kBuckets[] = {
    {kStatusBucket, "hosts with syslogmon", 1, kForgottenAfter, kMaxStatus},
    {kRulesBucket, "rules of the groups of syslogmon", kRevisions, 0, kMaxGroupValue},
};

// On how many servers a bucket is kept for which nobody has said it.
constexpr int64_t kUsualReplicas = 3;

// What the servers say to it; 0: they have made it.
jsErrCode TryToMake(const nats::Connection &connection, const BucketForm &form, int64_t replicas)
{
    const std::string stream = StreamOf(form.name);
    const std::string subject = SubjectOf(form.name, ">");
    const char *subjects[] = {subject.c_str()};
    jsStreamConfig wanted;
    jsStreamConfig_Init(&wanted);
    wanted.Name = stream.c_str();
    wanted.Description = form.description;
    wanted.Subjects = subjects;
    wanted.SubjectsLen = 1;
    wanted.Replicas = replicas;
    wanted.MaxMsgsPerSubject = form.revisions;
    wanted.MaxAge = form.max_age;
    wanted.MaxMsgSize = static_cast<int32_t>(form.max_value) + kRoomForHeaders;
    wanted.Discard = js_DiscardNew;
    wanted.DenyDelete = true;
    wanted.AllowDirect = true; // a host may ask for its own keys, and for no others
    jsErrCode code{};
    const natsStatus status = js_AddStream(nullptr, connection.stream(), &wanted, nullptr, &code);
    if (code == JSStreamReplicasNotSupportedErr)
        return code;
    if (code == JSClusterNoPeersErr)
        throw host::Error(std::string("cannot make the bucket ") + form.name,
                          "fewer than " + std::to_string(replicas) +
                              " servers are there to keep it",
                          "start them all, or say replicas= with syslogmon collect on the host "
                          "that collects");
    // Somebody else has made it at this moment.
    if (code != JSStreamNameExistErr)
        connection.Check(status, std::string("make the bucket ") + form.name, code);
    return jsErrCode{};
}

void MakeBucket(const nats::Connection &connection, const BucketForm &form,
                std::optional<int64_t> replicas)
{
    const bool stands_alone =
        TryToMake(connection, form, replicas.value_or(kUsualReplicas)) != jsErrCode{};
    if (!stands_alone)
        return;
    if (replicas)
        throw host::Error(std::string("cannot make the bucket ") + form.name,
                          "there is one server, and it is to be kept on " +
                              std::to_string(*replicas),
                          "set syslogmon collect up with replicas=1");
    TryToMake(connection, form, 1);
}

// The library's own object for a bucket.
nats::Owned<kvStore> Open(const nats::Connection &connection, const std::string &bucket)
{
    kvStore *opened = nullptr;
    const natsStatus status = js_KeyValue(&opened, connection.stream(), bucket.c_str());
    nats::Owned<kvStore> store(opened);
    if (status == NATS_NOT_FOUND)
        throw host::Error("cannot ask for the bucket " + bucket,
                          "the servers have none of that name",
                          "give a group its files with syslogmon fleet apply, which makes it");
    connection.Check(status, "ask for the bucket " + bucket);
    return store;
}

KeyValue ValueOf(kvEntry *entry)
{
    KeyValue value;
    value.key = kvEntry_Key(entry);
    value.revision = kvEntry_Revision(entry);
    value.is_deleted = kvEntry_Operation(entry) != kvOp_Put;
    value.stored_ms = kvEntry_Created(entry) / kNanosecondsInMs;
    if (const int length = kvEntry_ValueLen(entry); length > 0)
        value.value.assign(static_cast<const char *>(kvEntry_Value(entry)),
                           static_cast<size_t>(length));
    return value;
}

std::vector<KeyValue> ReadAll(const nats::Connection &connection, const std::string &bucket,
                              const std::string &keys, bool with_history)
{
    const nats::Owned<kvStore> store = Open(connection, bucket);
    const std::string doing = "read the bucket " + bucket;
    kvWatchOptions options;
    kvWatchOptions_Init(&options);
    options.IncludeHistory = with_history;
    options.Timeout = connection.timeout().count();
    kvWatcher *made = nullptr;
    connection.Check(kvStore_Watch(&made, store.get(), keys.c_str(), &options), doing);
    const nats::Owned<kvWatcher> watcher(made);
    std::vector<KeyValue> values;
    for (;;) {
        kvEntry *found = nullptr;
        connection.Check(kvWatcher_Next(&found, made, connection.timeout().count()), doing);
        const nats::Owned<kvEntry> entry(found);
        if (!entry) // all that were there have come
            return values;
        values.push_back(ValueOf(entry.get()));
    }
}

} // namespace

std::string AllKey(const std::string &group)
{
    return group + ".all";
}

std::string CanaryKey(const std::string &group)
{
    return group + ".canary";
}

std::string SubjectOf(const std::string &bucket, const std::string &key)
{
    return "$KV." + bucket + "." + key;
}

void MakeBuckets(const nats::Connection &connection, std::optional<int64_t> replicas)
{
    for (const BucketForm &form : kBuckets) {
        if (CreatedOf(connection, form.name) == 0)
            MakeBucket(connection, form, replicas);
    }
}

int64_t CreatedOf(const nats::Connection &connection, const std::string &bucket)
{
    jsStreamInfo *found = nullptr;
    jsErrCode code{};
    const natsStatus status =
        js_GetStreamInfo(&found, connection.stream(), StreamOf(bucket).c_str(), nullptr, &code);
    const nats::Owned<jsStreamInfo> info(found);
    if (status == NATS_NOT_FOUND)
        return 0;
    connection.Check(status, "ask for the bucket " + bucket, code);
    return info->Created;
}

std::optional<KeyValue> ReadKey(const nats::Connection &connection, const std::string &bucket,
                                const std::string &key)
{
    const std::string subject = SubjectOf(bucket, key);
    jsDirectGetMsgOptions last;
    jsDirectGetMsgOptions_Init(&last);
    last.LastBySubject = subject.c_str();
    natsMsg *found = nullptr;
    const natsStatus status =
        js_DirectGetMsg(&found, connection.stream(), StreamOf(bucket).c_str(), nullptr, &last);
    const nats::Owned<natsMsg> message(found);
    if (status == NATS_NOT_FOUND)
        return std::nullopt;
    connection.Check(status, "read " + key + " in the bucket " + bucket);
    KeyValue value;
    value.key = key;
    value.revision = strtoull(HeaderOf(found, JSSequence).c_str(), nullptr, 10);
    value.is_deleted = !HeaderOf(found, kOperation).empty();
    value.stored_ms = natsMsg_GetTime(found) / kNanosecondsInMs;
    value.value.assign(natsMsg_GetData(found), static_cast<size_t>(natsMsg_GetDataLength(found)));
    return value;
}

std::vector<KeyValue> ReadBucket(const nats::Connection &connection, const std::string &bucket)
{
    return ReadAll(connection, bucket, ">", false);
}

std::vector<KeyValue> ReadHistory(const nats::Connection &connection, const std::string &bucket,
                                  const std::string &key)
{
    return ReadAll(connection, bucket, key, true);
}

namespace {

uint64_t Publish(const nats::Connection &connection, const std::string &bucket, natsMsg *message,
                 jsPubOptions *options, const std::string &doing)
{
    const std::string stream = StreamOf(bucket);
    options->ExpectStream = stream.c_str();
    jsPubAck *answered = nullptr;
    jsErrCode code{};
    const natsStatus status =
        js_PublishMsg(&answered, connection.stream(), message, options, &code);
    const nats::Owned<jsPubAck> answer(answered);
    if (code == JSStreamWrongLastSequenceErr)
        throw host::Error("cannot " + doing, "somebody else has changed it at this moment",
                          "look at it with syslogmon fleet export, and try again");
    if (status == NATS_NO_RESPONDERS)
        throw host::Error("cannot " + doing, "the servers have no such bucket, or stand still",
                          "have it made with syslogmon fleet status on the host that collects");
    connection.Check(status, doing, code);
    return answer->Sequence;
}

nats::Owned<natsMsg> MessageFor(const nats::Connection &connection, const std::string &bucket,
                                const std::string &key, const std::string &value)
{
    natsMsg *made = nullptr;
    connection.Check(natsMsg_Create(&made, SubjectOf(bucket, key).c_str(), nullptr, value.data(),
                                    static_cast<int>(value.size())),
                     "make a message");
    return nats::Owned<natsMsg>(made);
}

} // namespace

uint64_t WriteKey(const nats::Connection &connection, const std::string &bucket,
                  const std::string &key, const std::string &value, std::optional<uint64_t> behind)
{
    const nats::Owned<natsMsg> message = MessageFor(connection, bucket, key, value);
    jsPubOptions options;
    jsPubOptions_Init(&options);
    options.ExpectLastSubjectSeq = behind.value_or(0);
    options.ExpectNoMessage = behind == uint64_t{0};
    return Publish(connection, bucket, message.get(), &options,
                   "write " + key + " in the bucket " + bucket);
}

void DeleteKey(const nats::Connection &connection, const std::string &bucket,
               const std::string &key)
{
    const nats::Owned<natsMsg> message = MessageFor(connection, bucket, key, "");
    natsMsgHeader_Set(message.get(), kOperation, kDeleted);
    jsPubOptions options;
    jsPubOptions_Init(&options);
    Publish(connection, bucket, message.get(), &options,
            "take " + key + " out of the bucket " + bucket);
}

void PurgeKey(const nats::Connection &connection, const std::string &bucket, const std::string &key)
{
    const std::string subject = SubjectOf(bucket, key);
    jsOptions options;
    jsOptions_Init(&options);
    options.Wait = connection.timeout().count();
    options.Stream.Purge.Subject = subject.c_str();
    jsErrCode code{};
    const natsStatus status =
        js_PurgeStream(connection.stream(), StreamOf(bucket).c_str(), &options, &code);
    connection.Check(status, "take " + key + " out of the bucket " + bucket, code);
}

namespace {

// A reader that nobody uses, which goes by itself: when it was made is all the time that the servers tell without
// something being stored.
int64_t AskForTime(const nats::Connection &connection)
{
    jsConsumerConfig wanted;
    jsConsumerConfig_Init(&wanted);
    wanted.DeliverPolicy = js_DeliverNew;
    wanted.AckPolicy = js_AckExplicit;
    wanted.InactiveThreshold = 1000 * kNanosecondsInMs;
    jsConsumerInfo *made = nullptr;
    jsErrCode code{};
    const natsStatus status = js_AddConsumer(
        &made, connection.stream(), StreamOf(kStatusBucket).c_str(), &wanted, nullptr, &code);
    const nats::Owned<jsConsumerInfo> reader(made);
    connection.Check(status, "ask for the time", code);
    return reader->Created / kNanosecondsInMs;
}

} // namespace

ServersClock::ServersClock(const nats::Connection &connection)
    : asked_ms_(AskForTime(connection)), asked_at_(std::chrono::steady_clock::now())
{
}

int64_t ServersClock::NowMs() const
{
    using namespace std::chrono;
    return asked_ms_ + duration_cast<milliseconds>(steady_clock::now() - asked_at_).count();
}

} // namespace fleet

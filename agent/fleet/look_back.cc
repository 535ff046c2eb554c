#include "agent/fleet/look_back.h"

#include <algorithm>

#include "agent/fleet/stream_message.h"
#include "agent/host/error.h"
#include "agent/sinks/nats_subjects.h"

namespace fleet {

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds kLookFor{1};
// A message that is there comes within it.
constexpr std::chrono::milliseconds kComesWithin{1000};
// What is in memory at a time: messages, and their bytes.
constexpr size_t kMessagesInMemory = 500;
constexpr size_t kBytesInMemory = size_t{8} * 1024 * 1024;

// A reader of one host's messages, which the servers forget behind the look.
class HostReader {
  public:
    HostReader(const nats::Connection &connection, const std::string &stream,
               const Missing &missing)
        : connection_(connection), doing_("look for missing alerts in the stream " + stream)
    {
        const std::string subject = sinks::kAlertSubject + missing.uuid;
        jsSubOptions wanted;
        jsSubOptions_Init(&wanted);
        wanted.Stream = stream.c_str();
        wanted.Ordered = true;
        wanted.Config.DeliverPolicy = missing.since_ms > 0 ? js_DeliverByStartTime : js_DeliverAll;
        wanted.Config.OptStartTime = missing.since_ms * kNanosecondsInMs;
        natsSubscription *made = nullptr;
        jsErrCode code{};
        const natsStatus status =
            js_SubscribeSync(&made, connection.stream(), subject.c_str(), nullptr, &wanted, &code);
        subscription_.reset(made);
        connection.Check(status, doing_, code);
    }
    ~HostReader() { natsSubscription_Unsubscribe(subscription_.get()); }
    HostReader(const HostReader &) = delete;
    HostReader &operator=(const HostReader &) = delete;

    [[nodiscard]] bool HasMessages() const
    {
        jsConsumerInfo *found = nullptr;
        jsErrCode code{};
        const natsStatus status =
            natsSubscription_GetConsumerInfo(&found, subscription_.get(), nullptr, &code);
        const nats::Owned<jsConsumerInfo> info(found);
        connection_.Check(status, doing_, code);
        return info->NumPending + info->Delivered.Consumer > 0;
    }

    [[nodiscard]] nats::Owned<natsMsg> Next() const
    {
        natsMsg *found = nullptr;
        const natsStatus status =
            natsSubscription_NextMsg(&found, subscription_.get(), kComesWithin.count());
        nats::Owned<natsMsg> message(found);
        connection_.Check(status, doing_);
        return message;
    }

  private:
    const nats::Connection &connection_;
    std::string doing_;
    nats::Owned<natsSubscription> subscription_;
};

// What was read and not given yet.
class Some {
  public:
    explicit Some(const Give &give) : give_(give) {}

    void Add(Arrived message)
    {
        bytes_ += message.body.size();
        messages_.push_back(std::move(message));
        if (messages_.size() >= kMessagesInMemory || bytes_ >= kBytesInMemory)
            GiveAll();
    }
    void GiveAll()
    {
        if (!messages_.empty())
            give_(messages_);
        messages_.clear();
        bytes_ = 0;
    }

  private:
    const Give &give_;
    std::vector<Arrived> messages_;
    size_t bytes_ = 0;
};

// Returns whether it was the last one that is wanted.
bool ReadOne(const HostReader &reader, Missing *missing, Some *some)
{
    const nats::Owned<natsMsg> message = reader.Next();
    Arrived arrived = ArrivedOf(message.get());
    missing->since_ms = arrived.stored_ms;
    some->Add(std::move(arrived));
    return DeliveryOf(message.get()).pending == 0 || missing->since_ms > missing->until_ms;
}

} // namespace

bool LookBack(const nats::Connection &connection, const std::string &stream, Missing *missing,
              const Give &give)
{
    const HostReader reader(connection, stream, *missing);
    Some some(give);
    bool is_over = !reader.HasMessages();
    // From here on: servers that are slow to make a reader would be asked for ever, and nothing read.
    const auto until = steady_clock::now() + kLookFor;
    try {
        while (!is_over && steady_clock::now() < until)
            is_over = ReadOne(reader, missing, &some);
    } catch (const host::Error &) {
        some.GiveAll();
        throw;
    }
    some.GiveAll();
    return is_over;
}

} // namespace fleet

#include "agent/fleet/look_back.h"

#include "agent/fleet/stream_message.h"
#include "agent/sinks/nats_subjects.h"

namespace fleet {

namespace {

constexpr uint64_t kMostOfALook = 100'000; // messages
constexpr size_t kInMemory = 500;

// A reader of one host's messages, which the servers forget behind the look.
class HostReader {
  public:
    HostReader(const nats::Connection &connection, const std::string &stream,
               const LookBackSpan &span)
        : connection_(connection), doing_("look for missing alerts in the stream " + stream)
    {
        const std::string subject = sinks::kAlertSubject + span.uuid;
        jsSubOptions wanted;
        jsSubOptions_Init(&wanted);
        wanted.Stream = stream.c_str();
        wanted.Ordered = true;
        const int64_t since_ns = span.since_ms * kNanosecondsInMs - kClocksDiffer;
        wanted.Config.DeliverPolicy = since_ns > 0 ? js_DeliverByStartTime : js_DeliverAll;
        wanted.Config.OptStartTime = std::max<int64_t>(since_ns, 0);
        natsSubscription *made = nullptr;
        jsErrCode code{};
        const natsStatus status =
            js_SubscribeSync(&made, connection.stream(), subject.c_str(), nullptr, &wanted, &code);
        subscription_.reset(made);
        connection.Check(status, doing_, code);
    }

    // How many messages there are.
    [[nodiscard]] uint64_t Count() const
    {
        jsConsumerInfo *found = nullptr;
        jsErrCode code{};
        const natsStatus status =
            natsSubscription_GetConsumerInfo(&found, subscription_.get(), nullptr, &code);
        const nats::Owned<jsConsumerInfo> info(found);
        connection_.Check(status, doing_, code);
        return info->NumPending + info->Delivered.Consumer;
    }

    [[nodiscard]] nats::Owned<natsMsg> Next() const
    {
        natsMsg *found = nullptr;
        const natsStatus status =
            natsSubscription_NextMsg(&found, subscription_.get(), connection_.timeout().count());
        nats::Owned<natsMsg> message(found);
        connection_.Check(status, doing_);
        return message;
    }

  private:
    const nats::Connection &connection_;
    std::string doing_;
    nats::Owned<natsSubscription> subscription_;
};

} // namespace

void LookBack(const nats::Connection &connection, const std::string &stream,
              const LookBackSpan &span, const TakeLate &take)
{
    const HostReader reader(connection, stream, span);
    const int64_t until_ms = span.until_ms + kClocksDiffer / kNanosecondsInMs;
    bool is_over = false;
    std::vector<Arrived> some;
    for (uint64_t left = std::min(reader.Count(), kMostOfALook); left > 0 && !is_over; --left) {
        some.push_back(ArrivedOf(reader.Next().get()));
        is_over = some.back().stored_ms > until_ms;
        if (some.size() < kInMemory && left > 1 && !is_over)
            continue;
        is_over = !take(some) || is_over;
        some.clear();
    }
}

} // namespace fleet

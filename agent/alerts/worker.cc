#include "agent/alerts/worker.h"

#include <algorithm>

#include "agent/libtarsk/error.h"
#include "platform/trace.h"

namespace alerts {

namespace {

constexpr char kUnit[] = "deliverer";

// What a receiver is given to answer when the daemon stops.
constexpr std::chrono::milliseconds kGrace{1500};

// So often a receiver may refuse an alert before the next one is tried: a receiver that was just
// started or is just being set up refuses many things.
constexpr int kRefusalsBelieved = 4;

constexpr size_t kMaxError = 500; // bytes of an error that are kept

int64_t WallMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

std::string OneLine(std::string text)
{
    text.resize(std::min(text.size(), kMaxError));
    for (char &c : text) {
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7F)
            c = ' ';
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

} // namespace

Worker::Worker(WorkerContext context, SinkConfig config, std::string peer,
               std::shared_ptr<Progress> progress)
    : context_(std::move(context)), config_(std::move(config)), peer_(std::move(peer)),
      progress_(std::move(progress)), backoff_(context_.pauses)
{
    if (config_.kind->active != nullptr)
        refresh_at_ = Clock::now(); // the receiver may have been started anew as well
    thread_ = std::thread([this] { Run(); });
}

Worker::~Worker()
{
    RequestStop();
    thread_.join();
}

void Worker::RequestStop()
{
    const std::lock_guard lock(mutex_);
    if (!stop_)
        interrupt_.Raise(kGrace);
    stop_ = true;
    news_.notify_one();
}

void Worker::Wake()
{
    const std::lock_guard lock(mutex_);
    woken_ = true;
    news_.notify_one();
}

void Worker::TryNow()
{
    const std::lock_guard lock(mutex_);
    woken_ = true;
    try_now_ = true;
    news_.notify_one();
}

bool Worker::StopRequested()
{
    const std::lock_guard lock(mutex_);
    return stop_;
}

std::string Worker::Name() const
{
    return config_.name + (peer_.empty() ? "" : " (" + peer_ + ")");
}

void Worker::Run()
{
    TraceLogSetThrName(("to " + config_.name).c_str());
    while (!StopRequested()) {
        try {
            Step();
        } catch (const std::exception &error) {
            Fail(error.what());
        }
    }
}

void Worker::Step()
{
    if (!database_)
        database_.emplace(context_.store, tarsk::Database::Mode::kReadOnly);
    if (!sink_) {
        secrets_ = {};
        sink_ = config_.kind->open(config_, peer_, secrets_);
    }
    if (refresh_at_ && Clock::now() >= *refresh_at_ && !Refresh())
        return;
    const std::vector<Message> batch = NextBatch();
    if (batch.empty()) {
        WaitForAlerts();
        return;
    }
    Handle(batch, sink_->Send(batch, interrupt_));
}

std::vector<Message> Worker::MessagesOf(std::vector<Alert> alerts) const
{
    const int64_t now = WallMs();
    std::vector<Message> messages;
    for (Alert &alert : alerts) {
        Message message;
        message.key = IdempotencyKey(context_.uuid, alert.id);
        if (config_.kind->active != nullptr)
            message.ends_ms = progress_->EndsAt(alert, now);
        message.alert = std::move(alert);
        messages.push_back(std::move(message));
    }
    return messages;
}

// The next alerts of this receiver. What another peer has had and is over by now is left out.
std::vector<Message> Worker::NextBatch()
{
    {
        const std::lock_guard lock(mutex_);
        woken_ = false; // what is stored from here on wakes anew
    }
    for (;;) {
        const size_t limit = std::min(sink_->batch(), batch_limit_);
        std::vector<Message> batch = MessagesOf(
            ReadAlerts(*database_, progress_->LastId(peer_), 0, static_cast<int64_t>(limit)));
        if (batch.empty() || config_.kind->active == nullptr)
            return batch;
        const int64_t last = batch.back().alert.id;
        const int64_t others_have = progress_->LastId("");
        const int64_t now = WallMs();
        std::erase_if(batch, [&](const Message &message) {
            return message.alert.id <= others_have && message.ends_ms <= now;
        });
        if (!batch.empty() || StopRequested())
            return batch;
        progress_->CaughtUp(peer_, last);
    }
}

// Tells the receiver again of all alerts that are active and that it, or another peer, has had. It
// may have forgotten them, or never had them while it was down.
bool Worker::Refresh()
{
    const auto active = config_.kind->active(config_);
    const int64_t now = WallMs();
    const int64_t up_to = progress_->LastId("");
    std::vector<Message> messages = MessagesOf(
        NewestOfEachKind(*database_, up_to, now - active.count(), progress_->FirstLateId(now)));
    std::erase_if(messages, [&](const Message &message) { return message.ends_ms <= now; });
    const bool was_down = failing_;
    refresh_at_.reset();
    if (!messages.empty()) {
        refresh_at_ = Clock::now() + config_.kind->resend(config_);
        if (!SendAll(std::move(messages)))
            return false;
    }
    if (was_down)
        progress_->CaughtUp(peer_, up_to);
    return true;
}

bool Worker::SendAll(std::vector<Message> messages)
{
    while (!messages.empty()) {
        const size_t count = std::min(sink_->batch(), messages.size());
        const Outcome outcome =
            sink_->Send(std::span<const Message>(messages).first(count), interrupt_);
        if (outcome.result != Outcome::Result::kTaken) {
            Fail(outcome.answer);
            return false;
        }
        messages.erase(messages.begin(), messages.begin() + static_cast<ptrdiff_t>(count));
    }
    Succeeded();
    return true;
}

void Worker::Handle(const std::vector<Message> &batch, const Outcome &outcome)
{
    const size_t taken = std::min(outcome.taken, batch.size());
    if (taken > 0) {
        progress_->Taken(peer_, std::span(batch).first(taken));
        batch_limit_ = SIZE_MAX;
        Succeeded();
        if (!refresh_at_ && config_.kind->resend != nullptr)
            refresh_at_ = Clock::now() + config_.kind->resend(config_);
    }
    if (taken == batch.size())
        return;
    if (outcome.result == Outcome::Result::kRefused) {
        batch_limit_ = 1;
        const Message &refused = batch[taken];
        if (refused.alert.id != refused_id_)
            refusals_ = 0;
        refused_id_ = refused.alert.id;
        ++refusals_;
        if (refusals_ >= kRefusalsBelieved && GiveUp(refused, secrets_.Hide(outcome.answer)))
            return;
    }
    Fail(outcome.answer);
}

// Gives an alert up if the receiver takes the next one.
bool Worker::GiveUp(const Message &refused, const std::string &why)
{
    const std::vector<Message> next = MessagesOf(ReadAlerts(*database_, refused.alert.id, 0, 1));
    if (next.empty() || sink_->Send(next, interrupt_).taken != 1)
        return false;
    // A receiver that has refused everything until this moment takes it now, too: late, but not lost.
    const std::vector<Message> again = {refused};
    if (sink_->Send(again, interrupt_).taken == 1) {
        progress_->Taken(peer_, again);
    } else {
        progress_->Refused(peer_, refused, OneLine(why));
        TRACE(TRACE_NOTABLE, "The sink %s refuses the alert %s, which is given up: %s.",
              Name().c_str(), refused.key.c_str(), OneLine(why).c_str());
    }
    progress_->Taken(peer_, next);
    Succeeded();
    return true;
}

void Worker::Succeeded()
{
    backoff_.Reset();
    if (failing_) {
        failing_ = false;
        progress_->Well(peer_);
        TRACE(TRACE_NOTABLE, "The sink %s takes alerts again.", Name().c_str());
    }
    context_.progressed();
}

void Worker::Fail(const std::string &why)
{
    sink_.reset();
    if (StopRequested())
        return; // it was interrupted
    const std::string shown = OneLine(secrets_.Hide(why));
    progress_->Failed(peer_, shown);
    context_.progressed();
    if (!failing_)
        TRACE(TRACE_NOTABLE, "The sink %s takes no alerts, they wait for it: %s.", Name().c_str(),
              shown.c_str());
    failing_ = true;
    if (config_.kind->active != nullptr)
        refresh_at_ = Clock::now(); // whatever it knew, it may have forgotten when it is back
    std::unique_lock lock(mutex_);
    news_.wait_for(lock, backoff_.Next(), [this] { return stop_ || try_now_; });
    try_now_ = false;
}

void Worker::WaitForAlerts()
{
    std::unique_lock lock(mutex_);
    const auto has_news = [this] { return stop_ || woken_; };
    if (refresh_at_)
        news_.wait_until(lock, *refresh_at_, has_news);
    else
        news_.wait(lock, has_news);
    try_now_ = false;
}

} // namespace alerts

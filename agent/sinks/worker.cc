#include "agent/sinks/worker.h"

#include <algorithm>
#include <utility>

#include "agent/host/error.h"
#include "agent/host/here_and_now.h"
#include "agent/sinks/heartbeat.h"
#include "agent/sinks/trace_unit.h"
#include "agent/text/say.h"

namespace sinks {

namespace {

// What a receiver is given to answer when the daemon stops.
constexpr std::chrono::milliseconds kGrace{1500};

// So often a receiver may refuse an alert before others are tried: a receiver that was just started
// or is just being set up refuses many things. Right behind one that was put aside there is less to
// doubt, and whoever can make one such alert can make a hundred.
constexpr int kRefusalsBelieved = 4;
constexpr int kRefusalsInARow = 2;

// A receiver that refuses so many of the active alerts and takes none is not asked about the rest.
constexpr size_t kRefusalsOfAll = 8;

// Others are tried one after the other for so long.
constexpr std::chrono::milliseconds kQuick{500};

// A receiver may wish to be left alone for so long. Beyond it, somebody has made a mistake.
constexpr std::chrono::milliseconds kLongestWish{60 * 60 * 1000};

// A monitor whose last look is not fresh is looked at again so soon: at the start of the daemon, none has ended yet.
constexpr int kLookAgainSeconds = 5;

constexpr size_t kMaxError = 500; // bytes of an error that are kept

// Alerts that are read in one go, when not all of them may be for this sink.
constexpr size_t kReadAtOnce = 64;

// In place of a line, when a receiver has refused a message with it.
constexpr char kLeftOut[] =
    "(the line is left out, since the receiver has refused this message with "
    "it; see syslogmon alerts)";

int64_t WallMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

std::string OneLine(std::string text)
{
    // A whole page of HTML can come as an answer. It is stored and shown as one line.
    text.resize(std::min(text.size(), kMaxError));
    for (char &c : text) {
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7F)
            c = ' ';
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

// What is known of alerts that have left the store, as one alert that stands for all of them.
alerts::Alert AlertOf(const DigestEvent &event)
{
    alerts::Alert alert;
    alert.host = host::HostName();
    alert.source = event.source;
    alert.event_id = event.event_id;
    alert.count = event.hits;
    alert.time_ms = event.first_ms;
    alert.message = event.first;
    if (event.alerts > 1) {
        alert.reports = event.alerts;
        alert.last_time_ms = event.last_ms;
        alert.last_message = event.last;
    }
    return alert;
}

} // namespace

// A receiver that keeps alerts in memory is told of the active ones first: it may have been started anew
// while this daemon was down.
Worker::Worker(WorkerContext context, SinkConfig config, std::string peer,
               std::shared_ptr<Progress> progress)
    : context_(std::move(context)), config_(std::move(config)),
      route_(config_.Get(kOnlyOption), config_.name), rate_(ParseRate(config_.Get(kRateOption))),
      peer_(std::move(peer)), progress_(std::move(progress)), backoff_(context_.pauses),
      refusals_wanted_(kRefusalsBelieved)
{
    if (config_.kind->active != nullptr)
        refresh_at_ = Clock::now(); // the receiver may have been started anew as well
    heartbeat_every_ = context_.second * config_.Number(kHeartbeatOption);
    if (heartbeat_every_.count() > 0)
        heartbeat_at_ = Clock::now();
    thread_ = std::thread([this] { Run(); });
}

Worker::~Worker()
{
    RequestStop();
    thread_.join();
}

// The grace begins once: a second request does not lengthen it.
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

// Ends a pause. It does not set the back-off to its beginning: a receiver that fails once more is left
// alone for as long as before.
void Worker::TryNow()
{
    const std::lock_guard lock(mutex_);
    woken_ = true;
    try_now_ = true;
    news_.notify_one();
}

void Worker::SendAgain(const std::vector<int64_t> &ids)
{
    {
        const std::lock_guard lock(mutex_);
        for (const int64_t id : ids) {
            // Each reload asks again for all that are wanted.
            if (std::find(again_.begin(), again_.end(), id) == again_.end())
                again_.push_back(id);
        }
    }
    TryNow();
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

// One step after the other until it is to stop. A store that fails and a receiver that fails are told
// apart: only one of them says something about the sink.
void Worker::Run()
{
    TraceLogSetThrName(("to " + config_.name).c_str());
    while (!StopRequested()) {
        try {
            Step();
        } catch (const host::StoreError &error) {
            StoreFailed(error.what());
        } catch (const std::exception &error) {
            Fail(error.what());
        }
    }
}

// Opens what is not open, then does the first thing that is to be done: the active alerts for a receiver
// that may have forgotten them, one that is wanted again, the next new ones, or a wait.
void Worker::Step()
{
    if (!database_)
        database_.emplace(context_.store, host::Database::Mode::kReadOnly);
    if (!sink_) {
        secrets_ = {};
        sink_ = config_.kind->open(config_, peer_, secrets_);
        if (config_.kind->look != nullptr)
            look_at_ = Clock::now();
    }
    if (look_at_ && Clock::now() >= *look_at_)
        TakePlace();
    if (refresh_at_ && Clock::now() >= *refresh_at_ && !Refresh())
        return;
    if (heartbeat_at_ && Clock::now() >= *heartbeat_at_ && !SendHeartbeat())
        return;
    if (SendOneAgain())
        return;
    const std::vector<Message> batch = NextMessages();
    store_failing_ = false;
    if (batch.empty()) {
        if (failing_ && place_)
            Succeeded(); // it has said where it is; that it takes what it is sent, only an alert shows
        WaitForAlerts();
        return;
    }
    Handle(batch, Send(batch));
}

// Where the receiver says that it is. As long as that is where it was left, what was passed over since stays so.
void Worker::TakePlace()
{
    const int64_t place = sink_->LastTaken(*database_, progress_->RowOf(peer_));
    if (place != place_)
        progress_->GoTo(place);
    place_ = place;
    look_at_ = Clock::now() + config_.kind->look(config_);
}

// Alerts as they are sent. The end of their being active is worked out here, when they are about to
// leave: see Progress::EndsAt.
std::vector<Message> Worker::MessagesOf(std::vector<alerts::Alert> alerts) const
{
    const int64_t now = WallMs();
    std::vector<Message> messages;
    for (alerts::Alert &alert : alerts) {
        Message message;
        message.key = alert.key;
        if (config_.kind->active != nullptr)
            message.ends_ms = progress_->EndsAt(alert, now);
        message.alert = std::move(alert);
        messages.push_back(std::move(message));
    }
    return messages;
}

// The next alerts of this receiver.
std::vector<Message> Worker::NextBatch(size_t limit)
{
    {
        const std::lock_guard lock(mutex_);
        woken_ = false; // what is stored from here on wakes anew
    }
    const int64_t begin = progress_->LastId(peer_);
    std::vector<Message> batch;
    for (int64_t last = begin; batch.size() < limit && !StopRequested();) {
        // More than are wanted, since many may be left out.
        const int64_t at_once = static_cast<int64_t>(std::max(limit, kReadAtOnce));
        std::vector<Message> next = MessagesOf(alerts::ReadAlerts(*database_, last, 0, at_once));
        if (next.empty()) {
            // None of those behind the last one is for this sink: the next read begins behind them.
            if (batch.empty() && last > begin) {
                progress_->CaughtUp(peer_, last);
                progress_->CaughtUp("", last);
                context_.progressed();
            }
            break;
        }
        last = next.back().alert.id;
        for (Message &message : next) {
            if (IsWanted(message) && batch.size() < limit)
                batch.push_back(std::move(message));
        }
    }
    return batch;
}

// What is between each of these and the one that the receiver has before it was not for it, or has left the store.
// Whatever was read leaves it the oldest first, so those below the oldest one are gone.
void Worker::TellWhatIsBetween(std::vector<Message> &batch)
{
    const int64_t oldest = alerts::OldestAlertId(*database_);
    int64_t before = *place_;
    for (Message &message : batch) {
        const int64_t id = message.alert.id;
        message.after = before;
        message.lost = std::max<int64_t>(std::min(id, oldest) - 1 - before, 0);
        before = id;
    }
}

// Not so what the sink does not get, what the receiver has taken ahead, and what another peer has had and
// is over by now. A ledger of many stores gets of each what is its own: the rest it has from their stores.
bool Worker::IsWanted(const Message &message) const
{
    if (message.alert.is_collected && place_)
        return false;
    const int64_t id = message.alert.id;
    const bool is_over = config_.kind->active != nullptr && id <= progress_->LastId("") &&
                         message.ends_ms <= WallMs();
    return !is_over && route_.Takes(message.alert) && !progress_->IsAhead(peer_, id);
}

// One by one while there is more than one token, and with the last one all that wait, in one message.
std::vector<Message> Worker::NextMessages()
{
    token_at_.reset();
    if (progress_->Planned() != 0)
        return PlannedMessage();
    const int64_t now = WallMs();
    if (rate_.IsBounded())
        progress_->SetFullMs(rate_.Sound(progress_->FullMs(), now));
    const int64_t tokens = rate_.Tokens(progress_->FullMs(), now);
    if (tokens == 0) {
        token_at_ = Clock::now() +
                    std::chrono::milliseconds(rate_.NextToken(progress_->FullMs(), now) - now);
        const std::lock_guard lock(mutex_);
        woken_ = false; // what comes waits for the token
        return {};
    }
    const size_t limit = MostAtOnce();
    if (!progress_->Holds()) {
        // One more than can be sent tells whether any has to wait.
        std::vector<Message> batch = NextBatch(limit + 1);
        if (batch.size() <= limit || tokens > 1) {
            batch.resize(std::min(batch.size(), limit));
            if (place_)
                TellWhatIsBetween(batch);
            if (batch.empty() || progress_->MaySend(batch.back().alert.id))
                return batch;
        }
    }
    // Its token is taken with it: sent again, it is still one message.
    progress_->Plan(alerts::NewestAlertId(*database_), rate_.WithoutOne(progress_->FullMs(), now));
    context_.progressed();
    return PlannedMessage();
}

// With a bound, several messages never go together: each takes a token. So what is under way is one message, and what
// leaves the store meanwhile is a part of it or behind it.
size_t Worker::MostAtOnce() const
{
    if (rate_.IsBounded() && !sink_->IsBatchOneMessage())
        return 1;
    return std::min(sink_->batch(), batch_limit_);
}

// The message that tells of all that is held back, once it is written down what that is; the deliverer
// wakes this worker then.
std::vector<Message> Worker::PlannedMessage()
{
    {
        const std::lock_guard lock(mutex_);
        woken_ = false;
    }
    if (!progress_->IsPlanWritten())
        return {};
    const int64_t planned = progress_->Planned();
    Message message;
    // Anew when alerts have left the store meanwhile: they may be in neither of the two.
    Progress::Beginning beginning;
    do {
        beginning = progress_->OfMessage();
        message = SummedUp(beginning, planned);
    } while (beginning != progress_->OfMessage() && !StopRequested());
    if (StopRequested())
        return {}; // it may be a part only
    if (message.alert.id == 0 && message.digest.IsEmpty()) {
        progress_->CaughtUp(peer_, planned);
        progress_->Plan(0, progress_->FullMs());
        context_.progressed();
        return {};
    }
    if (message.alert.id == 0) {
        const DigestEvent newest = message.digest.TakeNewest();
        message.alert = AlertOf(newest);
        message.alerts = newest.alerts;
    }
    // Of the plan, and not of the alert: that may have left the store since the last try.
    message.alert.id = planned;
    message.key = message.alert.key = alerts::KeyOf(*database_, planned);
    if (summary_refusals_ >= kRefusalsBelieved)
        DropLines(&message);
    return {message};
}

// One of the lines, or a piece of one, may be what the receiver does not like. The counts must arrive. What the event's
// policy says of all its alerts stays, since receivers route by it.
void Worker::DropLines(Message *message)
{
    message->digest.DropLines();
    alerts::Alert &alert = message->alert;
    for (std::string *line :
         {&alert.message, &alert.last_message, &alert.held_back.first, &alert.held_back.last})
        *line = kLeftOut;
    for (std::string *piece :
         {&alert.summary, &alert.value, &alert.line_host, &alert.program, &alert.own_time})
        piece->clear();
}

// The newest alert up to `planned` stands for itself, those before it are added to the beginning.
Message Worker::SummedUp(const Progress::Beginning &beginning, int64_t planned)
{
    Message message;
    message.digest = beginning.digest;
    for (int64_t after = beginning.after; after < planned && !StopRequested();) {
        const auto alerts = alerts::ReadAlerts(*database_, after, 0, kReadAtOnce);
        if (alerts.empty())
            break;
        after = alerts.back().id;
        for (const alerts::Alert &alert : alerts) {
            if (alert.id > planned || !route_.Takes(alert) || progress_->IsAhead(peer_, alert.id))
                continue;
            if (message.alert.id != 0)
                message.digest.Add(message.alert);
            message.alert = alert;
        }
    }
    return message;
}

// All that a rate bounds goes this way: it takes a token, unless it is clear that nobody has had it.
Outcome Worker::Send(std::span<const Message> messages)
{
    if (!rate_.IsBounded())
        return sink_->Send(messages, interrupt_);
    Outcome outcome = sink_->Send(messages, interrupt_);
    if (outcome.result != Outcome::Result::kFailed && progress_->Planned() == 0)
        progress_->SetFullMs(rate_.WithoutOne(progress_->FullMs(), WallMs()));
    return outcome;
}

// Tells the receiver again of all alerts that are active and that it, or another peer, has had. It
// may have forgotten them, or never had them while it was down.
bool Worker::Refresh()
{
    const auto active = config_.kind->active(config_);
    const int64_t now = WallMs();
    const int64_t up_to = progress_->LastId("");
    std::vector<Message> messages = MessagesOf(alerts::NewestOfEachKind(
        *database_, up_to, now - active.count(), progress_->FirstLateId(now)));
    std::erase_if(messages, [&](const Message &message) {
        return message.ends_ms <= now || !route_.Takes(message.alert) ||
               progress_->IsAside(peer_, message.alert.id);
    });
    const bool was_down = failing_;
    // When nothing is active there is none, until Handle has had a new one taken.
    refresh_at_.reset();
    if (!messages.empty()) {
        refresh_at_ = Clock::now() + config_.kind->resend(config_);
        if (!SendAll(std::move(messages)))
            return false;
    }
    // What it missed while it was down is over by now, or was among these.
    if (was_down)
        progress_->CaughtUp(peer_, up_to);
    return true;
}

// One that fails is not sent again: the next one comes in its time. It says nothing of alerts that the receiver refuses,
// so it ends no failure but its own. False: the receiver has failed.
bool Worker::SendHeartbeat()
{
    if (!context_.is_fresh()) {
        heartbeat_at_ = Clock::now() + context_.second * kLookAgainSeconds;
        return true;
    }
    heartbeat_at_ = Clock::now() + heartbeat_every_;
    const Message message = HeartbeatOf(heartbeat_every_, WallMs());
    const Outcome outcome = sink_->Send(std::span(&message, 1), interrupt_);
    const bool has_failed = outcome.result != Outcome::Result::kTaken;
    const bool had_failed = std::exchange(heartbeat_failed_, has_failed);
    if (!has_failed) {
        if (had_failed)
            Succeeded();
        return true;
    }
    Fail(outcome.answer, outcome.retry_after);
    // From the end of the pause on: else the next one would come before the alerts, however long they wait.
    heartbeat_at_ = Clock::now() + heartbeat_every_;
    return false;
}

// One that the receiver refuses is left out, provided that it takes another one of them.
bool Worker::SendAll(std::vector<Message> messages)
{
    std::string refusal;
    std::vector<Message> refused;
    bool any_taken = false;
    size_t most = sink_->batch();
    while (!messages.empty()) {
        const size_t count = std::min(most, messages.size());
        const Outcome outcome = Send(std::span<const Message>(messages).first(count));
        const bool is_taken = outcome.result == Outcome::Result::kTaken;
        if (outcome.result == Outcome::Result::kFailed || StopRequested()) {
            Fail(outcome.answer, outcome.retry_after);
            return false;
        }
        // Which of them it is shows when each is sent alone.
        if (!is_taken && count > 1) {
            most = 1;
            continue;
        }
        any_taken = any_taken || is_taken;
        if (!is_taken) {
            refusal = outcome.answer;
            refused.push_back(messages[0]);
        }
        if (!any_taken && refused.size() >= kRefusalsOfAll)
            break;
        messages.erase(messages.begin(), messages.begin() + static_cast<ptrdiff_t>(count));
    }
    const bool is_well = any_taken && std::all_of(refused.begin(), refused.end(),
                                                  [this](const Message &m) { return Settle(m); });
    if (!is_well) {
        Fail(refusal);
        return false;
    }
    Succeeded();
    return true;
}

// Sends one once more that was refused before the receiver took another one, and puts it aside if it is
// refused again. False when the receiver has failed meanwhile.
bool Worker::Settle(const Message &refused)
{
    const int64_t id = refused.alert.id;
    if (id <= progress_->LastId(peer_) || progress_->IsAhead(peer_, id))
        return true; // it was taken when it was new
    const Outcome outcome = Send(std::span(&refused, 1));
    if (outcome.result == Outcome::Result::kTaken) {
        // One that was down until this moment takes it now, too: late, but not lost.
        progress_->TakenAhead(peer_, refused);
        return true;
    }
    if (outcome.result == Outcome::Result::kFailed || StopRequested())
        return false;
    const std::string why = OneLine(secrets_.Hide(outcome.answer));
    progress_->PutAside(peer_, refused, why);
    refusals_wanted_ = kRefusalsInARow;
    TRACE(TRACE_NOTABLE, "The sink %s does not take the alert %s, which is put aside: %s.",
          Name().c_str(), refused.key.c_str(), why.c_str());
    return true;
}

// What becomes of a batch that was sent:
//
//   all taken      it is done with
//   some taken     those are; the next batch begins with the first that was not
//   failed         all wait, and the worker pauses
//   one refused    of several: each is sent alone from now on, until one is taken
//                  alone: after some tries, and when another one is taken, it is put aside
//                  with a digest: after some tries, it is sent without the lines
void Worker::Handle(const std::vector<Message> &batch, const Outcome &outcome)
{
    const size_t taken = std::min(outcome.taken, batch.size());
    if (taken > 0) {
        progress_->Taken(peer_, std::span(batch).first(taken));
        if (place_)
            place_ = batch[taken - 1].alert.id;
        // The one that was refused is behind, so many go together again.
        batch_limit_ = SIZE_MAX;
        summary_refusals_ = 0;
        refusals_wanted_ = kRefusalsBelieved;
        Succeeded();
        if (!refresh_at_ && config_.kind->resend != nullptr)
            refresh_at_ = Clock::now() + config_.kind->resend(config_);
    }
    if (taken == batch.size())
        return;
    const bool is_summary = progress_->Planned() != 0;
    if (is_summary && outcome.result == Outcome::Result::kRefused)
        ++summary_refusals_; // it is not put aside: it may stand for thousands
    if (!is_summary && outcome.result == Outcome::Result::kRefused && !StopRequested()) {
        batch_limit_ = 1;
        if (batch.size() > 1)
            return; // which one it is shows when each is sent alone
        if (IsTriedEnough(batch[0]) && TakesAnother(batch[0].alert.id) && Settle(batch[0])) {
            Succeeded();
            return;
        }
    }
    Fail(outcome.answer, outcome.retry_after);
}

// Counts a refusal.
bool Worker::IsTriedEnough(const Message &refused)
{
    if (refused.alert.id != refused_id_) {
        refusals_ = 0;
        ahead_by_ = 0;
    }
    refused_id_ = refused.alert.id;
    return ++refusals_ >= refusals_wanted_;
}

// Tries the first alert behind this one, the second, the fourth and so on, until one is taken: those
// right behind it may be of the same kind. A receiver that takes its time to refuse is asked once, and
// about the others after the next pause.
bool Worker::TakesAnother(int64_t id)
{
    const auto begin = Clock::now();
    while (!StopRequested() && Clock::now() - begin < kQuick) {
        const auto other = FirstAfter(id + ahead_by_);
        ahead_by_ = other ? ahead_by_ * 2 + 1 : 0; // at the end, from the first one again
        if (!other)
            return false;
        const Outcome outcome = Send(std::span(&*other, 1));
        if (outcome.result == Outcome::Result::kTaken) {
            progress_->TakenAhead(peer_, *other);
            return true;
        }
        if (outcome.result == Outcome::Result::kFailed)
            return false;
    }
    return false;
}

// The first alert with a larger id that was not taken ahead.
std::optional<Message> Worker::FirstAfter(int64_t id)
{
    for (;;) {
        std::vector<Message> found = MessagesOf(alerts::ReadAlerts(*database_, id, 0, 1));
        if (found.empty())
            return std::nullopt;
        id = found[0].alert.id;
        if (route_.Takes(found[0].alert) && !progress_->IsAhead(peer_, id))
            return std::move(found[0]);
    }
}

// Sends one that was put aside, if somebody wants that. It has one try; while the receiver is down, it
// waits for it like all others. It takes no token: many of them would keep all others back for hours.
bool Worker::SendOneAgain()
{
    int64_t id = 0;
    {
        const std::lock_guard lock(mutex_);
        if (again_.empty())
            return false;
        id = again_.front();
    }
    std::vector<Message> found = MessagesOf(alerts::ReadAlerts(*database_, id - 1, 0, 1));
    if (found.empty() || found[0].alert.id != id) { // it has left the store
        ForgetAgain(id);
        return true;
    }
    Message &message = found[0];
    if (config_.kind->active != nullptr)
        // It begins to be active now, however long it has waited.
        message.ends_ms = WallMs() + config_.kind->active(config_).count();
    const Outcome outcome = sink_->Send(std::span(&message, 1), interrupt_);
    if (outcome.result == Outcome::Result::kFailed || StopRequested()) {
        Fail(outcome.answer, outcome.retry_after);
        return true;
    }
    ForgetAgain(id);
    if (outcome.result == Outcome::Result::kTaken) {
        progress_->TakenAfterAll(peer_, message);
        Succeeded();
    } else {
        progress_->PutAside(peer_, message, OneLine(secrets_.Hide(outcome.answer)));
        context_.progressed();
    }
    return true;
}

// It has had its try.
void Worker::ForgetAgain(int64_t id)
{
    const std::lock_guard lock(mutex_);
    std::erase(again_, id);
}

// The receiver answers: told of once, when it has failed before.
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

// The receiver does not answer, or takes nothing. The sink is closed, because a connection that has
// failed half-way is in no state that is known; it is opened anew after the pause.
void Worker::Fail(const std::string &why, std::chrono::milliseconds retry_after)
{
    // The library's connection goes with it, and secrets are read anew.
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
    Pause(retry_after);
}

// The store is told of by itself: nothing is known of the receiver.
void Worker::StoreFailed(const std::string &why)
{
    database_.reset();
    if (StopRequested())
        return;
    if (!store_failing_) {
        const std::string text =
            "the alerts for the sink " + Name() + " cannot be read, they wait: " + why;
        TRACE(TRACE_NOTABLE, "%s.", text.c_str());
        text::Say(text);
    }
    store_failing_ = true;
    Pause();
}

// New alerts do not end it: a receiver that is down would be asked with each of them.
void Worker::Pause(std::chrono::milliseconds at_least)
{
    std::unique_lock lock(mutex_);
    news_.wait_for(lock, std::max(backoff_.Next(), std::min(at_least, kLongestWish)),
                   [this] { return stop_ || try_now_; });
    try_now_ = false;
}

// Until there is something to send, or the active alerts are to be told of again, or there is a token, or the receiver
// is to be asked what it has.
void Worker::WaitForAlerts()
{
    std::unique_lock lock(mutex_);
    const auto has_news = [this] { return stop_ || woken_ || !again_.empty(); };
    std::optional<Clock::time_point> until;
    for (const auto &moment : {refresh_at_, token_at_, look_at_, heartbeat_at_}) {
        if (moment && (!until || *moment < *until))
            until = moment;
    }
    if (until)
        news_.wait_until(lock, *until, has_news);
    else
        news_.wait(lock, has_news);
    try_now_ = false;
}

} // namespace sinks

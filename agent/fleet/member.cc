#include "agent/fleet/member.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>

#include "agent/alerts/alert_store.h"
#include "agent/fleet/group_files.h"
#include "agent/fleet/trace_unit.h"
#include "agent/host/error.h"
#include "agent/host/here_and_now.h"
#include "agent/sinks/nats_options.h"
#include "agent/sinks/option_checks.h"
#include "agent/text/say.h"

namespace fleet {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

// A connection that was lost is noticed at the latest so much later, if nothing is said over it.
constexpr seconds kLookAtConnection{5};

// A change is heard before the servers agree about it: it is looked for so long after the bell, each time twice as late.
constexpr milliseconds kFirstLook{10};
constexpr milliseconds kLastLook{2000};

// A look asks for two values of each group. So many changes are taken as they come; of more, those of each second as one.
constexpr int kLooksAtOnce = 20;
constexpr seconds kLookEvery{1};

std::string CheckEvery(const std::string &value)
{
    return sinks::CheckRange(value, 1, 3600, "seconds");
}

bool HaveSameFiles(const std::vector<GroupState> &one, const std::vector<GroupState> &other)
{
    return std::ranges::equal(
        one, other, [](const GroupState &a, const GroupState &b) { return a.IsSameAs(b); });
}

bool AreSame(const std::vector<GroupState> &one, const std::vector<GroupState> &other)
{
    return HaveSameFiles(one, other) &&
           std::ranges::equal(one, other, {}, &GroupState::ended_revision,
                              &GroupState::ended_revision);
}

const GroupState *Find(const std::vector<GroupState> &groups, const std::string &name)
{
    const auto found = std::find_if(groups.begin(), groups.end(),
                                    [&](const GroupState &group) { return group.name == name; });
    return found == groups.end() ? nullptr : &*found;
}

} // namespace

sinks::SinkKind MemberKind()
{
    sinks::SinkKind kind;
    kind.name = "fleet";
    kind.help = "a member of groups, which have rules in common";
    kind.options = {{"groups", "NAME,...", nullptr, "the groups of this host", CheckGroups}};
    for (sinks::SinkOption option : sinks::NatsOptions()) {
        if (std::string(option.name) == "servers") {
            option.standard = "";
            option.help = "nats://HOST:PORT or tls://HOST:PORT of each server; those of this "
                          "host's sink of the kind nats unless given";
        }
        kind.options.push_back(option);
    }
    kind.options.push_back({"every", "SECONDS", "60",
                            "how often it says how it is, and asks for its rules", CheckEvery});
    kind.warnings = sinks::PlainNatsWarnings;
    return kind;
}

// The two buckets are made together, and a host may ask for the first one only.
void SayGoodbye(const sinks::SinkConfig &config)
{
    sinks::Secrets secrets;
    const nats::Connection connection(sinks::AccessOf(config, secrets));
    if (CreatedOf(connection, kRulesBucket) != 0)
        DeleteKey(connection, kStatusBucket, config.store_uuid);
}

int64_t AlertRate::Take(int64_t newest_id, steady_clock::time_point now)
{
    constexpr seconds kMinute{60};
    if (!since_) {
        since_ = now;
        id_ = newest_id;
    }
    const auto passed = std::chrono::duration_cast<milliseconds>(now - *since_);
    const int64_t alerts = newest_id - id_;
    if (passed < kMinute)
        return std::max(rate_, alerts);
    rate_ = alerts * 60000 / passed.count();
    since_ = now;
    id_ = newest_id;
    return rate_;
}

// What the member's thread waits for.
class Member::Bell {
  public:
    void Stop()
    {
        const std::lock_guard lock(mutex_);
        stop_ = true;
        news_.notify_one();
    }
    void Ring()
    {
        const std::lock_guard lock(mutex_);
        rang_ = true;
        news_.notify_one();
    }
    // Until it rings, the end is wanted, or the moment has come. Returns whether it has rung.
    bool Wait(Clock::time_point end)
    {
        std::unique_lock lock(mutex_);
        news_.wait_until(lock, end, [this] { return rang_ || stop_; });
        return std::exchange(rang_, false);
    }
    // Sleeps whatever rings; ends at once when the end is wanted.
    void Sleep(milliseconds span)
    {
        std::unique_lock lock(mutex_);
        news_.wait_for(lock, span, [this] { return stop_; });
    }
    void SleepUntil(Clock::time_point end)
    {
        std::unique_lock lock(mutex_);
        news_.wait_until(lock, end, [this] { return stop_; });
    }
    bool IsStopped()
    {
        const std::lock_guard lock(mutex_);
        return stop_;
    }

  private:
    std::mutex mutex_; // guards what follows
    std::condition_variable news_;
    bool stop_ = false;
    bool rang_ = false;
};

Member::Member(MemberOptions options)
    : options_(std::move(options)), groups_(GroupsIn(options_.config.Get("groups"))),
      bell_(std::make_shared<Bell>()), backoff_(options_.pauses),
      offers_(options_.config.store_uuid), looks_(kLooksAtOnce, kLookEvery)
{
    sinks::Secrets secrets;
    sinks::AccessOf(options_.config, secrets); // for its errors
    thread_ = std::thread([this] { Run(); });
}

Member::~Member()
{
    bell_->Stop();
    thread_.join();
}

void Member::Leave()
{
    leaves_ = true;
}

void Member::Run()
{
    TraceLogSetThrName("member");
    while (!bell_->IsStopped()) {
        try {
            Live();
        } catch (const host::StoreError &error) {
            store_.reset(); // opened anew
            tried_.reset(); // and what was not stored is tried again
            Fail("the store of this host fails", error.what());
        } catch (const std::exception &error) {
            tried_.reset();
            Fail("the servers of the fleet are not reached", error.what());
        }
    }
    if (leaves_)
        SayGoodbye();
}

// With one connection, until it fails or the end is wanted.
void Member::Live()
{
    OpenStore();
    Connect();
    if (!told_.empty())
        TRACE(TRACE_NOTABLE, "The rules of the fleet are looked for again.");
    told_.clear();
    for (bool has_read = false; !bell_->IsStopped(); has_read = WaitForNews()) {
        if (!has_read) {
            AskForBucket();
            ReadKeys();
        }
        TakeIfNew();
        TellStatus();
        backoff_.Reset();
    }
}

void Member::OpenStore()
{
    if (store_)
        return;
    registry_.reset();
    store_.emplace(options_.layout.Store());
    host::Patience patience;
    patience.leave = [bell = bell_] { return bell->IsStopped(); };
    store_->SetWait(patience);
    registry_.emplace(*store_);
    taken_ = ReadGroups(*store_);
}

void Member::Connect()
{
    subscriptions_.clear();
    secrets_ = {};
    connection_.emplace(sinks::AccessOf(options_.config, secrets_));
    Subscribe();
    connection_->Flush();
}

// What is heard is no more than a reason to look.
void Member::Subscribe()
{
    const auto on_change = [](natsConnection *, natsSubscription *, natsMsg *message, void *bell) {
        natsMsg_Destroy(message);
        (*static_cast<std::shared_ptr<Bell> *>(bell))->Ring();
    };
    for (const std::string &group : groups_) {
        const std::string subject = SubjectOf(kRulesBucket, group + ".*");
        auto ringer = std::make_unique<std::shared_ptr<Bell>>(bell_);
        natsSubscription *made = nullptr;
        connection_->Check(natsConnection_Subscribe(&made, connection_->raw(), subject.c_str(),
                                                    on_change, ringer.get()),
                           "listen to the group " + group);
        natsSubscription_SetOnCompleteCB(
            made, [](void *bell) { delete static_cast<std::shared_ptr<Bell> *>(bell); },
            ringer.release());
        subscriptions_.emplace_back(made);
    }
}

// Until the next status, or a change that has reached the servers. Returns whether it has read one.
bool Member::WaitForNews()
{
    while (!bell_->IsStopped() && Clock::now() < status_due_) {
        if (!connection_->IsOpen())
            throw host::Error("cannot hear of changes of the fleet's rules",
                              "the connection to the servers is lost", "it is made again");
        if (!bell_->Wait(
                std::min<Clock::time_point>(status_due_, Clock::now() + kLookAtConnection)))
            continue;
        if (!offers_.HasBucket()) { // it is being made
            bell_->SleepUntil(looks_.Next());
            looks_.Take(Clock::now());
            return false;
        }
        if (LookForNews())
            return true;
    }
    return false;
}

// Several times. True as soon as there was something new.
bool Member::LookForNews()
{
    for (milliseconds pause = kFirstLook; pause < kLastLook && !bell_->IsStopped(); pause *= 2) {
        bell_->Sleep(pause);
        bell_->SleepUntil(looks_.Next());
        looks_.Take(Clock::now());
        if (ReadKeys())
            return true;
    }
    return false;
}

void Member::AskForBucket()
{
    offers_.TakeBucket(CreatedOf(*connection_, kRulesBucket), taken_);
}

// True when there was something new.
bool Member::ReadKeys()
{
    if (!offers_.HasBucket())
        return false;
    bool is_new = false;
    for (const std::string &group : groups_) {
        for (const std::string &key : {AllKey(group), CanaryKey(group)}) {
            const auto found = ReadKey(*connection_, kRulesBucket, key);
            is_new = (found && offers_.Take(*found)) || is_new;
        }
    }
    return is_new;
}

// With each status what was refused is tried again: what stood against it may be gone.
void Member::TakeIfNew()
{
    try {
        std::vector<GroupState> wanted;
        for (const std::string &group : groups_) {
            if (auto state = offers_.Wanted(group))
                wanted.push_back(std::move(*state));
            else if (const GroupState *had = Find(taken_, group))
                wanted.push_back(*had);
        }
        const bool is_new = !tried_ || !AreSame(*tried_, wanted);
        if (!is_new && refusal_.empty())
            return;
        tried_ = wanted;
        const Taken taken = TakeGroups(options_.layout, *store_, *registry_, wanted,
                                       [this] { return bell_->IsStopped(); });
        if (!taken.is_made)
            return;
        if (taken.changes > 0)
            TRACE(TRACE_NOTABLE, "The rules of the fleet have changed: %zu changes.",
                  taken.changes);
        // The word alone that a trial is over, which all hosts of the group hear at once, changes nothing of what they say.
        const bool is_shown =
            !refusal_.empty() || taken.local != local_ || !HaveSameFiles(taken_, wanted);
        taken_ = std::move(wanted);
        local_ = taken.local;
        refusal_.clear();
        if (is_shown)
            status_due_ = {};
    } catch (const host::StoreError &) {
        throw;
    } catch (const host::Error &error) {
        Refuse(error.what());
    }
}

void Member::Refuse(const std::string &why)
{
    if (why == refusal_)
        return;
    TRACE(TRACE_NOTABLE, "The rules of the fleet are not taken, those of before stay: %s",
          why.c_str());
    text::Say("the rules of the fleet are not taken, those of before stay: " + why);
    refusal_ = why;
    status_due_ = {};
}

HostStatus Member::StatusNow()
{
    HostStatus status;
    status.host = host::HostName();
    for (const std::string &name : groups_) {
        const GroupState *has = Find(taken_, name);
        const GroupState *newest = tried_ ? Find(*tried_, name) : nullptr;
        GroupStatus group{name, has != nullptr ? has->revision : 0, 0,
                          has != nullptr && has->is_canary};
        group.newest = newest != nullptr ? newest->revision : group.revision;
        status.groups.push_back(group);
    }
    status.error = refusal_;
    status.local = local_;
    status.every_s = options_.config.Number("every");
    status.alerts_a_minute = rate_.Take(
        store_->Read([](auto &database) { return alerts::NewestAlertId(database); }), Clock::now());
    if (options_.look)
        options_.look(&status);
    return status;
}

// No bucket of rules, no bucket of statuses: they are made together.
void Member::TellStatus()
{
    if (Clock::now() < status_due_)
        return;
    if (offers_.HasBucket())
        WriteKey(*connection_, kStatusBucket, options_.config.store_uuid,
                 FormatStatus(StatusNow()));
    status_due_ = Clock::now() + seconds(options_.config.Number("every"));
}

void Member::SayGoodbye()
{
    try {
        fleet::SayGoodbye(options_.config);
    } catch (const std::exception &error) {
        text::Say("this host has left the fleet, which could not be told so: " +
                  secrets_.Hide(error.what()) +
                  "; run syslogmon fleet forget on the host that collects");
    }
}

// Told once.
void Member::Fail(const std::string &what, const std::string &why)
{
    if (bell_->IsStopped())
        return;
    const std::string shown = secrets_.Hide(why);
    if (told_.empty()) {
        const std::string told = what + ", the rules of before stay: " + shown;
        TRACE(TRACE_NOTABLE, "%s", told.c_str());
        text::Say(told);
    }
    told_ = shown;
    status_due_ = {};
    bell_->Sleep(std::chrono::duration_cast<milliseconds>(backoff_.Next()));
}

} // namespace fleet

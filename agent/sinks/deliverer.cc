#include "agent/sinks/deliverer.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <set>
#include <sys/eventfd.h>
#include <unistd.h>

#include "agent/host/error.h"
#include "agent/sinks/heartbeat.h"
#include "agent/sinks/trace_unit.h"
#include "agent/text/say.h"

namespace sinks {

namespace {

using std::chrono::milliseconds;

// How long a write waits for the monitor's pass. Short: there is always a next time.
constexpr int kStorePatienceMs = 100;
// And the last one of this process, which has none.
constexpr int kLastPatienceMs = 2000;

// Alerts that are removed in one transaction, and the pause to the next: 20,000 a second, with the
// write lock free for nearly all of the time.
constexpr int64_t kRemoveAtOnce = 1000;
constexpr milliseconds kRemovePause{50};

// The limit is set in megabytes, and is of 1024 x 1024 bytes.
constexpr int64_t kMegabyte = int64_t{1024} * 1024;

// The rows of a sink, with those that are missing: of a new peer, or of a sink that was written into
// the registry by hand.
Deliveries Completed(const StoredSink &sink, Deliveries rows, int64_t newest)
{
    if (!rows.contains(""))
        // From now on, as for a sink that is added by a command.
        rows[""].last_id = newest;
    const std::vector<std::string> peers =
        sink.problem.empty() ? sink.config.Peers() : std::vector<std::string>{""};
    Deliveries wanted = {{"", rows[""]}};
    for (const std::string &peer : peers) {
        const auto known = rows.find(peer);
        if (known != rows.end())
            wanted[peer] = known->second;
        else
            // A new peer gets what no peer has had yet, and of what is before it the active ones:
            // see Worker::Refresh.
            wanted[peer].last_id = rows[""].last_id;
    }
    return wanted;
}

} // namespace

// Its connection is not synchronised with the disk: an alert that is sent twice after a power cut costs
// less than a wait for the disk that the monitor's pass would feel. Its writes give up soon, since the
// pass has the right of way.
Deliverer::Deliverer(DelivererOptions options)
    : options_(std::move(options)), bell_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      sinks_event_(host::WakeEvent::Create(options_.layout.run, kSinksEvent, false, false)),
      store_(options_.layout.Store()), tree_(store_), registry_(store_, tree_)
{
    if (bell_.get() < 0)
        throw host::Error("cannot start the deliverer", strerror(errno),
                          "raise the limit of open files");
    store_.database().SetPatience(kStorePatienceMs, nullptr);
    store_.database().Execute("PRAGMA synchronous = NORMAL");
    recorded_at_ = Clock::now() - options_.record_every; // the first news is written at once
    Load();
    thread_ = std::thread([this] { Run(); });
}

Deliverer::~Deliverer()
{
    stop_ = true;
    Wake();
    thread_.join();
}

// The flag says what the bell is rung for: whoever has made progress rings it, too.
void Deliverer::Wake()
{
    woken_ = true;
    host::Ring(bell_);
}

void Deliverer::Reload()
{
    reload_ = true;
    Wake();
}

// Sleeps until the bell rings or something is due: a write that failed or that had to wait for its
// time, or alerts that are still to be removed. Without any of these, without end: an idle daemon costs
// nothing.
void Deliverer::WaitForNews()
{
    milliseconds sleep{-1};
    if (store_failed_)
        sleep = options_.record_every;
    else if (over_limit_)
        sleep = kRemovePause;
    else if (progressed_)
        sleep = std::clamp(
            std::chrono::ceil<milliseconds>(recorded_at_ + options_.record_every - Clock::now()),
            milliseconds{0}, options_.record_every);
    pollfd waiting[] = {{bell_.get(), POLLIN, 0}, {sinks_event_->PollFd(), POLLIN, 0}};
    poll(waiting, std::size(waiting), static_cast<int>(sleep.count()));
    // All rings at once: the flags say what there is to do.
    uint64_t rings = 0;
    if (read(bell_.get(), &rings, sizeof rings) < 0)
        return; // time is over, or the event was set
}

// Whatever the store refuses is tried again later. It is told of once, not with each try: the workers
// go on meanwhile, and what they have done is not lost but only not written.
void Deliverer::Run()
{
    TraceLogSetThrName("deliverer");
    while (!stop_) {
        WaitForNews();
        try {
            if (sinks_event_->TryTake() || reload_.exchange(false))
                TakeSettings();
            if (woken_.exchange(false)) {
                for (Entry &entry : entries_) {
                    for (auto &worker : entry.workers)
                        worker->Wake();
                }
                over_limit_ = true; // perhaps
            }
            if (Clock::now() - recorded_at_ >= options_.record_every)
                Record();
            if (over_limit_)
                KeepTheLimit();
            store_failed_ = false;
        } catch (const std::exception &error) {
            if (!store_failed_)
                TRACE(TRACE_NOTABLE, "The progress of the sinks is written later: %s",
                      error.what());
            store_failed_ = true;
            recorded_at_ = Clock::now(); // not at once again
        }
    }
    StopWorkers();
    try {
        store_.database().SetPatience(kLastPatienceMs, nullptr);
        progressed_ = true;
        Record();
    } catch (const std::exception &error) {
        TRACE(TRACE_NOTABLE,
              "The progress of the sinks is not written; the alerts since then are"
              " sent again: %s",
              error.what());
    }
}

// Starts the workers of a sink, or notes why it has none. A sink that cannot be used keeps its place in
// the list: its row shows the problem, and its alerts wait until it is mended.
Deliverer::Entry Deliverer::Start(const StoredSink &sink, const Deliveries &rows,
                                  const std::vector<Undelivered> &undelivered, const Held &held)
{
    Entry entry;
    entry.sink = sink;
    const bool is_sound = sink.problem.empty();
    const auto *kind = sink.config.kind;
    if (is_sound) {
        entry.route = Route(sink.config.Get(kOnlyOption), sink.config.name);
        entry.rate = ParseRate(sink.config.Get(kRateOption));
    }
    std::optional<milliseconds> active;
    if (is_sound && kind->active != nullptr)
        active = kind->active(sink.config);
    entry.progress = std::make_shared<Progress>(rows, active, undelivered, held);
    if (!is_sound) {
        // So that the list of sinks shows why nothing arrives.
        entry.progress->Failed("", sink.problem);
        progressed_ = true;
        TRACE(TRACE_NOTABLE, "The sink %s cannot be used: %s", sink.config.name.c_str(),
              sink.problem.c_str());
        return entry;
    }
    for (const std::string &warning : SecretWarnings(sink.config))
        TRACE(TRACE_NOTABLE, "The sink %s: %s.", sink.config.name.c_str(), warning.c_str());
    WorkerContext context;
    context.store = options_.layout.Store();
    context.pauses = options_.pauses;
    context.second = options_.second;
    context.is_fresh = options_.is_fresh ? options_.is_fresh : [layout = options_.layout] {
        return IsMonitorFresh(layout);
    };
    context.progressed = [this] {
        if (!progressed_.exchange(true))
            host::Ring(bell_);
    };
    for (const std::string &peer : sink.config.Peers())
        entry.workers.push_back(
            std::make_unique<Worker>(context, sink.config, peer, entry.progress));
    return entry;
}

// Makes the workers those of the registry. A sink that was not changed goes on; one that was goes on
// where it was, with its new settings.
void Deliverer::Load()
{
    // All that can fail comes first: then no sink is lost half-way.
    struct Wanted {
        StoredSink sink;
        Deliveries rows;
        std::vector<Undelivered> undelivered;
        Held held;
    };
    std::vector<Wanted> wanted;
    limit_ = registry_.AlertLimit();
    limit_megabytes_ = registry_.AlertMegabytes();
    const int64_t newest = alerts::NewestAlertId(store_.database());
    for (StoredSink &sink : registry_.ReadAll()) {
        const int64_t key = sink.config.key;
        wanted.push_back({std::move(sink), ReadDeliveries(store_.database(), key),
                          ReadUndelivered(store_.database(), key),
                          ReadHeld(store_.database(), key)});
    }

    // Those that go on as they are come over when all others have begun: if one cannot, nothing has changed for them.
    std::vector<Entry> entries;
    std::vector<Entry *> unchanged;
    for (const Wanted &one : wanted) {
        unchanged.push_back(nullptr);
        const auto known = std::find_if(entries_.begin(), entries_.end(), [&](const Entry &entry) {
            return entry.sink.config.key == one.sink.config.key;
        });
        const bool is_new = known == entries_.end();
        if (!is_new && known->sink.config == one.sink.config) {
            unchanged.back() = &*known;
            entries.emplace_back();
            continue;
        }
        // Its workers end before their progress is read: nothing is reported to it afterwards.
        if (!is_new)
            known->workers.clear();
        Deliveries rows = one.rows;
        const Held held = is_new ? one.held : known->progress->WhatIsHeld(&rows);
        const Deliveries completed = Completed(one.sink, rows, newest);
        entries.push_back(Start(one.sink, completed, one.undelivered, held));
        // What the old workers put aside and nobody has written yet goes over to the new entry.
        if (!is_new) {
            TakeChanges(*known);
            entries.back().changes = std::move(known->changes);
        }
        if (!is_new || completed != one.rows) {
            entries.back().unwritten = true;
            progressed_ = true;
        }
    }
    for (size_t i = 0; i < entries.size(); ++i) {
        if (unchanged[i] == nullptr)
            continue;
        entries[i] = std::move(*unchanged[i]);
        for (auto &worker : entries[i].workers)
            worker->TryNow();
    }
    for (Entry &entry : entries_) {
        for (auto &worker : entry.workers)
            worker->RequestStop(); // all of them first, then wait for each
    }
    entries_ = std::move(entries);
    for (size_t i = 0; i < wanted.size(); ++i)
        SendWantedAgain(entries_[i], wanted[i].undelivered);
    // The limit may have become smaller.
    over_limit_ = true; // perhaps
}

// The wish stands in the store, so it outlives a restart. A worker that has it already takes no
// second one.
void Deliverer::SendWantedAgain(const Entry &entry, const std::vector<Undelivered> &rows)
{
    for (const auto &worker : entry.workers) {
        std::vector<int64_t> ids;
        for (const Undelivered &row : rows) {
            if (row.again && row.peer == worker->peer())
                ids.push_back(row.alert_id);
        }
        if (!ids.empty())
            worker->SendAgain(ids);
    }
}

// A failure leaves the wish to reload standing.
void Deliverer::TakeSettings()
{
    try {
        progressed_ = true;
        Record(); // or what was sent again a moment ago would be so once more
        Load();
    } catch (...) {
        reload_ = true;
        throw;
    }
}

// All are asked first, then each is waited for: together they take as long as the slowest.
void Deliverer::StopWorkers()
{
    for (Entry &entry : entries_) {
        for (auto &worker : entry.workers)
            worker->RequestStop();
    }
    for (Entry &entry : entries_)
        entry.workers.clear();
}

// Writes how far the sinks have come, at most once in `record_every`: WaitForNews sees to that. The flag
// falls before the rows are read, so what comes meanwhile is written the next time.
void Deliverer::Record()
{
    if (!progressed_.exchange(false))
        return;
    recorded_at_ = Clock::now();
    for (Entry &entry : entries_)
        entry.unwritten |= entry.progress->HasChanged();
    try {
        WriteRows();
    } catch (...) {
        progressed_ = true;
        throw;
    }
    LookAtLevels(LookAtAlerts());
}

// All sinks in one transaction. What was written is forgotten behind the commit, not before it.
void Deliverer::WriteRows()
{
    if (std::none_of(entries_.begin(), entries_.end(), [](const auto &e) { return e.unwritten; }))
        return;
    host::Transaction transaction(store_);
    for (Entry &entry : entries_) {
        if (!entry.unwritten)
            continue;
        const Held held = entry.progress->WhatIsHeld(&entry.written);
        TakeChanges(entry); // after the rows: see Progress
        WriteDeliveries(store_, entry.sink.config.key, entry.written);
        WriteChanges(store_, entry.sink.config.key, entry.changes);
        WriteHeld(store_, entry.sink.config.key, held);
    }
    transaction.Commit();
    for (Entry &entry : entries_) {
        if (!entry.unwritten)
            continue;
        entry.unwritten = false;
        entry.changes.clear();
        entry.progress->Written(entry.written);
        if (entry.written.at("").planned_id == 0)
            continue;
        // It has waited for this.
        for (auto &worker : entry.workers)
            worker->Wake();
    }
}

// Tells of what was put aside (D3) and keeps it until it is written.
void Deliverer::TakeChanges(Entry &entry) const
{
    for (UndeliveredChange &change : entry.progress->TakeChanges()) {
        const Undelivered &row = change.row;
        if (!change.was_taken)
            Tell("the sink " + entry.sink.config.name +
                 (row.peer.empty() ? "" : " (" + row.peer + ")") + " does not take the alert " +
                 std::to_string(row.alert_id) + ", although it takes others: " + row.reason +
                 "; the alert is put aside, see " + "syslogmon sink undelivered " +
                 entry.sink.config.name);
        entry.changes.push_back(std::move(change));
    }
}

// One look: in the life of a daemon without news, this is all that is read of the store. An alert that is stored is
// never changed, so the bytes of each are counted once.
Deliverer::Kept Deliverer::LookAtAlerts()
{
    const host::Snapshot one_look(store_);
    const Kept kept{alerts::OldestAlertId(store_.database()),
                    alerts::NewestAlertId(store_.database())};
    if (kept.newest != counted_to_)
        bytes_ += alerts::BytesBetween(store_.database(), counted_to_, kept.newest);
    counted_to_ = kept.newest;
    return kept;
}

// How many alerts of the present length can be kept.
int64_t Deliverer::FittingAlerts(const Kept &kept) const
{
    if (kept.Count() <= 0 || bytes_ <= 0)
        return limit_;
    return std::min<int64_t>(limit_, limit_megabytes_ * kMegabyte / (bytes_ / kept.Count() + 1));
}

// Of the oldest alerts, those that a sink has not had. Mostly none.
std::vector<alerts::Alert> Deliverer::NotHadByAll(int64_t up_to)
{
    int64_t had = up_to;
    for (const Entry &entry : entries_)
        had = std::min(had, entry.progress->LastId(""));
    if (had >= up_to)
        return {};
    std::vector<alerts::Alert> found = alerts::ReadAlerts(store_.database(), had, 0, kRemoveAtOnce);
    std::erase_if(found, [&](const alerts::Alert &alert) { return alert.id > up_to; });
    return found;
}

// The last alert that no receiver may have to be sent again.
int64_t Deliverer::SettledId()
{
    int64_t settled = INT64_MAX;
    for (Entry &entry : entries_) {
        if (entry.workers.empty() || entry.sink.config.kind->look == nullptr)
            continue;
        entry.settled.Note(Clock::now(), entry.progress->LastId(""));
        settled = std::min(settled, entry.settled.UpTo(Clock::now()));
    }
    return settled;
}

// D1. A thousand at a time, with a pause behind it: the write lock is the monitor's, too. The rows are
// written before the alerts go, so that a crash in between drops none that no row knows of.
void Deliverer::KeepTheLimit()
{
    const Kept kept = LookAtAlerts();
    LookAtLevels(kept);
    const int64_t too_many = kept.Count() - limit_;
    const int64_t too_long = bytes_ - (limit_megabytes_ * kMegabyte);
    alerts::Surplus surplus =
        alerts::FindSurplus(store_.database(), too_many, too_long, kRemoveAtOnce, SettledId());
    // Nothing is settled: then twice the limits hold.
    if (surplus.up_to == 0)
        surplus = alerts::FindSurplus(store_.database(), too_many - limit_,
                                      too_long - (limit_megabytes_ * kMegabyte), kRemoveAtOnce);
    over_limit_ = surplus.up_to != 0; // until it is done
    if (!over_limit_)
        return;
    const std::string limit = too_many > 0
                                  ? std::to_string(limit_) + " alerts"
                                  : std::to_string(limit_megabytes_) + " megabytes of alerts";
    const std::vector<alerts::Alert> going = NotHadByAll(surplus.up_to);
    for (Entry &entry : entries_) {
        Progress::Leaving leaving{surplus.up_to, {}, {}};
        for (const alerts::Alert &alert : going) {
            if (!entry.route.Takes(alert))
                leaving.others.insert(alert.id);
            else if (entry.rate.IsBounded())
                leaving.wanted.push_back(alert);
        }
        const int64_t lost = entry.progress->Removed(leaving);
        entry.unwritten |= entry.progress->HasChanged();
        if (lost > 0 && entry.level != Level::kFull) {
            entry.level = Level::kFull;
            Tell("the sink " + entry.sink.config.name + " has taken no alert for so long that the" +
                 " limit of " + limit +
                 " is reached: the oldest are dropped; see syslogmon sink show " +
                 entry.sink.config.name);
        }
    }
    WriteRows();
    alerts::RemoveAlerts(store_, surplus.up_to);
    bytes_ -= surplus.bytes;
    over_limit_ = too_many > kRemoveAtOnce || too_long > surplus.bytes;
}

// D2. Told of at 80 %, and well again only below 50 %: a sink that hovers at the edge is not told of again
// and again.
void Deliverer::LookAtLevels(const Kept &kept)
{
    const int64_t limit = FittingAlerts(kept);
    for (Entry &entry : entries_) {
        const int64_t waiting = kept.newest - entry.progress->LastId("");
        if (waiting * 10 < limit * 8) {
            if (waiting * 2 < limit)
                entry.level = Level::kWell;
            continue;
        }
        if (entry.level != Level::kWell)
            continue;
        entry.level = Level::kFilling;
        Tell(std::to_string(waiting) + " alerts wait for the sink " + entry.sink.config.name +
             ", of at most " + std::to_string(limit) + "; see syslogmon sink show " +
             entry.sink.config.name);
    }
}

// In the trace log and on standard error: an administrator reads one of them.
void Deliverer::Tell(const std::string &text) const
{
    TRACE(TRACE_NOTABLE, "%s.", text.c_str());
    text::Say(text);
}

} // namespace sinks

#include "agent/metrics/overview.h"

#include <set>

#include "agent/alerts/alert_store.h"
#include "agent/host/agent_values.h"
#include "agent/host/here_and_now.h"
#include "agent/host/room.h"
#include "agent/logs/log_files.h"
#include "agent/logs/places.h"
#include "agent/metrics/quick_place.h"
#include "agent/settings/settings.h"
#include "agent/sinks/delivery_store.h"
#include "agent/sinks/sink_registry.h"
#include "agent/sinks/undelivered.h"
#include "agent/status/sign_of_life.h"
#include "platform/contract.h"

namespace metrics {

namespace {

// A change of the events that is made by hand, in the registry, is made known to nobody.
constexpr std::chrono::seconds kEventsKeptFor{5};

void LookAtDaemon(const host::Layout &layout, std::optional<pid_t> daemon, Overview *view)
{
    view->stands.clear();
    view->last_look_ms.reset();
    view->is_running = daemon.has_value();
    view->status = status::ReadStatus(layout.run);
    // Also of a daemon that has gone: nobody has looked since.
    if (view->status && view->status->last_full_pass.number > 0)
        view->last_look_ms = view->status->last_full_pass.began_ms;
    if (!daemon) {
        view->status.reset();
        return;
    }
    view->stands = status::WhyItStands(*daemon, view->status);
    // One that a daemon before it has left says nothing of this one.
    if (view->status && view->status->pid != *daemon)
        view->status.reset();
}

// So many seconds nobody has looked at a file in which something is unread.
std::optional<int64_t> SecondsBehind(const Overview &view, std::optional<int64_t> unread)
{
    if (!unread)
        return std::nullopt;
    if (*unread == 0)
        return 0;
    if (!view.last_look_ms)
        return std::nullopt;
    return status::SecondsSinceLook(*view.last_look_ms, view.now_ms);
}

void LookAtLogs(host::RegistryTree &registry, Overview *view)
{
    view->logs.clear();
    const auto add = [&](const char *role, const std::string &path, std::optional<int64_t> unread) {
        view->logs.push_back({role, path, unread, SecondsBehind(*view, unread), false});
    };
    add("system log", kSystemLog, UnreadOfSlot(registry, 0, kSystemLog));
    view->logs.back().losses_are_told = true;
    if (const std::string customer = logs::NameOfFile(registry, kMonitorKey); !customer.empty()) {
        const bool is_spool = customer == host::AgentText(registry, host::kInputSpool);
        add(is_spool ? logs::kSpoolRole : "customer file", customer,
            UnreadOfSlot(registry, 1, customer));
        view->logs.back().losses_are_told = !is_spool; // the inputs tell theirs
    }
    if (const std::string target = logs::NameOfFile(registry, kFileMonitorKey); !target.empty())
        add("file monitor", target, UnreadOfTarget(registry, target));
}

void LookAtSinks(host::RegistryTree &registry, Overview *view)
{
    host::Database &database = registry.store().database();
    const int64_t newest = alerts::NewestAlertId(database);
    const int64_t oldest = alerts::OldestAlertId(database);
    view->alerts = newest - oldest + 1;
    view->sinks.clear();
    for (const auto &stored : sinks::SinkRegistry(registry.store(), registry).ReadAll()) {
        SinkView sink;
        sink.name = stored.config.name;
        sink.kind = stored.config.kind != nullptr ? stored.config.kind->name : "?";
        sink.last_error = stored.problem;
        const auto rows = sinks::ReadDeliveries(database, stored.config.key);
        // The empty name is the sink as a whole.
        if (const auto whole = rows.find(""); whole != rows.end()) {
            sink.delivered = whole->second.delivered;
            sink.dropped = whole->second.dropped;
            sink.waiting = sinks::Waiting(whole->second, oldest, newest);
            if (sink.last_error.empty())
                sink.last_error = whole->second.last_error;
        }
        std::set<int64_t> aside;
        for (const auto &row : sinks::ReadUndelivered(database, stored.config.key))
            aside.insert(row.alert_id);
        sink.undelivered = static_cast<int64_t>(aside.size());
        view->sinks.push_back(std::move(sink));
    }
}

// Those that the monitor can load.
std::vector<events::EventRecord> ReadEvents(host::RegistryTree &registry)
{
    std::vector<events::EventRecord> found;
    for (auto &source : events::EventRegistry(registry).ReadAll()) {
        for (auto &stored : source.events) {
            if (!source.is_new_application_type && stored.problem.empty())
                found.push_back(std::move(stored.event));
        }
    }
    return found;
}

} // namespace

int64_t Overview::Total(history::Kind kind, const std::string &name, uint32_t id) const
{
    const auto found = totals.find({kind, name, id});
    return found != totals.end() ? found->second : 0;
}

void Lookout::LookAtEvents()
{
    const auto now = Clock::now();
    const int64_t change = registry_.store().ChangeCount();
    if (events_are_known_ && (change == change_of_events_ || now < events_until_))
        return;
    ++event_reads_;
    view_.events = ReadEvents(registry_);
    change_of_events_ = change;
    events_until_ = now + kEventsKeptFor;
    events_are_known_ = true;
}

const Overview &Lookout::Look(std::optional<pid_t> daemon)
{
    view_.now_ms = host::NowMs();
    LookAtDaemon(layout_, daemon, &view_);
    const host::Snapshot one_state(registry_.store());
    host::Database &database = registry_.store().database();
    view_.cycle_s = std::stoll(settings::GetSetting(registry_, settings::FindSetting("cycle")));
    LookAtLogs(registry_, &view_);
    LookAtSinks(registry_, &view_);
    LookAtEvents();
    totals_.Update(&view_.totals);
    view_.own_totals = alerts::ReadOwnTotals(database);
    view_.store_bytes = host::SizeOfStore(layout_.Store());
    return view_;
}

Overview Look(host::RegistryTree &registry, const host::Layout &layout, std::optional<pid_t> daemon)
{
    return Lookout(registry, layout).Look(daemon);
}

Overview LookAtReading(host::RegistryTree &registry, const host::Layout &layout, pid_t daemon)
{
    Overview view;
    view.now_ms = host::NowMs();
    LookAtDaemon(layout, daemon, &view);
    const host::Snapshot one_state(registry.store());
    LookAtLogs(registry, &view);
    return view;
}

} // namespace metrics

// What there is to be seen of the monitor at one moment: its daemon, its logs, sinks and events, and what was counted.
// Metrics, page and full-screen view show this.
//
// It is read from the store and from the daemon's status alone. So it can be looked at from any process, in the daemon
// itself on any thread with a connection of its own, and never holds up a pass.
#ifndef AGENT_METRICS_OVERVIEW_H
#define AGENT_METRICS_OVERVIEW_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

#include "agent/alerts/own_alert.h"
#include "agent/events/events.h"
#include "agent/history/history_reader.h"
#include "agent/host/layout.h"
#include "agent/host/registry_tree.h"
#include "agent/status/status_file.h"

namespace metrics {

struct LogView {
    std::string role; // "system log", "customer file", "inputs' spool", "file monitor"
    std::string path;
    std::optional<int64_t> unread; // bytes; nothing: not known
    // Seconds since a pass has last looked, while there is something unread; nothing: not known.
    std::optional<int64_t> behind_s;
    bool losses_are_told = false; // under its path
};

struct SinkView {
    std::string name;
    std::string kind;
    int64_t delivered = 0;
    int64_t dropped = 0;
    int64_t waiting = 0;     // alerts
    int64_t undelivered = 0; // alerts that were put aside
    std::string last_error;  // empty: none
};

struct Overview {
    int64_t now_ms = 0;
    bool is_running = false;
    std::string stands;                   // why the daemon does not do its work; empty: it does
    std::optional<status::Status> status; // of the daemon, while it runs
    // When the last look at all files began, by the daemon that runs or ran last. Nothing: none has ended since it
    // started, or none has run since the host was booted.
    std::optional<int64_t> last_look_ms;
    int64_t cycle_s = 0;
    std::vector<LogView> logs;
    std::vector<SinkView> sinks;
    std::vector<events::EventRecord> events; // registered ones that the monitor can load
    history::Totals totals;
    std::vector<alerts::OwnTotal> own_totals;
    int64_t store_bytes = 0; // with its journal
    int64_t alerts = 0;      // that are stored

    // What was counted; 0 when nothing was.
    [[nodiscard]] int64_t Total(history::Kind kind, const std::string &name, uint32_t id = 0) const;
};

// Looks again and again. What is the same as the last time is not read again: the totals of before this minute, and the
// registered events, which are most of the work where there are thousands.
class Lookout {
  public:
    // Both must outlive it.
    Lookout(host::RegistryTree &registry, host::Layout layout)
        : registry_(registry), layout_(std::move(layout)), totals_(registry.store().database())
    {
    }

    // `daemon`: the process that holds the daemon's lock, if any. One state of the store, but for the events: a change of
    // them that nobody tells of is seen within five seconds. It stays until the next look. Throws host::Error.
    const Overview &Look(std::optional<pid_t> daemon);

    // The registered events may be others now: the next look reads them.
    void EventsChanged() { events_are_known_ = false; }

    // How often the events were read, and how often all totals. For tests.
    [[nodiscard]] int64_t EventReads() const { return event_reads_; }
    [[nodiscard]] int64_t FullReadsOfTotals() const { return totals_.FullReads(); }

  private:
    using Clock = std::chrono::steady_clock;
    void LookAtEvents();

    host::RegistryTree &registry_;
    host::Layout layout_;
    Overview view_;
    history::TotalsReader totals_;
    bool events_are_known_ = false;
    int64_t change_of_events_ = 0; // the store's, when they were read
    Clock::time_point events_until_{};
    int64_t event_reads_ = 0;
};

// One look.
Overview Look(host::RegistryTree &registry, const host::Layout &layout,
              std::optional<pid_t> daemon);

// One look at how far the running daemon has read: daemon and logs, all else stays empty. So it costs the same with any
// number of events and sinks. Throws host::Error.
Overview LookAtReading(host::RegistryTree &registry, const host::Layout &layout, pid_t daemon);

} // namespace metrics

#endif // AGENT_METRICS_OVERVIEW_H

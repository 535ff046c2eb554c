// The registered events, as they stand in the registry. The monitor's table is loaded from them.
//
// An event is always written whole: one missing value would make the load of the whole table fail.
// Whoever changes events does it within ChangeEvents or ChangeUnderTableMutex, which keep the
// monitor out while they do and wake it afterwards. Reading needs neither: it sees one state of the
// store.
#ifndef AGENT_EVENTS_EVENTS_H
#define AGENT_EVENTS_EVENTS_H

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "agent/events/event_policy.h"
#include "agent/events/hours.h"
#include "agent/host/host.h"

namespace events {

// What identifies an event. The number of its ID counts, not how its key is written; names of
// sources compare as the registry's keys do.
struct EventKey {
    std::string source;
    uint32_t id = 0;

    bool operator==(const EventKey &) const = default;
};

// An event as a person gives it: all that is stored of one.
struct EventRecord {
    EventKey key;
    // Texts that a line must contain; empty: no condition. All may be with an expression that shows one.
    std::array<std::string, 3> keywords;
    int32_t report_count = 1;   // hits that make one report
    uint32_t hours = kAllHours; // see ParseHours
    EventPolicy policy = {};    // what the agent makes of its reports

    // Are there any of the user's? Those that are derived from an expression are not.
    [[nodiscard]] bool HasKeywords() const { return keywords != std::array<std::string, 3>(); }
    bool operator==(const EventRecord &) const = default;
};

// An event as it was found, which may be damaged: by hand, by another program, or by an imported
// file. What could not be read has its default, or 0.
struct StoredEvent {
    EventRecord event;
    std::string id_text; // the name of its key
    std::string problem; // why the monitor cannot load it; empty: it can
};

// A source with its events, in the order of their keys' creation. One with NEWAPPLICATIONTYPE is
// not the monitor's.
struct StoredSource {
    std::string name;
    bool is_new_application_type = false;
    std::vector<StoredEvent> events;
};

// Events that would be in the table, if each can be loaded.
size_t CountTableEvents(const std::vector<StoredSource> &sources);

// "1A2B", as the registry names an event.
std::string FormatEventId(uint32_t id);
// One to eight hexadecimal digits, in capitals or not, without a prefix. Throws host::Error.
uint32_t ParseEventId(const std::string &text);

// Throws host::Error, naming the value and the range it must lie in, when the monitor could not use
// the event. The first thing that is wrong is told.
void CheckEvent(const EventRecord &event);

// Throws host::Error when the expression of a policy shows no text for the monitor's table, so that its
// event needs keywords of its own.
void CheckDerivedKeyword(const EventPolicy &policy);

// The keywords that the monitor's table gets: those of the event, or without any the text that its
// expression needs.
std::array<std::string, 3> TableKeywords(const EventRecord &event);

// The events in a registry, one by one. It keeps nothing: each call reads the store. All throw
// host::StoreError when that fails. The registry must outlive it.
class EventRegistry {
  public:
    explicit EventRegistry(host::RegistryTree &registry) : registry_(registry) {}

    // In the order in which the monitor loads them, damaged ones included.
    std::vector<StoredSource> ReadAll();
    // Nothing when there is none of this source and number.
    std::optional<StoredEvent> Find(const EventKey &key);

    // Adds the event or replaces its values. Throws host::Error when CheckEvent does, with nothing
    // written.
    void Write(const EventRecord &event);
    // With its source, when that was the last one. False: there is no such event.
    bool Remove(const EventKey &key);

  private:
    StoredEvent Read(const std::string &source, const std::string &id_text, host::KeyId id_key);
    std::optional<std::string> FindIdText(const EventKey &key);

    host::RegistryTree &registry_;
};

// Changes the registered events: takes the mutex of the table, runs the change as one transaction,
// releases the mutex, and wakes the monitor. What `change` throws is thrown on, with everything
// rolled back and nobody woken. `on_wait` is called once when the mutex is not free for a second;
// what it throws ends the wait. Throws host::Error when the mutex cannot be used.
void ChangeEvents(host::Host &host, const std::function<void()> &change,
                  const std::function<void()> &on_wait);

// The same for a change that finds out by itself whether it touches the registered events: it
// returns true when it does, and only then is the monitor woken.
void ChangeUnderTableMutex(host::Host &host, const std::function<bool()> &change,
                           const std::function<void()> &on_wait);

// The same for a thread beside the monitor's, with a connection to the store of its own. `leaves` is asked while the
// mutex is not free; when it is true, nothing is done. Returns whether the change was made.
bool ChangeBesideMonitor(const host::Layout &layout, host::Store &store,
                         const std::function<bool()> &change, const std::function<bool()> &leaves);

} // namespace events

#endif // AGENT_EVENTS_EVENTS_H

// Why an event that is registered is not, or can never be, reported: found in the registry, without
// the monitor. For the doctor and for trials of rules, which turn each doubt into a line with a
// next step.
//
// The answers follow the rules of the monitor, oddities included. They are read, never written:
// nothing here changes the registry. All throw host::StoreError when it cannot be read.
#ifndef AGENT_EVENTS_EVENT_CHECKS_H
#define AGENT_EVENTS_EVENT_CHECKS_H

#include <optional>
#include <string>
#include <vector>

#include "agent/events/events.h"

namespace events {

// What is wrong with an event, and what to do: a part of a sentence each. The caller names the
// event.
struct EventDoubt {
    std::string cause;
    std::string advice;
};

// Everything that keeps an event that the monitor has loaded from ever being reported, or that
// hints at it; empty: nothing does. `fault_tolerant`: keywords may be regular expressions on this
// host.
std::vector<EventDoubt> DoubtsOf(const StoredEvent &stored, bool fault_tolerant);

// The product that keeps a source from being watched because it is not set up; or nothing.
std::optional<std::string> ProductThatFilters(host::RegistryTree &registry,
                                              const std::string &source);

// Why the monitor has left out an event that it could have loaded: the first of the reasons that
// holds. Ask only for one that is not in its table; the answer for another one means nothing.
EventDoubt WhyLeftOut(host::RegistryTree &registry, const StoredSource &source,
                      const StoredEvent &stored);

// "DISK 1A2B", with the ID as its key is named.
std::string NameOf(const StoredEvent &stored);

// The command line that repairs a value of an event, for an advice.
std::string SetCommand(const StoredEvent &stored, const std::string &option);

} // namespace events

#endif // AGENT_EVENTS_EVENT_CHECKS_H

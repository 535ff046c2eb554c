// What the policies of events have counted, in the store. It is written with the pass that counted it, so
// it outlives the process as the hit counters do, and a pass that is rolled back takes its hits along.
//
// All throw host::StoreError.
#ifndef AGENT_POLICY_COUNT_STORE_H
#define AGENT_POLICY_COUNT_STORE_H

#include <string>

#include "agent/events/events.h"
#include "agent/host/store.h"
#include "agent/policy/event_count.h"

namespace policy {

// By what the hits of an event are counted, in one text. What was counted by other terms is worth nothing,
// as the hits of another report count are.
std::string TermsOf(const events::EventRecord &event);

// Fills a count that is new. False: nothing is stored that was counted by these terms.
bool LoadCount(host::Database &database, const events::EventRecord &event, EventCount *count);

// Begins the count of an event anew: whatever is stored of it goes.
void BeginCount(host::Store &store, const events::EventRecord &event);

// Writes what has changed since the last call, for an event that was loaded or begun.
void SaveCount(host::Store &store, const events::EventKey &key, EventCount *count);

// Forgets all events but these, which have a policy that counts.
void ForgetOthers(host::Store &store, const std::vector<events::EventKey> &kept);

} // namespace policy

#endif // AGENT_POLICY_COUNT_STORE_H

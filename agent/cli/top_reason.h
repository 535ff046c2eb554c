// Why the newest alert of an event was reported: what `top` says of the event that it explains.
#ifndef AGENT_CLI_TOP_REASON_H
#define AGENT_CLI_TOP_REASON_H

#include <cstdint>
#include <optional>
#include <string>

#include "agent/events/events.h"
#include "agent/host/database.h"

namespace cli {

struct TopReason {
    events::EventKey event;
    std::string time; // empty: there is no alert of it
    std::string why;
    std::string line;         // the first one that it stands for
    int64_t looked_up_to = 0; // the id of the newest alert that was looked at
};

// `before`: what was found the last time, if anything. Only the alerts behind that are looked through then: it takes all
// of them to find out that an event has none, and the screen is made anew each second. Throws host::StoreError.
TopReason ReasonOf(host::Database &database, const events::EventKey &event,
                   const std::optional<TopReason> &before);

} // namespace cli

#endif // AGENT_CLI_TOP_REASON_H

// Events as JSON: the same shape in all commands.
#ifndef AGENT_CLI_EVENT_JSON_H
#define AGENT_CLI_EVENT_JSON_H

#include <nlohmann/json_fwd.hpp>

#include "agent/events/events.h"

namespace cli {

// {"source": "DISK", "id": "1A2B"}
nlohmann::json KeyToJson(const events::EventKey &key);

// {"severity": "err", "labels": {"team": "storage"}}: what is set.
nlohmann::json PolicyToJson(const events::EventPolicy &policy);

// {"keywords": ["a", "b"], "report_count": 1, "hours": "all"}; keywords behind the last one that is
// not empty are left out. One before it stays, empty: the places count. With what PolicyToJson has.
nlohmann::json ValuesToJson(const events::EventRecord &event);

} // namespace cli

#endif // AGENT_CLI_EVENT_JSON_H

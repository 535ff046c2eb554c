// An alert as it comes over the network: the JSON that sinks send (agent/sinks/alert_json.h), read back.
#ifndef AGENT_FLEET_WIRE_ALERT_H
#define AGENT_FLEET_WIRE_ALERT_H

#include <string>

#include "agent/alerts/alert_store.h"

namespace fleet {

// The alert that the text tells of, with the key and the ID that it has in its own store. Nothing of what it says is
// believed beyond its being text and numbers within bounds. Throws host::Error, which says what is wrong, for a text
// that is no such alert.
alerts::Alert ParseAlert(const std::string &text);

} // namespace fleet

#endif // AGENT_FLEET_WIRE_ALERT_H

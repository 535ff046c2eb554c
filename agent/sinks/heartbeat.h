// A sign of life: a message that a sink sends again and again while the monitor does its work, for a receiver that
// raises the alarm when none comes. It is no alert: it is not stored, not counted, and bound by no rate.
#ifndef AGENT_SINKS_HEARTBEAT_H
#define AGENT_SINKS_HEARTBEAT_H

#include <chrono>
#include <string>

#include "agent/host/layout.h"
#include "agent/sinks/sink.h"

namespace sinks {

// How often, from 10 seconds to a day.
std::string CheckHeartbeat(const std::string &value);

// Nothing is over it sooner than after three of them, at a receiver that keeps alerts until they are over.
Message HeartbeatOf(std::chrono::milliseconds every, int64_t now_ms);

// Does this process do its work: has its last look at all files ended, and begun no longer ago than a cycle and half a
// minute, and does it go on? False when that cannot be found out.
bool IsMonitorFresh(const host::Layout &layout);

} // namespace sinks

#endif // AGENT_SINKS_HEARTBEAT_H

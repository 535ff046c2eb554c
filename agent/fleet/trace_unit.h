// The unit under which this folder's records stand in the trace.
#ifndef AGENT_FLEET_TRACE_UNIT_H
#define AGENT_FLEET_TRACE_UNIT_H

#include "platform/trace.h"

namespace fleet {

inline constexpr char kUnit[] = "fleet";

} // namespace fleet

#endif // AGENT_FLEET_TRACE_UNIT_H

// The unit under which this folder's records stand in the trace.
#ifndef AGENT_SINKS_TRACE_UNIT_H
#define AGENT_SINKS_TRACE_UNIT_H

#include "platform/trace.h"

namespace sinks {

inline constexpr char kUnit[] = "deliverer";

} // namespace sinks

#endif // AGENT_SINKS_TRACE_UNIT_H

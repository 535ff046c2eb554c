// The unit under which this folder's records stand in the trace.
#ifndef AGENT_DAEMON_TRACE_UNIT_H
#define AGENT_DAEMON_TRACE_UNIT_H

#include "platform/trace.h"

namespace syslogmond {

inline constexpr char kUnit[] = "syslogmond";

} // namespace syslogmond

#endif // AGENT_DAEMON_TRACE_UNIT_H

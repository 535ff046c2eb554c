// The kinds of sinks, each defined in the file of its name.
#ifndef AGENT_ALERTS_SINK_KINDS_H
#define AGENT_ALERTS_SINK_KINDS_H

#include "agent/alerts/sink.h"

namespace alerts {

SinkKind ConsoleKind();
SinkKind FileKind();
SinkKind ProgramKind();
SinkKind WebhookKind();
SinkKind AlertmanagerKind();

} // namespace alerts

#endif // AGENT_ALERTS_SINK_KINDS_H

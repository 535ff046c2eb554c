// The kinds of sinks, each defined in the file of its name.
#ifndef AGENT_SINKS_SINK_KINDS_H
#define AGENT_SINKS_SINK_KINDS_H

#include "agent/sinks/sink.h"

namespace sinks {

SinkKind ConsoleKind();
SinkKind FileKind();
SinkKind JournalKind();
SinkKind SyslogKind();
SinkKind ProgramKind();
SinkKind WebhookKind();
SinkKind AlertmanagerKind();
SinkKind SnmpKind();
SinkKind MailKind();
SinkKind NatsKind();

} // namespace sinks

#endif // AGENT_SINKS_SINK_KINDS_H

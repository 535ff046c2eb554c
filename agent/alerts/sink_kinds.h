// The kinds of sinks, each defined in the file of its name.
#ifndef AGENT_ALERTS_SINK_KINDS_H
#define AGENT_ALERTS_SINK_KINDS_H

#include "agent/alerts/sink.h"

namespace alerts {

SinkKind ConsoleKind();
SinkKind FileKind();
SinkKind JournalKind();
SinkKind SyslogKind();
SinkKind ProgramKind();
SinkKind WebhookKind();
SinkKind AlertmanagerKind();
SinkKind SnmpKind();
SinkKind MailKind();

} // namespace alerts

#endif // AGENT_ALERTS_SINK_KINDS_H

#include "agent/sinks/sink_kinds.h"

namespace sinks {

const std::vector<SinkKind> &AllKinds()
{
    static const std::vector<SinkKind> kinds = {
        ConsoleKind(), FileKind(),         JournalKind(), SyslogKind(), ProgramKind(),
        WebhookKind(), AlertmanagerKind(), SnmpKind(),    MailKind(),
    };
    return kinds;
}

} // namespace sinks

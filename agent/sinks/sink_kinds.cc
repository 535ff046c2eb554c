#include "agent/sinks/sink_kinds.h"

namespace sinks {

const std::vector<SinkKind> &AllKinds()
{
    // Made with the first call, whoever makes it: the rows of other files need not be there before.
    static const std::vector<SinkKind> kinds = {
        ConsoleKind(), FileKind(),         JournalKind(), SyslogKind(), ProgramKind(),
        WebhookKind(), AlertmanagerKind(), SnmpKind(),    MailKind(),
    };
    return kinds;
}

} // namespace sinks

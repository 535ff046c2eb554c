#include "agent/alerts/sink_kinds.h"

namespace alerts {

const std::vector<SinkKind> &AllKinds()
{
    static const std::vector<SinkKind> kinds = {
        ConsoleKind(), FileKind(), ProgramKind(), WebhookKind(), AlertmanagerKind(),
    };
    return kinds;
}

} // namespace alerts

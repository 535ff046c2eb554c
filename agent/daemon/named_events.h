// The named events, held open for the life of the daemon: a signal that comes while the monitor is
// down is there when it starts again. Such an event lasts only as long as somebody has it open.
#ifndef AGENT_DAEMON_NAMED_EVENTS_H
#define AGENT_DAEMON_NAMED_EVENTS_H

#include <filesystem>
#include <memory>

#include "agent/host/agent_values.h"
#include "agent/host/waitable.h"
#include "platform/contract.h"

namespace syslogmond {

class NamedEvents {
  public:
    // Throws host::Error when one of them cannot be made in the run-time folder.
    explicit NamedEvents(const std::filesystem::path &run)
        : table(Open(run, kTableEvent)), cycle(Open(run, kCycleEvent)), scan(Open(run, kScanEvent)),
          customer_file(Open(run, kCustomerFileEvent)), file_monitor(Open(run, kFileMonitorEvent)),
          settings(Open(run, host::kAgentSettingsEvent))
    {
    }

    // Has the module, and the daemon, read everything again.
    // Not the scan: it reads no setting.
    void SetAll() const
    {
        for (const auto &event : {table, cycle, customer_file, file_monitor, settings})
            event->Set();
    }

    std::shared_ptr<host::WakeEvent> table;
    std::shared_ptr<host::WakeEvent> cycle;
    std::shared_ptr<host::WakeEvent> scan;
    std::shared_ptr<host::WakeEvent> customer_file;
    std::shared_ptr<host::WakeEvent> file_monitor;
    std::shared_ptr<host::WakeEvent> settings; // of the agent, which no module knows

  private:
    static std::shared_ptr<host::WakeEvent> Open(const std::filesystem::path &run, const char *name)
    {
        return host::WakeEvent::Create(run, name, false, false);
    }
};

} // namespace syslogmond

#endif // AGENT_DAEMON_NAMED_EVENTS_H

// Does this host's part in a fleet, as it is set up, and follows when that changes.
#ifndef AGENT_FLEET_FLEET_KEEPER_H
#define AGENT_FLEET_FLEET_KEEPER_H

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "agent/fleet/collector.h"
#include "agent/fleet/member.h"
#include "agent/host/layout.h"
#include "agent/host/waitable.h"

namespace fleet {

// It has a thread of its own, on which it reads the settings: nobody waits for it.
class FleetKeeper {
  public:
    // `stored`: alerts of other hosts were; from another thread, returns at once. Throws host::Error when the event
    // cannot be made.
    FleetKeeper(host::Layout layout, std::function<void()> stored);
    ~FleetKeeper();
    FleetKeeper(const FleetKeeper &) = delete;
    FleetKeeper &operator=(const FleetKeeper &) = delete;

  private:
    void Run();
    void TakeSetup();
    void TakeCollector(const std::optional<sinks::SinkConfig> &wanted);
    void TakeMembership(host::Store &store, host::RegistryTree &registry);
    void TakeMember(const std::optional<sinks::SinkConfig> &wanted);
    void Look(HostStatus *status);

    host::Layout layout_;
    std::function<void()> stored_;
    std::shared_ptr<host::WakeEvent> changed_;
    host::Fd bell_;
    std::atomic<bool> stop_{false};
    // of the thread
    sinks::SinkConfig collects_; // as the collector was made
    std::unique_ptr<Collector> collector_;
    sinks::SinkConfig member_of_; // likewise
    std::unique_ptr<Member> member_;
    std::string told_; // the failure that was told last

    std::thread thread_;
};

} // namespace fleet

#endif // AGENT_FLEET_FLEET_KEEPER_H

// The configured sinks, as they stand in the registry.
//
// Key SOFTWARE\KORBIN\TARSKVOSKAR\AGENT\SINKS\<name>, one for each sink:
//
//   value     type    meaning
//   Kind      REG_SZ  one of AllKinds
//   others    REG_SZ  the options of the kind, under the names that are typed
//
// Key SOFTWARE\KORBIN\TARSKVOSKAR\AGENT:
//
//   AlertLimit      REG_DWORD  100000  how many alerts are kept; beyond it the oldest go
//   AlertMegabytes  REG_DWORD  256     how many MiB of them are kept; when it is not set, or 0, no
//                                      more than a quarter of the store's disk
#ifndef AGENT_SINKS_SINK_REGISTRY_H
#define AGENT_SINKS_SINK_REGISTRY_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "agent/host/registry_tree.h"
#include "agent/settings/alert_limits.h"
#include "agent/sinks/sink.h"

namespace sinks {

using settings::kDefaultAlertLimit;
using settings::kDefaultAlertMegabytes;
using settings::kSinksEvent;

// A sink as it was found. With a problem, its kind may be null, and nothing is sent to it.
struct StoredSink {
    SinkConfig config;
    std::string problem; // empty: none
};

// Throws host::Error when a sink cannot have this name.
void CheckSinkName(const std::string &name);

// The sinks in a registry. It keeps nothing: each call reads the store, and all throw
// host::StoreError when that fails. Store and registry must outlive it. A change wakes nobody: the
// caller sets kSinksEvent behind it.
class SinkRegistry {
  public:
    SinkRegistry(host::Store &store, host::RegistryTree &registry)
        : store_(store), registry_(registry)
    {
    }

    // In the order of their creation, those with a problem included.
    std::vector<StoredSink> ReadAll();
    // Throws host::Error, which names all sinks, when there is none of that name.
    StoredSink Find(const std::string &name);

    // Adds a sink, which gets the alerts that are stored from now on. Throws host::Error, and
    // changes nothing, when there is one of that name or something is wrong with it.
    void Add(SinkConfig config);
    // Changes a sink's options, as `edit` does; it goes on where it was. Throws host::Error, and
    // changes nothing, when there is none of that name, or something is wrong with the result.
    // Nobody else changes sinks meanwhile.
    SinkConfig Change(const std::string &name, const std::function<void(StoredSink &)> &edit);
    // With what is known of its deliveries. Throws host::Error when there is none of that name.
    void Remove(const std::string &name);

    // How many alerts are kept: what is set, brought into the range, or the default.
    uint32_t AlertLimit();
    // Throws host::Error when it is out of range.
    void SetAlertLimit(const std::string &text);
    // The same of their bytes, in MiB.
    uint32_t AlertMegabytes();
    void SetAlertMegabytes(const std::string &text);

  private:
    StoredSink Read(host::KeyId key, const std::string &name);
    void SetNumber(const char *name, uint32_t number);

    host::Store &store_;
    host::RegistryTree &registry_;
};

} // namespace sinks

#endif // AGENT_SINKS_SINK_REGISTRY_H

// How many alerts are kept: values of the agent's key, which settings write and the deliverer reads. See agent/sinks/sink_registry.h.
#ifndef AGENT_SETTINGS_ALERT_LIMITS_H
#define AGENT_SETTINGS_ALERT_LIMITS_H

#include <cstdint>

namespace settings {

// Set by a command that has changed a sink or a limit; the daemon reads them again.
inline constexpr char kSinksEvent[] = "Agent_Sinks_Event";

inline constexpr char kAlertLimit[] = "AlertLimit";
inline constexpr char kAlertMegabytes[] =
    "AlertMegabytes"; // 0, as without it: what the disk allows

// Alerts that are kept, and MiB of them: without a setting, and what can be set.
constexpr uint32_t kDefaultAlertLimit = 100000;
constexpr uint32_t kSmallestAlertLimit = 100;
constexpr uint32_t kLargestAlertLimit = 100000000;
constexpr uint32_t kDefaultAlertMegabytes = 256;
constexpr uint32_t kLargestAlertMegabytes = 1024 * 1024;

} // namespace settings

#endif // AGENT_SETTINGS_ALERT_LIMITS_H

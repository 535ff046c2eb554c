// The agent's own settings. They are registry values, like the monitor's.
//
// Key SOFTWARE\KORBIN\TARSKVOSKAR\AGENT:
//
//   value            type       default  meaning
//   TraceLevel       REG_DWORD  1        lowest trace level that is written, 0 to 3 (see TraceLevel)
//   LogCharset       REG_SZ     UTF-8    character set of the logs, as iconv names it
//   FaultTolerant    REG_DWORD  0        1: this is a fault-tolerant server
//   TriggerInterval  REG_DWORD  1000     milliseconds between two looks at files that are being
//                                        written; 0: the cycle alone makes the monitor look
//   SpoolMegabytes   REG_DWORD  64       so much of the inputs' entries may wait for the monitor, in MiB
//   AlarmAfter       REG_DWORD  900      seconds that a trouble of the monitor, of the kinds that pass by themselves, has
//                                        to last before an alert tells of it
//   SilentAfter      REG_DWORD  24       hours without a line of the system log, or an entry of a journal, after which
//                                        an alert tells of it; 0: never
//
// While there are inputs, these are there as well:
//
//   InputSpool       REG_SZ              the file by which the monitor gets their entries: its customer file
//   CustomerFile     REG_SZ              the customer file that was set, which is an input itself meanwhile
#ifndef AGENT_HOST_AGENT_VALUES_H
#define AGENT_HOST_AGENT_VALUES_H

#include <cstdint>
#include <optional>
#include <string>

#include "agent/host/registry_tree.h"

namespace host {

extern const char *const kAgentKey; // below HKEY_LOCAL_MACHINE

// Set by a command that has changed one of the values above; the daemon reads them again.
extern const char *const kAgentSettingsEvent;

// The values that hold while nothing is set, and the bounds.
constexpr uint32_t kDefaultTraceLevel = 1;
constexpr uint32_t kDefaultTriggerInterval = 1000; // milliseconds
constexpr uint32_t kMaxTriggerInterval = 3600 * 1000;
constexpr char kDefaultLogCharset[] = "UTF-8";
constexpr uint32_t kDefaultSpoolMegabytes = 64;
constexpr uint32_t kMaxSpoolMegabytes = 64 * 1024;

constexpr uint32_t kDefaultAlarmAfter = 900; // seconds
constexpr uint32_t kMaxAlarmAfter = 24 * 3600;
constexpr uint32_t kDefaultSilentAfter = 24; // hours
constexpr uint32_t kMaxSilentAfter = 365 * 24;

constexpr char kAlarmAfter[] = "AlarmAfter";
constexpr char kSilentAfter[] = "SilentAfter";
constexpr char kSpoolMegabytes[] = "SpoolMegabytes";
constexpr char kInputSpool[] = "InputSpool";
constexpr char kCustomerFile[] = "CustomerFile";

// A value of the agent's key, or nothing when it is missing or of another type.
std::optional<uint32_t> AgentNumber(RegistryTree &registry, const std::string &name);
std::optional<std::string> AgentText(RegistryTree &registry, const std::string &name);

} // namespace host

#endif // AGENT_HOST_AGENT_VALUES_H

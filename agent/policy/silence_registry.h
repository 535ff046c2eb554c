// The silences, as they stand in the registry.
//
// Key SOFTWARE\KORBIN\TARSKVOSKAR\AGENT\SILENCES\<number>, one for each silence:
//
//   value    type       meaning
//   Source   REG_SZ     a pattern; "*" when it is missing
//   Host     REG_SZ     likewise
//   EventId  REG_DWORD  only this event; missing: all
//   Begin    REG_DWORD  seconds since 1970
//   End      REG_DWORD  the first second behind it; 0: there is no end
//   Window   REG_SZ     "mon-fri 22:00-06:00"; missing: always
//   Summary  REG_DWORD  1: one alert at its end
//   Comment  REG_SZ     why
//   Author   REG_SZ     who
//   FromFile REG_DWORD  1: it was added by apply, and ends when the file has it no longer; 2: likewise by the fleet
//
// Key SOFTWARE\KORBIN\TARSKVOSKAR\AGENT: SilenceNumber, REG_DWORD, the newest number. None is used again,
// because alerts keep the number of the silence that has held them back.
#ifndef AGENT_POLICY_SILENCE_REGISTRY_H
#define AGENT_POLICY_SILENCE_REGISTRY_H

#include <vector>

#include "agent/host/registry_tree.h"
#include "agent/policy/silence.h"

namespace policy {

// All throw host::StoreError. A change wakes nobody: each pass reads what is there.

// In the order of their numbers. One that was damaged by hand is left out: better an alert too many.
std::vector<Silence> ReadSilences(host::RegistryTree &registry);

// Adds a silence and returns its number. Those that have been over for 30 days go.
uint32_t AddSilence(host::Store &store, host::RegistryTree &registry, const Silence &silence,
                    int64_t now_s);

// Ends a silence now; it stays in the list. Throws host::Error when there is none of that number, or it is
// over.
void EndSilence(host::Store &store, host::RegistryTree &registry, uint32_t number, int64_t now_s);

} // namespace policy

#endif // AGENT_POLICY_SILENCE_REGISTRY_H

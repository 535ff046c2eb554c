// The host of a test's process: one at a time, for fixtures and helpers that share it.
#ifndef TESTS_AGENT_SUPPORT_THE_HOST_H
#define TESTS_AGENT_SUPPORT_THE_HOST_H

#include "agent/host/host.h"

namespace test {

// Ends the one before, if any. Throws what Host does.
void StartHost(const host::Layout &layout, host::Role role);
// Does nothing when there is none.
void StopHost();
bool HasHost();
// These need one.
host::Host &TheHost();
host::Store &Store();
host::RegistryTree &Registry();

} // namespace test

#endif // TESTS_AGENT_SUPPORT_THE_HOST_H

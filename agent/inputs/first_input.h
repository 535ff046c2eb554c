// The first input of a host that was never set up: where there is no system log, the journal. So a fresh host is
// watched without a word. Once it was decided, it is never decided again: an input that was removed stays away.
#ifndef AGENT_INPUTS_FIRST_INPUT_H
#define AGENT_INPUTS_FIRST_INPUT_H

#include "agent/host/registry_tree.h"
#include "agent/host/store.h"

namespace inputs {

// Before the monitor is started for the first time. Adds the input "journal", from now on, when there is neither a
// system log nor anything else that is watched, and the journal can be read; true: it was added. While there is no
// journal either, nothing is decided. Throws host::Error.
bool AddFirstInput(host::Store &store, host::RegistryTree &registry);

} // namespace inputs

#endif // AGENT_INPUTS_FIRST_INPUT_H

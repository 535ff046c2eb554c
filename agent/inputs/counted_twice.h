// What would be counted twice: several that read the same. The monitor reads the system log, the customer file and the
// file monitor's target by itself; and where a syslog daemon writes what is in the journal into files as well, the
// journal and those files have the same entries.
#ifndef AGENT_INPUTS_COUNTED_TWICE_H
#define AGENT_INPUTS_COUNTED_TWICE_H

#include <string>
#include <vector>

#include "agent/inputs/input_registry.h"

namespace inputs {

// What is read beside the system log.
struct WhatIsRead {
    std::vector<InputConfig> inputs;
    std::string customer_file; // of the monitor itself; empty: none, or it is an input
    std::string file_monitor;  // its target; empty: none
};
// Throws host::Error when the registry cannot be read.
WhatIsRead AllThatIsRead(InputRegistry &inputs, host::RegistryTree &registry);

struct CountedTwice {
    std::string found;  // what has the same entries
    std::string advice; // how to choose
};
// Of this input, which may be one of those that are read, with each of the others. Looks into the folders of its files.
// Empty: what it delivers is nowhere else, as far as can be seen.
std::vector<CountedTwice> FindCountedTwice(const InputConfig &input, const WhatIsRead &read);

// Would it read this file, be it there or not? Only an input of files does.
bool ReadsFile(const InputConfig &input, const std::string &path);

} // namespace inputs

#endif // AGENT_INPUTS_COUNTED_TWICE_H

// What would be counted twice: the monitor reads the system log by itself.
#ifndef AGENT_INPUTS_COUNTED_TWICE_H
#define AGENT_INPUTS_COUNTED_TWICE_H

#include <optional>
#include <string>

#include "agent/inputs/input_registry.h"

namespace inputs {

struct CountedTwice {
    std::string found;  // what has the same entries
    std::string advice; // how to choose
};
// Nothing: what the input delivers is nowhere else.
std::optional<CountedTwice> FindCountedTwice(const InputConfig &input);

} // namespace inputs

#endif // AGENT_INPUTS_COUNTED_TWICE_H

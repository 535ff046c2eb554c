// The last entries of an input as the monitor would get them, without following it.
#ifndef AGENT_INPUTS_SAMPLE_H
#define AGENT_INPUTS_SAMPLE_H

#include <string>
#include <vector>

#include "agent/inputs/input_registry.h"

namespace inputs {

struct Sample {
    std::vector<std::string> lines;    // of the spool, with whole words; oldest first
    std::vector<std::string> problems; // what is wrong, a sentence each
};

// At most so many entries; of several files, those of the one written last come last. A compressed file is read to its
// end for that. Throws host::Error when nothing can be read.
Sample TakeSample(const InputConfig &input, const std::string &log_charset, size_t entries);

} // namespace inputs

#endif // AGENT_INPUTS_SAMPLE_H

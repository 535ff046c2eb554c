// Runs a history: the real module from StartThread to its end, on the scripted host, beside the oracle. At
// each wait of the module, when it is at rest, both are compared.
#ifndef TESTS_HISTORY_LIFE_H
#define TESTS_HISTORY_LIFE_H

#include <optional>
#include <string>

#include "tests/history/steps.h"

namespace history {

// What a run came to.
struct Outcome {
    bool failed = false;
    std::string what; // the difference, and at which step
    int wakes = 0;
    int alerts = 0;
    bool was_interrupted = false; // in the middle of a pass, where the history says
};

// `log_dir` stands for "/var/log"; it is empty before and after.
Outcome Run(const History &history, const std::string &log_dir);

} // namespace history

#endif // TESTS_HISTORY_LIFE_H

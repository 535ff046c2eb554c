// Makes a history that fails small, to be understood.
#ifndef TESTS_HISTORY_SHRINK_H
#define TESTS_HISTORY_SHRINK_H

#include <cstdint>
#include <string>

#include "tests/history/steps.h"

namespace history {

// The smallest history that still fails: steps are left out and made smaller as long as it does.
History Shrink(const History &history, const std::string &log_dir);

// The failure as it is printed: what differs, and the steps of the smallest history.
std::string Explain(const History &history, uint64_t seed, const std::string &log_dir);

} // namespace history

#endif // TESTS_HISTORY_SHRINK_H

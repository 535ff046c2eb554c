// All that a caller, a trace reader and a receiver of reports can tell of what was done, for comparing two
// ways of doing it.
#ifndef TESTS_SUPPORT_OUTCOME_H
#define TESTS_SUPPORT_OUTCOME_H

#include <cstdint>
#include <string>
#include <vector>

namespace test {

struct Outcome {
    std::vector<std::string> steps; // results, trace records, conversions and reports, in order
    std::vector<int32_t> counters;  // hits of each entry
};

// Begins to record: forgets what the host has recorded so far, and has conversions and reports appear
// between the trace records.
void BeginOutcome();

// Adds a step of the test's own: a result, a state.
void NoteStep(const std::string &text);

// What was done since BeginOutcome. Addresses in entry marks are left out.
Outcome TakeOutcome();

// The hits of each entry, and putting them back.
std::vector<int32_t> HitCounters();
void SetHitCounters(const std::vector<int32_t> &counters);

// Where two outcomes differ first, or an empty text.
std::string Difference(const Outcome &slow, const Outcome &fast);

} // namespace test

#endif // TESTS_SUPPORT_OUTCOME_H

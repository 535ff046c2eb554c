// The monotonic clock of the module under test: it stands still but for the pauses that the module makes,
// which cost no time. The programs are linked so that nanosleep and clock_gettime come here first.
#ifndef TESTS_HISTORY_SLOW_CLOCK_H
#define TESTS_HISTORY_SLOW_CLOCK_H

#include <cstdint>
#include <functional>

namespace history {

// In seconds.
constexpr int kMinute = 60;
constexpr int kHour = 60 * kMinute;
constexpr int kDay = 24 * kHour;

struct SlowClock {
    int64_t nanoseconds = 0;
    // Called after each pause, with the milliseconds that this wake has slept so far.
    std::function<void(int64_t milliseconds)> after_pause;
    int64_t slept = 0; // nanoseconds, since BeginWake

    void BeginWake() { slept = 0; }
};

SlowClock &TheSlowClock();

} // namespace history

#endif // TESTS_HISTORY_SLOW_CLOCK_H

#include "tests/history/slow_clock.h"

#include <ctime>

namespace history {

namespace {

constexpr int64_t kSecond = 1000L * 1000L * 1000L;
constexpr int64_t kMillisecond = 1000L * 1000L;

} // namespace

SlowClock &TheSlowClock()
{
    static SlowClock clock;
    return clock;
}

} // namespace history

extern "C" {

// The linker names these: __wrap_x is called for x, __real_x is the library's.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
int __real_clock_gettime(clockid_t id, struct timespec *now);

int __wrap_clock_gettime(clockid_t id, struct timespec *now)
{
    if (id != CLOCK_MONOTONIC)
        return __real_clock_gettime(id, now);
    const int64_t at = history::TheSlowClock().nanoseconds;
    now->tv_sec = at / history::kSecond;
    now->tv_nsec = at % history::kSecond;
    return 0;
}

int __wrap_nanosleep(const struct timespec *time, struct timespec * /*rest*/)
{
    history::SlowClock &clock = history::TheSlowClock();
    const int64_t pause = (time->tv_sec * history::kSecond) + time->tv_nsec;
    clock.nanoseconds += pause;
    clock.slept += pause;
    if (clock.after_pause)
        clock.after_pause(clock.slept / history::kMillisecond);
    return 0;
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

} // extern "C"

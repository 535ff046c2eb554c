// The time stamp at the head of a syslog line, and the hours in which an entry is watched.
//
// A leaf: it depends on nothing of the module, so every folder may use it. The functions of a pass, which
// reads millions of stamps, are given the moment in local time; the other two ask for it at each call.
#ifndef STAMP_SYSLOG_TIME_H
#define STAMP_SYSLOG_TIME_H

#include <cstdint>
#include <ctime>

#include "platform/types.h"

constexpr int kHoursOfDay = 24;

// The bit of each local hour in a watch-time mask.
extern const uint32_t TimeMask[kHoursOfDay];

#pragma GCC visibility push(default)
extern "C" {

// The local time of a line that begins with a stamp such as "Jan  5 10:00:01". The stamp has no
// year: it is taken for the current month or the one before it, and any other month is refused,
// because a stamp from two months ago or from a later month is a clock set back or a line written
// in the future. The only year boundary that is recognised is a December stamp in January. Values
// out of range (February 30) are left to mktime's normalisation.
//   pcur_time  out: the time. Also written, as -1, when the last step alone failed.
// Returns TRUE, or FALSE after tracing why. Reentrant; keeps no state.
BOOL GetSyslogTime(const char *buf, time_t *pcur_time);

// 1 when the bit of t's local hour (bit 0: midnight to 1 o'clock) is set in `watchtime`, else 0.
// Bits 24 to 31 have no meaning. Reentrant; keeps no state.
int OnTime(time_t t, unsigned int watchtime);

} // extern "C"
#pragma GCC visibility pop

// A moment in local time, for a caller that needs it again and again. Valid for as long as the caller's
// frame: time zones are looked up once a second, not once a line.
struct LocalMoment {
    time_t time = 0;
    struct tm local {};
    bool is_set = false;
    // An hour in which the clock is known to stand to UTC as it does at this moment. None: they are equal.
    time_t steady_begin = 0;
    time_t steady_end = 0;
};

// What a caller needs to know of a stamp.
enum class StampUse { kTime, kValidity };

// GetSyslogTime for a pass. `moment` is brought up to the current time. With kValidity, *pcur_time is left
// alone when the stamp is valid.
BOOL GetSyslogTimeAt(LocalMoment *moment, const char *buf, time_t *pcur_time, StampUse use);

// OnTime for a pass. `moment` is brought to `t`.
int OnTimeAt(LocalMoment *moment, time_t t, unsigned int watchtime);

#endif // STAMP_SYSLOG_TIME_H

// The time stamp at the head of a syslog line, and the hours in which an entry is watched.
//
// A leaf: it depends on nothing of the module, so every folder may use it. The functions of a pass, which
// reads millions of stamps, are given the moment in local time; the other two ask for it at each call.
#ifndef STAMP_SYSLOG_TIME_H
#define STAMP_SYSLOG_TIME_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
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

// How often a time zone was looked up in full so far. For tests.
extern std::atomic<uint64_t> zones_looked_up;

// What a caller needs to know of a stamp.
enum class StampUse { kTime, kValidity };

// GetSyslogTime for a pass. `moment` is brought up to the current time. With kValidity, *pcur_time is left
// alone when the stamp is valid.
BOOL GetSyslogTimeAt(LocalMoment *moment, const char *buf, time_t *pcur_time, StampUse use);

// A stamp that was valid, so that lines of the same second need not be read again. As many bytes of a line as say all
// of it: fifteen of the stamp, and one behind it that is no digit.
struct KnownStamp {
    static constexpr size_t kSize = sizeof "Jan  5 10:00:01" - 1;

    char text[kSize];
    bool is_set = false;
    // The local time at which it was valid, as far as the answer depends on it.
    int month, year, is_dst;
    long gmtoff;
};

// How many stamps were read so far, not known, for lines of which nothing else was asked. For tests.
extern uint64_t stamps_learned;

// Brings `moment` up to the current time, and forgets the stamp when its answer may be another one now.
void RecallMoment(KnownStamp *known, LocalMoment *moment);

// Does the line begin with the known stamp? kSize + 1 bytes of it can be read, also behind its end.
inline bool IsKnownStamp(const KnownStamp &known, const char *line)
{
    constexpr size_t kWord = sizeof(uint64_t);
    static_assert(KnownStamp::kSize == 2 * kWord - 1, "two words cover the stamp");
    uint64_t words[4];
    memcpy(&words[0], known.text, kWord);
    memcpy(&words[1], known.text + kWord - 1, kWord);
    memcpy(&words[2], line, kWord);
    memcpy(&words[3], line + kWord - 1, kWord);
    const auto behind = static_cast<unsigned char>(line[KnownStamp::kSize]);
    return ((words[0] ^ words[2]) | (words[1] ^ words[3])) == 0 && behind - unsigned{'0'} > 9 &&
           known.is_set;
}

// Is the stamp of the line valid? Writes no trace record. When it is, and is of the usual form, it is known now.
bool LearnStamp(KnownStamp *known, LocalMoment *moment, const char *line);

// OnTime for a pass. `moment` is brought to `t`.
int OnTimeAt(LocalMoment *moment, time_t t, unsigned int watchtime);

#endif // STAMP_SYSLOG_TIME_H

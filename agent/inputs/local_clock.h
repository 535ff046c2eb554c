// Local time, quick enough for every line of a log.
#ifndef AGENT_INPUTS_LOCAL_CLOCK_H
#define AGENT_INPUTS_LOCAL_CLOCK_H

#include <climits>
#include <cstdint>

namespace inputs {

// A moment as a calendar shows it. Months and days count from 1.
struct CalendarTime {
    static constexpr int kNoYear = INT_MIN;

    int year = kNoYear; // kNoYear: not known
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;

    bool operator==(const CalendarTime &) const = default;
};

// Seconds since 1970 of a moment of UTC; any day and hour, also beyond the month's and the day's end.
int64_t SecondsOf(const CalendarTime &utc);

// The reverse.
CalendarTime CalendarOf(int64_t seconds);

// Local times, with what the last answer was found out of. Not for several threads at once.
class LocalClock {
  public:
    // The local time at so many seconds since 1970. For each hour that is asked for in a row, the time zone is looked
    // up once, and the calendar is made once.
    CalendarTime At(int64_t seconds);

    // Takes a changed time zone of the host into account from now on.
    void LookUpZone();

    // What was done so far.
    struct Work {
        int64_t zone_lookups = 0;
        int64_t calendars = 0;
    };
    [[nodiscard]] const Work &work() const { return work_; }

  private:
    CalendarTime InHour(int64_t local);

    int64_t hour_ = INT64_MIN; // since 1970; the one that `offset_` holds for
    int64_t offset_ = 0;       // seconds to be added to UTC
    bool is_steady_ = false;   // over the whole hour
    int64_t calendar_hour_ =
        INT64_MIN; // of local time; the one that `calendar_` is the beginning of
    CalendarTime calendar_;
    Work work_;
};

} // namespace inputs

#endif // AGENT_INPUTS_LOCAL_CLOCK_H

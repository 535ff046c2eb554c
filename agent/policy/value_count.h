// The hits of one value: of one host, for an event that is counted for each host, or of all lines of an
// event that is not.
//
// Time is that of the lines, in seconds, and need not ascend: two logs are read one after the other, and
// a clock can be put back. So a moment counts for a line when it is not further away from it than the
// window, before or behind it; a hit that is further away counts no more, for no line. A cooldown holds
// in the same way around the line that was reported. While lines come in the order of their time, this is
// a sliding window and a time of silence.
//
// Of an event that tells of lines that do not come, the newest line is known, and how many have come since the last
// report. There is one report of each absence.
#ifndef AGENT_POLICY_VALUE_COUNT_H
#define AGENT_POLICY_VALUE_COUNT_H

#include <algorithm>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

namespace policy {

// What is counted by.
struct CountTerms {
    int64_t hits = 1;       // that make a report
    int64_t within_s = 0;   // of each other; 0: whenever
    int64_t cooldown_s = 0; // behind a report; 0: none
    int64_t absent_s = 0;   // a report when no line has come for so long, and none of a line; 0: no

    bool operator==(const CountTerms &) const = default;
};

// A line with its occurrences.
struct LineHits {
    int64_t time_s = 0;
    int64_t times = 1;
    std::string_view line;
};

// Reports that were held back by a cooldown. Lines are cut behind 512 bytes.
struct HeldBack {
    int64_t reports = 0;
    int64_t hits = 0; // of these reports
    int64_t first_s = 0;
    int64_t last_s = 0;
    std::string first;
    std::string last;

    bool operator==(const HeldBack &) const = default;
};

// What has become of a line.
struct Outcome {
    enum class Kind { kNoHit, kCounted, kHeldBack, kReported };

    Kind kind = Kind::kCounted;
    int64_t hits = 0;   // of the report; without one, so many have been counted for the next
    HeldBack held_back; // what the report tells of as well
};

class ValueCount {
  public:
    struct Moment {
        int64_t time_s = 0;
        int64_t hits = 0;

        bool operator==(const Moment &) const = default;
    };

    // Counts the line.
    Outcome Take(const CountTerms &terms, const LineHits &line);

    // Has no line come for too long, and was that not reported yet? Then Report says that it is.
    [[nodiscard]] bool IsOverdue(const CountTerms &terms, int64_t now_s) const;
    void Report(int64_t now_s);
    // The clock was set back: what came later than now came now.
    void SetBack(int64_t now_s) { held_back_.last_s = std::min(held_back_.last_s, now_s); }
    // The newest line of such an event: its time, and its text; empty: none has come yet, and the time is that of the
    // beginning.
    [[nodiscard]] int64_t newest_s() const { return held_back_.last_s; }
    [[nodiscard]] const std::string &newest() const { return held_back_.last; }

    // Counted and not in a report yet, as of the last line.
    [[nodiscard]] int64_t hits() const { return hits_; }
    // From when on a line can be reported again; 0: from now on.
    [[nodiscard]] int64_t QuietUntil(const CountTerms &terms) const;
    [[nodiscard]] const HeldBack &held_back() const { return held_back_; }

    // For the store: everything it is made of. Moments ascend by time, each time once.
    [[nodiscard]] const std::deque<Moment> &moments() const { return moments_; }
    [[nodiscard]] int64_t reported_s() const { return reported_s_; }
    static ValueCount Restore(std::deque<Moment> moments, int64_t reported_s, HeldBack held_back);

    bool operator==(const ValueCount &) const = default;

  private:
    void TakeSign(const LineHits &line);
    void Forget(const CountTerms &terms, int64_t time_s);
    void Insert(const CountTerms &terms, const LineHits &line);
    int64_t TakeWindow(const CountTerms &terms, int64_t time_s);

    std::deque<Moment> moments_;
    int64_t hits_ = 0;        // sum of the moments
    int64_t reported_s_ = -1; // the line of the last report; -1: there was none
    HeldBack held_back_;      // of an absence, its last line is the newest one
};

} // namespace policy

#endif // AGENT_POLICY_VALUE_COUNT_H

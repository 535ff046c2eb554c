// Why the monitor cannot read the time stamp of a line, and what makes the line readable. The
// monitor itself decides that it cannot; this only finds the reason for people.
#ifndef AGENT_LOGS_STAMPS_H
#define AGENT_LOGS_STAMPS_H

#include <string>

namespace logs {

// In the order of the table in stamps.cc.
enum class StampProblem {
    kEmpty,      // an empty line
    kNone,       // text without a stamp: the continuation of the line before it
    kIso,        // 2026-11-21T10:00:01+01:00
    kPriority,   // <34>Nov 21 10:00:01
    kWeekday,    // Sat Nov 21 10:00:01 2026
    kSeconds,    // 1795255201 or [12345.678901]
    kMonthName,  // nov 21 10:00:01, Mai 21 10:00:01
    kOtherMonth, // neither this month nor the last one
    kNoTime,     // the system cannot make a time of it
};
// How many there are; checked against the table.
constexpr int kStampProblems = 9;

// For a line whose stamp the monitor has refused.
StampProblem StampProblemOf(const std::string &line);

// "iso", as the JSON output names it.
const char *StampProblemName(StampProblem problem);
// "it has an ISO time stamp"
const char *StampProblemText(StampProblem problem);
// What to do about it; empty where nothing is wrong with the host.
const char *StampProblemAdvice(StampProblem problem);
// Can such a line be the second or a later one of a longer message? Then it says nothing about how
// the log is written.
bool IsContinuation(StampProblem problem);

} // namespace logs

#endif // AGENT_LOGS_STAMPS_H

// How an event is counted, and how far it is, in words.
#ifndef AGENT_POLICY_COUNT_TEXT_H
#define AGENT_POLICY_COUNT_TEXT_H

#include <string>

#include "agent/events/events.h"
#include "agent/policy/event_count.h"

namespace policy {

// "5 hits within 10 minutes make a report, for each host apart; then silence for 1 hour".
std::string TermsInWords(const events::EventRecord &event);

// The same for an alert, with the hours when they are not all: "...; watched at 22-6 o'clock". Empty when each hit is reported
// at any hour: most alerts need no words for that.
std::string ReportTermsInWords(const events::EventRecord &event);

// "3 of 5 within 10 minutes; next report not before 2026-11-22 14:20:00, 2 reports of 10 hits held back
// so far".
//   now_s  a silence that is over by then is not told of
std::string ProgressInWords(const CountTerms &terms, const ValueCount &count, int64_t now_s);

// What became of a line: "counted: 3 of 5 within 10 minutes", "reported: 5 hits" or "held back: ...".
std::string OutcomeInWords(const CountTerms &terms, const Outcome &outcome, const ValueCount &count,
                           int64_t now_s);

} // namespace policy

#endif // AGENT_POLICY_COUNT_TEXT_H

// The time stamps with which the lines of logs begin.
//
//   format       example
//   traditional  Nov 21 10:00:01, Nov 21 10:00:01.123
//   rfc3339      2026-11-21T10:00:01.123456+01:00, 2026-11-21 10:00:01,123
//   rfc5424      <34>1 2026-11-21T10:00:01Z host program 123 ID47 - message
//   epoch        1795255201, 1795255201.123, 1795255201123, each also in brackets
//
// A priority ("<34>") may stand before each of them.
#ifndef AGENT_INPUTS_STAMP_FORMATS_H
#define AGENT_INPUTS_STAMP_FORMATS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "agent/inputs/local_clock.h"

namespace inputs {

enum class StampFormat { kAuto, kTraditional, kRfc3339, kRfc5424, kEpoch, kNone };

// "rfc3339", as options name it; nothing for a name that is not known.
std::optional<StampFormat> StampFormatOf(const std::string &name);
// All names, for messages: "auto, traditional, ...".
std::string StampFormatNames();

struct FoundStamp {
    StampFormat format = StampFormat::kNone; // kNone: there is no stamp
    // Either a moment, in seconds since 1970, or what a calendar of the writer's zone showed.
    std::optional<int64_t> moment;
    CalendarTime calendar;
    bool has_zone = false;     // it says which zone it is of
    std::string_view own_text; // the stamp alone
    size_t end = 0;            // where in the line the rest begins
};

// Looks for a stamp of this format at the beginning of the line; kAuto: of any.
FoundStamp FindStamp(std::string_view line, StampFormat format);

} // namespace inputs

#endif // AGENT_INPUTS_STAMP_FORMATS_H

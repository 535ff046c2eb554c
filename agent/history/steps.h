// The rows of the history: the values of one minute, hour or day.
//
// A row is a text, "12=5 13=1": the number of a series and its value. So the history can be read with any tool for
// SQLite, and costs about eight bytes for each value that is not 0.
#ifndef AGENT_HISTORY_STEPS_H
#define AGENT_HISTORY_STEPS_H

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "agent/history/series.h"
#include "agent/host/database.h"

namespace history {

// The length of a step in seconds; stored as that number. Hours and days are those of UTC.
constexpr int64_t kMinute = 60;
constexpr int64_t kHour = 60 * kMinute;
constexpr int64_t kDay = 24 * kHour;

// How long steps of a length are kept: minutes for a day, hours for a month, days for two years.
constexpr int64_t KeptFor(int64_t length)
{
    return length == kMinute ? kDay : length == kHour ? 31 * kDay : 731 * kDay;
}

// The first second of the step in which a moment lies.
constexpr int64_t BeginOf(int64_t length, int64_t moment)
{
    return moment - (((moment % length) + length) % length);
}

// By number of series.
using Values = std::map<int64_t, int64_t>;
using Kinds = std::map<int64_t, Kind>;

std::string ToText(const Values &values);
// What is no number is passed over.
Values FromText(std::string_view text);

// Adds values to others of the same kinds; those of a series that is not known go.
void MergeInto(Values *values, const Values &more, const Kinds &kinds);

// A row of the store.
struct Step {
    int64_t begin = 0; // seconds since 1970
    Values values;
};

// The steps of a length that begin within [from, until), oldest first. Throws host::StoreError.
std::vector<Step> ReadSteps(host::Database &database, int64_t length, int64_t from, int64_t until);

} // namespace history

#endif // AGENT_HISTORY_STEPS_H

// What is counted over time: a number for each event, each log, each input. A series has a total, which only grows,
// and values for each minute, hour and day (agent/history/history_writer.h).
#ifndef AGENT_HISTORY_SERIES_H
#define AGENT_HISTORY_SERIES_H

#include <compare>
#include <cstdint>
#include <map>
#include <string>

namespace history {

// Stored by their numbers, which are never given to another kind.
enum class Kind : int64_t {
    kHits = 1,        // of an event
    kAlerts = 2,      // reports of an event that became an alert, or a part of one
    kHeldBack = 3,    // reports of an event that were held back
    kLines = 4,       // that the monitor has read, of a log
    kBytes = 5,       // likewise
    kWithoutTime = 6, // lines of a log whose time stamp cannot be read
    kInputLines = 7,  // entries of an input
    kInputBytes = 8,  // likewise
    kBehind = 9,      // seconds from the stamp of a line to its reading; of a log
    kPasses = 10,     // that took no longer than a bound (id: its place among kPassBounds)
    kPassTime = 11,   // of all passes, in microseconds
};

// What identifies a series.
struct SeriesKey {
    Kind kind = Kind::kHits;
    std::string name; // source of the event, path of the log, name of the input; see also kOthers
    uint32_t id = 0;  // ID of the event

    auto operator<=>(const SeriesKey &) const =
        default; // NOLINT(modernize-use-nullptr): of the compiler's own
};

// The name of the series to which the smallest values of a step go when there are too many.
constexpr char kOthers[] = "";

// Of many values it keeps the largest one, where others add up.
constexpr bool KeepsLargest(Kind kind)
{
    return kind == Kind::kBehind;
}

// Of events, of which there may be thousands.
constexpr bool IsOfEvents(Kind kind)
{
    return kind == Kind::kHits || kind == Kind::kAlerts || kind == Kind::kHeldBack;
}

// Adds to a value what came behind it.
inline void Merge(Kind kind, int64_t more, int64_t *value)
{
    if (!KeepsLargest(kind))
        *value += more;
    else if (more > *value)
        *value = more;
}

// Upper bounds of the durations of passes, in microseconds; the last series has all that took longer.
constexpr int64_t kPassBounds[] = {1'000,   5'000,     10'000,     50'000,    100'000,
                                   500'000, 1'000'000, 10'000'000, 60'000'000};

// What has been counted since it was saved last.
class News {
  public:
    void Add(const SeriesKey &key, int64_t value)
    {
        const auto [place, is_new] = values_.try_emplace(key, value);
        if (!is_new)
            Merge(key.kind, value, &place->second);
    }
    void Clear() { values_.clear(); }
    [[nodiscard]] bool IsEmpty() const { return values_.empty(); }
    [[nodiscard]] const std::map<SeriesKey, int64_t> &values() const { return values_; }

  private:
    std::map<SeriesKey, int64_t> values_;
};

} // namespace history

#endif // AGENT_HISTORY_SERIES_H

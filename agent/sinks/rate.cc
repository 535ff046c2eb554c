#include "agent/sinks/rate.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace sinks {

namespace {

constexpr int64_t kSecond = 1000;
constexpr int64_t kMinute = 60 * kSecond;
constexpr int64_t kHour = 60 * kMinute;

struct Unit {
    const char *name;
    int64_t ms;
};
constexpr Unit kUnits[] = {{"s", kSecond}, {"min", kMinute}, {"h", kHour}, {"d", 24 * kHour}};

// A token each millisecond: beyond it a rate bounds nothing that a disk or a network does not bound.
constexpr int64_t kMostOfASecond = 1000;

std::optional<Rate> Read(const std::string &text)
{
    if (text == "none")
        return Rate{};
    Rate rate;
    const char *end = text.data() + text.size();
    const auto [stopped, failed] = std::from_chars(text.data(), end, rate.count);
    if (failed != std::errc() || stopped == end || *stopped != '/' || rate.count < 1)
        return std::nullopt;
    for (const Unit &unit : kUnits) {
        if (std::string(stopped + 1, end) == unit.name)
            rate.per_ms = unit.ms;
    }
    if (rate.per_ms == 0 || rate.count > rate.per_ms / kSecond * kMostOfASecond)
        return std::nullopt;
    return rate;
}

} // namespace

int64_t Rate::Sound(int64_t full_ms, int64_t now_ms) const
{
    return std::clamp(full_ms, now_ms, now_ms + per_ms);
}

int64_t Rate::Tokens(int64_t full_ms, int64_t now_ms) const
{
    if (!IsBounded())
        return INT64_MAX;
    return (now_ms + per_ms - Sound(full_ms, now_ms)) / Interval();
}

int64_t Rate::WithoutOne(int64_t full_ms, int64_t now_ms) const
{
    if (!IsBounded())
        return full_ms;
    return Sound(Sound(full_ms, now_ms) + Interval(), now_ms);
}

int64_t Rate::NextToken(int64_t full_ms, int64_t now_ms) const
{
    return Sound(full_ms, now_ms) - per_ms + Interval();
}

std::string CheckRate(const std::string &text)
{
    return Read(text)
               ? ""
               : "a number and a unit, such as 30/min (units: s, min, h, d; at most 1000/s), "
                 "or none";
}

Rate ParseRate(const std::string &text)
{
    return Read(text).value_or(Rate());
}

} // namespace sinks

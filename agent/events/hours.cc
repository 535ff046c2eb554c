#include "agent/events/hours.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "agent/host/error.h"

namespace events {

namespace {

constexpr int kHours = 24;

// One message for all that is not understood: it shows the forms that are.
[[noreturn]] void Refuse(const std::string &text)
{
    throw host::Error("cannot use the hours \"" + text + "\"",
                      "they are not of a form that is known",
                      "write all, none, or hours and spans from 0 to 24, such as 8-18 or 22-6,12");
}

// Digits alone, two at most: stoi would take a sign, blanks and what follows the number, and throw
// for a long one. 24 is an hour here, since a span may end with it.
std::optional<int> ParseHour(const std::string &text)
{
    if (text.empty() || text.size() > 2 ||
        !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    const int hour = std::stoi(text);
    return hour <= kHours ? std::optional<int>(hour) : std::nullopt;
}

uint32_t Bit(int hour)
{
    return 1U << static_cast<unsigned>(hour);
}

// The hours from `from` until `to`, over midnight when `to` is not later. 24 and 0 are the same
// moment; the first hour is always in, so 0-24 is the whole day.
uint32_t Span(int from, int to)
{
    uint32_t mask = 0;
    int hour = from % kHours;
    do {
        mask |= Bit(hour);
        hour = (hour + 1) % kHours;
    } while (hour != to % kHours);
    return mask;
}

// An empty item stays: it is a comma too many, and refused.
std::vector<std::string> SplitList(const std::string &text)
{
    std::vector<std::string> items;
    size_t begin = 0;
    while (begin <= text.size()) {
        const size_t end = std::min(text.find(',', begin), text.size());
        items.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return items;
}

} // namespace

uint32_t ParseHours(const std::string &text)
{
    if (text == "all")
        return kAllHours;
    if (text == "none")
        return 0;
    uint32_t mask = 0;
    for (const std::string &item : SplitList(text)) {
        const size_t dash = item.find('-');
        const auto from = ParseHour(item.substr(0, dash));
        // A second dash is in the rest of the item, which then is no hour.
        const auto to = dash == std::string::npos ? from : ParseHour(item.substr(dash + 1));
        if (!from || !to)
            Refuse(text);
        if (dash == std::string::npos) {
            if (*from == kHours)
                Refuse(text); // there is no hour that begins at 24:00
            mask |= Bit(*from);
        } else {
            // 8-8 could mean an hour, a day or nothing, so it is none of them. 0-24 is clear.
            if (*from % kHours == *to % kHours && *to - *from != kHours)
                throw host::Error("cannot use the hours \"" + text + "\"",
                                  "the span " + item + " ends where it begins",
                                  "write all for the whole day, or one number for one hour");
            mask |= Span(*from, *to);
        }
    }
    return mask;
}

std::string FormatHours(uint32_t mask)
{
    mask &= kAllHours;
    if (mask == kAllHours)
        return "all";
    if (mask == 0)
        return "none";
    std::string text;
    // Begin behind an hour that is not watched, so that a span over midnight is not cut in two.
    int begin = 0;
    if ((mask & Bit(0)) != 0 && (mask & Bit(kHours - 1)) != 0) {
        while ((mask & Bit(begin)) != 0)
            ++begin;
    }
    // Once round the clock from `begin`, span by span.
    for (int i = 0; i < kHours;) {
        const int from = (begin + i) % kHours;
        int length = 0;
        while (i + length < kHours && (mask & Bit((begin + i + length) % kHours)) != 0)
            ++length;
        if (length > 0) {
            const int to = (from + length) % kHours;
            text += text.empty() ? "" : ",";
            text += std::to_string(from);
            if (length > 1)
                // The span that ends at midnight ends at 24, as people write it.
                text += "-" + std::to_string(to == 0 ? kHours : to);
        }
        i += std::max(length, 1);
    }
    return text;
}

} // namespace events

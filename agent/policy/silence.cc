#include "agent/policy/silence.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fnmatch.h>
#include <sstream>

#include "agent/host/error.h"
#include "agent/policy/zone.h"
#include "agent/text/printable.h"
#include "agent/text/split.h"

namespace policy {

namespace {

constexpr int kDays = 7;
constexpr unsigned kAllDays = (1U << kDays) - 1;
constexpr const char *kDayNames[kDays] = {"sun", "mon", "tue", "wed", "thu", "fri", "sat"};

[[noreturn]] void Refuse(const std::string &text)
{
    throw host::Error("cannot use the hours \"" + text + "\"", "their form is not known",
                      "write days and hours, such as \"mon-fri 22:00-06:00\", \"sat,sun\" or "
                      "\"22:00-06:00 Europe/Berlin\"");
}

constexpr size_t kMaxText = 256; // bytes of a pattern and of the comment

void CheckText(const char *name, const std::string &text, bool may_be_empty)
{
    if ((text.empty() && !may_be_empty) || text.size() > kMaxText || text::Printable(text) != text)
        throw host::Error(std::string("cannot use the ") + name + " \"" +
                              text::Printable(text.substr(0, 60)) + "\"",
                          "it is empty, too long, or holds a control character",
                          "use a text of 1 to 256 bytes");
}

std::optional<int> DayOf(const std::string &name)
{
    for (int day = 0; day < kDays; ++day) {
        if (name == kDayNames[day])
            return day;
    }
    return std::nullopt;
}

// "mon-fri,sun"; nothing for anything else.
std::optional<unsigned> DaysOf(const std::string &text)
{
    unsigned days = 0;
    std::istringstream list(text);
    for (std::string part; std::getline(list, part, ',');) {
        const size_t dash = part.find('-');
        const auto first = DayOf(part.substr(0, dash));
        const auto last = dash == std::string::npos ? first : DayOf(part.substr(dash + 1));
        if (!first || !last)
            return std::nullopt;
        for (int day = *first;; day = (day + 1) % kDays) {
            days |= 1U << static_cast<unsigned>(day);
            if (day == *last)
                break;
        }
    }
    return days != 0 && !text.ends_with(',') ? std::optional(days) : std::nullopt;
}

// "22:00"; nothing for anything else.
std::optional<int> MinuteOf(const std::string &text)
{
    if (text.size() != 5 || text[2] != ':' ||
        text.find_first_not_of("0123456789:") != std::string::npos)
        return std::nullopt;
    const int hour = std::stoi(text.substr(0, 2));
    const int minute = std::stoi(text.substr(3));
    if (hour > 23 || minute > 59)
        return std::nullopt;
    return hour * 60 + minute;
}

std::string ClockText(int minute)
{
    char text[16];
    snprintf(text, sizeof text, "%02d:%02d", minute / 60, minute % 60);
    return text;
}

std::string DaysText(unsigned days)
{
    std::string text;
    for (int i = 0; i < kDays; ++i) {
        // A week begins on Monday, as runs of days mostly do.
        const int day = (i + 1) % kDays;
        if ((days >> static_cast<unsigned>(day) & 1U) == 0)
            continue;
        int last = i;
        while (last + 1 < kDays && (days >> static_cast<unsigned>((last + 2) % kDays) & 1U) != 0)
            ++last;
        text += (text.empty() ? "" : ",") + std::string(kDayNames[day]);
        if (last > i)
            text += std::string(last > i + 1 ? "-" : ",") + kDayNames[(last + 1) % kDays];
        i = last;
    }
    return text;
}

ZoneClock ClockOfHost(int64_t time_s)
{
    const auto seconds = static_cast<time_t>(time_s);
    struct tm time {};
    localtime_r(&seconds, &time);
    return {time.tm_wday, time.tm_hour * 60 + time.tm_min};
}

} // namespace

bool WeeklyWindow::HasZone() const
{
    return zone.empty() || ClockOf(0, zone);
}

bool WeeklyWindow::Holds(int64_t time_s) const
{
    const auto clock = zone.empty() ? ClockOfHost(time_s) : ClockOf(time_s, zone);
    if (!clock)
        return false;
    const auto [weekday, minute] = *clock;
    const auto is_day = [this](int day) {
        return (days >> static_cast<unsigned>((day + kDays) % kDays) & 1U) != 0;
    };
    if (begin_minute < end_minute)
        return is_day(weekday) && minute >= begin_minute && minute < end_minute;
    // The evening of one day and the morning of the next.
    return (is_day(weekday) && minute >= begin_minute) ||
           (is_day(weekday - 1) && minute < end_minute);
}

bool Silence::Matches(const alerts::Alert &alert) const
{
    return (!event_id || *event_id == alert.event_id) &&
           fnmatch(source.c_str(), alert.source.c_str(), 0) == 0 &&
           fnmatch(host.c_str(), alert.HostOfLine().c_str(), 0) == 0 &&
           std::all_of(labels.begin(), labels.end(), [&](const auto &label) {
               const auto found = alert.labels.find(label.first);
               const std::string value = found != alert.labels.end() ? found->second : "";
               return fnmatch(label.second.c_str(), value.c_str(), 0) == 0;
           });
}

bool Silence::Holds(int64_t time_s) const
{
    return time_s >= begin_s && !IsOver(time_s) && (!window || window->Holds(time_s));
}

const char *Silence::StateName(int64_t now_s) const
{
    if (IsOver(now_s))
        return "over";
    if (window && !window->HasZone())
        return "no zone";
    return Holds(now_s) ? "holds" : "waits";
}

void CheckPattern(const std::string &text)
{
    CheckText("pattern", text, false);
}

void CheckComment(const std::string &text)
{
    CheckText("comment", text, true);
}

std::map<std::string, std::string> ParseLabels(const std::string &text)
{
    std::map<std::string, std::string> labels;
    if (text.empty())
        return labels;
    CheckText("labels", text, false);
    for (const std::string &condition : text::SplitAtCommas(text)) {
        const size_t sign = condition.find('=');
        const bool is_good = sign != std::string::npos && sign > 0;
        if (!is_good ||
            !labels.emplace(condition.substr(0, sign), condition.substr(sign + 1)).second)
            throw host::Error("cannot use the labels \"" + text + "\"",
                              is_good ? "one stands twice"
                                      : "\"" + condition + "\" has no name and pattern",
                              "write them as team=db,tier=web*");
    }
    return labels;
}

std::string LabelsText(const std::map<std::string, std::string> &labels)
{
    std::string text;
    for (const auto &[name, pattern] : labels)
        text.append(text.empty() ? "" : ",").append(name).append("=").append(pattern);
    return text;
}

WeeklyWindow ParseStoredWindow(const std::string &text)
{
    WeeklyWindow window;
    bool has_hours = false;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        const size_t dash = word.find('-');
        const auto begin = MinuteOf(word.substr(0, dash));
        if (begin && !has_hours && dash != std::string::npos) {
            const std::string end = word.substr(dash + 1);
            const auto minute = end == "24:00" ? std::optional(0) : MinuteOf(end);
            if (!minute)
                Refuse(text);
            window.begin_minute = *begin;
            window.end_minute = *minute;
            has_hours = true;
        } else if (const auto days = DaysOf(word); days && window.days == 0 && !has_hours) {
            window.days = *days;
        } else if (const bool is_behind = has_hours || window.days != 0;
                   is_behind && window.zone.empty() && !DaysOf(word) && IsZoneName(word)) {
            window.zone = word;
        } else {
            Refuse(text);
        }
    }
    if (window.days == 0 && !has_hours)
        Refuse(text);
    if (window.days == 0)
        window.days = kAllDays;
    return window;
}

WeeklyWindow ParseWindow(const std::string &text)
{
    WeeklyWindow window = ParseStoredWindow(text);
    if (!window.zone.empty())
        CheckZone(window.zone);
    return window;
}

std::string WindowText(const WeeklyWindow &window)
{
    std::string text = window.days == kAllDays ? "" : DaysText(window.days);
    if (window.begin_minute != 0 || window.end_minute != 0 || text.empty())
        text += (text.empty() ? "" : " ") + ClockText(window.begin_minute) + "-" +
                (window.end_minute == 0 ? "24:00" : ClockText(window.end_minute));
    return text + (window.zone.empty() ? "" : " " + window.zone);
}

} // namespace policy

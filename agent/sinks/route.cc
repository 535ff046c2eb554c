#include "agent/sinks/route.h"

#include <algorithm>
#include <fnmatch.h>

#include "agent/alerts/own_alert.h"
#include "agent/host/error.h"
#include "agent/text/split.h"

namespace sinks {

namespace {

constexpr char kSeverity[] = "severity>=";
constexpr char kLabel[] = "label.";
// Of an event that does not say: nobody who wants warnings must miss it.
constexpr char kUsualSeverity[] = "warning";

size_t PlaceOf(const std::string &severity)
{
    const auto &all = events::kSeverities;
    return static_cast<size_t>(std::find(all.begin(), all.end(), severity) - all.begin());
}

std::string Allowed()
{
    std::string severities;
    for (const std::string &severity : events::kSeverities)
        severities += (severities.empty() ? "" : "|") + severity;
    return "severity>=" + severities + ", source=PATTERN, host=PATTERN and label.NAME=PATTERN";
}

[[noreturn]] void Refuse(const std::string &condition)
{
    throw host::Error("cannot use the condition \"" + condition + "\"",
                      "there is none of that form", "use " + Allowed());
}

// What the condition of this name looks at.
std::string ValueOf(const alerts::Alert &alert, const std::string &name)
{
    if (name == "source")
        return alert.source;
    if (name == "host")
        return alert.HostOfLine();
    const auto label = alert.labels.find(name.substr(sizeof kLabel - 1));
    return label != alert.labels.end() ? label->second : "";
}

} // namespace

void Route::Read(const std::string &condition)
{
    if (condition.starts_with(kSeverity)) {
        mildest_ = PlaceOf(condition.substr(sizeof kSeverity - 1));
        if (mildest_ == events::kSeverities.size())
            Refuse(condition);
        return;
    }
    const size_t sign = condition.find('=');
    const std::string name = condition.substr(0, sign);
    const bool is_label = name.starts_with(kLabel) && name.size() > sizeof kLabel - 1;
    // An empty pattern matches a label that is not there, and else nothing.
    if (sign == std::string::npos || (name != "source" && name != "host" && !is_label) ||
        (sign + 1 == condition.size() && !is_label))
        Refuse(condition);
    patterns_[name].push_back(condition.substr(sign + 1));
}

Route::Route(const std::string &conditions, std::string sink) : sink_(std::move(sink))
{
    if (conditions.empty())
        return;
    for (const std::string &condition : text::SplitAtCommas(conditions))
        Read(condition);
}

bool Route::Takes(const alerts::Alert &alert) const
{
    if (alert.silence != 0)
        return false;
    if (!sink_.empty() && alerts::IsAboutSink(alert, sink_))
        return false;
    if (mildest_ != SIZE_MAX &&
        PlaceOf(alert.severity.empty() ? kUsualSeverity : alert.severity) > mildest_)
        return false;
    return std::all_of(patterns_.begin(), patterns_.end(), [&](const auto &condition) {
        const std::string value = ValueOf(alert, condition.first);
        return std::any_of(condition.second.begin(), condition.second.end(),
                           [&](const std::string &pattern) {
                               return fnmatch(pattern.c_str(), value.c_str(), 0) == 0;
                           });
    });
}

std::string CheckRoute(const std::string &conditions)
{
    for (size_t begin = 0; begin <= conditions.size();) {
        const size_t end = std::min(conditions.find(',', begin), conditions.size());
        const std::string condition = conditions.substr(begin, end - begin);
        try {
            // Of its own: an empty one is none, and would be taken for no conditions at all.
            if (Route route(condition); condition.empty())
                Refuse(condition);
        } catch (const host::Error &) {
            return "conditions with commas between them, each " + Allowed() + "; character " +
                   std::to_string(begin + 1) + " begins \"" + condition + "\", which is none";
        }
        begin = end + 1;
    }
    return "";
}

} // namespace sinks

#include "agent/fleet/host_status.h"

#include <algorithm>
#include <tuple>

#include <nlohmann/json.hpp>

#include "agent/fleet/whole_number.h"
#include "agent/host/error.h"
#include "agent/text/duration.h"

namespace fleet {

using nlohmann::json;

namespace {

// Twice the span, and what a look and a slow server take.
constexpr int64_t kSilentAfterSpans = 2;
constexpr int64_t kAndSeconds = 10;
constexpr int64_t kMaxEvery = 86400;
// So much may be unread at any moment of a busy host.
constexpr int64_t kMuchUnread = int64_t{1} << 20U;

// What a host says fits into its place whatever has gone wrong there.
constexpr size_t kMaxText = 1024; // bytes
constexpr size_t kMaxLocal = 20;
constexpr size_t kMaxName = 300;

std::string Cut(const std::string &text, size_t most)
{
    return text.size() <= most ? text : text.substr(0, most) + "...";
}

std::vector<std::string> SomeOf(const std::vector<std::string> &names)
{
    std::vector<std::string> some;
    for (size_t i = 0; i < std::min(names.size(), kMaxLocal); ++i)
        some.push_back(Cut(names[i], kMaxName));
    if (names.size() > kMaxLocal)
        some.push_back("and " + std::to_string(names.size() - kMaxLocal) + " more");
    return some;
}

[[noreturn]] void RefuseStatus()
{
    throw host::Error("cannot use what a host says of itself", "it is of another form",
                      "have the same version of syslogmon on all hosts");
}

int64_t NumberIn(const json &object, const char *name, int64_t otherwise)
{
    const auto number = WholeNumberIn(object, name, otherwise);
    if (!number)
        RefuseStatus();
    return *number;
}

uint64_t RevisionIn(const json &group, const char *name)
{
    const int64_t revision = NumberIn(group, name, -1); // each group has one
    if (revision < 0)
        RefuseStatus();
    return static_cast<uint64_t>(revision);
}

int RankOf(const HostStatus &status, int64_t now_ms)
{
    if (SilentFor(status, now_ms) > 0)
        return 0;
    if (!status.error.empty())
        return 1;
    if (!status.monitor.empty())
        return 2;
    return TroubleOf(status, now_ms).empty() ? 4 : 3;
}

} // namespace

std::string FormatStatus(const HostStatus &status)
{
    json groups = json::object();
    for (const GroupStatus &group : status.groups)
        groups[group.name] = {
            {"revision", group.revision}, {"newest", group.newest}, {"canary", group.is_canary}};
    const json object = {{"host", Cut(status.host, kMaxName)},
                         {"version", status.version},
                         {"groups", groups},
                         {"error", Cut(status.error, kMaxText)},
                         {"local", SomeOf(status.local)},
                         {"monitor", Cut(status.monitor, kMaxText)},
                         {"last_pass_ms", status.last_pass_ms},
                         {"behind_bytes", status.behind_bytes},
                         {"alerts_a_minute", status.alerts_a_minute},
                         {"every_s", status.every_s}};
    return object.dump(-1, ' ', false, json::error_handler_t::replace);
}

HostStatus ParseStatus(const std::string &text)
{
    try {
        const json object = json::parse(text);
        HostStatus status;
        status.host = object.at("host").get<std::string>();
        status.version = object.value("version", "");
        for (const auto &[name, group] : object.at("groups").items())
            status.groups.push_back({name, RevisionIn(group, "revision"),
                                     RevisionIn(group, "newest"), group.value("canary", false)});
        status.error = object.value("error", "");
        status.local = object.value("local", std::vector<std::string>());
        status.monitor = object.value("monitor", "");
        status.last_pass_ms = NumberIn(object, "last_pass_ms", 0);
        status.behind_bytes = NumberIn(object, "behind_bytes", 0);
        status.alerts_a_minute = NumberIn(object, "alerts_a_minute", 0);
        status.every_s = std::clamp<int64_t>(NumberIn(object, "every_s", 60), 1, kMaxEvery);
        return status;
    } catch (const json::exception &) {
        RefuseStatus();
    }
}

int64_t SilentFor(const HostStatus &status, int64_t now_ms)
{
    const int64_t heard_ago = now_ms - status.sent_ms;
    const int64_t bound = (kSilentAfterSpans * status.every_s + kAndSeconds) * 1000;
    return heard_ago > bound ? heard_ago : 0;
}

std::string TroubleOf(const HostStatus &status, int64_t now_ms)
{
    if (const int64_t silent_ms = SilentFor(status, now_ms); silent_ms > 0)
        return "silent for " + text::FormatDuration(silent_ms / 1000);
    if (!status.error.empty())
        return status.error;
    if (!status.monitor.empty())
        return "its monitor: " + status.monitor;
    const bool is_late =
        std::any_of(status.groups.begin(), status.groups.end(),
                    [](const GroupStatus &group) { return group.revision != group.newest; });
    if (is_late)
        return "it does not run the newest revision yet";
    return status.behind_bytes > kMuchUnread ? "it is behind with its logs" : "";
}

void SortByTrouble(std::vector<HostStatus> *hosts, int64_t now_ms)
{
    std::sort(hosts->begin(), hosts->end(), [&](const HostStatus &one, const HostStatus &other) {
        return std::tuple(RankOf(one, now_ms), one.host, one.uuid) <
               std::tuple(RankOf(other, now_ms), other.host, other.uuid);
    });
}

const GroupStatus *GroupOf(const HostStatus &status, const std::string &group)
{
    const auto found = std::find_if(status.groups.begin(), status.groups.end(),
                                    [&](const GroupStatus &one) { return one.name == group; });
    return found == status.groups.end() ? nullptr : &*found;
}

RolloutState StateOf(const std::vector<HostStatus> &hosts, const std::string &group,
                     const std::set<std::string> &uuids, uint64_t revision, int64_t now_ms)
{
    RolloutState state;
    for (const HostStatus &host : hosts) {
        const GroupStatus *in_group = GroupOf(host, group);
        if (!uuids.contains(host.uuid) || in_group == nullptr || SilentFor(host, now_ms) > 0)
            continue;
        const bool runs = in_group->revision == revision;
        const bool has_tried = runs || in_group->newest == revision;
        const std::string trouble = !host.error.empty() ? host.error : host.monitor;
        if (has_tried && !trouble.empty() && state.failed.empty())
            state.failed = host.host + ": " + trouble;
        if (runs)
            state.running[host.uuid] = host.sent_ms;
        else
            state.waiting.push_back(host.uuid);
    }
    return state;
}

bool Probation::IsOver(const RolloutState &state)
{
    begun_ms_.insert(state.running.begin(),
                     state.running.end()); // of one that is known, the first stays
    return state.waiting.empty() &&
           std::all_of(begun_ms_.begin(), begun_ms_.end(), [&](const auto &begun) {
               const auto heard = state.running.find(begun.first);
               return heard != state.running.end() && heard->second >= begun.second + span_ms_;
           });
}

} // namespace fleet

#include "agent/fleet/offers.h"

#include "agent/fleet/group_files.h"

namespace fleet {

namespace {

// The clocks of servers that follow each other as the one that stamps differ by less.
constexpr int64_t kClocksDifferMs = int64_t{10} * 1000;

bool IsNewer(const KeyValue &value, const KeyValue &other)
{
    return value.revision > other.revision || value.stored_ms > other.stored_ms + kClocksDifferMs;
}

// When it was stored is not known of what an older version has taken: it was made by the one who gave the files a moment
// before, by his clock.
KeyValue ValueOf(const GroupState &taken)
{
    const std::string key = taken.is_canary ? CanaryKey(taken.name) : AllKey(taken.name);
    const int64_t stored_ms =
        taken.stored_ms != 0 ? taken.stored_ms : ParseGroup(taken.name, taken.value).made_ms;
    return {key, taken.revision, false, stored_ms, taken.value};
}

} // namespace

void Offers::TakeBucket(int64_t created, const std::vector<GroupState> &taken)
{
    if (created == created_)
        return;
    created_ = created;
    newest_.clear();
    for (const GroupState &group : taken) {
        if (group.created != created)
            continue;
        Take(ValueOf(group));
        if (group.ended_revision != 0)
            Take({CanaryKey(group.name), group.ended_revision, true, group.ended_ms, ""});
    }
}

bool Offers::Take(const KeyValue &value)
{
    const auto [place, is_first] = newest_.try_emplace(value.key, value);
    if (is_first)
        return true;
    KeyValue &known = place->second;
    if (!IsNewer(value, known)) {
        // When it was stored is known better than by who made it.
        if (value.revision == known.revision && value.value == known.value)
            known.stored_ms = value.stored_ms;
        return false;
    }
    known = value;
    return true;
}

const KeyValue *Offers::Find(const std::string &key) const
{
    const auto found = newest_.find(key);
    return found == newest_.end() || found->second.is_deleted ? nullptr : &found->second;
}

// A canary ends with the next files of all, also where a server still shows it.
std::optional<GroupState> Offers::Wanted(const std::string &group) const
{
    const auto state_of = [&](const KeyValue &value, bool is_canary) {
        return GroupState{group, created_, value.revision, is_canary, value.value, value.stored_ms};
    };
    // With it, a server that is behind cannot show behind a start what was taken back.
    const auto with_end = [&](GroupState state) {
        const auto canary = newest_.find(CanaryKey(group));
        if (canary != newest_.end() && canary->second.is_deleted) {
            state.ended_revision = canary->second.revision;
            state.ended_ms = canary->second.stored_ms;
        }
        return state;
    };
    const KeyValue *canary = Find(CanaryKey(group));
    const KeyValue *all = Find(AllKey(group));
    // Of servers with an older disk, the files of all have a smaller number and were stored later.
    const bool is_tried = canary != nullptr &&
                          (all == nullptr || (IsNewer(*canary, *all) && !IsNewer(*all, *canary)));
    if (is_tried && NumberOf(group, uuid_) < ParseGroup(group, canary->value).below)
        return state_of(*canary, true);
    return all != nullptr ? std::optional(with_end(state_of(*all, false))) : std::nullopt;
}

} // namespace fleet

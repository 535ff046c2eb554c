#include "agent/policy/event_count.h"

#include <algorithm>
#include <utility>

namespace policy {

Outcome EventCount::Take(const std::string &value, const LineHits &line)
{
    Entry &entry = Use(value);
    const size_t before = entry.count.moments().size();
    Outcome outcome = entry.count.Take(terms_, line);
    moments_ += entry.count.moments().size();
    moments_ -= before;
    // Never the one that was just used, which is the last.
    while (entries_.size() > kMaxValues || (moments_ > kMaxMoments && entries_.size() > 1))
        DropOldest();
    return outcome;
}

void EventCount::SetBack(int64_t now_s)
{
    for (Entry &entry : entries_) {
        if (entry.count.newest_s() <= now_s)
            continue;
        entry.count.SetBack(now_s);
        changes_.used.insert(entry.value);
    }
}

bool EventCount::HasOverdue(int64_t now_s) const
{
    return std::any_of(entries_.begin(), entries_.end(),
                       [&](const Entry &entry) { return entry.count.IsOverdue(terms_, now_s); });
}

std::vector<std::string> EventCount::TakeOverdue(int64_t now_s)
{
    std::vector<std::string> overdue;
    for (Entry &entry : entries_) {
        if (!entry.count.IsOverdue(terms_, now_s))
            continue;
        entry.count.Report(now_s);
        changes_.used.insert(entry.value);
        overdue.push_back(entry.value);
    }
    return overdue;
}

EventCount::Entry &EventCount::Use(const std::string &value)
{
    const auto found = by_value_.find(value);
    if (found != by_value_.end()) {
        entries_.splice(entries_.end(), entries_, found->second);
    } else {
        entries_.push_back({value, {}, 0, changes_.gone.erase(value) > 0});
        by_value_.emplace(entries_.back().value, std::prev(entries_.end()));
    }
    Entry &entry = entries_.back();
    entry.use = ++newest_use_;
    changes_.used.insert(value);
    return entry;
}

void EventCount::DropOldest()
{
    const Entry &oldest = entries_.front();
    ++dropped_.values;
    dropped_.hits += oldest.count.hits() + oldest.count.held_back().hits;
    moments_ -= oldest.count.moments().size();
    changes_.used.erase(oldest.value);
    if (oldest.is_stored)
        changes_.gone.insert(oldest.value);
    by_value_.erase(oldest.value);
    entries_.pop_front();
}

const EventCount::Entry *EventCount::Find(const std::string &value) const
{
    const auto found = by_value_.find(value);
    return found != by_value_.end() ? &*found->second : nullptr;
}

void EventCount::Restore(Entry entry)
{
    newest_use_ = entry.use;
    entry.is_stored = true;
    moments_ += entry.count.moments().size();
    entries_.push_back(std::move(entry));
    by_value_.emplace(entries_.back().value, std::prev(entries_.end()));
}

EventCount::Changes EventCount::TakeChanges()
{
    for (const std::string &value : changes_.used)
        by_value_.at(value)->is_stored = true;
    return std::exchange(changes_, {});
}

} // namespace policy

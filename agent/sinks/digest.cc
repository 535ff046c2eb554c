#include "agent/sinks/digest.h"

#include <algorithm>

namespace sinks {

namespace {

// Two of them for each event have room in a message, and in a chat.
constexpr size_t kKeptOfALine = 512;

} // namespace

int64_t HitsOf(const alerts::Alert &alert)
{
    return alert.count + alert.held_back.hits;
}

void Digest::Add(const alerts::Alert &alert)
{
    DigestEvent event;
    event.source = alert.source;
    event.event_id = alert.event_id;
    event.alerts = 1;
    event.hits = HitsOf(alert);
    event.first_ms = alert.time_ms;
    event.first = alert.message.substr(0, kKeptOfALine);
    event.last_ms = alert.IsFolded() ? alert.last_time_ms : alert.time_ms;
    event.last = alert.IsFolded() ? alert.last_message.substr(0, kKeptOfALine) : event.first;
    Add(event);
}

void Digest::Add(const DigestEvent &event)
{
    const auto [known, is_new] = events_.try_emplace({event.source, event.event_id}, event);
    if (is_new)
        return;
    DigestEvent &sum = known->second;
    sum.alerts += event.alerts;
    sum.hits += event.hits;
    sum.last_ms = event.last_ms;
    sum.last = event.last;
}

void Digest::Add(const Digest &digest)
{
    for (const auto &[name, event] : digest.events_)
        Add(event);
}

DigestEvent Digest::Whole() const
{
    DigestEvent whole;
    for (const auto &[name, event] : events_) {
        whole.alerts += event.alerts;
        whole.hits += event.hits;
        whole.first_ms =
            whole.first_ms == 0 ? event.first_ms : std::min(whole.first_ms, event.first_ms);
        whole.last_ms = std::max(whole.last_ms, event.last_ms);
    }
    return whole;
}

std::vector<DigestEvent> Digest::Events() const
{
    std::vector<DigestEvent> all;
    for (const auto &[name, event] : events_)
        all.push_back(event);
    std::stable_sort(all.begin(), all.end(), [](const DigestEvent &one, const DigestEvent &other) {
        return one.alerts > other.alerts;
    });
    return all;
}

DigestEvent Digest::TakeNewest()
{
    const auto newest =
        std::max_element(events_.begin(), events_.end(), [](const auto &one, const auto &other) {
            return one.second.last_ms < other.second.last_ms;
        });
    DigestEvent event = std::move(newest->second);
    events_.erase(newest);
    return event;
}

void Digest::DropLines()
{
    for (auto &[name, event] : events_) {
        event.first.clear();
        event.last.clear();
    }
}

} // namespace sinks

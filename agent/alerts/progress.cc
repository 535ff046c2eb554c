#include "agent/alerts/progress.h"

#include <algorithm>

namespace alerts {

namespace {

int64_t WallMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

} // namespace

Progress::Progress(Deliveries rows, std::optional<std::chrono::milliseconds> active)
    : rows_(std::move(rows)), seen_(rows_), active_ms_(active ? active->count() : 0)
{
}

int64_t Progress::LastId(const std::string &peer) const
{
    const std::lock_guard lock(mutex_);
    return rows_.at(peer).last_id;
}

void Progress::MarkWell(Delivery &row) const
{
    row.last_error.clear();
}

void Progress::Taken(const std::string &peer, std::span<const Message> messages)
{
    if (messages.empty())
        return;
    const std::lock_guard lock(mutex_);
    const int64_t first = messages.front().alert.id;
    const int64_t last = messages.back().alert.id;
    const int64_t ends = messages.back().ends_ms;
    Delivery &whole = rows_.at("");
    const bool is_late = active_ms_ > 0 && ends > messages.front().alert.time_ms + active_ms_;
    if (is_late && last > whole.last_id)
        late_.push_back({std::max(first, whole.last_id + 1), last, ends});
    const auto advance = [&](Delivery &row) {
        row.delivered += std::count_if(messages.begin(), messages.end(), [&](const auto &message) {
            return message.alert.id > row.last_id;
        });
        row.last_id = std::max(row.last_id, last);
        row.delivered_ms = WallMs();
        MarkWell(row);
    };
    advance(whole);
    if (!peer.empty())
        advance(rows_.at(peer));
}

void Progress::CaughtUp(const std::string &peer, int64_t last_id)
{
    const std::lock_guard lock(mutex_);
    Delivery &row = rows_.at(peer);
    row.last_id = std::max(row.last_id, last_id);
}

void Progress::Well(const std::string &peer)
{
    const std::lock_guard lock(mutex_);
    MarkWell(rows_.at(peer));
    MarkWell(rows_.at(""));
}

void Progress::MarkFailed(const std::string &peer, const std::string &why)
{
    const int64_t now = WallMs();
    const auto mark = [&](Delivery &row, const std::string &text) {
        row.last_error = text;
        row.error_ms = now;
    };
    mark(rows_.at(peer), why);
    if (!peer.empty())
        mark(rows_.at(""), peer + ": " + why);
}

void Progress::Failed(const std::string &peer, const std::string &why)
{
    const std::lock_guard lock(mutex_);
    MarkFailed(peer, why);
}

void Progress::Refused(const std::string &peer, const Message &message, const std::string &why)
{
    const std::lock_guard lock(mutex_);
    MarkFailed(peer, why);
    const auto give_up = [&](Delivery &row) {
        if (message.alert.id <= row.last_id)
            return;
        ++row.dropped;
        row.last_id = message.alert.id;
    };
    give_up(rows_.at(""));
    if (!peer.empty())
        give_up(rows_.at(peer));
}

int64_t Progress::Removed(int64_t last_id)
{
    const std::lock_guard lock(mutex_);
    Delivery &whole = rows_.at("");
    const int64_t lost = std::max<int64_t>(0, last_id - whole.last_id);
    whole.dropped += lost;
    for (auto &[peer, row] : rows_)
        row.last_id = std::max(row.last_id, last_id);
    return lost;
}

int64_t Progress::EndsAt(const Alert &alert, int64_t now_ms) const
{
    const std::lock_guard lock(mutex_);
    if (alert.id > rows_.at("").last_id)
        return std::max(alert.time_ms, now_ms) + active_ms_;
    for (const LateRange &range : late_) {
        if (alert.id >= range.first_id && alert.id <= range.last_id)
            return range.ends_ms;
    }
    return alert.time_ms + active_ms_;
}

int64_t Progress::FirstLateId(int64_t now_ms)
{
    const std::lock_guard lock(mutex_);
    std::erase_if(late_, [&](const LateRange &range) { return range.ends_ms <= now_ms; });
    int64_t first = INT64_MAX;
    for (const LateRange &range : late_)
        first = std::min(first, range.first_id);
    return first;
}

Deliveries Progress::Rows() const
{
    const std::lock_guard lock(mutex_);
    return rows_;
}

bool Progress::HasChanged()
{
    const std::lock_guard lock(mutex_);
    if (rows_ == seen_)
        return false;
    seen_ = rows_;
    return true;
}

} // namespace alerts

#include "agent/sinks/progress.h"

#include <algorithm>
#include <utility>

namespace sinks {

namespace {

int64_t WallMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

} // namespace

// What is in the rows counts as seen: the store has it already, or the deliverer writes it for
// another reason.
Progress::Progress(Deliveries rows, std::optional<std::chrono::milliseconds> active,
                   const std::vector<Undelivered> &undelivered, Held held)
    : rows_(std::move(rows)), seen_(rows_), active_ms_(active ? active->count() : 0),
      held_(std::move(held)), sending_to_(rows_.at("").planned_id), written_plan_(sending_to_)
{
    for (const Undelivered &row : undelivered)
        aside_[row.peer].insert(row.alert_id);
}

int64_t Progress::LastId(const std::string &peer) const
{
    const std::lock_guard lock(mutex_);
    return rows_.at(peer).last_id;
}

// The sink as a whole shows the newest failure of those peers whose last try failed.
void Progress::MarkWell(const std::string &peer)
{
    // The time of the error stays: it says when the last one was.
    rows_.at(peer).last_error.clear();
    Delivery &whole = rows_.at("");
    whole.last_error.clear();
    int64_t newest = 0;
    for (const auto &[name, row] : rows_) {
        if (row.last_error.empty() || row.error_ms < newest)
            continue;
        whole.last_error = name + ": " + row.last_error;
        whole.error_ms = newest = row.error_ms;
    }
}

// Counts what this row has not had yet. What has left the store on its way was passed over by the row, and not lost: it
// is of the message that has now arrived.
void Progress::MarkTaken(const std::string &peer, std::span<const Message> messages)
{
    Delivery &row = rows_.at(peer);
    const auto &ahead = ahead_[peer];
    const bool has_left = !held_.of_message.IsEmpty();
    for (const Message &message : messages) {
        const int64_t id = message.alert.id;
        if (has_left || (id > row.last_id && !ahead.contains(id)))
            row.delivered += message.alerts;
        row.delivered += message.digest.Whole().alerts;
    }
    row.delivered_ms = WallMs();
}

void Progress::Taken(const std::string &peer, std::span<const Message> messages)
{
    if (messages.empty())
        return;
    const std::lock_guard lock(mutex_);
    const int64_t first = messages.front().alert.id;
    const int64_t last = messages.back().alert.id;
    const int64_t ends = messages.back().ends_ms;
    const Delivery &whole = rows_.at("");
    // Its end is later than the time of its report would make it. The times are kept by ranges of
    // IDs: a batch that was taken together ends together.
    const bool is_late = active_ms_ > 0 && ends > messages.front().alert.time_ms + active_ms_;
    if (is_late && last > whole.last_id)
        late_.push_back({std::max(first, whole.last_id + 1), last, ends});
    // As a set, because a sink with one receiver has the empty name for both, and must count once.
    for (const std::string &name : std::set<std::string>{"", peer}) {
        MarkTaken(name, messages);
        Advance(name, last);
    }
    // What had left the store was in this message, or is told of by the next one.
    held_.of_message = std::exchange(held_.behind, {});
    sending_to_ = rows_.at("").planned_id = 0;
    MarkWell(peer);
}

void Progress::TakenAhead(const std::string &peer, const Message &message)
{
    const std::lock_guard lock(mutex_);
    if (active_ms_ > 0)
        late_.push_back({message.alert.id, message.alert.id, message.ends_ms});
    for (const std::string &name : std::set<std::string>{"", peer}) {
        MarkTaken(name, std::span(&message, 1));
        // Another peer may have brought the sink as a whole further already.
        if (message.alert.id > rows_.at(name).last_id)
            ahead_[name].insert(message.alert.id);
    }
    MarkWell(peer);
}

bool Progress::IsAhead(const std::string &peer, int64_t id) const
{
    const std::lock_guard lock(mutex_);
    const auto ahead = ahead_.find(peer);
    return ahead != ahead_.end() && ahead->second.contains(id);
}

// Everything up to this one is done with. So are those behind it that were taken ahead.
void Progress::Advance(const std::string &peer, int64_t last_id)
{
    Delivery &row = rows_.at(peer);
    row.last_id = std::max(row.last_id, last_id);
    auto &ahead = ahead_[peer];
    // Those that are now behind the last one, and then those that follow it without a gap.
    ahead.erase(ahead.begin(), ahead.upper_bound(row.last_id));
    while (ahead.erase(row.last_id + 1) > 0)
        ++row.last_id;
}

void Progress::CaughtUp(const std::string &peer, int64_t last_id)
{
    const std::lock_guard lock(mutex_);
    Advance(peer, last_id);
}

Delivery Progress::RowOf(const std::string &peer) const
{
    const std::lock_guard lock(mutex_);
    return rows_.at(peer);
}

// What is sent again is counted again: it is what the receiver has taken.
void Progress::GoTo(int64_t last_id)
{
    const std::lock_guard lock(mutex_);
    rows_.at("").last_id = last_id;
    ahead_[""].clear();
    Advance("", last_id);
}

void Progress::Well(const std::string &peer)
{
    const std::lock_guard lock(mutex_);
    MarkWell(peer);
}

void Progress::Failed(const std::string &peer, const std::string &why)
{
    const std::lock_guard lock(mutex_);
    const int64_t now = WallMs();
    const auto mark = [&](Delivery &row, const std::string &text) {
        row.last_error = text;
        row.error_ms = now;
    };
    mark(rows_.at(peer), why);
    if (!peer.empty())
        // With the peer's name, since it stands for the sink as a whole.
        mark(rows_.at(""), peer + ": " + why);
}

void Progress::PutAside(const std::string &peer, const Message &message, const std::string &why)
{
    const std::lock_guard lock(mutex_);
    changes_.push_back({{peer, message.alert.id, WallMs(), why, false}});
    aside_[peer].insert(message.alert.id);
    // Of several peers, another one may still take it: the sink as a whole goes on with the next one.
    if (message.alert.id > rows_.at(peer).last_id)
        ahead_[peer].insert(message.alert.id);
    Advance(peer, rows_.at(peer).last_id);
}

bool Progress::IsAside(const std::string &peer, int64_t id) const
{
    const std::lock_guard lock(mutex_);
    const auto aside = aside_.find(peer);
    return aside != aside_.end() && aside->second.contains(id);
}

void Progress::TakenAfterAll(const std::string &peer, const Message &message)
{
    const std::lock_guard lock(mutex_);
    const int64_t id = message.alert.id;
    // Another peer has taken it: then the sink as a whole has counted it already.
    const bool is_known = std::any_of(rows_.begin(), rows_.end(), [&](const auto &entry) {
        const auto &[name, row] = entry;
        return !name.empty() && name != peer && row.last_id >= id && !aside_[name].contains(id);
    });
    changes_.push_back(
        {{.peer = peer, .alert_id = id, .since_ms = 0, .reason = "", .again = false}, true});
    aside_[peer].erase(id);
    for (const std::string &name : std::set<std::string>{"", peer}) {
        Delivery &row = rows_.at(name);
        row.delivered += name == peer || !is_known ? 1 : 0;
        row.delivered_ms = WallMs();
    }
    MarkWell(peer);
}

std::vector<UndeliveredChange> Progress::TakeChanges()
{
    const std::lock_guard lock(mutex_);
    return std::exchange(changes_, {});
}

int64_t Progress::Removed(const Leaving &leaving)
{
    const std::lock_guard lock(mutex_);
    const int64_t last_id = leaving.last_id;
    Hold(leaving.wanted);
    Delivery &whole = rows_.at("");
    // What was taken ahead is not lost, although it lies behind the last one.
    int64_t lost = std::max<int64_t>(0, last_id - whole.last_id);
    for (const int64_t id : ahead_[""])
        lost -= id <= last_id ? 1 : 0;
    const auto is_not_lost = [&](int64_t id) {
        return id > whole.last_id && !ahead_[""].contains(id);
    };
    lost -= std::count_if(leaving.others.begin(), leaving.others.end(), is_not_lost);
    lost -= std::count_if(leaving.wanted.begin(), leaving.wanted.end(),
                          [&](const alerts::Alert &alert) { return is_not_lost(alert.id); });
    whole.dropped += lost;
    // Nobody can send one any more that is not in the store: it was dropped after all.
    for (auto &[peer, row] : rows_) {
        auto &aside = aside_[peer];
        const auto end = aside.upper_bound(last_id);
        row.dropped += std::distance(aside.begin(), end);
        aside.erase(aside.begin(), end);
    }
    for (const auto &[peer, row] : rows_)
        Advance(peer, last_id);
    return lost;
}

// What the message under way tells of stays with it: it counts when that is taken, or goes into the
// next one with the others.
void Progress::Hold(const std::vector<alerts::Alert> &alerts)
{
    Delivery &whole = rows_.at("");
    for (const alerts::Alert &alert : alerts) {
        if (alert.id <= whole.last_id || ahead_[""].contains(alert.id))
            continue;
        const bool is_of_message = alert.id <= sending_to_;
        (is_of_message ? held_.of_message : held_.behind).Add(alert);
        // From here on the store cannot say what the message is about.
        if (is_of_message)
            whole.planned_id = sending_to_;
    }
}

bool Progress::MaySend(int64_t last_id)
{
    const std::lock_guard lock(mutex_);
    if (!held_.of_message.IsEmpty() || !held_.behind.IsEmpty())
        return false;
    sending_to_ = last_id;
    return true;
}

void Progress::Plan(int64_t last_id, int64_t full_ms)
{
    const std::lock_guard lock(mutex_);
    held_.of_message.Add(std::exchange(held_.behind, {}));
    rows_.at("").full_ms = full_ms;
    rows_.at("").planned_id = sending_to_ = last_id;
}

int64_t Progress::Planned() const
{
    const std::lock_guard lock(mutex_);
    return rows_.at("").planned_id;
}

Progress::Beginning Progress::OfMessage() const
{
    const std::lock_guard lock(mutex_);
    return {held_.of_message, rows_.at("").last_id};
}

bool Progress::IsPlanWritten() const
{
    const std::lock_guard lock(mutex_);
    return written_plan_ == rows_.at("").planned_id;
}

bool Progress::Holds() const
{
    const std::lock_guard lock(mutex_);
    return !held_.of_message.IsEmpty() || !held_.behind.IsEmpty();
}

int64_t Progress::FullMs() const
{
    const std::lock_guard lock(mutex_);
    return rows_.at("").full_ms;
}

void Progress::SetFullMs(int64_t full_ms)
{
    const std::lock_guard lock(mutex_);
    rows_.at("").full_ms = full_ms;
}

Held Progress::WhatIsHeld(Deliveries *rows) const
{
    const std::lock_guard lock(mutex_);
    *rows = rows_;
    return held_;
}

void Progress::Written(const Deliveries &rows)
{
    const std::lock_guard lock(mutex_);
    written_plan_ = rows.at("").planned_id;
}

int64_t Progress::EndsAt(const alerts::Alert &alert, int64_t now_ms) const
{
    const std::lock_guard lock(mutex_);
    // No peer has had it: it begins now. Not before the time of its report, should the clock have
    // been set back since.
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
    // What is over by now is of no interest to anybody. So the list stays short.
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
    if (rows_ == seen_ && changes_.empty())
        return false;
    seen_ = rows_;
    return true;
}

} // namespace sinks

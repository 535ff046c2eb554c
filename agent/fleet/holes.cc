#include "agent/fleet/holes.h"

#include <algorithm>
#include <utility>

namespace fleet {

namespace {

// Up to the first look, and between those that it takes to tell of a hole. Then half of what has passed since the hole was
// noticed lies between two.
constexpr int64_t kFirstPauseMs = 1000;
constexpr int64_t kAskForMs = int64_t{24} * 3600 * 1000;
// What is another collector's may be this one's again.
constexpr int64_t kPostponeMs = int64_t{3600} * 1000;

int64_t NextAfter(const Hole &hole, int64_t now_ms)
{
    // Nobody could ask for long, or the clock went forward: it is asked for until it can be told.
    if (hole.tries < Holes::kTriesBeforeTold)
        return now_ms + kFirstPauseMs;
    const int64_t passed = now_ms - hole.noticed_ms;
    return passed < kAskForMs ? now_ms + std::max(kFirstPauseMs, passed / 2) : Hole::kNever;
}

bool IsToBeTold(const Hole &hole, int64_t now_ms, bool was_answered)
{
    const int64_t patience = was_answered ? Holes::kToldAfterMs : Holes::kToldUnansweredAfterMs;
    return hole.kind == Hole::Kind::kNoticed && hole.tries >= Holes::kTriesBeforeTold &&
           now_ms - hole.noticed_ms >= patience;
}

} // namespace

Holes::Holes(host::Database &database, const std::string &uuid)
{
    host::KeptStatement read(database, "SELECT first_id, last_id, since_ms, until_ms, noticed_ms,"
                                       " next_ms, tries, kind FROM fleet_hole WHERE uuid = ?"
                                       " ORDER BY first_id");
    read->Start(uuid);
    while (read->Next())
        holes_.push_back({read->Integer(0), read->Integer(1), read->Integer(2), read->Integer(3),
                          read->Integer(4), read->Integer(5), read->Integer(6),
                          static_cast<Hole::Kind>(read->Integer(7))});
}

void Holes::Write(host::Database &database, const std::string &uuid) const
{
    if (!is_changed_)
        return;
    host::KeptStatement(database, "DELETE FROM fleet_hole WHERE uuid = ?")->Run(uuid);
    host::KeptStatement write(database,
                              "INSERT INTO fleet_hole (uuid, first_id, last_id, since_ms, until_ms,"
                              " noticed_ms, next_ms, tries, kind)"
                              " VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
    for (const Hole &hole : holes_)
        write->Run(uuid, hole.first_id, hole.last_id, hole.since_ms, hole.until_ms, hole.noticed_ms,
                   hole.next_ms, hole.tries, static_cast<int64_t>(hole.kind));
}

void Holes::Add(const Hole &hole, int64_t now_ms)
{
    holes_.push_back(hole);
    holes_.back().noticed_ms = now_ms;
    holes_.back().next_ms = now_ms + kFirstPauseMs;
    MakeRoom();
}

void Holes::MakeRoom()
{
    is_changed_ = true;
    while (holes_.size() > kMost) {
        if (holes_.front().kind == Hole::Kind::kNoticed)
            given_up_.push_back(holes_.front());
        holes_.erase(holes_.begin());
    }
}

std::vector<Hole> Holes::TakeGivenUp()
{
    return std::exchange(given_up_, {});
}

std::vector<Hole>::const_iterator Holes::Find(int64_t id) const
{
    return std::ranges::find_if(
        holes_, [&](const Hole &one) { return one.first_id <= id && id <= one.last_id; });
}

Holes::Filled Holes::Fill(int64_t id, int64_t after)
{
    const auto hole = Find(id);
    if (hole == holes_.end())
        return {};
    // What is left of it on either side, which may be nothing.
    Hole before = *hole;
    before.last_id = std::min(after, id - 1);
    Hole behind = *hole;
    behind.first_id = id + 1;
    const Filled filled{hole->size() - std::max<int64_t>(before.size(), 0) - behind.size(),
                        hole->kind == Hole::Kind::kTold};
    auto at = holes_.erase(hole);
    for (const Hole &left : {behind, before}) {
        if (left.size() > 0)
            at = holes_.insert(at, left);
    }
    MakeRoom();
    return filled;
}

std::vector<Hole> Holes::Asked(int64_t now_ms, bool was_answered)
{
    is_changed_ = true;
    std::vector<Hole> told;
    for (Hole &hole : holes_) {
        // Of a hole that will be noticed, the clock was put back.
        hole.noticed_ms = std::min(hole.noticed_ms, now_ms);
        ++hole.tries;
        const bool is_over =
            hole.next_ms == Hole::kNever || (hole.kind == Hole::Kind::kBeginning && was_answered);
        hole.next_ms = is_over ? Hole::kNever : NextAfter(hole, now_ms);
        if (!IsToBeTold(hole, now_ms, was_answered))
            continue;
        hole.kind = Hole::Kind::kTold;
        told.push_back(hole);
    }
    return told;
}

// As if it were noticed then.
void Holes::Postpone(int64_t now_ms)
{
    is_changed_ = true;
    for (Hole &hole : holes_) {
        hole.noticed_ms = now_ms;
        hole.next_ms = now_ms + kPostponeMs;
    }
}

// One look serves all holes of a host that are still asked for.
std::optional<Missing> NextMissing(host::Database &database, int64_t now_ms)
{
    host::KeptStatement read(database, "SELECT uuid, min(since_ms), max(until_ms) FROM fleet_hole"
                                       " WHERE next_ms < ?2 AND uuid = (SELECT uuid FROM fleet_hole"
                                       " WHERE next_ms < ?2 AND (next_ms <= ?1 OR noticed_ms > ?1)"
                                       " ORDER BY next_ms LIMIT 1) GROUP BY uuid");
    read->Start(now_ms, Hole::kNever);
    if (!read->Next())
        return std::nullopt;
    return Missing{read->Text(0), std::max<int64_t>(read->Integer(1) - kClocksDifferMs, 0),
                   read->Integer(2) + kClocksDifferMs};
}

} // namespace fleet

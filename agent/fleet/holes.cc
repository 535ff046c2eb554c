#include "agent/fleet/holes.h"

#include <algorithm>

namespace fleet {

namespace {

// The first look, and the one behind it. Then half of what has passed since the hole was noticed lies between two.
constexpr int64_t kFirstPauseMs = 1000;
constexpr int64_t kLookForMs = int64_t{24} * 3600 * 1000;

} // namespace

Holes::Holes(host::Database &database, const std::string &uuid)
{
    host::KeptStatement read(database,
                             "SELECT first_id, last_id, since_ms, until_ms, noticed_ms, looked_ms,"
                             " kind FROM fleet_hole WHERE uuid = ? ORDER BY first_id");
    read->Start(uuid);
    while (read->Next())
        holes_.push_back({read->Integer(0), read->Integer(1), read->Integer(2), read->Integer(3),
                          read->Integer(4), read->Integer(5),
                          static_cast<Hole::Kind>(read->Integer(6))});
}

void Holes::Write(host::Database &database, const std::string &uuid) const
{
    host::KeptStatement(database, "DELETE FROM fleet_hole WHERE uuid = ?")->Run(uuid);
    host::KeptStatement write(database,
                              "INSERT INTO fleet_hole (uuid, first_id, last_id, since_ms, until_ms,"
                              " noticed_ms, looked_ms, kind) VALUES (?, ?, ?, ?, ?, ?, ?, ?)");
    for (const Hole &hole : holes_)
        write->Run(uuid, hole.first_id, hole.last_id, hole.since_ms, hole.until_ms, hole.noticed_ms,
                   hole.looked_ms, static_cast<int64_t>(hole.kind));
}

std::optional<Hole> Holes::Add(const Hole &hole)
{
    holes_.push_back(hole);
    if (holes_.size() <= kMost)
        return std::nullopt;
    const Hole oldest = holes_.front();
    holes_.erase(holes_.begin());
    return oldest;
}

Holes::Filled Holes::Fill(int64_t id, int64_t after)
{
    const auto hole = std::ranges::find_if(
        holes_, [&](const Hole &one) { return one.first_id <= id && id <= one.last_id; });
    if (hole == holes_.end())
        return {};
    // What is left of it on either side, which may be nothing.
    Hole before = *hole;
    before.last_id = std::min(after, id - 1);
    Hole behind = *hole;
    behind.first_id = id + 1;
    const int64_t filled = hole->size() - std::max<int64_t>(before.size(), 0) - behind.size();
    const Filled result{true, hole->kind == Hole::Kind::kTold ? filled : 0};
    auto at = holes_.erase(hole);
    for (const Hole &left : {behind, before}) {
        if (left.size() > 0)
            at = holes_.insert(at, left);
    }
    return result;
}

std::vector<Hole> Holes::Looked(int64_t now_ms, bool was_asked)
{
    Postpone(now_ms);
    std::vector<Hole> told;
    for (Hole &hole : holes_) {
        const int64_t patience = was_asked ? kToldAfterMs : kToldUnaskedAfterMs;
        const int64_t passed = now_ms - hole.noticed_ms; // below 0: the clock was put back
        if (hole.kind != Hole::Kind::kNoticed || (passed >= 0 && passed < patience))
            continue;
        hole.kind = Hole::Kind::kTold;
        told.push_back(hole);
    }
    return told;
}

void Holes::Postpone(int64_t now_ms)
{
    for (Hole &hole : holes_)
        hole.looked_ms = now_ms;
}

// One look serves all holes of a host. After the clock was put back it is taken as due.
std::optional<LookBackSpan> NextLookBack(host::Database &database, int64_t now_ms)
{
    host::KeptStatement read(
        database,
        "SELECT uuid, (SELECT min(since_ms) FROM fleet_hole WHERE uuid = due.uuid),"
        " (SELECT max(until_ms) FROM fleet_hole WHERE uuid = due.uuid) FROM fleet_hole AS due"
        " WHERE looked_ms - noticed_ms < ?2 AND (kind <> ?4 OR looked_ms = noticed_ms)"
        " AND (looked_ms > ?1 OR ?1 - looked_ms >= max(?3, (looked_ms - noticed_ms) / 2))"
        " ORDER BY looked_ms LIMIT 1");
    read->Start(now_ms, kLookForMs, kFirstPauseMs, static_cast<int64_t>(Hole::Kind::kBeginning));
    if (!read->Next())
        return std::nullopt;
    return LookBackSpan{read->Text(0), read->Integer(1), read->Integer(2)};
}

} // namespace fleet

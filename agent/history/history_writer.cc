#include "agent/history/history_writer.h"

#include <algorithm>
#include <array>
#include <utility>

namespace history {

HistoryWriter::HistoryWriter(host::Store &store) : store_(store)
{
    store_.Read([&](host::Database &database) {
        host::Statement series(database, "SELECT id, kind, name, event_id FROM series");
        series.Start();
        while (series.Next()) {
            const auto kind = static_cast<Kind>(series.Integer(1));
            series_[{kind, series.Text(2), static_cast<uint32_t>(series.Integer(3))}] =
                series.Integer(0);
            kinds_[series.Integer(0)] = kind;
        }
        host::Statement minute(database, "SELECT begin, \"values\" FROM history WHERE length = ?"
                                         " ORDER BY begin DESC LIMIT 1");
        minute.Start(kMinute);
        if (minute.Next())
            minute_ = {minute.Integer(0), FromText(minute.Bytes(1))};
    });
}

void HistoryWriter::Save(const News &news, int64_t now)
{
    if (news.IsEmpty())
        return;
    store_.Write([&](host::Database &database) {
        MoveTo(database, now);
        for (const auto &[key, value] : news.values()) {
            if (value <= 0)
                continue; // a counter that was set back without a report
            const int64_t series = SeriesOf(database, key);
            const auto [place, is_new] = minute_.values.try_emplace(series, value);
            if (!is_new)
                Merge(key.kind, value, &place->second);
        }
        Write(database, kMinute, minute_);
    });
}

void HistoryWriter::Write(host::Database &database, int64_t length, const Step &step) const
{
    host::KeptStatement(database, "INSERT INTO history (length, begin, \"values\") VALUES (?, ?, ?)"
                                  " ON CONFLICT (length, begin) DO UPDATE SET \"values\" ="
                                  " excluded.\"values\"")
        ->Run(length, step.begin, ToText(step.values));
}

// Makes the minute of a moment the one under way.
void HistoryWriter::MoveTo(host::Database &database, int64_t now)
{
    const int64_t begin = BeginOf(kMinute, now);
    const bool is_put_back = begin < minute_.begin - kHour;
    if (begin == minute_.begin || (begin < minute_.begin && !is_put_back))
        return;
    if (minute_.begin != 0)
        CloseMinute(database);
    const Step before = std::exchange(minute_, Step{begin, {}});
    if (before.begin != 0 && BeginOf(kHour, before.begin) != BeginOf(kHour, begin))
        RollUp(database, kHour, kMinute, BeginOf(kHour, before.begin));
    if (before.begin != 0 && BeginOf(kDay, before.begin) != BeginOf(kDay, begin))
        RollUp(database, kDay, kHour, BeginOf(kDay, before.begin));
    Prune(database, begin);
}

// The totals first: they are exact, whatever is folded.
void HistoryWriter::CloseMinute(host::Database &database)
{
    host::KeptStatement add(database, "UPDATE series SET total = total + ?, used = ? WHERE id = ?");
    for (const auto &[series, value] : minute_.values) {
        const bool adds_up = !KeepsLargest(kinds_[series]);
        add->Run(adds_up ? value : 0, minute_.begin, series);
    }
    Fold(database, &minute_.values);
    Write(database, kMinute, minute_);
}

void HistoryWriter::RollUp(host::Database &database, int64_t length, int64_t parts, int64_t begin)
{
    Step step{begin, {}};
    for (const Step &part : ReadSteps(database, parts, begin, begin + length))
        MergeInto(&step.values, part.values, kinds_);
    Fold(database, &step.values);
    Write(database, length, step);
}

// Also what lies behind `now`: it was written by a clock that has been put back since.
void HistoryWriter::Prune(host::Database &database, int64_t now)
{
    host::KeptStatement prune(database, "DELETE FROM history WHERE length = ? AND"
                                        " (begin < ? OR begin > ?)");
    for (const int64_t length : {kMinute, kHour, kDay})
        prune->Run(length, BeginOf(length, now - KeptFor(length)), now);
}

// The smallest values of a kind become one, of the series for the others.
void HistoryWriter::Fold(host::Database &database, Values *values)
{
    for (const Kind kind : {Kind::kHits, Kind::kAlerts, Kind::kHeldBack}) {
        std::vector<std::pair<int64_t, int64_t>> of_kind; // value, series
        for (const auto &[series, value] : *values) {
            if (kinds_[series] == kind)
                of_kind.emplace_back(value, series);
        }
        if (of_kind.size() <= kMostEvents)
            continue;
        std::ranges::sort(of_kind, std::greater<>());
        const int64_t others = SeriesOf(database, {kind, kOthers, 0});
        int64_t rest = 0;
        for (size_t i = kMostEvents - 1; i < of_kind.size(); ++i) {
            rest += of_kind[i].first;
            values->erase(of_kind[i].second);
        }
        (*values)[others] += rest;
    }
}

int64_t HistoryWriter::SeriesOf(host::Database &database, const SeriesKey &key)
{
    const auto known = series_.find(key);
    if (known != series_.end())
        return known->second;
    if (series_.size() >= kMostSeries)
        ForgetOldest(database);
    host::KeptStatement(database, "INSERT INTO series (kind, name, event_id, total, used)"
                                  " VALUES (?, ?, ?, 0, ?)")
        ->Run(static_cast<int64_t>(key.kind), key.name, key.id, minute_.begin);
    const int64_t id = database.LastInsertId();
    series_[key] = id;
    kinds_[id] = key.kind;
    return id;
}

// Values of it that are in the history stay there, and are of nobody: numbers are not given again.
void HistoryWriter::ForgetOldest(host::Database &database)
{
    host::Statement oldest(database, "SELECT id FROM series ORDER BY used, id LIMIT 1");
    oldest.Start();
    if (!oldest.Next())
        return;
    const int64_t id = oldest.Integer(0);
    oldest.Reset();
    host::Statement(database, "DELETE FROM series WHERE id = ?").Run(id);
    std::erase_if(series_, [&](const auto &entry) { return entry.second == id; });
    kinds_.erase(id);
    minute_.values.erase(id);
}

} // namespace history

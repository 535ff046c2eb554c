#include "agent/history/history_reader.h"

#include <limits>

namespace history {

namespace {

struct Series {
    std::map<int64_t, SeriesKey> keys;
    std::map<int64_t, int64_t> totals;
    Kinds kinds;
};

Series ReadSeries(host::Database &database)
{
    Series series;
    host::KeptStatement select(database, "SELECT id, kind, name, event_id, total FROM series");
    select->Start();
    while (select->Next()) {
        const int64_t id = select->Integer(0);
        const auto kind = static_cast<Kind>(select->Integer(1));
        series.keys[id] = {kind, select->Text(2), static_cast<uint32_t>(select->Integer(3))};
        series.kinds[id] = kind;
        series.totals[id] = select->Integer(4);
    }
    select->Reset();
    return series;
}

// The begin of the minute under way, -1: there was none yet.
int64_t NewestMinute(host::Database &database)
{
    host::Statement newest(database, "SELECT coalesce(max(begin), -1) FROM history"
                                     " WHERE length = ?");
    newest.Start(kMinute);
    return newest.Next() ? newest.Integer(0) : -1;
}

// A step that is not over, made of the shorter ones that are stored.
Step StepUnderWay(host::Database &database, int64_t length, int64_t newest, const Kinds &kinds)
{
    constexpr int64_t kEver = std::numeric_limits<int64_t>::max();
    const int64_t hour = BeginOf(kHour, newest);
    Step step{BeginOf(length, newest), {}};
    if (length == kDay) {
        for (const Step &part : ReadSteps(database, kHour, step.begin, hour))
            MergeInto(&step.values, part.values, kinds);
    }
    for (const Step &part : ReadSteps(database, kMinute, hour, kEver))
        MergeInto(&step.values, part.values, kinds);
    return step;
}

} // namespace

TotalsReader::State TotalsReader::ReadState()
{
    State state;
    state.newest_minute = NewestMinute(database_);
    host::KeptStatement series(database_,
                               "SELECT coalesce(max(id), 0), coalesce(sum(total), 0) FROM series");
    series->Start();
    if (series->Next()) {
        state.newest_series = series->Integer(0);
        state.sum = series->Integer(1);
    }
    series->Reset();
    return state;
}

void TotalsReader::ReadAll(Totals *totals)
{
    ++full_reads_;
    totals->clear();
    totals_.clear();
    const Series series = ReadSeries(database_);
    for (const auto &[id, key] : series.keys) {
        if (KeepsLargest(key.kind) || key.name == kOthers)
            continue;
        const int64_t before = series.totals.at(id);
        totals_[id] = {before, &(*totals)[key]};
        *totals_[id].now = before;
    }
}

void TotalsReader::Update(Totals *totals)
{
    const State state = ReadState();
    if (state != known_) {
        known_.reset(); // until they are read whole
        ReadAll(totals);
        known_ = state;
    }
    // What is in the minute under way is in no total yet, and only grows.
    for (const Step &minute :
         ReadSteps(database_, kMinute, state.newest_minute, state.newest_minute + 1)) {
        for (const auto &[id, value] : minute.values) {
            const auto total = totals_.find(id);
            if (total != totals_.end())
                *total->second.now = total->second.before + value;
        }
    }
}

Totals ReadTotals(host::Database &database)
{
    Totals totals;
    TotalsReader(database).Update(&totals);
    return totals;
}

Course ReadCourse(host::Database &database, int64_t length, int64_t from)
{
    const Series series = ReadSeries(database);
    const int64_t newest = NewestMinute(database);
    Course course{length, BeginOf(length, from), {}};
    // Up to the step under way, which may have a row of its own from before the clock was put back.
    const int64_t until = length == kMinute ? newest + 1 : BeginOf(length, newest);
    std::vector<Step> steps = ReadSteps(database, length, course.from, until);
    if (length != kMinute && newest >= 0 && until >= course.from)
        steps.push_back(StepUnderWay(database, length, newest, series.kinds));
    for (const Step &step : steps) {
        Course::Point &point = course.points.emplace_back();
        point.begin = step.begin;
        for (const auto &[id, value] : step.values) {
            if (const auto key = series.keys.find(id); key != series.keys.end())
                point.values[key->second] = value;
        }
    }
    return course;
}

int64_t LengthFor(int64_t seconds, int64_t most)
{
    for (const int64_t length : {kMinute, kHour}) {
        if (seconds <= KeptFor(length) && seconds <= most * length)
            return length;
    }
    return kDay;
}

} // namespace history

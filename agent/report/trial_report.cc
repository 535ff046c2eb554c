#include "agent/report/trial_report.h"

#include <algorithm>
#include <utility>

#include "agent/events/events.h"
#include "agent/text/times.h"

namespace report {

namespace {

// Anybody can write any host's name into a log.
constexpr size_t kMostHosts = 10'000;

int64_t Longer(int64_t length)
{
    return length == history::kMinute ? history::kHour
           : length == history::kHour ? history::kDay
                                      : 2 * length;
}

} // namespace

void TrialReport::Lengthen()
{
    length_ = Longer(length_);
    Steps longer;
    for (const auto &[begin, values] : steps_) {
        for (const auto &[key, value] : values)
            longer[history::BeginOf(length_, begin)][key] += value;
    }
    steps_ = std::move(longer);
}

void TrialReport::AddToSteps(const TrialHit &hit)
{
    const history::SeriesKey key{history::Kind::kHits, hit.source, hit.id};
    steps_[history::BeginOf(length_, hit.time_s)][key] += hit.hits;
    while ((steps_.rbegin()->first - steps_.begin()->first) / length_ >= kMostSteps)
        Lengthen();
}

void TrialReport::Add(const TrialHit &hit)
{
    const int64_t time_ms = hit.time_s * 1000;
    sums_.since_ms = sums_.hits == 0 ? time_ms : std::min(sums_.since_ms, time_ms);
    sums_.until_ms = sums_.hits == 0 ? time_ms : std::max(sums_.until_ms, time_ms);
    AddToSteps(hit);
    const bool is_one_too_many =
        figures_.hosts.size() >= kMostHosts && !figures_.hosts.contains(hit.host);
    figures_.hosts[is_one_too_many ? "all others" : hit.host] += hit.hits;
    figures_.hours[LocalHour(hit.time_s)] += hit.hits;
    sums_.hits += hit.hits;
    sums_.held_back += hit.is_held_back ? 1 : 0;
    if (!hit.is_reported)
        return;
    ++sums_.alerts;
    auto &newest = sums_.newest;
    newest.insert(newest.begin(),
                  {text::LocalTime(time_ms), hit.source + " " + events::FormatEventId(hit.id),
                   hit.host, hit.line});
    if (std::cmp_greater(newest.size(), kNewest))
        newest.pop_back();
}

Report TrialReport::Make(const std::string &title, int64_t lines) const
{
    Report report = sums_;
    report.title = title;
    report.is_trial = true;
    report.lines = lines;
    Figures figures = figures_;
    figures.course.length = length_;
    if (!steps_.empty()) {
        figures.course.from = steps_.begin()->first;
        figures.steps =
            static_cast<size_t>((steps_.rbegin()->first - figures.course.from) / length_ + 1);
    }
    for (const auto &[begin, values] : steps_)
        figures.course.points.push_back({begin, values});
    AddFigures(figures, &report);
    return report;
}

} // namespace report

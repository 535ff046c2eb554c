#include "agent/report/report.h"

#include <algorithm>
#include <ctime>
#include <map>

#include "agent/alerts/alert_store.h"
#include "agent/events/events.h"
#include "agent/history/history_reader.h"
#include "agent/host/here_and_now.h"
#include "agent/text/times.h"
#include "agent/text/whole_file.h"

namespace report {

namespace {

using history::Kind;

constexpr int64_t kMsOfSecond = 1000;
constexpr size_t kMostSeries = 7; // and the others
constexpr size_t kMostBars = 15;

std::string NameOf(const history::SeriesKey &key)
{
    return key.name == history::kOthers ? "all others"
                                        : key.name + " " + events::FormatEventId(key.id);
}

template <typename Key>
std::vector<Bar> Largest(const std::map<Key, int64_t> &values, std::string (*name)(const Key &))
{
    std::vector<Bar> bars;
    for (const auto &[key, value] : values)
        bars.push_back({name(key), value});
    std::ranges::stable_sort(bars, std::greater<>(), &Bar::value);
    if (bars.size() > kMostBars)
        bars.resize(kMostBars);
    return bars;
}

std::map<history::SeriesKey, int64_t> HitsOf(const history::Course &course)
{
    std::map<history::SeriesKey, int64_t> hits;
    for (const auto &point : course.points) {
        for (const auto &[key, value] : point.values) {
            if (key.kind == Kind::kHits)
                hits[key] += value;
        }
    }
    return hits;
}

// Of the events with most hits, the others as one.
std::vector<Series> SeriesOf(const history::Course &course, size_t steps)
{
    const std::vector<Bar> largest = Largest(HitsOf(course), NameOf);
    std::vector<Series> series;
    for (size_t i = 0; i < std::min(largest.size(), kMostSeries); ++i)
        series.push_back({largest[i].name, std::vector<int64_t>(steps)});
    Series others{"all others", std::vector<int64_t>(steps)};
    bool has_others = false;
    for (const auto &point : course.points) {
        const auto step = static_cast<size_t>((point.begin - course.from) / course.length);
        for (const auto &[key, value] : point.values) {
            if (key.kind != Kind::kHits || step >= steps)
                continue;
            const auto found = std::ranges::find(series, NameOf(key), &Series::name);
            has_others = has_others || found == series.end();
            (found != series.end() ? *found : others).values[step] += value;
        }
    }
    if (has_others)
        series.push_back(std::move(others));
    return series;
}

void AddSums(const history::Course &course, Report *report)
{
    for (const auto &point : course.points) {
        for (const auto &[key, value] : point.values) {
            if (key.kind == Kind::kHits)
                report->hits += value;
            if (key.kind == Kind::kAlerts)
                report->alerts += value;
            if (key.kind == Kind::kHeldBack)
                report->held_back += value;
            if (key.kind == Kind::kLines)
                report->lines += value;
        }
    }
}

std::map<std::string, int64_t> HostsOf(host::Database &database, int64_t since_ms)
{
    host::Statement select(database,
                           "SELECT iif(line_host = '', host, line_host) AS name, sum(count)"
                           " FROM alert WHERE time_ms >= ? GROUP BY name");
    std::map<std::string, int64_t> hits;
    select.Start(since_ms);
    while (select.Next())
        hits[select.Text(0)] = select.Integer(1);
    return hits;
}

std::array<int64_t, 24> HoursOf(host::Database &database, int64_t since_ms)
{
    std::array<int64_t, 24> hours{};
    // By quarters of an hour first: so finely do zones differ.
    host::Statement select(database, "SELECT time_ms / 900000, sum(count) FROM alert"
                                     " WHERE time_ms >= ? GROUP BY 1");
    select.Start(since_ms);
    while (select.Next())
        hours[LocalHour(select.Integer(0) * 900)] += select.Integer(1);
    return hours;
}

void AddNewest(host::Database &database, int64_t since_ms, Report *report)
{
    alerts::AlertFilter filter;
    filter.since_ms = since_ms;
    for (const auto &alert : alerts::FindNewest(database, filter, {}, kNewest))
        report->newest.push_back(
            {text::LocalTime(alert.time_ms),
             alert.source + " " + events::FormatEventId(alert.event_id), alert.HostOfLine(),
             alert.summary.empty() ? alert.message : alert.summary + ": " + alert.message});
}

std::string Fact(const char *name, int64_t value)
{
    return "<div><dt>" + std::string(name) + "</dt><dd>" + std::to_string(value) + "</dd></div>\n";
}

constexpr char kStyle[] =
    "body{font:15px/1.45 sans-serif;color:#1a2129;background:#fff;max-width:52rem;margin:1rem "
    "auto;padding:0 1rem}"
    "h1{font-size:1.4rem}h2{font-size:1.1rem}svg{max-width:100%;height:auto}"
    "dl{display:flex;flex-wrap:wrap;gap:.6rem}dl div{border:1px solid "
    "#cfd6dd;border-radius:.4rem;padding:.4rem .8rem}"
    "dt{color:#56626f;font-size:.85rem}dd{margin:0;font-size:1.2rem}"
    "table{border-collapse:collapse;width:100%}th,td{text-align:left;vertical-align:top;"
    "border-bottom:1px solid #cfd6dd;padding:.3rem .5rem .3rem 0}"
    "td:last-child{font-family:monospace;overflow-wrap:anywhere}td:first-child{white-space:nowrap}";

std::string Same(const std::string &name)
{
    return name;
}

std::vector<Bar> BarsOf(const std::array<int64_t, 24> &hours)
{
    std::vector<Bar> bars;
    for (size_t hour = 0; hour < hours.size(); ++hour)
        bars.push_back({std::to_string(hour), hours[hour]});
    return bars;
}

} // namespace

size_t LocalHour(int64_t seconds)
{
    const time_t moment = seconds;
    tm local{};
    localtime_r(&moment, &local);
    return static_cast<size_t>(local.tm_hour);
}

void AddFigures(const Figures &figures, Report *report)
{
    const auto &course = figures.course;
    const std::string of = figures.is_of_alerts ? " that were alerted of" : "";
    report->events = Largest(HitsOf(course), NameOf);
    report->hosts = Largest(figures.hosts, Same);
    report->hours = figures.hours;
    report->plots = {
        {"hits.svg",
         CoursePlot("Hits over time", course.from, course.length, SeriesOf(course, figures.steps))},
        {"events.svg", BarPlot("Events with most hits", report->events)},
        {"hosts.svg", BarPlot("Hosts with most hits" + of, report->hosts)},
        {"hours.svg", ColumnPlot("Hits" + of + (of.empty() ? " by" : ", by") + " hour of the day",
                                 BarsOf(report->hours))},
    };
}

Report Collect(host::Store &store, int64_t since_ms, int64_t until_ms)
{
    Report report;
    report.until_ms = until_ms;
    report.title = "Syslog monitor of " + host::HostName();
    const host::Snapshot one_state(store);
    host::Database &database = store.database();
    const int64_t since = since_ms / kMsOfSecond;
    const int64_t until = until_ms / kMsOfSecond;
    Figures figures;
    figures.course =
        history::ReadCourse(database, history::LengthFor(until - since, kMostSteps), since);
    const auto &course = figures.course;
    figures.steps =
        static_cast<size_t>(std::max<int64_t>((until - course.from) / course.length, 0) + 1);
    report.since_ms = course.from * kMsOfSecond;
    figures.hosts = HostsOf(database, report.since_ms);
    figures.hours = HoursOf(database, report.since_ms);
    figures.is_of_alerts = true;
    AddSums(course, &report);
    AddFigures(figures, &report);
    AddNewest(database, report.since_ms, &report);
    return report;
}

std::string ToHtml(const Report &report)
{
    std::string text =
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        "<title>" +
        Escaped(report.title) + "</title>\n<style>" + kStyle + "</style>\n</head>\n<body>\n<h1>" +
        Escaped(report.title) + "</h1>\n<p>" + text::LocalTime(report.since_ms) + " to " +
        text::LocalTime(report.until_ms) + "</p>\n<dl>\n" + Fact("Hits", report.hits) +
        Fact(report.is_trial ? "Reports" : "Reports alerted of", report.alerts) +
        Fact("Reports held back", report.held_back) + Fact("Lines read", report.lines) + "</dl>\n";
    for (const auto &[name, plot] : report.plots)
        text += plot;
    text += "<h2>";
    text += report.is_trial ? "The last reports" : "The newest alerts";
    text += "</h2>\n<table>\n<thead><tr><th scope=\"col\">Time</th><th "
            "scope=\"col\">Event</th><th scope=\"col\">Host</th><th "
            "scope=\"col\">Line</th></tr></thead>\n<tbody>\n";
    for (const Report::Line &line : report.newest)
        text += "<tr><td>" + line.time + "</td><td>" + Escaped(line.event) + "</td><td>" +
                Escaped(line.host) + "</td><td>" + Escaped(line.text) + "</td></tr>\n";
    return text + "</tbody>\n</table>\n</body>\n</html>\n";
}

void WritePlots(const Report &report, const std::filesystem::path &folder)
{
    for (const auto &[name, plot] : report.plots)
        text::WriteWhole(folder / name, plot);
}

} // namespace report

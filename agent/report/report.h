// What has happened since a moment, as one page that needs nothing else: hits over time, the events, hosts and hours with
// most of it, what was read, and the newest alerts. To be sent as a mail's attachment, or kept.
#ifndef AGENT_REPORT_REPORT_H
#define AGENT_REPORT_REPORT_H

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "agent/history/history_reader.h"
#include "agent/host/store.h"
#include "agent/report/plots.h"

namespace report {

struct Report {
    int64_t since_ms = 0;
    int64_t until_ms = 0;
    std::string title;
    bool is_trial = false; // its reports are those that there would have been
    int64_t hits = 0;
    int64_t alerts = 0; // reports that became an alert, or a part of one
    int64_t held_back = 0;
    int64_t lines = 0;
    std::vector<Bar> events; // with most hits, the largest first
    std::vector<Bar> hosts;  // likewise
    std::array<int64_t, 24> hours{};
    // The plots of them, and of the hits over time, each with the name of its file: "hits.svg".
    std::vector<std::pair<std::string, std::string>> plots;
    struct Line {
        std::string time;
        std::string event;
        std::string host;
        std::string text;
    };
    std::vector<Line> newest; // alerts, newest first
};

// Of a plot over time: bars of more could not be told apart.
constexpr int64_t kMostSteps = 400;
// In the list.
constexpr int64_t kNewest = 50;

// What is plotted: hits.
struct Figures {
    history::Course course; // by event
    size_t steps = 0;       // of the course, those without a value included
    std::map<std::string, int64_t> hosts;
    std::array<int64_t, 24> hours{}; // by local time
    bool is_of_alerts = false;       // hosts and hours are: only of what was alerted of
};
void AddFigures(const Figures &figures, Report *report);

// The hour of the day in which a moment lies, by local time.
size_t LocalHour(int64_t seconds);

// Hits, alerts held back and lines are from the history; hosts, hours and the list from the alerts that are kept. All of
// it begins with the step of the history in which `since_ms` lies, which the report then has as its begin: a minute, an
// hour or a day, by the length of the time. One state of the store. Throws host::StoreError.
Report Collect(host::Store &store, int64_t since_ms, int64_t until_ms);

// The page.
std::string ToHtml(const Report &report);

// Each plot as a file of its own in this folder, which is there. Throws host::Error when one cannot be written.
void WritePlots(const Report &report, const std::filesystem::path &folder);

} // namespace report

#endif // AGENT_REPORT_REPORT_H

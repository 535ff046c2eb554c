// report: what has happened since a moment, as a page.
#include <cstdio>
#include <ctime>

#include <nlohmann/json.hpp>

#include "agent/cli/command.h"
#include "agent/cli/output.h"
#include "agent/cli/since.h"
#include "agent/report/report.h"
#include "agent/text/whole_file.h"

namespace cli {

namespace {

constexpr int64_t kMsOfSecond = 1000;

struct ReportOptions {
    std::string since = "7d";
    std::string output;
    std::string svg_folder;
};

nlohmann::json ToJson(const std::vector<report::Bar> &bars)
{
    nlohmann::json list = nlohmann::json::array();
    for (const report::Bar &bar : bars)
        list.push_back({{"name", bar.name}, {"hits", bar.value}});
    return list;
}

// The numbers of the page; its alerts are those of the command `alerts`.
nlohmann::json ToJson(const report::Report &report)
{
    return {{"since_ms", report.since_ms},
            {"until_ms", report.until_ms},
            {"hits", report.hits},
            {"alerts", report.alerts},
            {"held_back", report.held_back},
            {"lines", report.lines},
            {"events", ToJson(report.events)},
            {"hosts", ToJson(report.hosts)},
            {"hours", report.hours}};
}

int MakeReport(Context &context, const ReportOptions &options)
{
    const time_t now = time(nullptr);
    const int64_t since_ms = ParseSince(options.since, now);
    context.OpenToRead();
    const auto report =
        report::Collect(context.Host().store(), since_ms, int64_t{now} * kMsOfSecond);
    if (!options.svg_folder.empty())
        WritePlots(report, options.svg_folder);
    const std::string page = context.json ? JsonText(ToJson(report)) : report::ToHtml(report);
    if (!options.output.empty())
        text::WriteWhole(options.output, page);
    else if (options.svg_folder.empty())
        fputs(page.c_str(), stdout);
    return kExitDone;
}

void SetUpReport(Parser &parser, Context &context)
{
    auto options = std::make_shared<ReportOptions>();
    parser
        .Add("--since", options->since,
             "From when on: 90m, 7d, 10:00, yesterday, or a date with or without a time; it begins "
             "with the minute, hour or day "
             "in which that lies")
        .TypeName("TIME")
        .ShowDefault();
    parser
        .Add("-o,--output", options->output,
             "Write the page into this file, not on standard output")
        .TypeName("FILE");
    parser
        .Add("--svg", options->svg_folder,
             "Write the plots into this folder, each as an SVG file of its own")
        .TypeName("DIR");
    parser.Runs([&, options] { return MakeReport(context, *options); });
}

} // namespace

const std::vector<Command> kReportCommands = {
    {"report", "Make a page of what has happened: hits over time, events, hosts, hours, alerts",
     SetUpReport},
};

} // namespace cli

// The text format of the metrics.
#include "agent/metrics/metrics_text.h"

#include <gtest/gtest.h>

namespace {

using history::Kind;
using metrics::MetricsText;
using metrics::Overview;

// The samples of a name, a line each.
std::string SamplesOf(const Overview &view, const std::string &name)
{
    std::string found;
    std::istringstream lines(MetricsText(view, "1"));
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(name))
            found += line.substr(name.size()) + "\n";
    }
    return found;
}

TEST(MetricsText, TextsOfStrangersCannotEndTheirLabel)
{
    Overview view;
    view.logs.push_back({"system log", "/var/log/a\"b\\c\nd\xff", 7, std::nullopt});
    EXPECT_EQ("{log=\"/var/log/a\\\"b\\\\c\\\\x0ad\\\\xff\"} 7\n",
              SamplesOf(view, "syslogmon_unread_bytes"));
    EXPECT_EQ("", SamplesOf(view, "syslogmon_behind_seconds"));
}

TEST(MetricsText, AByteAndTheTextThatStandsForItAreTwoLabels)
{
    Overview view;
    for (const char *path : {"/a\x01", "/a\\x01", "/a\\x1", "/a\\x5cx01"})
        view.logs.push_back({"system log", path, 7, std::nullopt});
    EXPECT_EQ("{log=\"/a\\\\x01\"} 7\n{log=\"/a\\\\x5cx01\"} 7\n{log=\"/a\\\\x1\"} 7\n"
              "{log=\"/a\\\\x5cx5cx01\"} 7\n",
              SamplesOf(view, "syslogmon_unread_bytes"));
}

TEST(MetricsText, AHistogramCountsWhatTookNoLongerThanEachBound)
{
    Overview view;
    view.totals[{Kind::kPasses, "passes", 0}] = 3;
    view.totals[{Kind::kPasses, "passes", 2}] = 2;
    view.totals[{Kind::kPasses, "passes", 9}] = 1;
    view.totals[{Kind::kPassTime, "passes", 0}] = 61'020'300;
    EXPECT_EQ("_bucket{le=\"0.001\"} 3\n"
              "_bucket{le=\"0.005\"} 3\n"
              "_bucket{le=\"0.01\"} 5\n"
              "_bucket{le=\"0.05\"} 5\n"
              "_bucket{le=\"0.1\"} 5\n"
              "_bucket{le=\"0.5\"} 5\n"
              "_bucket{le=\"1\"} 5\n"
              "_bucket{le=\"10\"} 5\n"
              "_bucket{le=\"60\"} 5\n"
              "_bucket{le=\"+Inf\"} 6\n"
              "_sum 61.0203\n"
              "_count 6\n",
              SamplesOf(view, "syslogmon_pass_seconds"));
}

TEST(MetricsText, AnEventThatIsNoLongerRegisteredKeepsItsCounter)
{
    Overview view;
    events::EventRecord event;
    event.key = {"NEW", 0x1A};
    view.events.push_back(event);
    view.totals[{Kind::kHits, "OLD", 2}] = 5;
    EXPECT_EQ("{source=\"NEW\",event_id=\"1A\"} 0\n{source=\"OLD\",event_id=\"2\"} 5\n",
              SamplesOf(view, "syslogmon_hits_total"));
}

TEST(MetricsText, WhatTheMonitorTellsAboutItselfIsAddedUpByKindAndLossesByLog)
{
    Overview view;
    using alerts::OwnEvent;
    view.own_totals = {
        {OwnEvent::kLoss, "/var/log/messages", 2, 40},
        {OwnEvent::kLoss, "journal", 1, 0},
        {OwnEvent::kClock, "", 5, 0},
    };
    view.logs.push_back({"customer file", "/var/log/vmkernel", 0, 0, true});
    view.logs.push_back({"file monitor", "/var/log/other", 0, 0, false});
    EXPECT_EQ("{source=\"SYSLOGMON\",event_id=\"1\"} 3\n{source=\"SYSLOGMON\",event_id=\"9\"} 5\n",
              SamplesOf(view, "syslogmon_alerts_total"));
    EXPECT_EQ("{log=\"/var/log/messages\"} 2\n{log=\"/var/log/vmkernel\"} 0\n{log=\"journal\"} 1\n",
              SamplesOf(view, "syslogmon_losses_total"));
    EXPECT_EQ(
        "{log=\"/var/log/messages\"} 40\n{log=\"/var/log/vmkernel\"} 0\n{log=\"journal\"} 0\n",
        SamplesOf(view, "syslogmon_lines_passed_over_total"));
}

TEST(MetricsText, WhatIsNotKnownHasNoSample)
{
    Overview view;
    EXPECT_EQ("", SamplesOf(view, "syslogmon_last_pass_timestamp_seconds"));
    EXPECT_EQ("", SamplesOf(view, "syslogmon_monitor_restarts"));
    view.last_look_ms = 1'700'000'000'250;
    view.status.emplace().restarts = 2;
    EXPECT_EQ(" 1700000000.25\n", SamplesOf(view, "syslogmon_last_pass_timestamp_seconds"));
    EXPECT_EQ(" 2\n", SamplesOf(view, "syslogmon_monitor_restarts"));
}

TEST(MetricsText, ASinkAndAnInputHaveTheirNumbers)
{
    Overview view;
    view.now_ms = 100'000;
    view.store_bytes = 4096;
    view.sinks.push_back({"mail", "mail", 5, 1, 2, 3, ""});
    status::InputStatus input;
    input.name = "app";
    input.behind_bytes = 77;
    input.behind_since_ms = 88'700;
    view.status.emplace().inputs = {input};
    view.totals = {{{Kind::kInputLines, "app", 0}, 6},
                   {{Kind::kInputBytes, "app", 0}, 600},
                   {{Kind::kBytes, "/var/log/messages", 0}, 321},
                   {{Kind::kHeldBack, "DISK", 0x1A}, 8}};
    for (const auto &[name, samples] : {
             std::pair("build_info", "{version=\"1\"} 1\n"),
             {"store_bytes", " 4096\n"},
             {"sink_deliveries_total", "{sink=\"mail\",result=\"delivered\"} 5\n"
                                       "{sink=\"mail\",result=\"dropped\"} 1\n"},
             {"sink_waiting", "{sink=\"mail\"} 2\n"},
             {"sink_undelivered", "{sink=\"mail\"} 3\n"},
             {"input_entries_total", "{input=\"app\"} 6\n"},
             {"input_bytes_total", "{input=\"app\"} 600\n"},
             {"input_unread_bytes", "{input=\"app\"} 77\n"},
             {"input_behind_seconds", "{input=\"app\"} 12\n"},
             {"bytes_read_total", "{log=\"/var/log/messages\"} 321\n"},
             {"held_back_total", "{source=\"DISK\",event_id=\"1A\"} 8\n"},
         })
        EXPECT_EQ(samples, SamplesOf(view, std::string("syslogmon_") + name)) << name;
}

TEST(MetricsText, ADaemonThatRunsAndDoesNotItsWorkIsNotUp)
{
    Overview view;
    EXPECT_EQ(" 0\n", SamplesOf(view, "syslogmon_up"));
    view.is_running = true;
    EXPECT_EQ(" 1\n", SamplesOf(view, "syslogmon_up"));
    view.stands = "its process is stopped";
    EXPECT_EQ(" 0\n", SamplesOf(view, "syslogmon_up"));
}

} // namespace

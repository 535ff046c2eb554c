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
    EXPECT_EQ("{log=\"/var/log/a\\\"b\\\\c?d?\"} 7\n", SamplesOf(view, "syslogmon_unread_bytes"));
    EXPECT_EQ("", SamplesOf(view, "syslogmon_behind_seconds"));
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

// The report: its plots, and what it collects.
#include "agent/report/report.h"
#include "agent/report/trial_report.h"

#include <numeric>

#include "agent/alerts/alert_store.h"
#include "agent/history/history_writer.h"
#include "agent/text/times.h"
#include "tests/agent/support/host_test.h"

namespace {

using history::Kind;

size_t CountOf(const std::string &text, const std::string &part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

TEST(Plots, TextsOfStrangersAreNoMarkup)
{
    EXPECT_EQ("&lt;b&gt; &amp; &quot;&#39; ??", report::Escaped("<b> & \"' \x01\xff"));
    const std::string bad = "</title><script>x</script>";
    for (const std::string &plot :
         {report::BarPlot(bad, {{bad, 3}}), report::ColumnPlot(bad, {{bad, 3}}),
          report::CoursePlot(bad, 0, 60, {{bad, {1, 2}}})})
        EXPECT_EQ(0U, CountOf(plot, "<script"));
}

TEST(Plots, ACourseHasAColumnForEachValueThatIsNotZero)
{
    const std::string plot =
        report::CoursePlot("Hits", 0, 3600, {{"A", {1, 0, 2}}, {"B", {0, 0, 5}}});
    // The ground, two squares of the legend, three columns.
    EXPECT_EQ(6U, CountOf(plot, "<rect"));
    EXPECT_EQ(1U, CountOf(plot, "B 5</title>"));
    EXPECT_TRUE(plot.ends_with("</svg>\n"));
}

TEST(Plots, NothingIsAPlotToo)
{
    for (const std::string &plot : {report::CoursePlot("Hits", 0, 60, {}),
                                    report::BarPlot("Hits", {}), report::ColumnPlot("Hits", {})})
        EXPECT_EQ(1U, CountOf(plot, "</svg>"));
}

TEST(Plots, TheLongestBarFillsItsPlace)
{
    const std::string plot = report::BarPlot("Hits", {{"A", 1'000'000}, {"B", 500'000}});
    EXPECT_EQ(1U, CountOf(plot, "width=\"450.0\""));
    EXPECT_EQ(1U, CountOf(plot, "width=\"225.0\""));
}

class ReportPage : public test::HostTest {
  protected:
    static constexpr int64_t kNow = 20'000 * history::kDay + 7 * history::kHour;

    static void Count(Kind kind, const std::string &name, uint32_t id, int64_t value, int64_t when)
    {
        history::News news;
        news.Add({kind, name, id}, value);
        history::HistoryWriter(test::Store()).Save(news, when);
    }
    static void AddAlert(const std::string &host, int64_t count, const std::string &line,
                         int64_t when = kNow)
    {
        alerts::Alert alert;
        alert.time_ms = when * 1000;
        alert.host = "here";
        alert.line_host = host;
        alert.source = "DISK";
        alert.event_id = 0x1A;
        alert.count = count;
        alert.message = line;
        alerts::AddAlert(test::Store(), alert);
    }
    static report::Report Collected()
    {
        return report::Collect(test::Store(), (kNow - history::kDay) * 1000, kNow * 1000);
    }
};

TEST_F(ReportPage, SumsAreOfTheTimeThatIsAskedFor)
{
    Count(Kind::kHits, "DISK", 0x1A, 100, kNow - 3 * history::kDay);
    Count(Kind::kHits, "DISK", 0x1A, 5, kNow - 2 * history::kHour);
    Count(Kind::kAlerts, "DISK", 0x1A, 2, kNow - 2 * history::kHour);
    Count(Kind::kHeldBack, "DISK", 0x1A, 1, kNow - 2 * history::kHour);
    Count(Kind::kLines, "/var/log/messages", 0, 70, kNow);
    const report::Report found = Collected();
    EXPECT_EQ(5, found.hits);
    EXPECT_EQ(2, found.alerts);
    EXPECT_EQ(1, found.held_back);
    EXPECT_EQ(70, found.lines);
}

TEST_F(ReportPage, BeginsWithTheStepInWhichItsTimeLiesAndSaysSo)
{
    constexpr int64_t kAsked = kNow - 2 * history::kDay + 1800; // half an hour into an hour
    Count(Kind::kHits, "DISK", 0x1A, 100, kAsked - 1801);
    Count(Kind::kHits, "DISK", 0x1A, 20, kAsked - 1800);
    Count(Kind::kHits, "DISK", 0x1A, 3, kNow);
    AddAlert("web1", 7, "before it", kAsked - 1801);
    AddAlert("web1", 5, "in it", kAsked - 1800);
    const report::Report found = report::Collect(test::Store(), kAsked * 1000, kNow * 1000);
    EXPECT_EQ((kAsked - 1800) * 1000, found.since_ms);
    EXPECT_EQ(23, found.hits);
    ASSERT_EQ(1U, found.hosts.size());
    EXPECT_EQ(5, found.hosts[0].value);
    EXPECT_EQ(5, std::accumulate(found.hours.begin(), found.hours.end(), int64_t{0}));
    ASSERT_EQ(1U, found.newest.size());
    EXPECT_NE(std::string::npos,
              report::ToHtml(found).find("<p>" + text::LocalTime(found.since_ms) + " to "));
}

TEST_F(ReportPage, HasThePlotsAndTheNewestAlertsAndNeedsNothingElse)
{
    Count(Kind::kHits, "DISK", 0x1A, 5, kNow);
    AddAlert("web1", 3, "the first");
    AddAlert("web2", 2, "<img src=x onerror=alert(1)>");
    const report::Report found = Collected();
    ASSERT_EQ(4U, found.plots.size());
    const std::string page = report::ToHtml(found);
    EXPECT_EQ(4U, CountOf(page, "<svg"));
    EXPECT_EQ(0U, CountOf(page, "<img"));
    EXPECT_EQ(0U, CountOf(page, "<script"));
    EXPECT_EQ(1U, CountOf(page, "&lt;img src=x onerror=alert(1)&gt;"));
    EXPECT_LT(page.find("&lt;img"), page.find("the first")); // newest first
    // No address but the name of the format.
    EXPECT_EQ(CountOf(page, "http"), CountOf(page, "http://www.w3.org/2000/svg"));
}

TEST_F(ReportPage, HostsAreThoseThatWroteTheLinesTheMostFirst)
{
    AddAlert("web1", 3, "a");
    AddAlert("web2", 7, "b");
    AddAlert("", 1, "c");
    const std::string hosts = Collected().plots.at(2).second;
    EXPECT_LT(hosts.find(">web2<"), hosts.find(">web1<"));
    EXPECT_LT(hosts.find(">web1<"), hosts.find(">here<"));
}

// ---- of a trial ----

report::TrialHit Hit(int64_t time_s, int64_t hits = 1, bool is_reported = true)
{
    return {"DISK", 0x1A, time_s, "web1", "line of " + std::to_string(time_s), hits, is_reported};
}

TEST(TrialReport, HasTheHitsTheReportsAndTheTimeOfTheLines)
{
    report::TrialReport trial;
    trial.Add(Hit(1'000'000, 3));
    trial.Add(Hit(999'940, 2, false));
    report::TrialHit held = Hit(1'000'100, 1, false);
    held.is_held_back = true;
    trial.Add(held);
    const report::Report made = trial.Make("Trial of <messages>", 12);
    EXPECT_EQ(6, made.hits);
    EXPECT_EQ(1, made.alerts);
    EXPECT_EQ(1, made.held_back);
    EXPECT_EQ(12, made.lines);
    EXPECT_EQ(999'940'000, made.since_ms);
    EXPECT_EQ(1'000'100'000, made.until_ms);
    const std::string page = report::ToHtml(made);
    EXPECT_EQ(4U, CountOf(page, "<svg"));
    EXPECT_EQ(2U, CountOf(page, "Trial of &lt;messages&gt;"));
    EXPECT_EQ(1U, CountOf(page, "line of 1000000"));
    EXPECT_EQ(0U, CountOf(page, "line of 999940")); // no report
}

TEST(TrialReport, HasTheLastReportsNewestFirst)
{
    report::TrialReport trial;
    for (int64_t i = 0; i < report::kNewest + 10; ++i)
        trial.Add(Hit(1'000'000 + i));
    const auto newest = trial.Make("Trial", 0).newest;
    ASSERT_EQ(static_cast<size_t>(report::kNewest), newest.size());
    EXPECT_EQ("line of " + std::to_string(1'000'000 + report::kNewest + 9), newest.front().text);
    EXPECT_EQ("line of 1000010", newest.back().text);
}

// A column has a title with its value, so those of all hits must come to their number.
TEST(TrialReport, OfManyYearsHasFewColumnsAndAllHits)
{
    report::TrialReport trial;
    for (int64_t day = 0; day < 3'000; ++day)
        trial.Add(Hit(day * history::kDay, 1));
    const std::string plot = trial.Make("Trial", 0).plots.at(0).second;
    const size_t columns = CountOf(plot, "<rect") - 2; // the ground, a square of the legend
    EXPECT_EQ(375U, columns);                          // of eight days each
    EXPECT_EQ(375U, CountOf(plot, " 8</title>"));
}

TEST(TrialReport, OfNoHitIsAPageToo)
{
    const std::string page = report::ToHtml(report::TrialReport().Make("Trial", 5));
    EXPECT_EQ(4U, CountOf(page, "</svg>"));
}

} // namespace

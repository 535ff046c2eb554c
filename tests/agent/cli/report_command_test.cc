// syslogmon report: its options, and the page as a file.
#include <algorithm>
#include <ctime>
#include <filesystem>
#include <regex>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "agent/alerts/alert_store.h"
#include "agent/history/history_writer.h"
#include "agent/text/times.h"
#include "tests/agent/support/command_test.h"

namespace {

namespace fs = std::filesystem;

using history::Kind;
using test::Finished;

constexpr int64_t kHour = 3600;
constexpr int64_t kDay = 24 * kHour;

class ReportCommand : public test::CommandTest {
  protected:
    // An alert of so many hits, so long ago, and that in the history.
    void Add(int64_t seconds_ago, int64_t hits, const std::string &line) const
    {
        const int64_t moment = time(nullptr) - seconds_ago;
        alerts::Alert alert;
        alert.time_ms = moment * 1000;
        alert.host = "here";
        alert.line_host = "web7";
        alert.source = "DISK";
        alert.event_id = 0x1A;
        alert.count = hits;
        alert.message = line;
        history::News news;
        news.Add({Kind::kHits, "DISK", 0x1A}, hits);
        news.Add({Kind::kAlerts, "DISK", 0x1A}, 1);
        news.Add({Kind::kLines, "/var/log/messages", 0}, 10 * hits);
        StartHere();
        alerts::AddAlert(test::Store(), alert);
        history::HistoryWriter(test::Store()).Save(news, moment);
        test::StopHost();
    }

    // The page that these words print.
    [[nodiscard]] std::string Page(test::Words words) const
    {
        words.insert(words.begin(), "report");
        const Finished finished = Syslogmon(words);
        EXPECT_EQ(0, finished.status) << finished.err;
        EXPECT_EQ("", finished.err);
        return finished.out;
    }

    // The number that the page has of something: "Hits".
    static std::string Fact(const std::string &page, const std::string &name)
    {
        std::smatch found;
        std::regex_search(page, found, std::regex("<dt>" + name + "</dt><dd>(\\d+)</dd>"));
        return found[1];
    }

    [[nodiscard]] std::vector<std::string> FilesIn(const std::string &folder) const
    {
        std::vector<std::string> names;
        for (const auto &entry : fs::directory_iterator(File(folder)))
            names.push_back(entry.path().filename());
        std::ranges::sort(names);
        return names;
    }
};

TEST_F(ReportCommand, PrintsAPageWithThePlotsAndTheNewestAlerts)
{
    Add(2 * kHour, 3, "disk <sda> failed");
    Add(kHour, 4, "disk sdb failed");
    const std::string page = Page({});
    EXPECT_TRUE(page.starts_with("<!DOCTYPE html>\n"));
    EXPECT_TRUE(page.ends_with("</html>\n"));
    EXPECT_EQ("7", Fact(page, "Hits"));
    EXPECT_EQ("2", Fact(page, "Reports alerted of"));
    EXPECT_EQ("0", Fact(page, "Reports held back"));
    EXPECT_EQ("70", Fact(page, "Lines read"));
    for (const char *title : {"Hits over time", "Events with most hits", "Hosts with most hits",
                              "by hour of the day", ">DISK 1A<", ">web7<"})
        EXPECT_NE(std::string::npos, page.find(title)) << title;
    EXPECT_NE(std::string::npos, page.find("<td>disk &lt;sda&gt; failed</td>"));
    EXPECT_LT(page.find("disk sdb failed"), page.find("disk &lt;sda&gt; failed")) << "newest first";
}

TEST_F(ReportCommand, OfAnEmptyStoreIsAPageOfNothing)
{
    const std::string page = Page({});
    for (const char *fact : {"Hits", "Reports alerted of", "Reports held back", "Lines read"})
        EXPECT_EQ("0", Fact(page, fact)) << fact;
    EXPECT_NE(std::string::npos, page.find("<tbody>\n</tbody>"));
}

TEST_F(ReportCommand, IsOfAWeekUnlessAnotherTimeIsNamed)
{
    Add(8 * kDay, 100, "of the last week");
    Add(6 * kDay, 20, "of this week");
    Add(2 * kHour, 3, "of today");
    EXPECT_EQ("23", Fact(Page({}), "Hits"));
    EXPECT_EQ("23", Fact(Page({"--since", "7d"}), "Hits"));
    EXPECT_EQ("3", Fact(Page({"--since", "3h"}), "Hits"));
    EXPECT_EQ("3", Fact(Page({"--since=180m"}), "Hits"));
    EXPECT_EQ("123", Fact(Page({"--since", "30d"}), "Hits"));
    const std::string date =
        text::LocalTime((time(nullptr) - 7 * kDay) * 1000); // "2026-11-21 10:00:01"
    const std::string page = Page({"--since", date});
    EXPECT_EQ("23", Fact(page, "Hits"));
    // From the begin of that hour on.
    EXPECT_NE(std::string::npos, page.find("<p>" + date.substr(0, 13) + ":00:00 to "));
    EXPECT_EQ(std::string::npos, page.find("of the last week"));
}

TEST_F(ReportCommand, WithJsonItIsTheNumbersOfThePage)
{
    Add(8 * kDay, 100, "of the last week");
    Add(2 * kHour, 3, "disk <sda> failed");
    const auto report = Json({"report"});
    EXPECT_EQ(3, report["hits"]);
    EXPECT_EQ(1, report["alerts"]);
    EXPECT_EQ(30, report["lines"]);
    EXPECT_EQ(R"([{"hits":3,"name":"DISK 1A"}])", report["events"].dump());
    EXPECT_EQ(R"([{"hits":3,"name":"web7"}])", report["hosts"].dump());
    EXPECT_EQ(24U, report["hours"].size());
    ExpectDone({"--json", "report", "-o", File("report.json")});
    EXPECT_EQ(report["events"],
              nlohmann::json::parse(test::ReadFile(File("report.json")))["events"]);
}

TEST_F(ReportCommand, WhatIsNoJsonIsRefused)
{
    ExpectFailed({"--json", "metrics"},
                 "cannot print the metrics as JSON: they are in the text format of Prometheus; "
                 "leave --json out; the page of syslogmon set web has the counters as JSON");
    ExpectFailed({"--json", "top"}, "cannot show the full screen as JSON: it is for people; use "
                                    "syslogmon --json status");
}

TEST_F(ReportCommand, ATimeThatIsNoneIsRefused)
{
    ExpectFailed(
        {"report", "--since", "soon"},
        "cannot use the time \"soon\": its form is not known; write 10m, 1h30m, 1d, 10:00, "
        "yesterday or \"2026-11-21 10:00\"");
    ExpectUsage({"report", "page.html"}, "page.html");
}

TEST_F(ReportCommand, WritesThePageIntoAFileThatEverybodyMayRead)
{
    Add(kHour, 4, "disk failed");
    fs::create_directory(File("out"));
    test::WriteFile(File("out") / "page.html", "of yesterday");
    for (const char *option : {"-o", "--output"}) {
        ExpectDone({"report", option, File("out") / "page.html"});
        const std::string page = test::ReadFile(File("out") / "page.html");
        EXPECT_EQ("4", Fact(page, "Hits"));
        EXPECT_TRUE(page.ends_with("</html>\n"));
    }
    struct stat status {};
    ASSERT_EQ(0, stat((File("out") / "page.html").c_str(), &status));
    EXPECT_EQ(0644U, status.st_mode & 0777U);
    EXPECT_EQ((std::vector<std::string>{"page.html"}), FilesIn("out")) << "nothing else stays";
}

TEST_F(ReportCommand, AFileThatCannotBeWrittenIsAnErrorThatNamesIt)
{
    const std::string file = File("missing") / "page.html";
    ExpectFailed({"report", "-o", file}, "cannot write " + file +
                                             ": No such file or directory; make its folder "
                                             "writable, make room, or name another file");
    fs::create_directory(File("folder"));
    const Finished finished = Syslogmon({"report", "-o", File("folder")});
    EXPECT_EQ(1, finished.status);
    EXPECT_NE(std::string::npos, finished.err.find("Is a directory")) << finished.err;
    EXPECT_TRUE(fs::is_empty(File("folder")));
}

TEST_F(ReportCommand, AStandardOutputThatIsFullIsAnError)
{
    test::Words words = {"/bin/sh", "-c", "exec \"$@\" > /dev/full", "sh"};
    const test::Words command = test::Command(Root(), {"report"});
    words.insert(words.end(), command.begin(), command.end());
    const Finished finished = test::RunToEnd(words);
    EXPECT_EQ(1, finished.status);
    EXPECT_NE(std::string::npos, finished.err.find("standard output")) << finished.err;
}

TEST_F(ReportCommand, WritesThePlotsAsFilesOfTheirOwn)
{
    Add(kHour, 4, "disk failed");
    fs::create_directory(File("plots"));
    ExpectDone({"report", "--svg", File("plots")});
    EXPECT_EQ((std::vector<std::string>{"events.svg", "hits.svg", "hosts.svg", "hours.svg"}),
              FilesIn("plots"));
    // Those of the page, each.
    ExpectDone({"report", "--svg", File("plots"), "-o", File("page.html")});
    const std::string page = test::ReadFile(File("page.html"));
    for (const std::string &name : FilesIn("plots")) {
        const std::string plot = test::ReadFile(File("plots") / name);
        EXPECT_TRUE(plot.starts_with("<svg xmlns=")) << name;
        EXPECT_NE(std::string::npos, page.find(plot)) << name;
    }
}

TEST_F(ReportCommand, AFolderForPlotsThatIsMissingIsAnError)
{
    const std::string file = File("missing") / "hits.svg";
    ExpectFailed({"report", "--svg", File("missing")},
                 "cannot write " + file +
                     ": No such file or directory; make its folder writable, make room, or name "
                     "another file");
}

} // namespace

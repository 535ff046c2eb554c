// What the full screen shows, line by line.
#include "agent/cli/top_view.h"

#include <gtest/gtest.h>

namespace {

using cli::TopChoice;
using cli::TopLine;
using cli::TopOrder;
using cli::TopSight;
using cli::TopStyle;
using history::Kind;

class TopView : public testing::Test {
  protected:
    TopView()
    {
        sight_.host = "web1";
        sight_.clock = "10:00:00";
        sight_.view.is_running = true;
        sight_.view.status.emplace();
        sight_.view.status->state = status::MonitorState::kRunning;
        sight_.view.cycle_s = 300;
        sight_.view.logs.push_back({"system log", "/var/log/messages", 2048, 7});
        sight_.view.sinks.push_back({"mail", "mail", 5, 0, 2, 0, "refused"});
        AddEvent("DISK", 1, 10, 3);
        AddEvent("LOGIN", 0x1A, 20, 1);
        AddEvent("ALPHA", 2, 5, 0);
        sight_.newest = {"the newest", "the one before"};
    }
    // Hits altogether, and in the minute under way.
    void AddEvent(const std::string &source, uint32_t id, int64_t hits, int64_t now)
    {
        events::EventRecord event;
        event.key = {source, id};
        event.keywords[0] = "word of " + source;
        sight_.view.events.push_back(event);
        sight_.view.totals[{Kind::kHits, source, id}] = hits;
        if (sight_.course.points.empty())
            sight_.course.points.push_back({(cli::kTopMinutes - 1) * history::kMinute, {}});
        sight_.course.points[0].values[{Kind::kHits, source, id}] = now;
    }
    std::vector<TopLine> Screen(int rows = 24, int columns = 80, bool is_utf8 = true)
    {
        return cli::TopScreen(sight_, rows, columns, is_utf8, &choice_);
    }
    // Where a line begins with a text; -1: nowhere.
    int RowOf(const std::string &begin, int rows = 24, int columns = 80)
    {
        const auto lines = Screen(rows, columns);
        for (size_t i = 0; i < lines.size(); ++i) {
            if (lines[i].text.starts_with(begin))
                return static_cast<int>(i);
        }
        return -1;
    }

    TopSight sight_;
    TopChoice choice_;
};

TEST_F(TopView, HasALineForEachRowAndNoneIsWider)
{
    for (const auto &[rows, columns] : {std::pair(24, 80), {50, 200}, {10, 40}, {3, 20}, {1, 1}}) {
        const auto lines = Screen(rows, columns, false);
        EXPECT_EQ(static_cast<size_t>(rows), lines.size());
        for (const TopLine &line : lines)
            EXPECT_LE(line.text.size(), static_cast<size_t>(columns)) << line.text;
    }
}

TEST_F(TopView, AMinuteInWhichAnEventIsNotKeptByItselfIsNotShownAsNothing)
{
    const auto has_question = [this](const std::string &begin, bool is_utf8) {
        for (const TopLine &line : Screen(24, 80, is_utf8)) {
            if (line.text.starts_with(begin))
                return line.text.find('?') != std::string::npos;
        }
        ADD_FAILURE() << begin;
        return false;
    };
    auto &points = sight_.course.points;
    points.push_back(
        {(cli::kTopMinutes - 2) * history::kMinute, {{{Kind::kHits, "LOGIN", 0x1A}, 9}}});
    EXPECT_FALSE(has_question("ALPHA ", true));
    points.back().values[{Kind::kHits, history::kOthers, 0}] = 50;
    for (const bool is_utf8 : {true, false}) {
        EXPECT_TRUE(has_question("ALPHA ", is_utf8));
        EXPECT_TRUE(has_question("DISK ", is_utf8));
        EXPECT_FALSE(has_question("LOGIN ", is_utf8));
    }
    EXPECT_LT(0, RowOf("ALPHA           2          0")) << "what is not known adds nothing";
}

TEST_F(TopView, ShowsStateFilesSinksEventsAndAlertsOnTheSmallestTerminal)
{
    EXPECT_EQ(0, RowOf("web1  10:00:00  running"));
    EXPECT_LT(0, RowOf("/var/log/messages  unread 2.0 KiB  behind 7 s"));
    EXPECT_LT(0, RowOf("sink mail  delivered 5  waiting 2  refused"));
    EXPECT_LT(0, RowOf("DISK "));
    EXPECT_LT(0, RowOf("the newest"));
    EXPECT_EQ(23, RowOf("q quit"));
}

TEST_F(TopView, EventsAreInTheOrderThatIsChosen)
{
    EXPECT_LT(RowOf("DISK "), RowOf("LOGIN "));
    choice_.order = TopOrder::kHits;
    EXPECT_LT(RowOf("LOGIN "), RowOf("DISK "));
    choice_.order = TopOrder::kName;
    EXPECT_LT(RowOf("ALPHA "), RowOf("DISK "));
}

TEST_F(TopView, AFilterIsOfSourceIdAndKeywordsInAnyCase)
{
    choice_.filter = "Word Of lo";
    EXPECT_EQ(-1, RowOf("DISK "));
    EXPECT_LT(0, RowOf("LOGIN "));
    choice_.filter = "1a";
    EXPECT_LT(0, RowOf("LOGIN "));
    choice_.filter = "nothing";
    EXPECT_LT(0, RowOf("no event has that"));
}

TEST_F(TopView, TheSelectedEventStaysInSight)
{
    for (uint32_t i = 0; i < 100; ++i)
        AddEvent("MANY", 0x100 + i, 0, 0);
    choice_.selected = 60;
    const auto lines = Screen();
    EXPECT_EQ(1, std::ranges::count(lines, TopStyle::kSelected, &TopLine::style));
    choice_.selected = 1000;
    Screen();
    EXPECT_EQ(102U, choice_.selected);
}

TEST_F(TopView, ManySinksLeaveRoomForEventsAndThoseInTroubleComeFirst)
{
    for (int i = 0; i < 12; ++i)
        sight_.view.sinks.push_back({"chat" + std::to_string(i), "webhook", 0, 0, 0, 0, ""});
    sight_.view.sinks.push_back({"pager", "webhook", 0, 0, 9, 0, "no route"});
    AddEvent("FOUR", 4, 2, 0);
    AddEvent("FIVE", 5, 1, 0);
    AddEvent("SIX", 6, 0, 0);
    for (const char *shown : {"DISK ", "LOGIN ", "ALPHA ", "FOUR ", "FIVE "})
        EXPECT_LT(0, RowOf(shown)) << shown;
    EXPECT_EQ(-1, RowOf("SIX "));
    EXPECT_EQ(RowOf("sink mail") + 1, RowOf("sink pager"));
    EXPECT_LT(RowOf("sink pager"), RowOf("/var/log/messages"));
    EXPECT_EQ(RowOf("SOURCE") - 1, RowOf("and 8 more "));
    EXPECT_LT(0, RowOf("DISK ", 10)) << "also on a small terminal";
    choice_.explains = true;
    EXPECT_LT(0, RowOf("  reports held back"));
    EXPECT_LT(RowOf("  reports held back"), RowOf("NEWEST ALERTS"));
}

TEST_F(TopView, WhatIsLeftOutInTroubleIsCounted)
{
    sight_.view.sinks.clear();
    for (int i = 0; i < 20; ++i)
        sight_.view.sinks.push_back({"chat", "webhook", 0, 0, 0, 0, "no route"});
    const auto lines = Screen();
    const auto left_out = std::ranges::find_if(
        lines, [](const TopLine &line) { return line.text.starts_with("and "); });
    ASSERT_NE(lines.end(), left_out);
    EXPECT_EQ(0U, left_out->text.find("and 12 more, 11 of them in trouble ")) << left_out->text;
    EXPECT_EQ(TopStyle::kBad, left_out->style);
}

TEST_F(TopView, AnInputShowsHowFarItIsBehindAndThatAllWait)
{
    sight_.view.now_ms = 1'000'000;
    status::InputStatus input;
    input.name = "app";
    input.behind_bytes = 2048;
    input.behind_since_ms = 1'000'000 - 9'500;
    sight_.view.status->inputs.push_back(input);
    EXPECT_LT(0, RowOf("input app  unread 2.0 KiB  behind 10 s "));
    EXPECT_EQ(-1, RowOf("the inputs wait"));
    sight_.view.status->inputs_wait = "the spool is full";
    EXPECT_LT(0, RowOf("the inputs wait: the spool is full "));
    sight_.view.status->inputs[0].behind_since_ms -= 400'000;
    EXPECT_EQ(TopStyle::kBad, Screen()[static_cast<size_t>(RowOf("input app"))].style);
}

TEST_F(TopView, ALookThatIsLateIsCalledLate)
{
    status::PassStatus &look = sight_.view.status->last_full_pass;
    look.number = 1;
    const auto looked = [&](int64_t seconds) {
        look.began_boot_ns = status::BootTimeNs() - (seconds * 1'000'000'000);
        return Screen(24, 120)[0];
    };
    EXPECT_EQ(std::string::npos, looked(60).text.find("LATE"));
    EXPECT_EQ(TopStyle::kHead, looked(60).style);
    EXPECT_NE(std::string::npos, looked(3600).text.find("s ago (at least every 300 s)  LATE"));
    EXPECT_EQ(TopStyle::kBad, looked(3600).style);
}

TEST_F(TopView, TheStoreIsShownWithItsSize)
{
    sight_.view.store_bytes = 3 * 1024 * 1024;
    EXPECT_EQ(1, RowOf("store 3.0 MiB  events 3 "));
}

TEST_F(TopView, AnEventIsExplained)
{
    choice_.explains = true;
    EXPECT_LT(0, RowOf("Event DISK 1"));
    EXPECT_LT(0, RowOf("  a line must contain   word of DISK"));
    EXPECT_LT(0, RowOf("  when it is reported   1 hit makes a report"));
}

TEST_F(TopView, AnExplanationHasThePolicyOfTheEvent)
{
    sight_.view.events[0].report_count = 5;
    sight_.view.events[0].policy.within_s = 600;
    sight_.view.events[0].policy.per = "host";
    sight_.view.events[0].policy.cooldown_s = 3600;
    choice_.explains = true;
    const int row = RowOf("  when it is reported   5 hits within 10 minutes make a report,");
    ASSERT_LT(0, row);
    EXPECT_EQ(row + 1, RowOf("                        apart; then silence for 1 hour"));
}

// Words without a blank are broken between characters, whatever their bytes are.
TEST_F(TopView, ALongWordIsBrokenBetweenCharacters)
{
    setlocale(LC_CTYPE, "C.UTF-8");
    choice_.explains = true;
    std::string word;
    for (int i = 0; i < 100; ++i)
        word += "\u00e4";
    sight_.reason = {{"DISK", 1}, "2026-11-23 10:00:00", word, "the line"};
    std::string shown;
    for (const TopLine &line : Screen()) {
        EXPECT_EQ(std::string::npos, line.text.find('?')) << line.text;
        shown += line.text;
    }
    size_t count = 0;
    for (size_t at = shown.find("\u00e4"); at != std::string::npos;
         at = shown.find("\u00e4", at + 1))
        ++count;
    EXPECT_EQ(100U, count);
}

TEST_F(TopView, ANarrowScreenShowsTheNewestMinutes)
{
    const auto lines = Screen(24, 60, false);
    const int row = RowOf("DISK ", 24, 60);
    ASSERT_LT(0, row);
    EXPECT_TRUE(lines[static_cast<size_t>(row)].text.ends_with(" @"))
        << lines[static_cast<size_t>(row)].text;
}

TEST_F(TopView, WhatKeepsFilesFromBeingWatchedIsShown)
{
    sight_.view.status->watch_problem = "no more watches";
    EXPECT_EQ(2, RowOf("watching: no more watches"));
}

TEST_F(TopView, AnExplanationSaysWhyTheNewestAlertCame)
{
    Screen();
    EXPECT_FALSE(choice_.explained);
    choice_.explains = true;
    Screen();
    ASSERT_TRUE(choice_.explained);
    EXPECT_EQ((events::EventKey{"DISK", 1}), *choice_.explained);
    sight_.reason = {{"LOGIN", 0x1A}, "2026-11-23 10:00:00", "3 hits", "a line"};
    EXPECT_EQ(-1, RowOf("  newest alert")) << "it is another event's";
    sight_.reason = {{"DISK", 1},
                     "2026-11-23 10:00:00",
                     "5 hits of web1: 5 hits within 10 minutes make a report, for each host apart; "
                     "3 reports of 15 hits were held back before it",
                     "Nov 23 09:59:58 web1 kernel: the line of the alert"};
    EXPECT_LT(0, RowOf("  newest alert          2026-11-23 10:00:00 "));
    const int why =
        RowOf("  why it came           5 hits of web1: 5 hits within 10 minutes make a report,");
    EXPECT_EQ(why + 1, RowOf("                        for each host apart; 3 reports of 15 hits"));
    EXPECT_LT(why, RowOf("                        before it "));
    EXPECT_LT(RowOf("                        before it "), RowOf("NEWEST ALERTS"));
    sight_.reason = {{"DISK", 1}, "", "", ""};
    EXPECT_LT(0, RowOf("  newest alert          none "));
}

TEST_F(TopView, AStoppedDaemonIsCalledStopped)
{
    sight_.view.is_running = false;
    sight_.view.status.reset();
    const auto lines = Screen();
    EXPECT_NE(std::string::npos, lines[0].text.find("STOPPED"));
    EXPECT_EQ(TopStyle::kBad, lines[0].style);
    sight_.view.now_ms = 1'000'000;
    sight_.view.last_look_ms = 910'000;
    EXPECT_EQ(0, RowOf("web1  10:00:00  STOPPED: syslogmond is not running; looked 90 s ago"));
}

TEST_F(TopView, ASparkLineShowsEachHitAlsoWithoutUtf8)
{
    AddEvent("SPARK", 9, 1001, 1000);
    sight_.course.points.insert(sight_.course.points.begin(),
                                {0, {{{Kind::kHits, "SPARK", 9}, 1}}});
    const auto lines = Screen(24, 80, false);
    const auto row = std::ranges::find_if(
        lines, [](const TopLine &line) { return line.text.starts_with("SPARK"); });
    ASSERT_NE(lines.end(), row);
    EXPECT_NE(std::string::npos, row->text.find("  ." + std::string(28, ' ') + "@")) << row->text;
}

TEST_F(TopView, TextsOfStrangersCannotChangeTheScreen)
{
    sight_.newest = {"a\x1b[2Jb\tc"};
    EXPECT_LT(0, RowOf("a?[2Jb c"));
}

} // namespace

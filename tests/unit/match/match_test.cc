// Which lines match which entries of the table.
#include <climits>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "match/match.h"
#include "match/report.h"
#include "match/table_data.h"
#include "tests/support/module_test.h"
#include "tests/unit/match/match_fixture.h"
#include "tests/unit/vkevmon/pass_fixture.h"

namespace {

using test::EventSpec;
using test::Host;
using test::kAllHours;
using test::Match;
using test::Strings;
using test::Sys;

constexpr char kNotDated[] = "<GetSyslogTime() return FALSE.return 0.";
constexpr char kOwnLine[] = "<TARSKvkvmain is found in line, ignore.return 0.";
constexpr char kMatch[] = "found a match!";

// ---- what is looked at before the table ----

TEST_F(Match, OfANullLineIsAnError)
{
    VKVMon *entry = Watch("");
    EXPECT_EQ(-1, CheckLine(nullptr, 1));
    EXPECT_EQ(Strings{"1 <line==NULL.return -1."}, OwnRecords());
    EXPECT_EQ(0, entry->CurrentCount);
}

TEST_F(Match, TracesTheLineAndHowOftenItOccurred)
{
    Watch("other");
    const std::string line = Line("some text");
    EXPECT_EQ(0, Check(line, 7));
    EXPECT_EQ((Strings{"0 line \"" + line + "\" is checked, it happend 7 times\n", "0 <return 0."}),
              OwnRecords());
}

TEST_F(Match, OfALineWithoutAStampIsRefused)
{
    VKVMon *entry = Watch("");
    EXPECT_EQ(0, Check("no stamp here"));
    EXPECT_EQ((Strings{"0 line \"no stamp here\" is checked, it happend 1 times\n",
                       std::string("1 ") + kNotDated}),
              OwnRecords());
    EXPECT_EQ(1, Host().Traced(1, "<get time form buf failed.return FALSE."));
    EXPECT_EQ(0, entry->CurrentCount);
    EXPECT_EQ(0, HourTests());
}

TEST_F(Match, OfALineOfAnotherMonthIsRefused)
{
    Watch("");
    EXPECT_EQ(0, Check("Jan 10 12:00:00 host x"));
    EXPECT_EQ(1, Host().Traced(1, "<syslog time err.return FALSE."));
    EXPECT_EQ(1, Host().Traced(1, kNotDated));
    EXPECT_TRUE(Host().reports.empty());
}

TEST_F(Match, SkipsTheAgentsOwnLinesWhereverTheirNameStands)
{
    VKVMon *entry = Watch("");
    for (const char *text : {"TARSKvkvmain: x", "x TARSKvkvmain", "xTARSKvkvmainx"}) {
        Host().ForgetRecords();
        EXPECT_EQ(0, Check(Line(text)));
        EXPECT_EQ(std::string("0 ") + kOwnLine, OwnRecords().at(1));
        EXPECT_EQ(2U, OwnRecords().size());
    }
    EXPECT_EQ(0, entry->CurrentCount);
    EXPECT_TRUE(Host().reports.empty());
}

TEST_F(Match, TakesALineThatOnlyResemblesTheAgentsOwn)
{
    Watch("");
    for (const char *text : {"tarskvkvmain", "TARSKVKVMAIN", "TARSKvkvmai", "TARSK vkvmain"})
        EXPECT_TRUE(Reports(text)) << text;
}

TEST_F(Match, LooksAtTheStampBeforeTheAgentsName)
{
    EXPECT_EQ(0, Check("TARSKvkvmain without a stamp"));
    EXPECT_EQ(1, Host().Traced(kNotDated));
    EXPECT_EQ(0, Host().Traced(kOwnLine));
}

// A clock of -1 stands one second before 1970, in December in this zone.
class MatchWithoutAClock : public Match {
  protected:
    MatchWithoutAClock()
    {
        test::ZoneGuard::Use("UTC0");
        Sys().now = -1;
    }

  private:
    test::ZoneGuard zone_;
};

TEST_F(MatchWithoutAClock, IsASystemFailure)
{
    VKVMon *entry = Watch("");
    EXPECT_EQ(-1, Check("Dec 31 22:00:00 host x"));
    EXPECT_EQ("2 <time() return -1", OwnRecords().back());
    EXPECT_EQ(0, entry->CurrentCount);
}

TEST_F(MatchWithoutAClock, FailsAlsoForAnEmptyTable)
{
    EXPECT_EQ(-1, Check("Dec 31 22:00:00 host x"));
    EXPECT_EQ("2 <time() return -1", OwnRecords().back());
}

TEST_F(MatchWithoutAClock, StillRefusesLinesWithoutAStampAndSkipsTheAgentsOwn)
{
    EXPECT_EQ(0, Check("no stamp"));
    EXPECT_EQ(0, Check("Dec 31 22:00:00 host TARSKvkvmain"));
}

TEST_F(Match, OfAnEmptyTableIsNothing)
{
    EXPECT_EQ(0, Check(Line("x")));
    nCnt = -1;
    EXPECT_EQ(0, Check(Line("x")));
    nCnt = 0;
    EXPECT_EQ(0, HourTests());
    EXPECT_TRUE(Host().calls.empty());
}

// ---- keywords ----

TEST_F(Match, OfAnEntryWithoutKeywordsIsEveryDatedLine)
{
    Watch("");
    EXPECT_TRUE(Reports("anything"));
    EXPECT_TRUE(Reports(""));
    EXPECT_EQ(0, Check(Stamp())); // a stamp and nothing else
    EXPECT_EQ(2U, Host().reports.size());
}

TEST_F(Match, NeedsAllKeywordsInAnyOrderAndPlace)
{
    Watch({"alpha", "beta", "gamma"});
    EXPECT_TRUE(Reports("alpha beta gamma"));
    EXPECT_TRUE(Reports("gamma, beta, alpha"));
    EXPECT_TRUE(Reports("xalphabetaxgammax"));
    EXPECT_FALSE(Reports("beta gamma"));
    EXPECT_FALSE(Reports("alpha gamma"));
    EXPECT_FALSE(Reports("alpha beta"));
    EXPECT_FALSE(Reports("alph a beta gamma"));
}

TEST_F(Match, LooksForAKeywordInTheWholeLine)
{
    Watch("Mar 10"); // the stamp belongs to it
    EXPECT_TRUE(Reports("x"));
    Watch("host prog");
    EXPECT_EQ(2, nCnt);
    EXPECT_TRUE(Reports("y"));
    EXPECT_EQ(2U, Host().reports.size());
}

TEST_F(Match, OverlappingKeywordsMayShareTheirText)
{
    Watch({"abc", "bcd", "abcd"});
    EXPECT_TRUE(Reports("xabcdx"));
    EXPECT_FALSE(Reports("abc bcd"));
}

TEST_F(Match, TakesAnyKeywordOfTheThree)
{
    Watch({"", "second", ""});
    EXPECT_TRUE(Reports("the second"));
    EXPECT_FALSE(Reports("the first"));
    EmptyTable();
    Watch({"", "", "third"});
    EXPECT_TRUE(Reports("the third"));
    EXPECT_FALSE(Reports("the second"));
}

TEST_F(Match, MindsTheCase)
{
    Watch("error");
    EXPECT_TRUE(Reports("an error"));
    EXPECT_FALSE(Reports("an ERROR"));
    EXPECT_FALSE(Reports("an Error"));
}

TEST_F(Match, TakesOperatorsAsTextOnAnOrdinaryServer)
{
    Watch("err.r");
    EXPECT_FALSE(Reports("error"));
    EXPECT_TRUE(Reports("err.r"));
    EXPECT_EQ(0, Host().Traced("Regular Expression is:([[:space:]]*)err.r([[:space:]]*)"));
}

TEST_F(Match, TakesOperatorsAsTextWhenItCannotBeToldWhatTheServerIs)
{
    IsFTServer = -1;
    Watch("err.r");
    EXPECT_FALSE(Reports("error"));
}

TEST_F(Match, TakesKeywordsOfFullLengthAndBytesOfAnyKind)
{
    const std::string longest(256, 'k');
    Watch(longest);
    EXPECT_TRUE(Reports("<" + longest + ">"));
    EXPECT_FALSE(Reports(std::string(255, 'k')));
    Watch("\xE4\xF6\xFC\x01");
    EXPECT_TRUE(Reports("\x80\xE4\xF6\xFC\x01\xFF"));
}

TEST_F(Match, LooksForAKeywordUpToTheEndOfTheLongestLine)
{
    Watch("END");
    const std::string head = Line("");
    std::string line = head + std::string(3328 - head.size() - 3, 'x') + "END";
    EXPECT_EQ(0, Check(line));
    ASSERT_EQ(1U, Host().reports.size());
    EXPECT_EQ(line, Host().reports[0].message);
}

TEST_F(Match, AsksForTheHourOnlyWhenAllKeywordsWereFound)
{
    Watch({"alpha", "beta", "gamma"});
    Check(Line("alpha beta"));
    EXPECT_EQ(0, HourTests());
    Check(Line("alpha beta gamma"));
    EXPECT_EQ(1, HourTests());
}

// ---- the hour ----

TEST_F(Match, IsAskedForTheHourOfTheClockNotOfTheLine)
{
    EventSpec event;
    event.watch_time = 1U << 12U;
    event.source = "NOW";
    AddEntry(event);
    event.watch_time = 1U << 11U;
    event.source = "THEN";
    AddEntry(event);
    EXPECT_EQ(0, Check(Line("written an hour ago", -3600)));
    EXPECT_EQ(Strings{"NOW"}, Sources());
}

TEST_F(Match, OutsideTheWatchedHoursCountsNothing)
{
    EventSpec event;
    event.watch_time = 0;
    event.report_count = 2;
    VKVMon *never = AddEntry(event);
    event.watch_time = kAllHours & ~(1U << 12U);
    VKVMon *not_now = AddEntry(event);
    Check(Line("x"), 5);
    EXPECT_EQ(0, never->CurrentCount);
    EXPECT_EQ(0, not_now->CurrentCount);
    EXPECT_EQ(0, Host().Traced(kMatch));
    SetClock(2024, 3, 10, 13, 0, 0);
    Check(Line("x"));
    EXPECT_EQ(0, never->CurrentCount);
    EXPECT_EQ(1, not_now->CurrentCount);
}

// ---- counting ----

TEST_F(Match, ReportsWhenTheCountIsReachedAndStartsAgain)
{
    VKVMon *entry = Watch("x", 3);
    std::vector<int> counts;
    std::vector<size_t> reports;
    for (int i = 0; i < 7; ++i) {
        Check(Line("x"));
        counts.push_back(entry->CurrentCount);
        reports.push_back(Host().reports.size());
    }
    EXPECT_EQ((std::vector<int>{1, 2, 0, 1, 2, 0, 1}), counts);
    EXPECT_EQ((std::vector<size_t>{0, 0, 1, 1, 1, 2, 2}), reports);
}

TEST_F(Match, ReportsTheLineThatReachedTheCount)
{
    Watch("x", 2);
    Check(Line("x one"));
    Check(Line("x two"));
    ASSERT_EQ(1U, Host().reports.size());
    EXPECT_EQ(Line("x two"), Host().reports[0].message);
}

TEST_F(Match, OfARepeatedLineReportsOnceAndDropsTheSurplus)
{
    VKVMon *entry = Watch("x", 3);
    Check(Line("x"), 5);
    EXPECT_EQ(1U, Host().reports.size());
    EXPECT_EQ(0, entry->CurrentCount);
    Check(Line("x"), 2);
    EXPECT_EQ(2, entry->CurrentCount);
    Check(Line("x"), 100);
    EXPECT_EQ(2U, Host().reports.size());
    EXPECT_EQ(0, entry->CurrentCount);
}

TEST_F(Match, AddsWhateverTheRepeatNumberWas)
{
    VKVMon *entry = Watch("x", 3);
    Check(Line("x"), 0);
    EXPECT_EQ(0, entry->CurrentCount);
    Check(Line("x"), -2);
    EXPECT_EQ(-2, entry->CurrentCount);
    EXPECT_EQ(1, Host().Traced(0, "curnum = -2, repnum = 3."));
    Check(Line("x"), 4);
    EXPECT_EQ(2, entry->CurrentCount);
    EXPECT_TRUE(Host().reports.empty());
}

TEST_F(Match, OfAnEntryThatIsNotToBeReportedCountsNothing)
{
    for (const int32_t count : {0, -1, INT_MIN}) {
        VKVMon *entry = Watch("x");
        entry->ReportCount = count;
        EXPECT_FALSE(Reports("x")) << count;
        EXPECT_EQ(0, entry->CurrentCount);
        EXPECT_EQ(0, Host().Traced(kMatch));
        EXPECT_EQ(nCnt, HourTests()); // the hour is asked for first
    }
}

TEST_F(Match, StopsCountingAtTheLimitOfTheCounter)
{
    VKVMon *entry = Watch("x", INT_MAX);
    entry->CurrentCount = INT_MAX - 1;
    Check(Line("x"), 5);
    EXPECT_EQ(1, Host().Traced(0, "curnum = 2147483647, repnum = 2147483647."));
    EXPECT_EQ(1U, Host().reports.size());
    entry->CurrentCount = INT_MIN + 1;
    Check(Line("x"), -5);
    EXPECT_EQ(INT_MIN, entry->CurrentCount);
}

TEST_F(Match, GoesOnFromTheCountThatTheEntryHas)
{
    VKVMon *entry = Watch("x", 10);
    entry->CurrentCount = 9;
    EXPECT_TRUE(Reports("x"));
    entry->CurrentCount = 20; // the report count was lowered meanwhile
    EXPECT_TRUE(Reports("x"));
    EXPECT_EQ(0, entry->CurrentCount);
}

TEST_F(Match, OfALineWithSeveralEntriesHitsAllInTableOrder)
{
    for (const char *source : {"C", "A", "B"}) {
        EventSpec event;
        event.source = source;
        event.keywords[0] = source[0] == 'A' ? "other" : "x";
        AddEntry(event);
    }
    EventSpec event;
    event.source = "A2";
    event.keywords[0] = "host";
    AddEntry(event);
    EXPECT_TRUE(Reports("x"));
    EXPECT_EQ((Strings{"C", "B", "A2"}), Sources());
}

TEST_F(Match, OfAFullTableReachesTheLastEntry)
{
    EventSpec event;
    event.keywords[0] = "nowhere";
    while (nCnt < kMaxEntries - 1)
        AddEntry(event);
    event.keywords[0] = "x";
    event.source = "LAST";
    AddEntry(event);
    EXPECT_TRUE(Reports("x"));
    EXPECT_EQ(Strings{"LAST"}, Sources());
}

TEST_F(Match, EndsAtAnEmptySlotOfTheTable)
{
    Watch("x");
    Watch("x");
    Watch("x");
    VKVMon *second = lpVKVMon[1];
    lpVKVMon[1] = nullptr;
    EXPECT_TRUE(Reports("x"));
    EXPECT_EQ(1U, Host().reports.size());
    EXPECT_EQ("0 <return 0.", OwnRecords().back());
    lpVKVMon[1] = second;
}

// The host may write the table itself, between any two lines.
TEST_F(Match, SeesEveryChangeOfTheTable)
{
    VKVMon *entry = Watch("alpha");
    EXPECT_TRUE(Reports("alpha"));
    Set(entry->Keyword1, "beta");
    EXPECT_FALSE(Reports("alpha"));
    EXPECT_TRUE(Reports("beta"));
    Set(entry->Keyword3, "gamma");
    EXPECT_FALSE(Reports("beta"));
    EXPECT_TRUE(Reports("beta gamma"));
    entry->WatchTime = 0;
    EXPECT_FALSE(Reports("beta gamma"));
    entry->WatchTime = kAllHours;
    entry->ReportCount = 0;
    EXPECT_FALSE(Reports("beta gamma"));
    entry->ReportCount = 1;

    Watch("delta");
    EXPECT_TRUE(Reports("delta"));
    std::swap(lpVKVMon[0], lpVKVMon[1]);
    Set(lpVKVMon[0]->Source, "SWAPPED");
    EXPECT_TRUE(Reports("beta gamma delta"));
    EXPECT_EQ((Strings{"SWAPPED", "SRC"}), Sources());
    nCnt = 1;
    EXPECT_FALSE(Reports("beta gamma"));
    nCnt = 2;
    EXPECT_TRUE(Reports("beta gamma"));
    IsFTServer = 1;
    Set(lpVKVMon[1]->Keyword1, "b[e]ta");
    EXPECT_TRUE(Reports("beta gamma"));
    IsFTServer = 0;
    EXPECT_FALSE(Reports("beta gamma"));
}

// ---- what a line costs ----

TEST_F(Match, TakesNothingFromTheHeap)
{
    Watch("x");
    Watch({"host", "prog", "y"});
    std::string line = Line("x");
    Host().record_trace = false;
    CheckLine(line.data(), 1); // whatever is done once has been done
    Sys().count_memory = true;
    Sys().ForgetCalls();
    for (int i = 0; i < 10; ++i)
        CheckLine(line.data(), 1);
    Sys().count_memory = false;
    EXPECT_EQ(0, Sys().Calls("malloc"));
    EXPECT_EQ(0, Sys().Calls("calloc"));
}

} // namespace

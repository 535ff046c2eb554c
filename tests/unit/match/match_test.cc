#include "match/match.h"

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <regex.h>
#include <string>
#include <utility>
#include <vector>

#include "match/hits.h"
#include "match/report.h"
#include "match/table_data.h"
#include "platform/agent.h"
#include "tests/support/module_test.h"
#include "tests/unit/vkevmon/pass_fixture.h"

namespace {

using test::EventSpec;
using test::Host;
using test::kAllHours;
using test::RecordsOf;
using test::Strings;
using test::Sys;
using test::TraceRecord;

constexpr char kNotDated[] = "<GetSyslogTime() return FALSE.return 0.";
constexpr char kOwnLine[] = "<TARSKvkvmain is found in line, ignore.return 0.";
constexpr char kMatch[] = "found a match!";

class Match : public test::ModuleTest {
  protected:
    Match() { SetClock(2024, 3, 10, 12, 0, 0); }

    // Writes into an entry by hand, as the host may.
    template <size_t size>
    static void Set(char (&field)[size], const std::string &text)
    {
        snprintf(field, size, "%s", text.c_str());
    }

    static void EmptyTable()
    {
        FreeTableEntries();
        nCnt = 0;
    }

    // An entry with one keyword.
    static VKVMon *Watch(const std::string &keyword, uint32_t report_count = 1)
    {
        EventSpec event;
        event.keywords[0] = keyword;
        event.report_count = report_count;
        return AddEntry(event);
    }

    static VKVMon *Watch(const std::array<std::string, 3> &keywords)
    {
        EventSpec event;
        event.keywords = keywords;
        return AddEntry(event);
    }

    // Gives CheckLine a line as it stands, in a buffer of its own.
    static int Check(const std::string &line, int times = 1)
    {
        std::vector<char> buffer(line.c_str(), line.c_str() + line.size() + 1);
        const int result = CheckLine(buffer.data(), times);
        EXPECT_STREQ(line.c_str(), buffer.data());
        return result;
    }

    // Does a dated line with this text raise a report?
    static bool Reports(const std::string &text)
    {
        Host().ForgetRecords();
        EXPECT_EQ(0, Check(Line(text)));
        return !Host().reports.empty();
    }

    // The records of CheckLine itself but its entry mark, with their levels: "3 Report ...".
    static Strings OwnRecords() { return RecordsOf("CheckLine"); }

    // How often the hour was asked for.
    static int HourTests()
    {
        int count = 0;
        for (const TraceRecord &record : Host().trace)
            count += record.function == "OnTime" && record.text == ">" ? 1 : 0;
        return count;
    }

    static Strings Sources()
    {
        Strings list;
        for (const auto &report : Host().reports)
            list.push_back(report.source);
        return list;
    }
};

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

// ---- the trace of a hit ----

TEST_F(Match, TracesItsArguments)
{
    std::string line = Line("x");
    CheckLine(line.data(), 7);
    char entry[80];
    snprintf(entry, sizeof entry, ">line=%p,times=7", static_cast<void *>(line.data()));
    EXPECT_EQ("CheckLine", Host().trace.at(0).function);
    EXPECT_EQ(0, Host().trace[0].level);
    EXPECT_EQ(entry, Host().trace[0].text);
}

TEST_F(Match, TracesAHitThatIsKept)
{
    Watch("x", 3);
    const std::string line = Line("x");
    Check(line, 2);
    EXPECT_EQ((Strings{"0 line \"" + line + "\" is checked, it happend 2 times\n",
                       "0 found a match!", "0 curnum = 2, repnum = 3.", "0 <return 0."}),
              OwnRecords());
}

TEST_F(Match, TracesAHitThatIsReported)
{
    EventSpec event;
    event.source = "SOME Source";
    event.id = "8000abcd";
    AddEntry(event);
    const std::string line = Line("100% of x");
    Check(line);
    EXPECT_EQ((Strings{"0 line \"" + line + "\" is checked, it happend 1 times\n",
                       "0 found a match!", "0 curnum = 1, repnum = 1.", "3 Report " + line,
                       "3 REPORT: Source=SOME Source, EventID=0x8000ABCD", "0 <return 0."}),
              OwnRecords());
}

// ---- the report ----

TEST_F(Match, ReportSaysWhatWasHit)
{
    EventSpec event;
    event.source = "SRC1";
    event.id = "FFFFFFFF";
    AddEntry(event);
    EXPECT_TRUE(Reports("some text"));
    ASSERT_EQ(1U, Host().reports.size());
    const auto &report = Host().reports[0];
    EXPECT_EQ("Application", report.log_name);
    EXPECT_EQ("SRC1", report.source);
    EXPECT_EQ(0xFFFFFFFFU, report.event_id);
    EXPECT_EQ(Line("some text"), report.message);
    EXPECT_TRUE(report.other_fields_are_zero);
}

template <typename T>
T At(const void *record, size_t offset)
{
    T value;
    memcpy(&value, static_cast<const char *>(record) + offset, sizeof value);
    return value;
}

// Reads the record as the alert component does, which was built apart: by its offsets.
TEST_F(Match, ReportHasItsFieldsAtTheirPlaces)
{
    EventSpec event;
    event.source = "SRC1";
    event.id = "12345678";
    const VKVMon *entry = AddEntry(event);
    bool looked = false;
    Host().on_report = [&](const ReportRequest &request) {
        looked = true;
        const void *record = &request;
        EXPECT_EQ(0U, At<uint32_t>(record, 0));
        EXPECT_STREQ("Application", At<const char *>(record, 8));
        EXPECT_EQ(entry->Source, At<const char *>(record, 16));
        EXPECT_EQ(0x12345678U, At<uint32_t>(record, 24));
        EXPECT_EQ(0U, At<uint16_t>(record, 28));
        EXPECT_EQ(0U, At<uint16_t>(record, 30));
        EXPECT_EQ(0U, At<uint64_t>(record, 32));
        EXPECT_EQ(0U, At<uint16_t>(record, 40));
        EXPECT_EQ(0U, At<uint32_t>(record, 44));
        const auto *const *strings = At<const char *const *>(record, 48);
        EXPECT_EQ(Line("text"), strings[0]);
        EXPECT_EQ(0U, At<uint64_t>(record, 56));
        EXPECT_EQ(0U, At<uint32_t>(record, 64));
        EXPECT_EQ(0U, At<uint64_t>(record, 72));
    };
    EXPECT_TRUE(Reports("text"));
    EXPECT_TRUE(looked);
}

TEST_F(Match, ReportsMessageIsZeroBehindTheText)
{
    Watch("");
    std::string rest;
    Host().on_report = [&](const ReportRequest &request) {
        const char *message = request.strings[0];
        rest.assign(message + strlen(message), message + 3329);
    };
    EXPECT_TRUE(Reports("a long line, so that its bytes could be left in the frame"));
    EXPECT_TRUE(Reports("short"));
    EXPECT_EQ(std::string(3329 - Line("short").size(), '\0'), rest);
}

TEST_F(Match, ReportIsConvertedFromTheLogsCharactersToTheRegistrys)
{
    Watch("");
    std::vector<std::pair<int, int>> codes;
    Host().convert = [&](const std::string &text, int from, int to) {
        EXPECT_EQ(Line("text"), text);
        codes.emplace_back(from, to);
        return "converted: " + text;
    };
    EXPECT_TRUE(Reports("text"));
    EXPECT_EQ((std::vector<std::pair<int, int>>{{1, 0}}), codes);
    EXPECT_EQ("converted: " + Line("text"), Host().reports.at(0).message);
}

TEST_F(Match, ReportsMessageHas3328BytesAtMost)
{
    Watch("");
    Host().convert = [](const std::string &, int, int) { return std::string(9000, 'u'); };
    EXPECT_TRUE(Reports("text"));
    EXPECT_EQ(std::string(3328, 'u'), Host().reports.at(0).message);
}

TEST_F(Match, ConvertsTheMessageThenSetsTheCountBackThenReports)
{
    VKVMon *entry = Watch("x", 3);
    int at_conversion = -1;
    int at_report = -1;
    Host().convert = [&](const std::string &text, int, int) {
        at_conversion = entry->CurrentCount;
        return text;
    };
    Host().on_report = [&](const ReportRequest &) { at_report = entry->CurrentCount; };
    Check(Line("x"), 4);
    EXPECT_EQ(4, at_conversion);
    EXPECT_EQ(0, at_report);
    EXPECT_EQ((Strings{"TarskCodeConvert", "VKMonitorCall"}), Host().calls);
}

TEST_F(Match, IgnoresWhatBecomesOfTheReport)
{
    VKVMon *entry = Watch("x");
    Host().FailCall("VKMonitorCall", 1);
    EXPECT_EQ(0, Check(Line("x")));
    EXPECT_TRUE(Host().reports.empty());
    EXPECT_EQ(0, entry->CurrentCount);
    EXPECT_EQ("0 <return 0.", OwnRecords().back());
}

TEST_F(Match, ReportWithoutASourceIsTracedAllTheSame)
{
    VKVMon *entry = Watch("x");
    entry->EventID = 0xAB;
    Report report;
    BuildReport("x", entry, &report);
    report.request.source = nullptr;
    pVKMonitorCall = [](ReportRequest *request) { return request->source == nullptr ? 1 : 0; };
    SendReport({"unit", "Function"}, &report);
    EXPECT_EQ((Strings{"3 REPORT: Source=NULL, EventID=0xAB"}), RecordsOf("Function", "unit"));
}

TEST_F(Match, ConvertsOnlyWhatIsReported)
{
    Watch("x", 2);
    Watch("other");
    Check(Line("x"));
    EXPECT_TRUE(Host().calls.empty());
}

// ---- reports of the fault-tolerant server's own source ----

TEST_F(Match, OfTheFaultTolerantSourceIsDroppedWhileItIsWithheld)
{
    EventSpec event;
    event.source = "FTREPORT";
    event.report_count = 2;
    VKVMon *entry = AddEntry(event);
    Check(Line("x"));
    EXPECT_EQ(1, entry->CurrentCount);
    Host().ForgetRecords();
    Check(Line("x"));
    EXPECT_EQ(0, entry->CurrentCount); // gone, not kept
    EXPECT_TRUE(Host().reports.empty());
    EXPECT_TRUE(Host().Texts(3).empty());
    EXPECT_EQ(Strings{"TarskCodeConvert"}, Host().calls);
    report_ft = 1;
    Check(Line("x"));
    EXPECT_TRUE(Host().reports.empty());
}

TEST_F(Match, OfTheFaultTolerantSourceIsReportedWhileItIsNotWithheld)
{
    EventSpec event;
    event.source = "FTREPORT";
    AddEntry(event);
    for (const int on : {1, 2, -1}) {
        report_ft = on;
        EXPECT_TRUE(Reports("x")) << on;
    }
    EXPECT_EQ(1, Host().Traced(3, "REPORT: Source=FTREPORT, EventID=0x1"));
}

TEST_F(Match, WithholdsNoSourceThatOnlyResemblesTheFaultTolerantOne)
{
    for (const char *source : {"FTREPOR", "FTREPORT1", "ftreport", "FTREPORT ", ""}) {
        EventSpec event;
        event.source = source;
        AddEntry(event);
    }
    EXPECT_TRUE(Reports("x"));
    EXPECT_EQ((Strings{"FTREPOR", "FTREPORT1", "ftreport", "FTREPORT ", ""}), Sources());
}

TEST_F(Match, GoesOnWithTheNextEntryBehindAWithheldOne)
{
    EventSpec event;
    event.source = "FTREPORT";
    AddEntry(event);
    event.source = "NEXT";
    AddEntry(event);
    EXPECT_TRUE(Reports("x"));
    EXPECT_EQ(Strings{"NEXT"}, Sources());
}

// ---- keywords as expressions ----

class MatchExpression : public Match {
  protected:
    MatchExpression() { IsFTServer = 1; }

    static std::string Pattern(const std::string &keyword)
    {
        return "([[:space:]]*)" + keyword + "([[:space:]]*)";
    }

    static Strings TracedPatterns()
    {
        const std::string prefix = "Regular Expression is:";
        Strings patterns;
        for (const TraceRecord &record : Host().trace) {
            if (!record.text.starts_with(prefix))
                continue;
            EXPECT_EQ(0, record.level);
            EXPECT_EQ("CheckLine", record.function);
            EXPECT_EQ("vkevmon", record.unit);
            patterns.push_back(record.text.substr(prefix.size()));
        }
        return patterns;
    }

    // Does one keyword, alone in the table, hit a line with this text?
    static bool Hits(const std::string &keyword, const std::string &text)
    {
        EmptyTable();
        Watch(keyword);
        return Reports(text);
    }
};

TEST_F(MatchExpression, IsTriedWhenThePlainTextIsNotThere)
{
    Watch("err.r");
    EXPECT_TRUE(Reports("error"));
    EXPECT_EQ(Strings{Pattern("err.r")}, TracedPatterns());
    EXPECT_TRUE(Reports("err.r"));
    EXPECT_EQ(Strings{}, TracedPatterns());
    EXPECT_FALSE(Reports("eror"));
    EXPECT_EQ(Strings{Pattern("err.r")}, TracedPatterns());
}

TEST_F(MatchExpression, IsTriedForEveryValueThatMeansAFaultTolerantServer)
{
    for (const int value : {1, 2, INT_MAX}) {
        IsFTServer = value;
        EXPECT_TRUE(Hits("err.r", "error"));
    }
}

TEST_F(MatchExpression, IsTracedAlsoForAKeywordWithoutOperators)
{
    Watch("plain");
    EXPECT_FALSE(Reports("something else"));
    EXPECT_EQ(Strings{Pattern("plain")}, TracedPatterns());
}

TEST_F(MatchExpression, KnowsTheExtendedOperators)
{
    EXPECT_TRUE(Hits("ab+c", "xabbbcx"));
    EXPECT_FALSE(Hits("ab+c", "xacx"));
    EXPECT_TRUE(Hits("ab?c", "xacx"));
    EXPECT_TRUE(Hits("ab*c", "xacx"));
    EXPECT_TRUE(Hits("ab{3}c", "xabbbcx"));
    EXPECT_FALSE(Hits("ab{3}c", "xabbcx"));
    EXPECT_TRUE(Hits("ab{2,}c", "xabbbcx"));
    EXPECT_TRUE(Hits("(ab|cd)e", "cde"));
    EXPECT_TRUE(Hits("foo|bar", "a bar"));
    EXPECT_TRUE(Hits("disk [0-9]+ failed", "disk 12 failed"));
    EXPECT_FALSE(Hits("disk [^0-9]+ failed", "disk 12 failed"));
    EXPECT_TRUE(Hits("[[:digit:]]{4}", "no 1234"));
    EXPECT_TRUE(Hits("a\\.b", "a.b"));
    EXPECT_FALSE(Hits("a\\.b", "axb"));
    EXPECT_TRUE(Hits("[.]end", "the.end"));
}

TEST_F(MatchExpression, AnchorsAtTheEndsOfTheWholeLine)
{
    EXPECT_TRUE(Hits("^Mar", "x"));
    EXPECT_FALSE(Hits("^host", "x"));
    EXPECT_TRUE(Hits("x$", "the last x"));
    EXPECT_FALSE(Hits("x$", "x is not last"));
}

TEST_F(MatchExpression, MindsTheCase)
{
    EXPECT_FALSE(Hits("err.r", "ERROR"));
    EXPECT_FALSE(Hits("err.r", "Error"));
}

TEST_F(MatchExpression, TakesALineEndInsideTheLineForAnOrdinaryCharacter)
{
    EXPECT_TRUE(Hits("a.b", "a\nb"));
    EXPECT_TRUE(Hits("a[^x]b", "a\nb"));
    EXPECT_FALSE(Hits("a$", "a\nb"));
}

TEST_F(MatchExpression, MayBeLedByAnOperatorThatThenBelongsToTheWhiteSpace)
{
    EXPECT_TRUE(Hits("*", "anything"));
    EXPECT_TRUE(Hits("+", "anything"));
    EXPECT_TRUE(Hits("?x", "x"));
    EXPECT_FALSE(Hits("?xyz", "abc"));
    EXPECT_TRUE(Hits("{2}", "anything"));
    EXPECT_TRUE(Hits("|xyz", "anything"));
}

TEST_F(MatchExpression, CountsTheWhiteSpaceAsItsFirstGroup)
{
    EXPECT_TRUE(Hits("(ab)\\2", "xababx"));
    EXPECT_FALSE(Hits("(ab)\\2", "xabx"));
    EXPECT_TRUE(Hits("(ab)\\1", "xabx")); // the first group can be empty
}

TEST_F(MatchExpression, ThatDoesNotCompileIsAKeywordThatIsNotFound)
{
    for (const char *keyword :
         {"err(", "err)", "err[", "[z-a]x", "a{2,1}b", "a{1", "err\\", "[[:nothing:]]", "\\9x"}) {
        EXPECT_FALSE(Hits(keyword, "error aab")) << keyword;
        EXPECT_EQ(Strings{Pattern(keyword)}, TracedPatterns());
        for (const int level : {1, 2, 3})
            EXPECT_TRUE(Host().Texts(level).empty()) << keyword;
    }
}

TEST_F(MatchExpression, ThatDoesNotCompileStillMatchesAsPlainText)
{
    EXPECT_TRUE(Hits("err(", "an err("));
    EXPECT_TRUE(TracedPatterns().empty());
}

TEST_F(MatchExpression, ForWhichThereIsNoMemoryIsAKeywordThatIsNotFound)
{
    Watch("err.r");
    Sys().FailCall("regcomp", 1);
    EXPECT_FALSE(Reports("error"));
    EXPECT_EQ((Strings{"0 line \"" + Line("error") + "\" is checked, it happend 1 times\n",
                       "0 Regular Expression is:" + Pattern("err.r"), "0 <return 0."}),
              OwnRecords());
    EXPECT_TRUE(Reports("error"));
}

TEST_F(MatchExpression, OfEachKeywordIsTriedUntilOneIsMissing)
{
    Watch({"al.ha", "b.ta", "g.mma"});
    EXPECT_TRUE(Reports("gamma beta alpha"));
    EXPECT_EQ((Strings{Pattern("al.ha"), Pattern("b.ta"), Pattern("g.mma")}), TracedPatterns());
    EXPECT_FALSE(Reports("alpha gamma"));
    EXPECT_EQ((Strings{Pattern("al.ha"), Pattern("b.ta")}), TracedPatterns());
    EXPECT_FALSE(Reports("beta gamma"));
    EXPECT_EQ((Strings{Pattern("al.ha")}), TracedPatterns());
}

TEST_F(MatchExpression, StandsBesidePlainKeywords)
{
    Watch({"plain", "", "e.pression"});
    EXPECT_TRUE(Reports("an expression, and plain text"));
    EXPECT_EQ(Strings{Pattern("e.pression")}, TracedPatterns());
    EXPECT_FALSE(Reports("an expression"));
    EXPECT_EQ(Strings{Pattern("plain")}, TracedPatterns());
}

TEST_F(MatchExpression, OfFullLengthIsWhole)
{
    const std::string keyword = "x" + std::string(251, '.') + "[yz]"; // 256 bytes
    ASSERT_EQ(256U, keyword.size());
    EXPECT_TRUE(Hits(keyword, "x" + std::string(251, '-') + "z"));
    EXPECT_EQ(Strings{Pattern(keyword)}, TracedPatterns());
    EXPECT_FALSE(Hits(keyword, "x" + std::string(250, '-') + "z"));
}

TEST_F(MatchExpression, IsTriedForEveryEntryInTableOrder)
{
    Watch("on.");
    Watch("two");
    Watch("thre.");
    Check(Line("one two three"));
    EXPECT_EQ(3U, Host().reports.size());
    EXPECT_EQ((Strings{Pattern("on."), Pattern("thre.")}), TracedPatterns());
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

// ---- against the obvious loop ----

// What CheckLine should leave in the trace log and with the alert component for one line.
struct Outcome {
    Strings records;
    Strings reports;
    int hour_tests = 0;
};

bool ExpressionMatches(const std::string &pattern, const std::string &line)
{
    regex_t expression;
    if (regcomp(&expression, pattern.c_str(), REG_EXTENDED) != 0)
        return false;
    const bool found = regexec(&expression, line.c_str(), 0, nullptr, 0) == 0;
    regfree(&expression);
    return found;
}

bool KeywordIsFound(const std::string &keyword, const std::string &line, Outcome *outcome)
{
    if (keyword.empty() || line.find(keyword) != std::string::npos)
        return true;
    if (IsFTServer < 1)
        return false;
    const std::string pattern = "([[:space:]]*)" + keyword + "([[:space:]]*)";
    outcome->records.push_back("0 Regular Expression is:" + pattern);
    return ExpressionMatches(pattern, line);
}

// One entry after the other, one keyword after the other.
Outcome MatchObviously(const std::string &line, int times, std::vector<VKVMon> *table)
{
    Outcome outcome;
    outcome.records.push_back("0 line \"" + line + "\" is checked, it happend " +
                              std::to_string(times) + " times\n");
    for (VKVMon &entry : *table) {
        if (!KeywordIsFound(entry.Keyword1, line, &outcome) ||
            !KeywordIsFound(entry.Keyword2, line, &outcome) ||
            !KeywordIsFound(entry.Keyword3, line, &outcome))
            continue;
        ++outcome.hour_tests;
        if ((entry.WatchTime >> 12U & 1U) == 0 || entry.ReportCount < 1)
            continue;
        entry.CurrentCount += times;
        outcome.records.emplace_back("0 found a match!");
        outcome.records.push_back("0 curnum = " + std::to_string(entry.CurrentCount) +
                                  ", repnum = " + std::to_string(entry.ReportCount) + ".");
        if (entry.CurrentCount < entry.ReportCount)
            continue;
        entry.CurrentCount = 0;
        if (report_ft == 0 && strcmp(entry.Source, "FTREPORT") == 0)
            continue;
        outcome.records.push_back("3 Report " + line);
        char shown[600];
        snprintf(shown, sizeof shown, "3 REPORT: Source=%s, EventID=0x%X", entry.Source,
                 entry.EventID);
        outcome.records.emplace_back(shown);
        outcome.reports.emplace_back(entry.Source);
    }
    outcome.records.emplace_back("0 <return 0.");
    return outcome;
}

class MatchModel : public Match {
  protected:
    // Text over a few letters, so that keywords meet lines; with operators, now and then.
    static std::string RandomText(std::mt19937 &random, size_t longest, bool operators)
    {
        static constexpr char kLetters[] = "aab c";
        static constexpr char kOperators[] = ".*+?[]()|{}^$\\0123";
        std::string text;
        for (size_t left = random() % (longest + 1); left > 0; --left) {
            text += operators && random() % 3 == 0 ? kOperators[random() % (sizeof kOperators - 1)]
                                                   : kLetters[random() % (sizeof kLetters - 1)];
        }
        return text;
    }

    static void AddRandomEntry(std::mt19937 &random)
    {
        EventSpec event;
        event.source = random() % 4 == 0 ? "FTREPORT" : "S" + std::to_string(nCnt);
        event.id = std::to_string(random() % 1000);
        for (auto &keyword : event.keywords) {
            if (random() % 2 == 0)
                keyword = RandomText(random, 5, random() % 2 == 0);
        }
        VKVMon *entry = AddEntry(event);
        entry->WatchTime = random() % 5 == 0 ? ~(1U << 12U) : kAllHours;
        entry->ReportCount = static_cast<int32_t>(random() % 6) - 1;
        entry->CurrentCount = static_cast<int32_t>(random() % 4);
    }

    static std::vector<VKVMon> Table()
    {
        std::vector<VKVMon> table;
        table.reserve(static_cast<size_t>(nCnt));
        for (int i = 0; i < nCnt; ++i)
            table.push_back(*lpVKVMon[i]);
        return table;
    }

    static void ExpectAsObvious(const std::string &line, int times)
    {
        std::vector<VKVMon> table = Table();
        const Outcome expected = MatchObviously(line, times, &table);
        Host().ForgetRecords();
        ASSERT_EQ(0, Check(line, times));
        ASSERT_EQ(expected.records, OwnRecords());
        ASSERT_EQ(expected.reports, Sources());
        ASSERT_EQ(expected.hour_tests, HourTests());
        for (int i = 0; i < nCnt; ++i)
            ASSERT_EQ(table[static_cast<size_t>(i)].CurrentCount, lpVKVMon[i]->CurrentCount) << i;
    }
};

TEST_F(MatchModel, AgreesWithTheObviousLoopOnRandomTablesAndLines)
{
    for (uint32_t seed = 1; seed <= 600; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        EmptyTable();
        for (auto left = 1 + (random() % 12); left > 0; --left)
            AddRandomEntry(random);
        IsFTServer = static_cast<int32_t>(random() % 3) - 1;
        report_ft = random() % 2 == 0 ? 0 : 1;
        for (int lines = 0; lines < 6; ++lines) {
            // A table of the host's own making changes between the lines, too.
            if (nCnt > 0 && random() % 3 == 0)
                Set(lpVKVMon[random() % static_cast<uint32_t>(nCnt)]->Keyword1,
                    RandomText(random, 4, true));
            ExpectAsObvious(Line(RandomText(random, 24, random() % 4 == 0)),
                            static_cast<int>(random() % 5) - 1);
            if (HasFatalFailure())
                return;
        }
    }
}

// Most entries of a large table miss a line, whichever way they are passed over.
TEST_F(MatchModel, AgreesWithTheObviousLoopOnLargeTables)
{
    for (uint32_t seed = 1; seed <= 12; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        EmptyTable();
        IsFTServer = seed % 3 == 0 ? 1 : 0;
        const int entries =
            static_cast<int>(IsFTServer == 1 ? random() % 200 : random() % kMaxEntries);
        while (nCnt < entries)
            AddRandomEntry(random);
        for (int lines = 0; lines < 5; ++lines) {
            ExpectAsObvious(Line(RandomText(random, 40, false)), 1);
            if (HasFatalFailure())
                return;
        }
    }
}

} // namespace

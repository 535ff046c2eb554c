// Which lines of the watched file are hits, and what is reported of them.
#include <array>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include "filemonitor/filemonitor.h"
#include "match/report.h"
#include "match/table_data.h"
#include "tests/unit/filemonitor/file_monitor_fixture.h"
#include "tests/unit/filemonitor/scan_fixture.h"

namespace {

using test::EventSpec;
using test::Format;
using test::Host;
using test::kAllHours;
using test::Strings;
using test::Sys;

class FileMatch : public test::FileMonitorTest {
  protected:
    static VKVMon *Watch(const std::array<std::string, 3> &keywords, uint32_t report_count = 1)
    {
        EventSpec event;
        event.keywords = keywords;
        event.report_count = report_count;
        return AddEntry(event);
    }

    static bool Reports(const std::string &line)
    {
        Host().ForgetRecords();
        EXPECT_EQ(TRUE, CheckFileLine(line.c_str()));
        return !Host().reports.empty();
    }

    static Strings Own() { return RecordsOf("CheckFileLine"); }
};

TEST_F(FileMatch, AsksForNoStamp)
{
    Watch({"", "", ""});
    EXPECT_TRUE(Reports("no stamp"));
    EXPECT_TRUE(Reports(""));
    EXPECT_TRUE(Reports("Jan 99 of a month that is far away"));
}

TEST_F(FileMatch, TakesTheAgentsOwnLines)
{
    Watch({"", "", ""});
    EXPECT_TRUE(Reports("TARSKvkvmain: x"));
}

TEST_F(FileMatch, TracesALineWithoutAHit)
{
    Watch({"x", "", ""});
    const char *line = "100% other";
    EXPECT_EQ(TRUE, CheckFileLine(line));
    EXPECT_EQ((Strings{"0 line \"100% other\" is being checked\n", "0 <return 0."}), Own());
    EXPECT_EQ(1, Host().Traced(0, Format(">line=%p", static_cast<const void *>(line))));
}

TEST_F(FileMatch, TracesALineOfAnEmptyTable)
{
    EXPECT_EQ(TRUE, CheckFileLine("x"));
    EXPECT_EQ((Strings{"0 line \"x\" is being checked\n", "0 <return 0."}), Own());
    nCnt = -1;
    EXPECT_EQ(TRUE, CheckFileLine("x"));
    nCnt = 0;
}

TEST_F(FileMatch, NeedsAllKeywords)
{
    Watch({"alpha", "beta", "gamma"});
    EXPECT_TRUE(Reports("gamma beta alpha"));
    EXPECT_FALSE(Reports("alpha beta"));
    EXPECT_FALSE(Reports("alpha gamma"));
    EXPECT_FALSE(Reports("beta gamma"));
    EXPECT_FALSE(Reports("ALPHA beta gamma"));
    EXPECT_FALSE(Reports(""));
}

TEST_F(FileMatch, TakesAnEmptyLineForEntriesWithoutKeywordsOnly)
{
    Watch({"", "x", ""});
    EXPECT_FALSE(Reports(""));
    Watch({"", "", ""});
    EXPECT_TRUE(Reports(""));
    EXPECT_EQ(1U, Host().reports.size());
}

TEST_F(FileMatch, KnowsNoExpressionsWhateverTheServer)
{
    IsFTServer = 1;
    Watch({"err.r", "", ""});
    EXPECT_FALSE(Reports("error"));
    EXPECT_EQ((Strings{"0 line \"error\" is being checked\n", "0 <return 0."}), Own());
    EXPECT_TRUE(Reports("err.r"));
}

TEST_F(FileMatch, CountsEachLineOnce)
{
    VKVMon *entry = Watch({"x", "", ""}, 2);
    std::vector<size_t> reports;
    for (int i = 0; i < 5; ++i) {
        CheckFileLine("x last message repeated 10 times");
        reports.push_back(Host().reports.size());
    }
    EXPECT_EQ((std::vector<size_t>{0, 1, 1, 2, 2}), reports);
    EXPECT_EQ(1, entry->CurrentCount);
}

TEST_F(FileMatch, IsAskedForTheHourAndTheReportCount)
{
    VKVMon *entry = Watch({"x", "", ""}, 2);
    entry->WatchTime = kAllHours & ~(1U << 12U);
    EXPECT_FALSE(Reports("x"));
    EXPECT_EQ(0, entry->CurrentCount);
    entry->WatchTime = 1U << 12U;
    EXPECT_FALSE(Reports("x"));
    EXPECT_EQ(1, entry->CurrentCount);
    for (const int32_t count : {0, -1, INT_MIN}) {
        entry->ReportCount = count;
        EXPECT_FALSE(Reports("x"));
        EXPECT_EQ(1, entry->CurrentCount);
        EXPECT_EQ(0, Host().Traced("found a match!"));
        EXPECT_EQ(1, Host().Traced("<return 1")); // the hour is asked for first
    }
}

TEST_F(FileMatch, StopsCountingAtTheLimitOfTheCounter)
{
    VKVMon *entry = Watch({"x", "", ""}, INT_MAX);
    entry->CurrentCount = INT_MAX;
    EXPECT_TRUE(Reports("x"));
    EXPECT_EQ(1, Host().Traced(0, "curnum = 2147483647, repnum = 2147483647."));
}

TEST_F(FileMatch, TracesAHitThatIsKept)
{
    Watch({"x", "", ""}, 2);
    CheckFileLine("x");
    EXPECT_EQ((Strings{"0 line \"x\" is being checked\n", "0 found a match!",
                       "0 curnum = 1, repnum = 2.", "0 <return 0."}),
              Own());
    EXPECT_TRUE(Host().calls.empty());
}

TEST_F(FileMatch, TracesAHitThatIsReportedWithThePlaceOfTheNextLine)
{
    EventSpec event;
    event.source = "SRC1";
    event.id = "8000abcd";
    AddEntry(event);
    filedata.start = 0x100000000;
    filedata.linepos = 42;
    CheckFileLine("100% x");
    EXPECT_EQ((Strings{"0 line \"100% x\" is being checked\n", "0 found a match!",
                       "0 curnum = 1, repnum = 1.",
                       "3 Report 100% x, the next line's offset is 4294967338",
                       "3 REPORT: Source=SRC1, EventID=0x8000ABCD", "0 <return 0."}),
              Own());
}

TEST_F(FileMatch, ReportSaysWhatWasHit)
{
    EventSpec event;
    event.source = "SRC1";
    event.id = "12345678";
    const VKVMon *entry = AddEntry(event);
    bool looked = false;
    Host().on_report = [&](const ReportRequest &request) {
        looked = true;
        EXPECT_STREQ("Application", request.logName);
        EXPECT_EQ(entry->Source, request.source);
        EXPECT_EQ(0x12345678U, request.eventId);
        EXPECT_STREQ("the line", request.strings[0]);
        const std::string rest(request.strings[0] + 8, request.strings[0] + 3329);
        EXPECT_EQ(std::string(3329 - 8, '\0'), rest);
    };
    EXPECT_TRUE(Reports("the line"));
    EXPECT_TRUE(looked);
    EXPECT_TRUE(Host().reports.at(0).other_fields_are_zero);
}

TEST_F(FileMatch, ConvertsTheMessageThenSetsTheCountBackThenReports)
{
    VKVMon *entry = Watch({"x", "", ""}, 2);
    entry->CurrentCount = 1;
    std::vector<int> counts;
    Host().convert = [&](const std::string &text, int from, int to) {
        counts.push_back(entry->CurrentCount);
        EXPECT_EQ("x", text);
        EXPECT_EQ(1, from);
        EXPECT_EQ(0, to);
        return std::string(9000, 'u');
    };
    Host().on_report = [&](const ReportRequest &) { counts.push_back(entry->CurrentCount); };
    EXPECT_TRUE(Reports("x"));
    EXPECT_EQ((std::vector<int>{2, 0}), counts);
    EXPECT_EQ(std::string(3328, 'u'), Host().reports.at(0).message);
}

TEST_F(FileMatch, OfTheFaultTolerantSourceIsDroppedWhileItIsWithheld)
{
    EventSpec event;
    event.source = "FTREPORT";
    event.report_count = 2;
    VKVMon *entry = AddEntry(event);
    event.source = "FTREPORT2";
    event.report_count = 1;
    AddEntry(event);
    CheckFileLine("x");
    EXPECT_EQ(1, entry->CurrentCount);
    Host().ForgetRecords();
    CheckFileLine("x");
    EXPECT_EQ(0, entry->CurrentCount);
    ASSERT_EQ(1U, Host().reports.size());
    EXPECT_EQ("FTREPORT2", Host().reports[0].source);
    report_ft = 1;
    CheckFileLine("x");
    CheckFileLine("x");
    EXPECT_EQ(1, Host().Traced(3, "REPORT: Source=FTREPORT, EventID=0x1"));
}

TEST_F(FileMatch, HitsEntriesInTableOrder)
{
    Strings sources;
    for (const char *source : {"C", "A", "B"}) {
        EventSpec event;
        event.source = source;
        AddEntry(event);
    }
    EXPECT_TRUE(Reports("x"));
    for (const auto &report : Host().reports)
        sources.push_back(report.source);
    EXPECT_EQ((Strings{"C", "A", "B"}), sources);
}

TEST_F(FileMatch, LooksAtTheSizeOfTheTableAfterEachEntry)
{
    Watch({"", "", ""});
    Watch({"", "", ""});
    Watch({"", "", ""});
    Host().on_report = [](const ReportRequest &) { nCnt = 1; };
    EXPECT_TRUE(Reports("x"));
    EXPECT_EQ(1U, Host().reports.size());
    nCnt = 3;
}

TEST_F(FileMatch, EndsAtAnEmptySlotOfTheTable)
{
    Watch({"", "", ""});
    Watch({"", "", ""});
    Watch({"", "", ""});
    VKVMon *second = lpVKVMon[1];
    lpVKVMon[1] = nullptr;
    EXPECT_TRUE(Reports("x"));
    EXPECT_EQ(1U, Host().reports.size());
    EXPECT_EQ("0 <return 0.", Own().back());
    lpVKVMon[1] = second;
}

TEST_F(FileMatch, WithoutAClockIsASystemFailure)
{
    const VKVMon *entry = Watch({"", "", ""});
    Sys().now = -1;
    errno = EOVERFLOW;
    EXPECT_EQ(FALSE, CheckFileLine("x"));
    EXPECT_EQ((Strings{"0 line \"x\" is being checked\n",
                       Format("2 <time() return -1, the error code is %d.", EOVERFLOW)}),
              Own());
    EXPECT_EQ(0, entry->CurrentCount);
}

} // namespace

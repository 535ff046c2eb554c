// What is traced and reported when an entry has its hits.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "match/hits.h"
#include "match/match.h"
#include "match/report.h"
#include "match/table_data.h"
#include "platform/agent.h"
#include "tests/support/module_test.h"
#include "tests/unit/match/match_fixture.h"
#include "tests/unit/vkevmon/pass_fixture.h"

namespace {

using test::EventSpec;
using test::Host;
using test::Match;
using test::RecordsOf;
using test::Strings;

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

} // namespace

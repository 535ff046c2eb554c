// A report function may change the monitoring table while a line is tested: its count, its slots, its
// entries. Every way of testing lines then goes on as the plain rule does, which looks at count and slot
// before each entry.
#include <array>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "filemonitor/filemonitor.h"
#include "match/index.h"
#include "match/literal_set.h"
#include "match/match.h"
#include "match/report.h"
#include "match/table_data.h"
#include "tests/unit/vkevmon/pass_fixture.h"

namespace test {
namespace {

enum class Way { kPlainRule, kPass, kFaultTolerantPass, kFileMonitor };

// A pass of 60 lines, "line 1" to "line 60", of which the first 32 are tested without an index.
constexpr int kLines = 60;
constexpr int kLineOfChange = 50;

class TableChange : public SyslogScanTest, public testing::WithParamInterface<Way> {
  protected:
    static VKVMon *Watch(const std::string &source, const std::string &keyword = "line")
    {
        EventSpec event;
        event.source = source;
        event.keywords[0] = keyword;
        return AddEntry(event);
    }

    // What the report of that source for the 50th line does.
    static void AtReportOf(const std::string &source, std::function<void()> change)
    {
        Host().on_report = [source, change = std::move(change)](const ReportRequest &request) {
            if (source == request.source && Number(request.strings[0]) == kLineOfChange)
                change();
        };
    }

    // Tests all lines.
    void Run()
    {
        switch (GetParam()) {
        case Way::kPlainRule:
            for (std::string &line : Lines())
                CheckLine(line.data(), 1);
            break;
        case Way::kFaultTolerantPass:
            IsFTServer = 1;
            RunPass();
            break;
        case Way::kPass:
            RunPass();
            break;
        case Way::kFileMonitor:
            RunFileMonitor();
            break;
        }
    }

    // The sources that were reported for a line, in order.
    static std::string ReportedFor(int number)
    {
        std::string sources;
        for (const SentReport &report : Host().reports) {
            if (Number(report.message) == number)
                sources += report.source;
        }
        return sources;
    }

    static void ExpectReports(const std::string &before, const std::string &then,
                              const std::string &after)
    {
        for (int number = 1; number <= kLines; ++number) {
            const std::string &want = number < kLineOfChange    ? before
                                      : number == kLineOfChange ? then
                                                                : after;
            EXPECT_EQ(want, ReportedFor(number)) << "line " << number;
        }
    }

  private:
    static int Number(const std::string &line) { return atoi(line.c_str() + line.rfind(' ') + 1); }

    static Strings Lines()
    {
        Strings lines;
        for (int number = 1; number <= kLines; ++number)
            lines.push_back(Line("line " + std::to_string(number)));
        return lines;
    }

    static void RunPass()
    {
        DropIndex();
        LocalMoment moment;
        FoundLiterals found{};
        for (const std::string &line : Lines()) {
            std::array<char, kLineBufferSize + kSearchPadding> buffer{};
            memcpy(buffer.data(), line.data(), line.size());
            CheckLineOfPass(&moment, &found, buffer.data(), line.size(), 1);
        }
    }

    void RunFileMonitor() const
    {
        std::string log;
        for (const std::string &line : Lines())
            log += line + "\n";
        WriteLog("watched", log);
        Host().registry.SetText(kFileMonitorKey, "FILENAME", "/var/log/watched");
        ChangeFileMonObj();
        EXPECT_EQ(TRUE, WatchFileMonObjMain());
    }
};

std::string NameOfWay(const testing::TestParamInfo<Way> &info)
{
    static constexpr const char *kNames[] = {"ByThePlainRule", "InAPass", "InAFaultTolerantPass",
                                             "InTheFileMonitor"};
    return kNames[static_cast<int>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(Match, TableChange,
                         testing::Values(Way::kPlainRule, Way::kPass, Way::kFaultTolerantPass,
                                         Way::kFileMonitor),
                         NameOfWay);

TEST_P(TableChange, OfTheCountEndsTheLineThere)
{
    Watch("A");
    Watch("B");
    Watch("C");
    AtReportOf("A", [] { nCnt = 1; });
    Run();
    nCnt = 3; // for those who free the entries
    ExpectReports("ABC", "A", "A");
}

TEST_P(TableChange, MayFreeTheLastEntry)
{
    Watch("A");
    Watch("B");
    Watch("C", "line 5");
    Watch("D", "line 50");
    AtReportOf("A", [] {
        free(lpVKVMon[3]);
        lpVKVMon[3] = nullptr;
        nCnt = 3;
    });
    Run();
    EXPECT_EQ("AB", ReportedFor(49));
    EXPECT_EQ("ABC", ReportedFor(50));
    EXPECT_EQ("ABC", ReportedFor(51));
    EXPECT_EQ("AB", ReportedFor(60));
}

TEST_P(TableChange, OfASlotToNothingEndsTheTableThere)
{
    Watch("A");
    VKVMon *second = Watch("B");
    Watch("C");
    AtReportOf("A", [] { lpVKVMon[1] = nullptr; });
    Run();
    lpVKVMon[1] = second;
    ExpectReports("ABC", "A", "A");
}

TEST_P(TableChange, ThatAddsAnEntryCountsForTheLine)
{
    Watch("A");
    AtReportOf("A", [] { Watch("B"); });
    Run();
    ExpectReports("A", "AB", "AB");
}

TEST_P(TableChange, OfTheOrderCountsForTheRestOfTheLine)
{
    Watch("A");
    Watch("B");
    Watch("C");
    // Once: the first entry comes again in this line, as the third.
    bool is_swapped = false;
    AtReportOf("A", [&is_swapped] {
        if (!std::exchange(is_swapped, true))
            std::swap(lpVKVMon[0], lpVKVMon[2]);
    });
    Run();
    ExpectReports("ABC", "ABA", "CBA");
}

TEST_P(TableChange, OfAKeywordInItsPlaceCountsAtOnce)
{
    Watch("A");
    VKVMon *entry = Watch("B", "nowhere to be found");
    AtReportOf("A", [entry] { strcpy(entry->Keyword1, "line"); });
    Run();
    ExpectReports("A", "AB", "AB");
}

TEST_P(TableChange, ThatEmptiesAKeywordCountsAtOnce)
{
    Watch("A");
    VKVMon *entry = Watch("B", "nowhere to be found");
    AtReportOf("A", [entry] { entry->Keyword1[0] = '\0'; });
    Run();
    ExpectReports("A", "AB", "AB");
}

TEST_P(TableChange, OfAnySecondKeywordCountsAtOnce)
{
    EventSpec event;
    event.source = "A";
    event.keywords = {"line", "host", ""};
    AddEntry(event);
    event.source = "B";
    event.keywords = {"line", "nowhere", ""};
    VKVMon *entry = AddEntry(event);
    AtReportOf("A", [entry] { entry->Keyword2[0] = '\0'; });
    Run();
    ExpectReports("A", "AB", "AB");
}

TEST_P(TableChange, OfAKeywordThatAnotherEntryHasTooLeavesThatEntryAlone)
{
    Watch("A");
    EventSpec event;
    event.source = "S";
    event.keywords = {"line 5", "host", ""};
    VKVMon *sharer = AddEntry(event);
    Watch("B", "host");
    AtReportOf("A", [sharer] { snprintf(sharer->Keyword2, sizeof sharer->Keyword2, "nowhere"); });
    Run();
    EXPECT_EQ("ASB", ReportedFor(5));
    EXPECT_EQ("AB", ReportedFor(50));
    EXPECT_EQ("AB", ReportedFor(51));
    EXPECT_EQ("AB", ReportedFor(60));
}

TEST_P(TableChange, OfTheEndOfALongKeywordCountsAtOnce)
{
    Watch("A");
    const std::string text = "line " + std::to_string(kLineOfChange + 1);
    VKVMon *entry = Watch("B", text + std::string(60, 'x'));
    AtReportOf("A", [entry, text] { entry->Keyword1[text.size()] = '\0'; });
    Run();
    EXPECT_EQ("A", ReportedFor(50));
    EXPECT_EQ("AB", ReportedFor(51));
}

TEST_P(TableChange, ToOtherEntriesLeavesNothingOfTheOldOnes)
{
    Watch("A");
    Watch("B", "line 5");
    Watch("C");
    AtReportOf("A", [] {
        FreeTableEntries();
        nCnt = 0;
        Watch("X", "nowhere");
        Watch("Y");
    });
    Run();
    EXPECT_EQ("AC", ReportedFor(49));
    EXPECT_EQ("AY", ReportedFor(50));
    EXPECT_EQ("Y", ReportedFor(51));
    EXPECT_EQ("Y", ReportedFor(60));
}

TEST_P(TableChange, ThatIsNoneChangesNothing)
{
    Watch("A");
    VKVMon *entry = Watch("B");
    AtReportOf("A", [entry] {
        const VKVMon same = *entry;
        *entry = same;
    });
    Run();
    ExpectReports("AB", "AB", "AB");
}

// An index for an ordinary server knows nothing of expressions.
class ServerChange : public TableChange {};

INSTANTIATE_TEST_SUITE_P(Match, ServerChange, testing::Values(Way::kPlainRule, Way::kPass),
                         NameOfWay);

TEST_P(ServerChange, ToAFaultTolerantOneCountsAtOnce)
{
    Watch("A");
    Watch("B", "l[i]ne");
    AtReportOf("A", [] { IsFTServer = 1; });
    Run();
    ExpectReports("A", "AB", "AB");
}

} // namespace
} // namespace test

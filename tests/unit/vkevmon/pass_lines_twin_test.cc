// A pass that reads stretches beside one that reads line after line, over the same logs and tables: all that can
// be told of the two has to be the same.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "fileacc/stretch.h"
#include "match/anchors.h"
#include "match/class_filter.h"
#include "match/table_data.h"
#include "regacc/last_end_time.h"
#include "tests/support/campaign.h"
#include "tests/support/outcome.h"
#include "tests/support/random_log.h"
#include "tests/unit/vkevmon/pass_fixture.h"
#include "vkevmon/pass.h"
#include "vkevmon/pass_lines.h"

namespace test {
namespace {

constexpr int64_t kNever = INT64_MAX;

class PassLinesTwin : public SyslogScanTest {
  protected:
    PassLinesTwin() : least_news_(least_news_for_stretches) {}
    ~PassLinesTwin() override
    {
        least_news_for_stretches = least_news_;
        bytes_left_to_blocks = kBlockSize;
    }

    static std::string Repeat(Random &random)
    {
        return "last message repeated " + std::to_string(random.Between(-2, 9)) +
               (random.Chance(90) ? " times" : " time");
    }

    static std::string Text(Random &random, const RandomTable &table, const std::string &head)
    {
        switch (random.Below(40)) {
        case 0:
        case 1:
        case 2:
            return head + Repeat(random);
        case 3:
            return random.Chance(50) ? head + "TARSKvkvmain " + table.Line(random, head)
                                     : head + std::string(random.Below(40000), 'x') +
                                           table.Line(random, "") + Repeat(random);
        case 4:
            return table.Line(random, head) + std::string(1, '\0') + table.Line(random, head);
        case 5:
            return "";
        case 6:
            return table.Line(random, head, 16380 + random.Below(8)) +
                   (random.Chance(50) ? table.Line(random, head) : "");
        case 7:
        case 8:
        case 9:
            return table.Line(random, head, RandomLineLength(random));
        default:
            return random.Chance(40) ? table.Line(random, head)
                                     : head + random.Text(random.Below(150), "abcdefgh irs12:");
        }
    }

    // Many lines have the head of the one before, as in a log.
    static std::string News(Random &random, const RandomTable &table)
    {
        std::string news;
        std::string head = Stamp() + " host prog: ";
        const size_t size = random.Below(random.Chance(80) ? 40000 : 300000);
        while (news.size() < size) {
            if (random.Chance(20))
                head = RandomHead(random, *Sys().now);
            news += Text(random, table, head) + "\n";
        }
        return news + (random.Chance(20) ? head + "half a line" : "");
    }

    // Everything of a module and its registry before a pass, to begin again from there.
    struct Before {
        std::vector<int32_t> counters = HitCounters();
        ResumePoint point = StoredResumePoint();
        std::string text = content[0];
        int64_t pos = curpos[0];
        decltype(lastendtime) end_time = lastendtime;
    };

    static void GoBackTo(const Before &before)
    {
        SetHitCounters(before.counters);
        StoreResumePoint(0, before.point);
        snprintf(content[0], sizeof content[0], "%s", before.text.c_str());
        curpos[0] = before.pos;
        lastendtime = before.end_time;
    }

    // Without the reader's own records, which tell of blocks.
    static Outcome Pass(
        int64_t least_news, const std::function<void()> &at_report = [] {})
    {
        least_news_for_stretches = least_news;
        Host().detail_is_on = false;
        BeginOutcome();
        Host().on_report = [note = Host().on_report, &at_report](const ReportRequest &request) {
            note(request);
            at_report();
        };
        WatchSyslogMain();
        NoteStep("place " + std::to_string(curpos[0]) + " " + content[0]);
        const ResumePoint point = StoredResumePoint();
        NoteStep("stored " + std::to_string(point.pos) + " " + point.content + " " + point.head);
        return TakeOutcome();
    }

    void ExpectSamePasses(Random &random, const RandomTable &table)
    {
        WriteLog("messages", Line("the first line", -3600) + "\n");
        WatchSyslogMain(); // begins at the end
        lastendtime = *Sys().now;
        for (int pass = 0; pass < 2; ++pass) {
            AppendLog("messages", News(random, table));
            *Sys().now += random.Between(0, 4000);
            bytes_left_to_blocks = random.Chance(50) ? kBlockSize : 1;
            const Before before;
            const Outcome by_line = Pass(kNever);
            GoBackTo(before);
            const Outcome by_stretch = Pass(1);
            ASSERT_EQ("", Difference(by_line, by_stretch));
        }
    }

  private:
    int64_t least_news_;
};

TEST_F(PassLinesTwin, PassesInStretchesAreAsPassesLineByLine)
{
    const uint64_t before = stretches_searched;
    uint64_t rounds = 0;
    Campaign("stretches", 250).Run([&](Random &random) {
        ++rounds;
        StartOver();
        TableShape shape = RandomShape(random);
        shape.entries = std::min<size_t>(shape.entries, 400);
        shape.expressions = false;
        const RandomTable table(random, shape);
        for (int i = 0; i < nCnt; ++i) {
            // Entries that match every line, or nearly, cannot be searched for.
            if (strlen(lpVKVMon[i]->Keyword1) < 2)
                random.Chance(95) ? strcpy(lpVKVMon[i]->Keyword1, "a word")
                                  : strcpy(lpVKVMon[i]->Keyword1, "");
        }
        report_ft = random.Between(0, 1);
        ExpectSamePasses(random, table);
    });
    EXPECT_LT(before + rounds, stretches_searched);
}

// The change comes at one of the reports: in the middle of a stretch, mostly, or at the line before the first one.
TEST_F(PassLinesTwin, ATableThatAReportChangesCountsFromTheNextEntryOn)
{
    Campaign("changed tables", 60).Run([this](Random &random) {
        const int change_at = random.Chance(30) ? 1 : random.Between(2, 30);
        const int kind = random.Between(0, 2);
        const uint64_t seed = random.Below(1000000);
        std::vector<Outcome> outcomes;
        for (const int64_t least : {kNever, int64_t{1}}) {
            Random same(seed);
            StartOver();
            lastendtime = *Sys().now;
            for (const char *word : {"disk", "fan", "power", "link"})
                AddEntry({.source = word, .keywords = {word, "", ""}});
            int count = 0;
            const auto at_report = [&] {
                if (++count != change_at)
                    return;
                if (kind == 0)
                    strcpy(lpVKVMon[0]->Keyword1, "quiet");
                else if (kind == 1)
                    strcpy(lpVKVMon[1]->Keyword2, "often");
                else
                    AddEntry({.source = "new", .keywords = {"quiet", "", ""}});
            };
            WriteLog("messages", Line("the first line", -3600) + "\n");
            WatchSyslogMain();
            std::string news = Line(same.Chance(30) ? "disk" : "a quiet line") + "\n";
            while (news.size() < 150000) {
                static constexpr const char *kTexts[] = {"disk", "fan often", "fan", "link",
                                                         "power"};
                news += Line(same.Chance(4) ? kTexts[same.Below(5)] : "a quiet line") + "\n";
            }
            AppendLog("messages", news);
            outcomes.push_back(Pass(least, at_report));
            EXPECT_LE(change_at, count);
        }
        outcomes[0].counters = outcomes[1].counters; // of tables that are gone
        EXPECT_EQ("", Difference(outcomes[0], outcomes[1]));
    });
}

// Of what is appended while the pass reads, as much is left for the next one as by blocks, and nothing is lost or counted
// twice. Where the table changes as well, the pass goes on by blocks from the middle of a stretch.
TEST_F(PassLinesTwin, AFileThatGrowsWhileItIsReadIsReadAsFarAsByBlocksAndToItsEndByTheNextPass)
{
    const uint64_t before = stretches_searched;
    Campaign("growing files", 60).Run([this](Random &random) {
        std::string news;
        size_t disks = 0;
        while (news.size() < 70000) {
            const bool is_disk = random.Chance(4);
            disks += is_disk ? 1 : 0;
            news += Line(is_disk ? "disk " : "a quiet line ", -60) +
                    std::string(random.Below(random.Chance(3) ? 20000 : 100), 'x') + "\n";
        }
        const size_t at = 1 + random.Below(disks + 1);
        const bool table_changes = random.Chance(30);
        Outcome outcomes[2];
        for (const bool in_stretches : {false, true}) {
            StartOver();
            AddEntry({.keywords = {"disk", "", ""}});
            WriteLog("messages", Line("the first line", -3600) + "\n");
            WatchSyslogMain();
            AppendLog("messages", news);
            size_t count = 0;
            const auto at_report = [&] {
                if (++count != at)
                    return;
                AppendLog("messages", news);
                if (table_changes)
                    strcpy(lpVKVMon[0]->Keyword2, "line");
            };
            outcomes[in_stretches] = Pass(in_stretches ? 1 : kNever, at_report);
            Pass(in_stretches ? 1 : kNever, at_report);
            EXPECT_EQ(at > disks ? disks : table_changes ? at : 2 * disks, count);
        }
        EXPECT_EQ("", Difference(outcomes[0], outcomes[1]));
    });
    EXPECT_LT(before, stretches_searched);
}

// The place is stored too far down, so the reader goes back for it, through a line longer than a block. What comes of that
// line is decided by the blocks that it has gone through: here, the piece by which it ends has a match.
TEST_F(PassLinesTwin, ALongLineIsCutByTheBlocksThroughWhichTheReaderHasGoneBack)
{
    const std::string head = Line("the first line", -3600);
    const std::string last_checked = Line("checked last", -3000);
    constexpr size_t kLength = 20000; // with its line end
    std::string longer = Line("longer than a block ", -2900);
    longer.resize(kLength - kBlockSize, 'x');
    longer += Line("disk", -2900);
    longer.resize(kLength - 1, 'y');
    const std::string behind = Line("behind it", -2800);
    std::string log =
        head + "\n" + last_checked + "\n" + Line("a new one", -2950) + "\n" + longer + "\n";
    const auto place = static_cast<int64_t>(log.size());
    log += behind + "\n";
    for (int i = 0; i < 1000; ++i)
        log += Line("a quiet line", -2000) + "\n";
    const uint64_t searched = stretches_searched;
    Outcome outcomes[2];
    for (const bool in_stretches : {false, true}) {
        WriteLog("messages", log);
        StoreResumePoint(0, {head, place, last_checked});
        Restart();
        lastendtime = *Sys().now;
        AddEntry({.keywords = {"disk", "", ""}});
        outcomes[in_stretches] = Pass(in_stretches ? 1 : kNever);
        EXPECT_EQ(1U, Host().reports.size());
    }
    EXPECT_EQ("", Difference(outcomes[0], outcomes[1]));
    EXPECT_LT(searched, stretches_searched);
}

TEST_F(PassLinesTwin, AFileThatShrinksWhileItIsReadEndsThePass)
{
    AddEntry({.keywords = {"disk", "", ""}});
    WriteLog("messages", Line("the first line", -3600) + "\n");
    WatchSyslogMain();
    std::string news;
    for (int i = 0; i < 9000; ++i)
        news += Line(i % 100 == 0 ? "disk " + std::to_string(i) : "a quiet line") + "\n";
    AppendLog("messages", news);
    int count = 0;
    const auto at_report = [&] {
        if (++count == 3)
            WriteLog("messages", "");
    };
    const uint64_t before = stretches_searched;
    Pass(1, at_report);
    EXPECT_EQ(before + 1, stretches_searched);
    EXPECT_LE(3, count);
    EXPECT_GT(40, count) << "no more than the lines that had been read";
    EXPECT_EQ(1, Host().Traced(1, "Get Next line failed."));
}

// The agent's name is shorter than the keyword, and decides how large the steps may be in which the log is searched.
TEST_F(PassLinesTwin, TheAgentsOwnLinesAreKnownWhereverItsNameStands)
{
    AddEntry({.keywords = {"tick tick tick tick", "", ""}, .report_count = 1000000});
    WriteLog("messages", Line("the first line", -3600) + "\n");
    WatchSyslogMain();
    constexpr int kLines = 4000;
    std::string news;
    for (int i = 0; i < kLines; ++i) {
        const bool is_own = i % 10 == 0;
        const auto before = static_cast<size_t>(is_own ? i / 10 % 50 : 300);
        news += Line(std::string(before, '.') + (is_own ? "TARSKvkvmain" : "") +
                     " tick tick tick tick " + std::to_string(i)) +
                "\n";
    }
    AppendLog("messages", news);
    Pass(1);
    EXPECT_EQ(kLines * 9 / 10, lpVKVMon[0]->CurrentCount);
    EXPECT_TRUE(anchor_search.kind.step > 4 || !ClassFilterWorks()) << "large steps";
}

TEST_F(PassLinesTwin, WhereDetailIsTracedOrTheServerIsFaultTolerantEachLineIsReadByItself)
{
    for (const bool fault_tolerant : {false, true}) {
        StartOver();
        IsFTServer = fault_tolerant ? 1 : 0;
        AddEntry({.keywords = {"disk", "", ""}});
        WriteLog("messages", Line("the first line", -3600) + "\n");
        WatchSyslogMain();
        std::string news;
        for (int i = 0; i < 1000; ++i)
            news += Line("a quiet line") + "\n";
        AppendLog("messages", news);
        least_news_for_stretches = 1;
        Host().detail_is_on = !fault_tolerant;
        const uint64_t before = stretches_searched;
        WatchSyslogMain();
        EXPECT_EQ(before, stretches_searched);
        EXPECT_EQ(fault_tolerant ? 0U : 1000U, CheckedLines().size());
    }
}

} // namespace
} // namespace test

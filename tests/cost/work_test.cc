// A pass is fast by a few mechanisms, and without them it is slow and nothing else: no result would tell. So the work
// is counted, and here is how much of it there may be.
#include <string>

#include "match/anchors.h"
#include "match/block_search.h"
#include "match/class_filter.h"
#include "match/compiled.h"
#include "match/crowds.h"
#include "match/index.h"
#include "match/literal_set.h"
#include "match/loud_lines.h"
#include "match/relied_on.h"
#include "match/report.h"
#include "stamp/syslog_time.h"
#include "tests/unit/vkevmon/pass_fixture.h"
#include "vkevmon/pass.h"
#include "vkevmon/pass_lines.h"

namespace test {
namespace {

// How much each counter grows.
struct Work {
    uint64_t indexes = indexes_built;
    uint64_t stretches = stretches_searched;
    uint64_t sieves = sieves_made;
    uint64_t seconds = seconds_compared;
    uint64_t compared = literals_compared;
    uint64_t found = literals_found;
    uint64_t expressions = expressions_compiled;
    uint64_t tried = expressions_tried;
    uint64_t stamps = stamps_learned;
    uint64_t tables = tables_compared;
    uint64_t zones = zones_looked_up;
    uint64_t traced = Host().traced;

    [[nodiscard]] Work Since(const Work &before) const
    {
        Work work;
        work.indexes = indexes - before.indexes;
        work.stretches = stretches - before.stretches;
        work.sieves = sieves - before.sieves;
        work.seconds = seconds - before.seconds;
        work.compared = compared - before.compared;
        work.found = found - before.found;
        work.expressions = expressions - before.expressions;
        work.tried = tried - before.tried;
        work.stamps = stamps - before.stamps;
        work.tables = tables - before.tables;
        work.zones = zones - before.zones;
        work.traced = traced - before.traced;
        return work;
    }
};

class WorkOfAPass : public SyslogScanTest {
  protected:
    static constexpr int kLinesOfASecond = 50;

    static std::string QuietLines(int lines, const std::string &text)
    {
        std::string news;
        for (int i = 0; i < lines; ++i)
            news += Line(text + std::to_string(i), (i / kLinesOfASecond) - 3000) + "\n";
        return news;
    }

    // Of two kinds, one after the other.
    static std::string QuietLinesOf(int lines, const std::string &odd, const std::string &even)
    {
        std::string news;
        for (int i = 0; i < lines; ++i)
            news += Line((i % 2 == 0 ? even : odd) + std::to_string(i), -3000) + "\n";
        return news;
    }

    // Of a pass over so many new lines, of which none matches.
    Work Of(int lines)
    {
        AddEntry({.keywords = {"disk", "error", ""}});
        return OfNews(QuietLines(lines, "a line of which nothing is to be told, number "));
    }

    Work OfNews(const std::string &news)
    {
        WriteLog("messages", Line("the first line", -3600) + "\n");
        WatchSyslogMain(); // begins at the end
        bytes_ = news.size();
        AppendLog("messages", news);
        Host().record_trace = false;
        Host().detail_is_on = false;
        const Work before;
        WatchSyslogMain();
        return Work().Since(before);
    }

    static bool AnyCrowd()
    {
        for (int anchor = 0; anchor < anchor_count; ++anchor) {
            if (CrowdOf(static_cast<uint16_t>(anchor)) != nullptr)
                return true;
        }
        return false;
    }

    size_t bytes_ = 0;
};

TEST_F(WorkOfAPass, WithFewLinesBuildsNoIndex)
{
    EXPECT_EQ(0U, Of(30).indexes);
}

TEST_F(WorkOfAPass, WithMoreLinesBuildsTheIndexOnce)
{
    const Work work = Of(2000);
    EXPECT_EQ(1U, work.indexes);
    EXPECT_EQ(0U, work.stretches);
}

// The only keyword of an entry is its first.
TEST_F(WorkOfAPass, LooksAtAnEntryOfOneKeywordOnlyInLinesThatHoldIt)
{
    AddEntry({.keywords = {"disk", "", ""}});
    BuildIndex();
    static const FoundLiterals nothing{};
    static Candidates candidates;
    FindCandidates(nothing, &candidates);
    EXPECT_EQ(0, candidates.count);
    DropIndex();
}

TEST_F(WorkOfAPass, LooksTheZoneUpOnceAndNotForEachLine)
{
    // Once for the time, twice for each hour of the log.
    const uint64_t zones = Of(2000).zones;
    EXPECT_LE(3U, zones);
    EXPECT_GE(8U, zones);
}

TEST_F(WorkOfAPass, WithMuchNewsSearchesItInStretches)
{
    constexpr size_t kStretch = size_t{64} * 1024;
    const Work work = Of(80000);
    EXPECT_EQ(1U, work.indexes);
    EXPECT_LE((bytes_ / kStretch) - 1, work.stretches);
    EXPECT_GE((bytes_ / kStretch) + (bytes_ / kStretch / 100) + 2, work.stretches);
    EXPECT_EQ(1U, work.sieves);
}

// Who watches the monitor takes each call of the trace for a sign of life, whether it is written or not: a pass over
// gigabytes of quiet lines must not look like one that hangs.
TEST_F(WorkOfAPass, GivesASignOfLifeWithEachStretchOfQuietLinesAndNotWithEachLine)
{
    constexpr int kLines = 80000;
    const Work work = Of(kLines);
    EXPECT_LE(work.stretches, work.traced);
    EXPECT_GE(uint64_t{kLines} / 20, work.traced);
}

TEST_F(WorkOfAPass, ChoosesAnewWhatToSearchForWhenTheLogHasChanged)
{
    AddEntry({.keywords = {"disk failure", "", ""}});
    const Work work = OfNews(QuietLines(30000, "a line of which nothing is to be told, number ") +
                             QuietLines(80000, "disk failur, disk failur, disk failur, ") +
                             QuietLines(80000, "isk failure, isk failure, isk failure, "));
    EXPECT_LE(2U, work.sieves);
    EXPECT_GE(4U, work.sieves);
}

// Behind a phrase that many entries share, their second keywords are looked for by what they begin with: three bytes of it,
// where the processor can.
TEST_F(WorkOfAPass, ComparesSecondKeywordsOnlyWhereTheyMayStand)
{
    if (!ClassFilterWorks())
        GTEST_SKIP() << "this processor looks for two bytes";
    for (const char *device : {"qz1", "qz2", "qz3", "qz4", "qz5", "qz6"})
        AddEntry({.keywords = {"link went down on", device, ""}});
    constexpr int kLines = 80000;
    const Work work =
        OfNews(QuietLinesOf(kLines, "link went down on qz, z1 z2 z3 z4 z5 z6 are well, number ",
                            "qz1 qz2 qz3 qz4 qz5 qz6 are well, number "));
    EXPECT_TRUE(AnyCrowd());
    EXPECT_LE(uint64_t{kLines} / 3, work.found); // the phrase
    EXPECT_GE(uint64_t{kLines} / 100, work.seconds);
}

// Of phrases put together from a few parts, the whole is mostly compared where what differs stands.
TEST_F(WorkOfAPass, ComparesPhrasesWhereTheyDifferAndNotWhereTheyAreAlike)
{
    constexpr int kLines = 80000;
    std::vector<std::string> phrases;
    for (const char *subject : {"link state", "write cache", "path check", "device reset", "bus"}) {
        for (const char *state : {"was refused by", "lost its quorum at", "is unstable on"}) {
            phrases.push_back(std::string(subject) + " " + state);
            AddEntry({.keywords = {phrases.back(), "", ""}, .report_count = 2 * kLines});
        }
    }
    std::string news;
    for (size_t i = 0; i < kLines; ++i)
        news += Line(phrases[i % phrases.size()] + " number " + std::to_string(i), -3000) + "\n";
    const Work work = OfNews(news);
    EXPECT_LE(uint64_t{kLines} * 9 / 10, work.found);
    EXPECT_GE(work.found * 5 / 2, work.compared);
}

// Keywords that begin alike are entered under the bytes in which they differ.
TEST_F(WorkOfAPass, LooksALiteralUpWhereItSharesTheLeastWithOthers)
{
    const std::string shared = "link went down on";
    for (const bool differ_at_the_head : {false, true}) {
        ClearLiterals();
        std::vector<std::string> keywords;
        for (int i = 10; i < 60; ++i)
            keywords.push_back(differ_at_the_head ? "qz" + std::to_string(i) + " " + shared
                                                  : shared + " qz" + std::to_string(i));
        for (const std::string &keyword : keywords)
            WantLiteral(AddLiteral(keyword.data(), keyword.size()));
        PrepareLiterals();
        const std::string line = shared + " the other side" + std::string(kSearchPadding, ' ');
        FoundLiterals found = {};
        const uint64_t before = windows_compared;
        FindLiterals(line.data(), line.size() - kSearchPadding, &found);
        EXPECT_EQ(0, found.count);
        EXPECT_GE(2U, windows_compared - before) << differ_at_the_head;
        ClearLiterals();
    }
}

// Any three bytes of this keyword stand in each line at least three times: looking for it in large steps finds less in vain.
TEST_F(WorkOfAPass, LooksInLargeStepsWhereLooksEverywhereFindMore)
{
    if (!ClassFilterWorks())
        GTEST_SKIP() << "this processor always goes in steps";
    constexpr int kLines = 40000;
    AddEntry({.keywords = {"tick tick tick tick", "", ""}, .report_count = 2 * kLines});
    OfNews(QuietLines(kLines, std::string(300, '.') + " tick tick tick tick "));
    EXPECT_EQ(11U, anchor_search.kind.step) << "as large as the agent's name allows";
}

TEST_F(WorkOfAPass, LooksEverywhereWhereThatFindsLess)
{
    if (!ClassFilterWorks())
        GTEST_SKIP() << "this processor always goes in steps";
    AddEntry({.keywords = {"a disk of the array has failed", "", ""}});
    OfNews(QuietLines(80000, "a disk of the array has been found, number "));
    EXPECT_EQ(1U, anchor_search.kind.step);
}

// Only a report can change the table.
TEST_F(WorkOfAPass, LooksAtTheTableAfterReportsAndNotAfterHits)
{
    AddEntry({.keywords = {"a line", "", ""}, .report_count = 500});
    EXPECT_EQ(4U, OfNews(QuietLines(2000, "a line that is counted, number ")).tables);
}

// And anew after so many bytes: what the C library keeps of some expressions grows with all that they are tried on.
TEST_F(WorkOfAPass, OnAFaultTolerantServerCompilesEachExpressionOnceForSomeLines)
{
    IsFTServer = 1;
    AddEntry({.keywords = {"disk [0-9]+ failed", "", ""}});
    AddEntry({.keywords = {"line", "number [a-z]", ""}});
    const Work work = OfNews(QuietLines(2000, "a line: disk has failed, number "));
    const uint64_t times = bytes_ / kBytesOfCompiled;
    EXPECT_LE(2 * (times - 1), work.expressions);
    EXPECT_GE(2 * (times + 1), work.expressions);
    EXPECT_EQ(0, ExpressionsKept()) << "behind the pass";
}

// The text that every match of it must hold stands in each second line. The first 32 lines come before the index.
TEST_F(WorkOfAPass, OnAFaultTolerantServerTriesAnExpressionOnlyWhereItsRequiredTextStands)
{
    IsFTServer = 1;
    AddEntry({.keywords = {"disk [0-9]+ has failed", "", ""}});
    const Work work =
        OfNews(QuietLinesOf(2000, "disk seven is well, number ", "disk seven has failed, number "));
    EXPECT_EQ(1000U - 32 / 2, work.tried);
}

TEST_F(WorkOfAPass, WithMuchNewsReadsTheStampOfASecondOnce)
{
    const ZoneGuard zone;
    ZoneGuard::Use("XXX-5:30"); // what a stamp stands for depends on it
    constexpr int kLines = 80000;
    const Work work = Of(kLines);
    EXPECT_LE(1U, work.stamps);
    EXPECT_GE(static_cast<uint64_t>(kLines / kLinesOfASecond) + 2, work.stamps);
    EXPECT_GE(8U, work.zones);
}

} // namespace
} // namespace test

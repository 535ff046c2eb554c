// What a pass reads, and repeats.
#include <climits>
#include <string>

#include "match/table_data.h"
#include "tests/unit/vkevmon/pass_fixture.h"
#include "tests/unit/vkevmon/pass_story.h"
#include "vkevmon/pass.h"

namespace {

using test::Checked;
using test::CheckedList;
using test::EventSpec;
using test::Host;
using test::kMonitorKey;
using test::kNow;
using test::Once;
using test::Pass;
using test::ResumePoint;
using test::Strings;

// ---- reading what is new ----

TEST_F(Pass, StartsAtTheEndOfTheLog)
{
    SetFolder({{"messages", Text({a_, b_})}});
    EXPECT_EQ(CheckedList{}, Run());
    EXPECT_EQ((Strings{"0 <Syslog is needn't to change.",
                       "0 <monitoring index:[1]: filename is empty, ignore."}),
              Own());
    EXPECT_EQ(PointAt(b_, {a_, b_}), StoredResumePoint());
    EXPECT_FALSE(Host().registry.Number(kMonitorKey, "RECORDTIME"));
}

TEST_F(Pass, ReadsWhatWasWrittenSinceTheLastOne)
{
    Follow({head_, a_});
    Append({b_, c_});
    EXPECT_EQ(Once({b_, c_}), Run());
    EXPECT_EQ(PointAt(c_, {head_, a_, b_, c_}), StoredResumePoint());
    Append({d_});
    EXPECT_EQ(Once({d_}), Run());
    EXPECT_EQ(PointAt(d_, {head_, a_, b_, c_, d_}), StoredResumePoint());
}

TEST_F(Pass, ReadsNothingTwice)
{
    Follow({head_, a_});
    Append({b_});
    Run();
    const std::string stored = Host().registry.Dump();
    EXPECT_EQ(CheckedList{}, Run());
    EXPECT_EQ((Strings{"0 Get end of file after GotoPos", "0 Get end of file /var/log/messages",
                       "0 <return 0", "0 <monitoring index:[1]: filename is empty, ignore."}),
              Own());
    EXPECT_EQ(stored, Host().registry.Dump());
    EXPECT_EQ(4, Host().Calls("RegSetValueEx")); // the place, as it was, and the end time
}

TEST_F(Pass, LeavesItsMarksInTheTraceLog)
{
    Follow({head_});
    Append({a_});
    Run();
    EXPECT_EQ("vkevmon", Host().trace.at(0).unit);
    EXPECT_EQ("WatchSyslogMain", Host().trace.at(0).function);
    EXPECT_EQ(">", Host().trace.at(0).text);
    EXPECT_EQ((Strings{"1 Can't get last end time, use current time " + std::string(kNow),
                       "0 Get end of file /var/log/messages", "0 <return 0",
                       "0 <monitoring index:[1]: filename is empty, ignore."}),
              Own());
}

TEST_F(Pass, GoesOnAfterARestart)
{
    Follow({head_, a_});
    Append({b_});
    Run();
    Append({c_});
    Restart();
    EXPECT_EQ(Once({c_}), Run());
    Restart();
    EXPECT_EQ(CheckedList{}, Run());
}

TEST_F(Pass, HandsEveryLineOverInFileOrderAlsoWithoutAStamp)
{
    Follow({head_});
    Append({b_, "no stamp", "", a_, "\ttab", a_});
    EXPECT_EQ(Once({b_, "no stamp", "", a_, "\ttab", a_}), Run());
    EXPECT_EQ(CheckedList{}, Run());
}

TEST_F(Pass, GoesOnBehindAnEmptyLine)
{
    Follow({head_});
    Append({a_, "", ""});
    EXPECT_EQ(Once({a_, "", ""}), Run());
    EXPECT_EQ((ResumePoint{head_, OffsetOf(a_, Text({head_, a_})) + ssize_t(a_.size()) + 2, ""}),
              StoredResumePoint());
    EXPECT_EQ(CheckedList{}, Run());
    Append({b_});
    EXPECT_EQ(Once({b_}), Run());
}

TEST_F(Pass, TakesTheUnfinishedLastLineForALine)
{
    Follow({head_});
    AppendLog("messages", a_ + "\n" + b_);
    EXPECT_EQ(Once({a_, b_}), Run());
    EXPECT_EQ(CheckedList{}, Run());
}

TEST_F(Pass, CutsALineAt3328Bytes)
{
    const std::string stamp = Line("");
    for (const size_t length : {3327U, 3328U, 3329U, 3330U, 9000U, 16383U}) {
        StartOver();
        Follow({head_});
        const std::string line = stamp + std::string(length - stamp.size(), 'x');
        Append({line, b_});
        EXPECT_EQ(Once({line.substr(0, 3328), b_}), Run()) << length;
    }
}

TEST_F(Pass, StoresTheFirst499BytesOfALineAndGoesOnFromThem)
{
    const std::string line = Line(std::string(2000, 'x'));
    Follow({head_});
    Append({line});
    EXPECT_EQ(Once({line}), Run());
    EXPECT_EQ(line.substr(0, 499), StoredResumePoint().content);
    Append({b_});
    Restart();
    EXPECT_EQ(Once({b_}), Run());
}

TEST_F(Pass, ReadsAcrossManyBlocks)
{
    Follow({head_});
    Strings lines;
    for (int i = 0; i < 600; ++i)
        lines.push_back(Line(std::to_string(i) + std::string(static_cast<size_t>(i), '.')));
    Append(lines);
    EXPECT_EQ(Once(lines), Run());
    EXPECT_EQ(CheckedList{}, Run());
}

TEST_F(Pass, TakesAZeroByteForTheEndOfALine)
{
    Follow({head_});
    AppendLog("messages", a_ + '\0' + "tail\n" + b_ + "\n");
    EXPECT_EQ(Once({a_, "tail", b_}), Run());
    AppendLog("messages", c_ + '\0' + "tail\n");
    EXPECT_EQ(Once({c_, "tail"}), Run());
    EXPECT_EQ(CheckedList{}, Run());
}

TEST_F(Pass, GoesOnBehindALineThatIsLongerThanABlock)
{
    const std::string line = Line(std::string(70000, 'x'));
    Follow({head_});
    Append({a_, line, b_});
    const CheckedList list = Run();
    EXPECT_EQ((Checked{a_, 1}), list.at(0));
    EXPECT_EQ((Checked{line.substr(0, 3328), 1}), list.at(1));
    EXPECT_EQ((Checked{b_, 1}), list.back());
    EXPECT_EQ(CheckedList{}, Run());
    Append({c_});
    EXPECT_EQ(Once({c_}), Run());
}

TEST_F(Pass, StartsAfreshWhenTheLogWasTruncated)
{
    Follow({head_, a_, b_});
    WriteLog("messages", Text({c_}));
    EXPECT_EQ(CheckedList{}, Run());
    EXPECT_EQ(PointAt(c_, {c_}), StoredResumePoint());
    Append({d_});
    EXPECT_EQ(Once({d_}), Run());
}

// ---- repeats ----

TEST_F(Pass, FoldsRepeatsIntoTheLineBefore)
{
    Follow({head_});
    Append({a_, Repeat(3), Repeat(2), b_});
    EXPECT_EQ((CheckedList{{a_, 6}, {b_, 1}}), Run());
    ExpectStoredAt(b_, Text({head_, a_, Repeat(3), Repeat(2), b_}));
}

TEST_F(Pass, StoresTheLastRepeatWhenTheFileEndsInRepeats)
{
    Follow({head_});
    Append({a_, b_, Repeat(3), Repeat(2)});
    EXPECT_EQ((CheckedList{{a_, 1}, {b_, 6}}), Run());
    ExpectStoredAt(Repeat(2), Text({head_, a_, b_, Repeat(3), Repeat(2)}));
    EXPECT_EQ(CheckedList{}, Run());
    Restart();
    EXPECT_EQ(CheckedList{}, Run());
}

TEST_F(Pass, ChecksTheLineBeforeAgainForNewRepeatsOnly)
{
    Follow({head_});
    Append({a_});
    EXPECT_EQ(Once({a_}), Run());
    Append({Repeat(2), b_});
    EXPECT_EQ((CheckedList{{a_, 2}, {b_, 1}}), Run());
    ExpectStoredAt(b_, Text({head_, a_, Repeat(2), b_}));
}

TEST_F(Pass, AddsUpTheNewRepeats)
{
    Follow({head_});
    Append({a_});
    Run();
    Append({Repeat(2), Repeat(3), Repeat(4)});
    EXPECT_EQ((CheckedList{{a_, 9}}), Run());
    ExpectStoredAt(Repeat(4), Text({head_, a_, Repeat(2), Repeat(3), Repeat(4)}));
    EXPECT_EQ(CheckedList{}, Run());
}

TEST_F(Pass, LooksBackOverRepeatsThatAreCountedAlready)
{
    Follow({head_});
    Append({a_, Repeat(10), Repeat(20)});
    EXPECT_EQ((CheckedList{{a_, 31}}), Run());
    Append({Repeat(2)});
    EXPECT_EQ((CheckedList{{a_, 2}}), Run());
    Append({Repeat(5), b_, Repeat(1)});
    EXPECT_EQ((CheckedList{{a_, 5}, {b_, 2}}), Run());
}

TEST_F(Pass, LooksBackAcrossBlocks)
{
    Strings lines = {head_, a_};
    for (int i = 0; i < 700; ++i) // about three blocks
        lines.push_back(Repeat(i));
    Follow(lines);
    Append({Repeat(3), b_});
    EXPECT_EQ((CheckedList{{a_, 3}, {b_, 1}}), Run());
}

TEST_F(Pass, DropsRepeatsWithNothingBeforeThem)
{
    Follow({Repeat(1), Repeat(2)});
    Append({Repeat(3), Repeat(4), a_});
    EXPECT_EQ(Once({a_}), Run());
    Append({Repeat(5)});
    EXPECT_EQ((CheckedList{{a_, 5}}), Run());
}

TEST_F(Pass, ChecksALineWithoutAStampAgainForItsRepeats)
{
    Follow({head_});
    Append({"no stamp"});
    Run();
    Append({Repeat(2)});
    EXPECT_EQ((CheckedList{{"no stamp", 2}}), Run());
}

TEST_F(Pass, ChecksAnEmptyLineAgainForItsRepeats)
{
    Follow({head_});
    Append({""});
    Run();
    Append({Repeat(2), a_});
    EXPECT_EQ((CheckedList{{"", 2}, {a_, 1}}), Run());
}

TEST_F(Pass, TakesARepeatWithoutANumberForALine)
{
    for (const char *text : {"last message repeated", "last message repeated many times",
                             "last message repeated times", "Last message repeated 3 times",
                             "last message  repeated 3 times", "last message repeated - 3 times",
                             "last message repeated: 3 times"}) {
        StartOver();
        Follow({head_});
        Append({a_, Line(text), b_});
        EXPECT_EQ(Once({a_, Line(text), b_}), Run()) << text;
        Append({Line(text)}); // at the head of the new part, too
        EXPECT_EQ(Once({Line(text)}), Run()) << text;
    }
}

TEST_F(Pass, NeedsOnlyTheNumberOfARepeat)
{
    for (const char *text :
         {"last message repeated 3 times", "last message repeated 3", "last message repeated    3x",
          "last message repeated3 times", "last message repeated +3 times",
          "xlast message repeated 3 timesx", "last message repeated 3.9 times",
          "last message repeated 003 times"}) {
        StartOver();
        Follow({head_});
        Append({a_, Line(text), b_});
        EXPECT_EQ((CheckedList{{a_, 4}, {b_, 1}}), Run()) << text;
        Append({text}); // anywhere in the line, also at its head
        EXPECT_EQ((CheckedList{{b_, 3}}), Run()) << text;
    }
}

TEST_F(Pass, ReadsTheNumberBehindTheFirstRepeatTextOfALine)
{
    const std::string second = Line("last message repeated x, last message repeated 4 times");
    Follow({head_});
    Append({a_, second});
    EXPECT_EQ(Once({a_, second}), Run());
}

TEST_F(Pass, AddsRepeatNumbersOfAnySign)
{
    Follow({head_});
    Append({a_, Repeat(0), b_, Repeat(-5), Repeat(2), c_});
    EXPECT_EQ((CheckedList{{a_, 1}, {b_, -2}, {c_, 1}}), Run());
    Append({Repeat(-7)});
    EXPECT_EQ((CheckedList{{c_, -7}}), Run());
}

TEST_F(Pass, StopsAddingRepeatsAtTheLimitOfTheNumber)
{
    Follow({head_});
    Append({a_, Repeat(INT_MAX), Repeat(5), b_, Repeat(INT_MIN), Repeat(-9)});
    EXPECT_EQ((CheckedList{{a_, INT_MAX}, {b_, INT_MIN}}), Run());
}

TEST_F(Pass, SeesARepeatTextWithinTheHandledPartOfALineOnly)
{
    const std::string text = "last message repeated 3 times";
    const std::string inside = Line(std::string(3000, 'x') + text);
    const std::string outside = Line(std::string(3328, 'x') + text);
    Follow({head_});
    Append({a_, inside, b_, outside});
    EXPECT_EQ((CheckedList{{a_, 4}, {b_, 1}, {outside.substr(0, 3328), 1}}), Run());
}

// Of more lines than are handled one by one.
TEST_F(Pass, FindsTheLastEntryOfAFullTableInEachLine)
{
    Follow({head_});
    while (nCnt < kMaxEntries - 1)
        AddEntry({.keywords = {"nowhere " + std::to_string(nCnt), "", ""}});
    AddEntry({.keywords = {"the last of all", "", ""}});
    Append(Strings(100, Line("the last of all", -9)));
    Host().record_trace = false;
    Host().detail_is_on = false;
    Run();
    EXPECT_EQ(100U, Host().reports.size());
}

TEST_F(Pass, CountsTheHitsOfALineWithItsRepeats)
{
    EventSpec event;
    event.keywords[0] = "A";
    event.report_count = 4;
    const VKVMon *entry = AddEntry(event);
    Follow({head_});
    Append({a_, Repeat(2)});
    Run();
    EXPECT_EQ(3, entry->CurrentCount);
    Append({Repeat(3)});
    Run();
    EXPECT_EQ(0, entry->CurrentCount);
    ASSERT_EQ(1U, Host().reports.size());
    EXPECT_EQ(a_, Host().reports[0].message);
}

} // namespace


#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "regacc/last_end_time.h"
#include "tests/unit/vkevmon/pass_fixture.h"
#include "vkevmon/pass.h"

namespace {

using test::Checked;
using test::CheckedList;
using test::EventSpec;
using test::Host;
using test::kMonitorKey;
using test::NotableRecordsOf;
using test::Once;
using test::RecordsOf;
using test::ResumePoint;
using test::Strings;
using test::Sys;

constexpr char kNow[] = "Sun Mar 10 12:00:00 2024\n"; // the clock of these tests, as ctime shows it

class Pass : public test::SyslogScanTest {
  protected:
    // One pass. Gives what CheckLine got.
    static CheckedList Run()
    {
        Host().ForgetRecords();
        WatchSyslogMain();
        ExpectNothingHeld();
        return CheckedLines();
    }

    // Starts to follow a system log with these lines.
    void Follow(const Strings &lines) const
    {
        SetFolder({{"messages", Text(lines)}});
        EXPECT_EQ(CheckedList{}, Run());
    }

    void Append(const Strings &lines) const { AppendLog("messages", Text(lines)); }

    static Strings Own() { return RecordsOf("WatchSyslogMain"); }
    static Strings OwnNotable() { return NotableRecordsOf("WatchSyslogMain"); }

    static std::string Repeat(int64_t times)
    {
        return Line("last message repeated " + std::to_string(times) + " times");
    }

    // The stored place is this line of the live file, the last one when it occurs again.
    void ExpectStoredAt(const std::string &line, const std::string &text) const
    {
        const size_t end = ("\n" + text).rfind("\n" + line + "\n");
        ASSERT_NE(std::string::npos, end);
        EXPECT_EQ(static_cast<int64_t>(end), StoredResumePoint().pos);
        EXPECT_EQ(line, StoredResumePoint().content);
    }

    const std::string head_ = Line("head", -99);
    const std::string a_ = Line("A", -9);
    const std::string b_ = Line("B", -8);
    const std::string c_ = Line("C", -7);
    const std::string d_ = Line("D", -6);
};

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

// ---- rotation ----

class RotatedPass : public Pass {
  protected:
    const std::string head1_ = Line("head of the newer", -70);
    const std::string head2_ = Line("head of the newest", -40);
};

TEST_F(RotatedPass, FinishesTheBackupThenReadsTheLiveFile)
{
    Follow({head_, a_});
    // Written, rotated, and written on.
    SetFolder({{"messages.1", Text({head_, a_, b_})}, {"messages", Text({head1_, c_})}});
    EXPECT_EQ(Once({b_, head1_, c_}), Run());
    EXPECT_EQ(PointAt(c_, {head1_, c_}), StoredResumePoint());
    EXPECT_EQ(
        (Strings{"1 Can't get last end time, use current time " + std::string(kNow),
                 "0 Get end of file /var/log/messages.1", "0 Get end of file /var/log/messages",
                 "0 <return 0", "0 <monitoring index:[1]: filename is empty, ignore."}),
        Own());
    Append({d_});
    EXPECT_EQ(Once({d_}), Run());
}

TEST_F(RotatedPass, ReadsTheLiveFileFromItsFirstLineWhenTheBackupWasFinished)
{
    Follow({head_, a_});
    SetFolder({{"messages.1", Text({head_, a_})}, {"messages", Text({head1_, c_})}});
    EXPECT_EQ(Once({head1_, c_}), Run());
    EXPECT_EQ(1, Host().Traced(0, "Get end of file after GotoPos"));
    EXPECT_EQ(PointAt(c_, {head1_, c_}), StoredResumePoint());
}

TEST_F(RotatedPass, ReadsEveryFileThatIsNewerThanTheOneItStoppedIn)
{
    Follow({head_, a_});
    SetFolder({{"messages.4", Text({"too old", "x"})},
               {"messages.3", Text({head_, a_, b_})},
               {"messages.2", Text({head1_})},
               {"messages.1", Text({c_, c_})},
               {"messages", Text({head2_, d_})}});
    EXPECT_EQ(Once({b_, head1_, c_, c_, head2_, d_}), Run());
    EXPECT_EQ(PointAt(d_, {head2_, d_}), StoredResumePoint());
    EXPECT_EQ(CheckedList{}, Run());
}

TEST_F(RotatedPass, FollowsDatedBackups)
{
    Follow({head_, a_});
    SetFolder({{"messages-20240301", Text({"too old"})},
               {"messages-20240303", Text({head_, a_, b_})},
               {"messages-20240310", Text({head1_, c_})},
               {"messages", Text({head2_})}});
    EXPECT_EQ(Once({b_, head1_, c_, head2_}), Run());
    EXPECT_EQ(PointAt(head2_, {head2_}), StoredResumePoint());
    EXPECT_EQ(1, Host().Traced(0, "Get end of file /var/log/messages-20240303"));
}

TEST_F(RotatedPass, WaitsWhileTheLiveFileIsStillEmpty)
{
    Follow({head_, a_});
    SetFolder({{"messages.1", Text({head_, a_, b_})}, {"messages", ""}});
    EXPECT_EQ(CheckedList{}, Run());
    EXPECT_EQ((Strings{"1 < CheckSyslog(0) failed."}), OwnNotable());
    EXPECT_EQ(PointAt(a_, {head_, a_}), StoredResumePoint());
    Append({head1_});
    EXPECT_EQ(Once({b_, head1_}), Run());
}

TEST_F(RotatedPass, DropsRepeatsAtTheHeadOfANewFile)
{
    Follow({head_, a_});
    SetFolder({{"messages.1", Text({head_, a_})}, {"messages", Text({Repeat(3), b_})}});
    EXPECT_EQ(Once({b_}), Run());
    EXPECT_EQ(PointAt(b_, {Repeat(3), b_}), StoredResumePoint());
}

TEST_F(RotatedPass, StoresNoPlaceBehindRepeatsThatAreAllOfANewFile)
{
    Follow({head_, a_});
    SetFolder({{"messages.1", Text({head_, a_})}, {"messages", Text({Repeat(3)})}});
    EXPECT_EQ(CheckedList{}, Run());
    EXPECT_EQ((ResumePoint{Repeat(3), -1, ""}), StoredResumePoint());
    Append({Repeat(4)});
    EXPECT_EQ(CheckedList{}, Run());
    ExpectStoredAt(Repeat(4), Text({Repeat(3), Repeat(4)}));
    Append({b_});
    EXPECT_EQ(Once({b_}), Run());
}

TEST_F(RotatedPass, StoresARepeatBehindAnEmptyFirstLine)
{
    Follow({head_, a_});
    SetFolder({{"messages.1", Text({head_, a_})}, {"messages", Text({"", Repeat(3)})}});
    EXPECT_EQ((CheckedList{{"", 4}}), Run());
    EXPECT_EQ((ResumePoint{"", 1, Repeat(3)}), StoredResumePoint());
}

TEST_F(RotatedPass, FoldsRepeatsWithinEachFile)
{
    Follow({head_, a_});
    SetFolder({{"messages.1", Text({head_, a_, Repeat(2), b_, Repeat(3)})},
               {"messages", Text({head1_, Repeat(4)})}});
    EXPECT_EQ((CheckedList{{a_, 2}, {b_, 4}, {head1_, 5}}), Run());
    ExpectStoredAt(Repeat(4), Text({head1_, Repeat(4)}));
}

TEST_F(RotatedPass, StoresEachFileItMovesToBeforeItReadsIt)
{
    AddEntry({}); // reports every line
    Follow({head_, a_});
    SetFolder({{"messages.2", Text({head_, a_, b_})},
               {"messages.1", Text({head1_, c_})},
               {"messages", Text({head2_, d_})}});
    std::vector<ResumePoint> points;
    Host().on_report = [&](const ReportRequest &) { points.push_back(StoredResumePoint()); };
    EXPECT_EQ(Once({b_, head1_, c_, head2_, d_}), Run());
    const ResumePoint before = PointAt(a_, {head_, a_});
    EXPECT_EQ((std::vector<ResumePoint>{
                  before, {head1_, -1, ""}, {head1_, -1, ""}, {head2_, -1, ""}, {head2_, -1, ""}}),
              points);
}

TEST_F(RotatedPass, ReadsAFileAgainAfterAnInterruption)
{
    Follow({head_, a_});
    SetFolder({{"messages.1", Text({head1_, c_})}, {"messages", Text({head2_, d_})}});
    StoreResumePoint(0, {head1_, -1, ""}); // what a pass leaves that was broken in messages.1
    Restart();
    EXPECT_EQ(Once({head1_, c_, head2_, d_}), Run());
}

TEST_F(RotatedPass, FindsTheFileThatMovedBetweenTwoPasses)
{
    Follow({head_, a_});
    Append({b_});
    EXPECT_EQ(Once({b_}), Run());
    RenameLog("messages", "messages.1");
    WriteLog("messages", Text({head1_}));
    EXPECT_EQ(Once({head1_}), Run());
    RenameLog("messages.1", "messages.2");
    AppendLog("messages", Text({c_}));
    RenameLog("messages", "messages.1");
    WriteLog("messages", Text({head2_}));
    EXPECT_EQ(Once({c_, head2_}), Run());
    EXPECT_EQ(CheckedList{}, Run());
}

TEST_F(RotatedPass, SkipsABackupThatHasGoneMeanwhile)
{
    Follow({head_, a_});
    SetFolder({{"messages.2", Text({head_, a_, b_})},
               {"messages.1", Text({head1_, c_})},
               {"messages", Text({head2_, d_})}});
    // Each of the three was opened once to look for the head line.
    Sys().BeforeCall("open", 4, [this] { RemoveLog("messages.1"); });
    EXPECT_EQ(Once({b_, head2_, d_}), Run());
    EXPECT_EQ((Strings{"1 Can't get last end time, use current time " + std::string(kNow),
                       "1 Init Syslog file /var/log/messages.1 failed."}),
              OwnNotable());
    EXPECT_EQ(PointAt(d_, {head2_, d_}), StoredResumePoint());
}

TEST_F(RotatedPass, SkipsABackupThatWasEmptiedMeanwhile)
{
    Follow({head_, a_});
    SetFolder({{"messages.2", Text({head_, a_, b_})},
               {"messages.1", Text({head1_, c_})},
               {"messages", Text({head2_, d_})}});
    Sys().BeforeCall("open", 4, [this] { WriteLog("messages.1", ""); });
    Strings heads;
    AddEntry({});
    Host().on_report = [&](const ReportRequest &) { heads.push_back(StoredResumePoint().head); };
    EXPECT_EQ(Once({b_, head2_, d_}), Run());
    EXPECT_EQ((Strings{head_, head2_, head2_}), heads);
    EXPECT_EQ((Strings{"1 Can't get last end time, use current time " + std::string(kNow)}),
              OwnNotable());
}

// What a pass says that a rotation made look for its place again: nothing of it, for nothing has failed.
const Strings kNoFailure = {"1 Can't get last end time, use current time " + std::string(kNow)};

TEST_F(RotatedPass, LooksAgainWhenTheLogWasRotatedBetweenTheLookAndTheReading)
{
    Follow({head_, a_});
    SetFolder({{"messages", Text({head_, a_, b_})}});
    Sys().BeforeCall("open", 2, [this] { // opened once to look for the head line
        RenameLog("messages", "messages.1");
        WriteLog("messages", Text({head1_, c_}));
    });
    EXPECT_EQ(Once({b_, head1_, c_}), Run());
    EXPECT_EQ(kNoFailure, OwnNotable());
    EXPECT_EQ(PointAt(c_, {head1_, c_}), StoredResumePoint());
}

TEST_F(RotatedPass, LooksAgainWhenTheLogWasRotatedWhileABackupWasRead)
{
    Follow({head_, a_});
    SetFolder({{"messages.1", Text({head_, a_, b_})}, {"messages", Text({head1_, c_})}});
    Sys().BeforeCall("open", 4, [this] { // two to look, one to read messages.1
        RenameLog("messages.1", "messages.2");
        RenameLog("messages", "messages.1");
        WriteLog("messages", Text({head2_, d_}));
    });
    EXPECT_EQ(Once({b_, head1_, c_, head2_, d_}), Run());
    EXPECT_EQ(kNoFailure, OwnNotable());
}

TEST_F(RotatedPass, LooksAgainWhenTheLogWasRotatedAfterItsHeadLineWasStored)
{
    Follow({head_, a_});
    SetFolder({{"messages.1", Text({head_, a_, b_})}, {"messages", Text({head1_, c_})}});
    Sys().BeforeCall("open", 5, [this] { // two to look, messages.1, the head line of the live file
        RenameLog("messages.1", "messages.2");
        RenameLog("messages", "messages.1");
        WriteLog("messages", Text({head2_, d_}));
    });
    EXPECT_EQ(Once({b_, head1_, c_, head2_, d_}), Run());
    EXPECT_EQ(kNoFailure, OwnNotable());
}

TEST_F(RotatedPass, LooksAgainWhenOneBackupAloneWasReplaced)
{
    Follow({head_, a_});
    SetFolder({{"messages.2", Text({head_, a_, b_})},
               {"messages.1", Text({head1_, c_})},
               {"messages", Text({head2_, d_})}});
    Sys().BeforeCall("open", 4, [this] { // three to look
        WriteLog("other", Text({"another head", "of another file"}));
        RenameLog("other", "messages.1");
    });
    EXPECT_EQ(Once({b_, "another head", "of another file", head2_, d_}), Run());
    EXPECT_EQ(kNoFailure, OwnNotable());
}

TEST_F(RotatedPass, LooksAgainWhenTheLogWasRotatedAfterTheBackupsWereListed)
{
    Follow({head_, a_});
    SetFolder({{"messages", Text({head_, a_, b_})}});
    Sys().BeforeCall("open", 1, [this] {
        RenameLog("messages", "messages.1");
        WriteLog("messages", Text({head1_, c_}));
    });
    EXPECT_EQ(Once({b_, head1_, c_}), Run());
    EXPECT_EQ(kNoFailure, OwnNotable());
}

// A pass whose place moves from backup to backup, each time before it is read there.
class OftenRotatedPass : public RotatedPass {
  protected:
    void RotateBeforeEachOf(int readings, int backups = 0)
    {
        // The place is found in the oldest backup; the next file is the one that is read.
        Sys().BeforeCall("open", backups + 2, [this, readings, backups] {
            for (int number = backups; number >= 1; --number)
                RenameLog("messages." + std::to_string(number),
                          "messages." + std::to_string(number + 1));
            RenameLog("messages", "messages.1");
            WriteLog("messages", Text({NewHead(backups), NewLine(backups)}));
            if (readings > 1)
                RotateBeforeEachOf(readings - 1, backups + 1);
        });
    }
    static std::string NewHead(int number) { return Line("head " + std::to_string(number)); }
    static std::string NewLine(int number) { return Line("line " + std::to_string(number)); }
};

TEST_F(OftenRotatedPass, LooksAgainThreeTimes)
{
    Follow({head_, a_});
    SetFolder({{"messages", Text({head_, a_, b_})}});
    RotateBeforeEachOf(3);
    EXPECT_EQ(Once({b_, NewHead(0), NewLine(0), NewHead(1), NewLine(1), NewHead(2), NewLine(2)}),
              Run());
    EXPECT_EQ(kNoFailure, OwnNotable());
}

TEST_F(OftenRotatedPass, TakesTheFileAsItIsTheFourthTime)
{
    Follow({head_, a_});
    SetFolder({{"messages", Text({head_, a_, b_})}});
    RotateBeforeEachOf(4);
    // The place was found in messages.3, which is the log of the first rotation by now. All of it is newer, so
    // its first line is passed over.
    EXPECT_EQ(
        Once({NewLine(0), NewHead(1), NewLine(1), NewHead(2), NewLine(2), NewHead(3), NewLine(3)}),
        Run());
    EXPECT_EQ(kNoFailure, OwnNotable());
    EXPECT_EQ(4, Host().Traced(0, ">monindex=0"));
}

// ---- a rotation without backups to go back to ----

TEST_F(RotatedPass, ReadsAnotherFileAsItIsWhenThereAreNoBackups)
{
    Follow({head_, a_});
    SetFolder({{"messages", Text({head_, a_, b_})}});
    Sys().BeforeCall("open", 2, [this] {
        RenameLog("messages", "messages.old");
        WriteLog("messages", Text({head1_, Line("new", 1)}));
    });
    EXPECT_EQ(Once({Line("new", 1)}), Run());
    EXPECT_EQ(kNoFailure, OwnNotable());
    EXPECT_EQ(Line("new", 1), StoredResumePoint().content);
}

TEST_F(RotatedPass, StartsAfreshAtOnceWhenTheHeadLineIsInNoFileAnyMore)
{
    Follow({head_, a_});
    SetFolder({{"messages", Text({head_, a_, b_})}, {"messages.1", Text({"too old"})}});
    Sys().BeforeCall("open", 2, [this] {
        RenameLog("messages", "messages.old");
        WriteLog("messages", Text({head1_, c_}));
    });
    EXPECT_EQ(CheckedList{}, Run());
    EXPECT_EQ("0 <Syslog is needn't to change.", Own().at(1));
    EXPECT_EQ(PointAt(c_, {head1_, c_}), StoredResumePoint());
    Append({d_});
    EXPECT_EQ(Once({d_}), Run());
}

TEST_F(RotatedPass, SkipsTheFileItStoppedInWhenThatHasGoneMeanwhile)
{
    Follow({head_, a_});
    SetFolder({{"messages.1", Text({head_, a_, b_})}, {"messages", Text({head1_, c_})}});
    Sys().BeforeCall("open", 3, [this] { RemoveLog("messages.1"); }); // to be read, this time
    EXPECT_EQ(Once({head1_, c_}), Run());
    EXPECT_EQ(1, Host().Traced(1, "Init Syslog file /var/log/messages.1 failed."));
    EXPECT_EQ(0, Host().Traced("Get end of file /var/log/messages.1"));
}

TEST_F(RotatedPass, EndsWithTheBackupWhenTheLiveFileHasGone)
{
    Follow({head_, a_});
    SetFolder({{"messages.1", Text({head_, a_, b_})}, {"messages", Text({head1_, c_})}});
    Sys().BeforeCall("open", 3, [this] { RemoveLog("messages"); });
    EXPECT_EQ(Once({b_}), Run());
    EXPECT_EQ(1, Host().Traced(1, "Init Syslog file /var/log/messages failed."));
    EXPECT_EQ(PointAt(b_, {head_, a_, b_}), StoredResumePoint());
    EXPECT_TRUE(Host().registry.Number(kMonitorKey, "RECORDTIME"));
    EXPECT_EQ(CheckedList{}, Run());
    EXPECT_EQ((Strings{"1 < CheckSyslog(0) failed."}), OwnNotable());
    WriteLog("messages", Text({head2_}));
    EXPECT_EQ(Once({head2_}), Run());
}

// ---- the two slots ----

class CustomerPass : public Pass {
  protected:
    void FollowBoth() const
    {
        SetFolder({{"messages", Text({head_})}, {"app.log", Text({"app head"})}});
        WatchCustomerFile("/var/log/app.log");
        EXPECT_EQ(CheckedList{}, Run());
    }
};

TEST_F(CustomerPass, ReadsTheSystemLogThenTheCustomerFile)
{
    FollowBoth();
    Append({a_, Repeat(1)});
    AppendLog("app.log", Text({b_, Repeat(2)}));
    EXPECT_EQ((CheckedList{{a_, 2}, {b_, 3}}), Run());
    EXPECT_EQ(1, gMonIndex);
    EXPECT_EQ(1, Host().Traced(0, "Get end of file /var/log/app.log"));
    EXPECT_EQ("app head", StoredResumePoint(1).head);
    EXPECT_EQ(Repeat(2), StoredResumePoint(1).content);
    EXPECT_EQ(head_, StoredResumePoint(0).head);
    EXPECT_EQ(CheckedList{}, Run());
}

TEST_F(CustomerPass, ReadsTheCustomerFileAlsoWithoutASystemLog)
{
    FollowBoth();
    RemoveLog("messages");
    AppendLog("app.log", Text({b_}));
    EXPECT_EQ(Once({b_}), Run());
    EXPECT_EQ("1 < CheckSyslog(0) failed.", Own().at(0));
}

TEST_F(CustomerPass, ReadsTheSystemLogAlsoWithoutTheCustomerFile)
{
    FollowBoth();
    RemoveLog("app.log");
    Append({a_});
    EXPECT_EQ(Once({a_}), Run());
    EXPECT_EQ("1 < CheckSyslog(1) failed.", Own().back());
}

TEST_F(CustomerPass, StartsAtTheEndOfANewCustomerFile)
{
    FollowBoth();
    WriteLog("other.log", Text({"other head", c_}));
    WatchCustomerFile("/var/log/other.log");
    IsCustFileChanged = 1;
    Append({a_});
    EXPECT_EQ(Once({a_}), Run());
    EXPECT_EQ("0 <Syslog is needn't to change.", Own().back());
    AppendLog("other.log", Text({d_}));
    EXPECT_EQ(Once({d_}), Run());
}

TEST_F(CustomerPass, ReadsACustomerFileWithAPathOfFullLength)
{
    const std::string name(254 - strlen("/var/log/"), 'n');
    SetFolder({{"messages", Text({head_})}, {name, Text({"app head"})}});
    WatchCustomerFile("/var/log/" + name);
    ASSERT_EQ(254U, strlen(syslogpath[1]));
    Run();
    AppendLog(name, Text({b_}));
    EXPECT_EQ(Once({b_}), Run());
}

TEST_F(CustomerPass, ReadsASystemLogWithoutANameNotAtAll)
{
    FollowBoth();
    Append({a_});
    syslogpath[0][0] = '\0';
    EXPECT_EQ(CheckedList{}, Run());
    EXPECT_EQ("0 <monitoring index:[0]: filename is empty, ignore.", Own().at(0));
}

TEST_F(CustomerPass, FollowsTheBackupsOfVmkernel)
{
    SetFolder({{"messages", Text({head_})}, {"vmkernel", Text({"vm head", a_})}});
    WatchCustomerFile("/var/log/vmkernel");
    Run();
    SetFolder({{"messages", Text({head_, d_})},
               {"messages.1", Text({"vm head", "of no concern"})},
               {"vmkernel.2", Text({"vm head", a_, b_})},
               {"vmkernel.1", Text({"newer head"})},
               {"vmkernel", Text({"newest head", c_})}});
    EXPECT_EQ(Once({d_, b_, "newer head", "newest head", c_}), Run());
    EXPECT_EQ(PointAt(c_, {"newest head", c_}), StoredResumePoint(1));
}

// ---- the end time ----

class EndTime : public Pass {
  protected:
    static std::optional<uint32_t> Stored()
    {
        return Host().registry.Number(kMonitorKey, "RECORDTIME");
    }
};

TEST_F(EndTime, IsStoredWhenASlotWasScanned)
{
    Follow({head_});
    EXPECT_EQ(0, lastendtime);
    EXPECT_EQ(std::nullopt, Stored());
    Run();
    EXPECT_EQ(*Sys().now, lastendtime);
    EXPECT_EQ(static_cast<uint32_t>(*Sys().now), Stored());
    SetClock(2024, 3, 10, 13, 0, 0);
    Run();
    EXPECT_EQ(*Sys().now, lastendtime);
    EXPECT_EQ(static_cast<uint32_t>(*Sys().now), Stored());
}

TEST_F(EndTime, IsNotStoredWhenASlotStartedAfreshOrFailed)
{
    Follow({head_});
    Host().registry.SetNumber(kMonitorKey, "RECORDTIME", 1234);
    RemoveLog("messages");
    Run();
    WriteLog("messages", Text({a_}));
    Run();
    EXPECT_EQ(1234U, Stored());
    EXPECT_EQ(0, lastendtime);
}

TEST_F(EndTime, IsNotStoredWhenARotationLeftNothingToRead)
{
    Follow({head_, a_});
    Append({b_});
    Sys().BeforeCall("open", 2, [this] {
        RenameLog("messages", "messages.1");
        WriteLog("messages", "");
    });
    EXPECT_EQ(CheckedList{}, Run());
    EXPECT_EQ("1 < CheckSyslog(0) failed.", OwnNotable().back());
    EXPECT_EQ(std::nullopt, Stored());
}

TEST_F(EndTime, IsStoredWhenARotationCameAfterAFileWasRead)
{
    Follow({head_, a_});
    SetFolder({{"messages.1", Text({head_, a_, b_})}, {"messages", Text({c_})}});
    Sys().BeforeCall("open", 4, [this] {
        RenameLog("messages.1", "messages.2");
        RenameLog("messages", "messages.1");
        WriteLog("messages", "");
    });
    EXPECT_EQ(Once({b_}), Run());
    EXPECT_EQ("1 < CheckSyslog(0) failed.", OwnNotable().back());
    EXPECT_EQ(static_cast<uint32_t>(*Sys().now), Stored());
}

TEST_F(EndTime, IsReadFromTheRegistryOnceAfterAStart)
{
    Follow({head_});
    Host().registry.SetNumber(kMonitorKey, "RECORDTIME", 1234);
    AddEntry({});
    Append({a_});
    time_t at_report = 0;
    Host().on_report = [&](const ReportRequest &) { at_report = lastendtime; };
    Run();
    EXPECT_EQ(1234, at_report);
    EXPECT_TRUE(OwnNotable().empty());
    EXPECT_EQ(1, static_cast<int>(RecordsOf("RegGetRecTime", "regacc").size()));

    Host().registry.SetNumber(kMonitorKey, "RECORDTIME", 77); // of no interest any more
    Append({b_});
    Run();
    EXPECT_EQ(*Sys().now, at_report);
    EXPECT_EQ(0, static_cast<int>(RecordsOf("RegGetRecTime", "regacc").size()));
}

TEST_F(EndTime, IsTheCurrentTimeWhenItCannotBeRead)
{
    Follow({head_});
    AddEntry({});
    Append({a_});
    time_t at_report = 0;
    Host().on_report = [&](const ReportRequest &) { at_report = lastendtime; };
    Run();
    EXPECT_EQ(*Sys().now, at_report);
    EXPECT_EQ((Strings{"1 Can't get last end time, use current time " + std::string(kNow)}),
              OwnNotable());
}

TEST_F(EndTime, OfASlotServesTheNextSlot)
{
    SetFolder({{"messages", Text({head_})}, {"app.log", Text({"app head"})}});
    WatchCustomerFile("/var/log/app.log");
    Run();
    Run();
    EXPECT_EQ(1, static_cast<int>(RecordsOf("RegGetRecTime", "regacc").size()));
    EXPECT_EQ(2, static_cast<int>(RecordsOf("RegSetRecTime", "regacc").size()));
}

TEST_F(EndTime, ThatCannotBeStoredIsTraced)
{
    Follow({head_});
    Run();
    Host().FailCall("RegCreateKeyEx", 2); // the place first, then the time
    Run();
    EXPECT_EQ((Strings{"1 Can't set last end time to registry: " + std::string(kNow)}),
              OwnNotable());
}

TEST_F(EndTime, ThatHasNoTextFormIsShownAsNull)
{
    Follow({head_});
    Sys().now = INT64_MAX;
    Host().FailCall("RegCreateKeyEx", 2);
    Run();
    EXPECT_EQ((Strings{"1 Can't get last end time, use current time NULL",
                       "1 Can't set last end time to registry: NULL"}),
              OwnNotable());
}

// ---- failures of the reader ----

class FailingPass : public Pass {
  protected:
    // The number of a system call counted from the start of a pass that is like the next one, but
    // ends in nothing new: the calls of CheckSyslog and those that open and position.
    static int CallsOfAnIdlePass(const std::string &name)
    {
        Sys().ForgetCalls();
        Run();
        return Sys().Calls(name);
    }
};

TEST_F(FailingPass, LeavesThePlaceWhenThereIsNoPositioning)
{
    Follow({head_, a_});
    const int last = CallsOfAnIdlePass("fseek");
    Append({b_});
    Sys().FailCall("fseek", last);
    EXPECT_EQ(CheckedList{}, Run());
    EXPECT_EQ((Strings{"1 Set syslog pos failed.", "0 Get end of file /var/log/messages",
                       "0 <return 0", "0 <monitoring index:[1]: filename is empty, ignore."}),
              Own());
    EXPECT_EQ(PointAt(a_, {head_, a_}), StoredResumePoint());
    EXPECT_EQ(Once({b_}), Run());
}

TEST_F(FailingPass, LeavesThePlaceWhenTheFirstNewLineCannotBeRead)
{
    Follow({head_, a_});
    const int last = CallsOfAnIdlePass("fseek");
    // So long that the block that begins with the checked line is cut behind that line.
    const std::string line = Line(std::string(16384, 'x'));
    Append({line});
    Sys().FailCall("fseek", last + 1);
    EXPECT_EQ(CheckedList{}, Run());
    EXPECT_EQ((Strings{"1 Get Next Line failed.", "0 Get end of file /var/log/messages",
                       "0 <return 0", "0 <monitoring index:[1]: filename is empty, ignore."}),
              Own());
    EXPECT_EQ(PointAt(a_, {head_, a_}), StoredResumePoint());
    EXPECT_EQ(line.substr(0, 3328), Run().at(0).line);
}

TEST_F(FailingPass, GoesOnLaterBehindTheLastLineItCouldRead)
{
    Follow({head_, a_});
    const int last = CallsOfAnIdlePass("fseek");
    const std::string line = Line(std::string(16384, 'x'));
    Append({b_, line, c_});
    Sys().FailCall("fseek", last + 1);
    EXPECT_EQ(Once({b_}), Run());
    EXPECT_EQ((Strings{"1 Get Next line failed."}), OwnNotable());
    ExpectStoredAt(b_, Text({head_, a_, b_}));
    EXPECT_EQ(line.substr(0, 3328), Run().at(0).line);
    EXPECT_EQ(c_, StoredResumePoint().content);
}

// The failed step leaves an empty line, not the repeat that was folded before it: the place is that
// of the line that was checked, and the repeat will be counted once more.
TEST_F(FailingPass, BehindARepeatStoresTheLineItBelongsTo)
{
    Follow({head_, a_});
    const int last = CallsOfAnIdlePass("fseek");
    Append({b_, Repeat(2), Line(std::string(16384, 'x'))});
    Sys().FailCall("fseek", last + 1);
    EXPECT_EQ((CheckedList{{b_, 3}}), Run());
    ExpectStoredAt(b_, Text({head_, a_, b_}));
    EXPECT_EQ((Checked{b_, 2}), Run().at(0));
}

TEST_F(FailingPass, DropsRepeatsWhenTheLineBeforeThemCannotBeRead)
{
    Follow({head_, a_, Repeat(1)});
    const int last = CallsOfAnIdlePass("fseek");
    Append({Repeat(2), b_});
    Sys().FailCall("fseek", last + 1); // the block before, which the walk back needs
    EXPECT_EQ(Once({b_}), Run());
    EXPECT_TRUE(OwnNotable().empty());
    ExpectStoredAt(b_, Text({head_, a_, Repeat(1), Repeat(2), b_}));
}

// ---- failures of the registry ----

TEST_F(FailingPass, TracesAPlaceThatCannotBeStored)
{
    Follow({head_, a_});
    Run();
    Append({b_});
    Host().FailCall("RegCreateKeyEx", 1);
    EXPECT_EQ(Once({b_}), Run());
    const std::string pos = std::to_string(OffsetOf(b_, Text({head_, a_, b_})));
    EXPECT_EQ((Strings{"1 RegSetOrientation error IGNORED: " + pos + " " + b_}), OwnNotable());
    EXPECT_EQ(Once({b_}), Run()); // the registry is the reference
}

TEST_F(FailingPass, TracesAnUnchangedPlaceThatCannotBeStored)
{
    Follow({head_, a_});
    Run();
    Host().FailCall("RegCreateKeyEx", 1);
    EXPECT_EQ(CheckedList{}, Run());
    const std::string pos = std::to_string(OffsetOf(a_, Text({head_, a_})));
    EXPECT_EQ((Strings{"1 Set orientation to reg error IGNORED: " + pos + " " + a_,
                       "0 Get end of file after GotoPos", "0 Get end of file /var/log/messages",
                       "0 <return 0", "0 <monitoring index:[1]: filename is empty, ignore."}),
              Own());
}

// ---- failures of CheckLine ----

// A clock of -1 stands one second before 1970, in December in this zone.
class PassWithoutAClock : public CustomerPass {
  protected:
    const std::string x_ = "Dec 31 22:00:01 host X";
    const std::string y_ = "Dec 31 22:00:02 host Y";
    const std::string z_ = "Dec 31 22:00:03 host Z";

    static std::string Failed(const std::string &line)
    {
        return "1 CheckLine: " + line + " --failed";
    }

    static Strings FailedChecks()
    {
        Strings list = OwnNotable();
        std::erase_if(list, [](const std::string &s) { return !s.starts_with("1 CheckLine"); });
        return list;
    }
};

TEST_F(PassWithoutAClock, TracesEachLineAndGoesOn)
{
    Follow({x_});
    Append({y_, z_});
    Sys().now = -1;
    EXPECT_EQ(Once({y_, z_}), Run());
    EXPECT_EQ((Strings{Failed(y_), Failed(z_)}), FailedChecks());
    EXPECT_EQ(PointAt(z_, {x_, y_, z_}), StoredResumePoint()); // they count as handled
}

TEST_F(PassWithoutAClock, TracesTheLineBeforeWhenItsRepeatsCannotBeChecked)
{
    const std::string repeat = "Dec 31 22:00:02 host last message repeated 2 times";
    Follow({x_});
    Append({y_});
    Run();
    Append({repeat, z_});
    Sys().now = -1;
    EXPECT_EQ((CheckedList{{y_, 2}, {z_, 1}}), Run());
    EXPECT_EQ((Strings{Failed(y_), Failed(z_)}), FailedChecks());
}

TEST_F(PassWithoutAClock, NamesTheSystemLogsLineWhileTheCustomerFileIsRead)
{
    FollowBoth();
    Append({x_});
    AppendLog("app.log", Text({y_, z_}));
    Sys().now = -1;
    EXPECT_EQ(Once({x_, y_, z_}), Run());
    EXPECT_EQ((Strings{Failed(x_), Failed(x_), Failed(x_)}), FailedChecks());
}

// ---- every host call fails once ----

// One call that a pass makes to the host, and what its failure comes to.
struct Step {
    std::string call;
    std::string message; // traced by the scan when it fails; empty: nothing
    bool starts_afresh = false;
    int group = 0;                             // the calls of one of the module's functions
    std::pair<std::string, std::string> value; // that it stores
};

using Values = std::map<std::string, std::string>;

// The calls of a pass, in order.
class PassScript {
  public:
    void Read(int values, const std::string &message, bool starts_afresh)
    {
        ++group_;
        Add({"RegOpenKeyEx", message, starts_afresh, group_, {}});
        for (int i = 0; i < values; ++i)
            Add({"RegQueryValueEx", message, starts_afresh, group_, {}});
        Add({"RegCloseKey", "", false, group_, {}});
    }

    void Write(const std::vector<std::pair<std::string, std::string>> &values,
               const std::string &message)
    {
        ++group_;
        Add({"RegCreateKeyEx", message, false, group_, {}});
        for (const auto &value : values)
            Add({"RegSetValueEx", message, false, group_, value});
        Add({"RegCloseKey", "", false, group_, {}});
    }

    void WritePlace(int64_t pos, const std::string &content, const std::string &message)
    {
        Write({{"POS", std::to_string(LowHalf(pos))},
               {"H_POS", std::to_string(HighHalf(pos))},
               {"CONTENT", content}},
              message);
    }

    void Report()
    {
        ++group_;
        Add({"TarskCodeConvert", "", false, group_, {}});
        Add({"VKMonitorCall", "", false, group_, {}});
    }

    [[nodiscard]] const std::vector<Step> &steps() const { return steps_; }

    [[nodiscard]] Strings Calls() const
    {
        Strings calls;
        for (const Step &step : steps_)
            calls.push_back(step.call);
        return calls;
    }

    // What the values are after the pass when this step failed: the rest of its group is not done.
    [[nodiscard]] Values ValuesAfter(Values values, size_t failed) const
    {
        for (size_t i = 0; i < steps_.size(); ++i) {
            const Step &step = steps_[i];
            const bool done =
                i < failed || step.group != steps_[failed].group || steps_[failed].message.empty();
            if (done && !step.value.first.empty())
                values[step.value.first] = step.value.second;
        }
        return values;
    }

  private:
    void Add(Step step) { steps_.push_back(std::move(step)); }

    std::vector<Step> steps_;
    int group_ = 0;
};

class PassStep : public Pass {
  protected:
    const std::string head1_ = Line("head of the newer", -70);
    const std::string head2_ = Line("head of the newest", -40);

    void Arrange()
    {
        StartOver();
        AddEntry({});
        SetFolder({{"messages.2", Text({head_, a_, b_})},
                   {"messages.1", Text({head1_, c_})},
                   {"messages", Text({head2_})}});
        StoreResumePoint(0, PointAt(a_, {head_, a_}));
        Host().registry.SetNumber(kMonitorKey, "RECORDTIME", 1234);
    }

    [[nodiscard]] PassScript Script() const
    {
        const std::string reset = "RegSetOrientation error IGNORED: -1, \"\\0\"";
        const int64_t pos_b = OffsetOf(b_, Text({head_, a_, b_}));
        const int64_t pos_c = OffsetOf(c_, Text({head1_, c_}));
        const auto stored = [](int64_t pos, const std::string &text) {
            return "RegSetOrientation error IGNORED: " + std::to_string(pos) + " " + text;
        };
        PassScript script;
        script.Read(1, "RegGetHeadLine error", true);
        script.Read(3, "RegGetOrientation error", true);
        script.Read(1, "Can't get last end time, use current time " + std::string(kNow), false);
        script.Report(); // b
        script.WritePlace(pos_b, b_, stored(pos_b, b_));
        script.Write({{"HEADLINE", head1_}}, "RegSetHeadLine error IGNORED: " + head1_);
        script.WritePlace(-1, "", reset);
        script.Report(); // the head line of messages.1
        script.Report(); // c
        script.WritePlace(pos_c, c_, stored(pos_c, c_));
        script.Write({{"HEADLINE", head2_}}, "RegSetHeadLine error IGNORED: " + head2_);
        script.WritePlace(-1, "", reset);
        script.Report(); // the one line of the live file
        script.WritePlace(0, head2_, stored(0, head2_));
        script.Write({{"RECORDTIME", std::to_string(*Sys().now)}},
                     "Can't set last end time to registry: " + std::string(kNow));
        return script;
    }

    static Values StoredValues()
    {
        Values values;
        for (const char *name : {"HEADLINE", "CONTENT"})
            values[name] = Host().registry.Text(kMonitorKey, name).value_or("(none)");
        for (const char *name : {"POS", "H_POS", "RECORDTIME"})
            values[name] =
                std::to_string(Host().registry.Number(kMonitorKey, name).value_or(777777));
        return values;
    }

    static Strings Errors()
    {
        Strings errors;
        for (const auto &record : Host().trace) {
            if (record.level == 1 &&
                (record.function == "WatchSyslogMain" || record.function == "CheckSyslog"))
                errors.push_back(record.text);
        }
        return errors;
    }

    void ExpectOutcomeOf(const PassScript &script, size_t failed, const Values &before) const
    {
        const Step &step = script.steps()[failed];
        EXPECT_EQ(step.message.empty() ? Strings{} : Strings{step.message}, Errors());
        EXPECT_EQ(nullptr, gfp);
        EXPECT_EQ(nullptr, syslog_bakfilelist[0].lpbakfilelist);
        EXPECT_EQ(step.call == "RegCloseKey" ? 1 : 0, Host().registry.OpenHandles());
        if (step.starts_afresh) {
            EXPECT_EQ(CheckedList{}, CheckedLines());
            EXPECT_EQ((ResumePoint{head2_, 0, head2_}), StoredResumePoint());
            EXPECT_EQ("1234", StoredValues()["RECORDTIME"]);
            return;
        }
        EXPECT_EQ(Once({b_, head1_, c_, head2_}), CheckedLines());
        EXPECT_EQ(step.call == "VKMonitorCall" ? 3U : 4U, Host().reports.size());
        EXPECT_EQ(script.ValuesAfter(before, failed), StoredValues());
    }
};

TEST_F(PassStep, AllAreMadeInThisOrder)
{
    Arrange();
    EXPECT_EQ(Once({b_, head1_, c_, head2_}), Run());
    EXPECT_EQ(Script().Calls(), Host().calls);
}

TEST_F(PassStep, ThatFailsIsTracedAndDoesNoMoreHarmThanItMust)
{
    const PassScript script = Script();
    for (size_t i = 0; i < script.steps().size(); ++i) {
        SCOPED_TRACE(std::to_string(i) + " " + script.steps()[i].call);
        Arrange();
        const Values before = StoredValues();
        Host().ForgetRecords();
        Host().FailAnyCall(static_cast<int>(i) + 1);
        WatchSyslogMain();
        EXPECT_TRUE(Host().AnyFailureWasUsed());
        ExpectOutcomeOf(script, i, before);
    }
}

// ---- every system call fails once ----

class PassOverAnyFailure : public Pass {
  protected:
    const std::string head1_ = Line("head of the newer", -70);
    const std::string head2_ = Line("head of the newest", -40);
    const Strings old_ = {head_, Line("old 1", -90), Line("old 2", -89), Line("old 3", -88)};
    const Strings newer_ = {head1_, Line("newer 1", -60), Line("newer 2", -59)};
    const Strings live_ = {head2_, Line("live 1", -30), Line("live 2", -29)};

    void Arrange()
    {
        StartOver();
        SetFolder(
            {{"messages.2", Text(old_)}, {"messages.1", Text(newer_)}, {"messages", Text(live_)}});
        StoreResumePoint(0, PointAt(old_[1], old_));
        Host().registry.SetNumber(kMonitorKey, "RECORDTIME", 1234);
    }

    // Was the file read to its end?
    static bool WasRead(const std::string &path)
    {
        const Strings records = Own();
        for (size_t i = 0; i < records.size(); ++i) {
            if (records[i] == "0 Get end of file " + path)
                return i == 0 || (records[i - 1] != "1 Set syslog pos failed." &&
                                  records[i - 1] != "1 Get Next Line failed.");
        }
        return false;
    }

    static bool SomethingWasTraced()
    {
        return !Host().Texts(1).empty() || !Host().Texts(2).empty();
    }

    static CheckedList Join(CheckedList list, const CheckedList &more)
    {
        list.insert(list.end(), more.begin(), more.end());
        return list;
    }

    // The files that were read to their end were read whole, at most one was not, and the live
    // file's lines come later if they did not come now.
    void ExpectOneFileMissingAtMost()
    {
        const bool old_read = WasRead("/var/log/messages.2");
        const bool newer_read = WasRead("/var/log/messages.1");
        const bool live_read = WasRead("/var/log/messages");
        EXPECT_LE(2, old_read + newer_read + live_read);
        EXPECT_TRUE((old_read && newer_read && live_read) || SomethingWasTraced());
        CheckedList expected;
        if (old_read)
            expected = Once({old_[2], old_[3]});
        if (newer_read)
            expected = Join(expected, Once(newer_));
        if (live_read)
            expected = Join(expected, Once(live_));
        EXPECT_EQ(expected, CheckedLines());
        EXPECT_EQ(live_read ? CheckedList{} : Once(live_), Run());
        EXPECT_EQ(PointAt(live_[2], live_), StoredResumePoint());
    }

    void ExpectSoundOutcome()
    {
        ExpectNothingHeld();
        if (Host().Traced(1, "< CheckSyslog(0) failed.") != 0) {
            EXPECT_EQ(CheckedList{}, CheckedLines());
            EXPECT_EQ(PointAt(old_[1], old_), StoredResumePoint());
            EXPECT_EQ(Join(Once({old_[2], old_[3]}), Join(Once(newer_), Once(live_))), Run());
        } else if (Host().Traced(0, "<Syslog is needn't to change.") != 0) {
            EXPECT_TRUE(SomethingWasTraced());
            EXPECT_EQ(CheckedList{}, CheckedLines());
            EXPECT_EQ(PointAt(live_[2], live_), StoredResumePoint());
            EXPECT_EQ(CheckedList{}, Run());
        } else {
            ExpectOneFileMissingAtMost();
        }
    }
};

TEST_F(PassOverAnyFailure, OfASystemCallLosesAtMostTheFileThatItHits)
{
    int failures = 0;
    for (const char *name :
         {"stat", "fstat", "open", "fdopen", "fseek", "fread", "scandir", "calloc", "malloc"}) {
        for (int n = 1;; ++n) {
            SCOPED_TRACE(std::string(name) + " " + std::to_string(n));
            Arrange();
            Host().ForgetRecords();
            Sys().FailCall(name, n);
            WatchSyslogMain();
            Sys().count_memory = false;
            if (Sys().Calls(name) < n)
                break;
            ++failures;
            ExpectSoundOutcome();
        }
    }
    EXPECT_LT(40, failures);
}

// Adds up how often each line was handed over.
std::map<std::string, int> Total(const CheckedList &list)
{
    std::map<std::string, int> total;
    for (const Checked &checked : list)
        total[checked.line] += checked.times;
    return total;
}

TEST_F(PassOverAnyFailure, OfASeekOrReadCountsEveryLineOfALongFileAllTheSame)
{
    Strings lines;
    std::map<std::string, int> expected;
    for (int i = 0; i < 60; ++i) {
        lines.push_back(Line(std::to_string(i) + std::string(1000, '.')));
        expected[lines.back()] = 1;
    }
    for (const char *name : {"fseek", "fread"}) {
        for (int n = 1;; ++n) {
            SCOPED_TRACE(std::string(name) + " " + std::to_string(n));
            StartOver();
            Follow({head_, a_});
            Append(lines);
            Host().ForgetRecords();
            Sys().ForgetCalls();
            Sys().FailCall(name, n);
            WatchSyslogMain();
            ExpectNothingHeld();
            const bool afresh = Host().Traced("<Syslog is needn't to change.") != 0;
            CheckedList list = CheckedLines();
            list = Join(list, Run());
            EXPECT_EQ(afresh ? (std::map<std::string, int>{}) : expected, Total(list));
            if (Sys().Calls(name) < n)
                break;
        }
    }
}

// ---- against the obvious reading ----

// A log as a list of lines, and how far it was checked.
class ObviousScan {
  public:
    void Append(const std::string &line) { lines_.push_back(line.substr(0, 3328)); }
    void StartAtTheEnd() { next_ = lines_.size(); }

    // What a pass should hand over.
    CheckedList Pass()
    {
        CheckedList list;
        while (next_ < lines_.size()) {
            int times = 0;
            std::string line;
            const bool known = TakeLine(&line, &times);
            int more = 0;
            while (next_ < lines_.size() && IsRepeat(lines_[next_], &more)) {
                times += more;
                ++next_;
            }
            if (known)
                list.push_back({line, times});
        }
        return list;
    }

  private:
    static bool IsRepeat(const std::string &line, int *times)
    {
        const size_t begin = line.find("last message repeated");
        return begin != std::string::npos &&
               sscanf(line.c_str() + begin, "last message repeated %d times", times) == 1;
    }

    // Takes the next line. For a repeat that is the line before it, if there is one.
    bool TakeLine(std::string *line, int *times)
    {
        const size_t index = next_++;
        if (!IsRepeat(lines_[index], times)) {
            *line = lines_[index];
            *times = 1;
            return true;
        }
        int ignored = 0;
        for (size_t before = index; before > 0; --before) {
            if (!IsRepeat(lines_[before - 1], &ignored)) {
                *line = lines_[before - 1];
                return true;
            }
        }
        return false;
    }

    Strings lines_;
    size_t next_ = 0;
};

class PassModel : public Pass {
  protected:
    static std::string RandomLine(std::mt19937 &random)
    {
        const auto number = static_cast<int64_t>(random() % 100);
        switch (random() % 16) {
        case 0:
        case 1:
        case 2:
        case 3:
        case 4:
            return Repeat(number - 5);
        case 5:
            return Line("last message repeated often");
        case 6:
            return "";
        case 7:
            return "no stamp " + std::to_string(number);
        case 8:
            return Line(std::string(random() % 3600, 'x')) + "last message repeated 2 times";
        case 9:
            return Line(std::string(3290 + (random() % 20), 'y'));
        default:
            return Line(std::to_string(number) + std::string(random() % 600, '.'));
        }
    }
};

TEST_F(PassModel, AgreesWithTheObviousReadingOfRandomLogs)
{
    for (uint32_t seed = 1; seed <= 400; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        StartOver();
        ObviousScan obvious;
        Strings lines;
        const auto add = [&](size_t count) {
            Strings fresh;
            for (size_t i = 0; i < count; ++i) {
                fresh.push_back(RandomLine(random));
                obvious.Append(fresh.back());
            }
            lines.insert(lines.end(), fresh.begin(), fresh.end());
            Append(fresh);
        };
        add(1 + (random() % 30));
        obvious.StartAtTheEnd();
        Run();
        for (int pass = 0; pass < 5; ++pass) {
            add(random() % 30);
            if (random() % 4 == 0)
                Restart();
            ASSERT_EQ(obvious.Pass(), Run());
            // The place is that of the last line, whatever it is.
            const std::string text = Text(lines);
            ASSERT_EQ(static_cast<int64_t>(text.size() - lines.back().size() - 1),
                      StoredResumePoint().pos);
            ASSERT_EQ(lines.back().substr(0, 499), StoredResumePoint().content);
        }
    }
}

} // namespace

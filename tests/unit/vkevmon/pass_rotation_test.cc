// A pass over logs that were rotated.
#include <string>
#include <vector>

#include "tests/unit/vkevmon/pass_fixture.h"
#include "tests/unit/vkevmon/pass_story.h"

namespace {

using test::CheckedList;
using test::Host;
using test::kMonitorKey;
using test::kNow;
using test::Once;
using test::Pass;
using test::ResumePoint;
using test::Strings;
using test::Sys;

// ---- rotation ----

class RotatedPass : public Pass {
  protected:
    // Of the seeks of a pass that finds its place in the first of two files, so many come before it is gone to.
    static constexpr int kSeekOfThePlace = 3;
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

TEST_F(RotatedPass, LooksAgainWhenTheLogGotADateAfterTheBackupsWereListed)
{
    Follow({head_, a_});
    SetFolder({{"messages-20240303", Text({head_, a_, b_})}, {"messages", Text({head1_, c_})}});
    Sys().BeforeCall("open", 1, [this] {
        RenameLog("messages", "messages-20240310");
        WriteLog("messages", Text({head2_, d_}));
    });
    EXPECT_EQ(Once({b_, head1_, c_, head2_, d_}), Run());
    EXPECT_EQ(kNoFailure, OwnNotable());
}

// A rotation comes and its new log is empty still, before the pass has come to read anything: it was none.
TEST_F(RotatedPass, RecordsNoEndWhenNothingCouldBeReadBeforeTheLogWasRotated)
{
    Follow({head_, a_});
    SetFolder({{"messages.1", Text({head_, a_, b_})}, {"messages", Text({head1_, c_})}});
    Sys().FailCall("fseek", kSeekOfThePlace);
    Sys().BeforeCall("open", 4, [this] { // two to look, messages.1
        RenameLog("messages.1", "messages.2");
        RenameLog("messages", "messages.1");
        WriteLog("messages", "");
    });
    EXPECT_EQ(CheckedList{}, Run());
    EXPECT_EQ(1, Host().Traced(1, "Set syslog pos failed."));
    EXPECT_EQ(1, Host().Traced(1, "< CheckSyslog(0) failed."));
    EXPECT_FALSE(Host().registry.Number(kMonitorKey, "RECORDTIME"));
    Append({d_});
    EXPECT_EQ(Once({b_, head1_, c_, d_}), Run());
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

} // namespace

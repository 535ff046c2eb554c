// The histories in which a line is passed over or counted twice. Each is a consequence of how the monitor
// finds its place, each is known, and docs/histories.md says what an administrator can do about it. A test
// beside it shows what does not happen, where that is close by.
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "filemonitor/filemonitor.h"
#include "tests/history/slow_clock.h"
#include "tests/support/module_test.h"
#include "vkevmon/pass.h"
#include "vkevmon/reload.h"
#include "vkevmon/settings.h"

namespace {

using test::Host;
using test::kFileMonitorKey;
using test::kMonitorKey;
using test::Sys;
using Strings = std::vector<std::string>;

constexpr int kMinute = 60;
constexpr int kHour = 60 * kMinute;
constexpr int kDay = 24 * kHour;

// One log, one event that reports every line of it. A line is known by its text.
class LossTest : public test::ModuleTest {
  protected:
    LossTest()
    {
        history::TheSlowClock() = history::SlowClock();
        SetClock(2024, 3, 10, 12, 0, 0);
        each_ = AddEntry({.keywords = {"host", "", ""}});
        Host().registry.CreateKey(kMonitorKey);
        ChangeCustFile();
    }
    ~LossTest() override { history::TheSlowClock() = history::SlowClock(); }

    static void Move(int seconds) { Sys().now = *Sys().now + seconds; }

    // Appends a line of this moment, or several.
    void Log(const Strings &texts, const std::string &name = "messages") const
    {
        for (const std::string &text : texts)
            AppendLog(name, Line(text) + "\n");
    }
    // A second later.
    void LogLater(const Strings &texts, const std::string &name = "messages") const
    {
        Move(1);
        Log(texts, name);
    }

    // Moves the live file away, numbered, and puts an empty one in its place.
    void Rotate(const std::string &name = "messages") const
    {
        for (int number = 8; number >= 1; --number) {
            if (std::filesystem::exists(LogFile(name + "." + std::to_string(number))))
                RenameLog(name + "." + std::to_string(number),
                          name + "." + std::to_string(number + 1));
        }
        RenameLog(name, name + ".1");
        WriteLog(name, "");
    }

    // What a pass reports, each line by its text.
    static Strings Pass()
    {
        Host().ForgetRecords();
        WatchSyslogMain();
        return Reported();
    }
    static Strings FilePass()
    {
        Host().ForgetRecords();
        WatchFileMonObjMain();
        return Reported();
    }

    // The next pass is interrupted before it opens its n-th file.
    static void BeforeFile(int n, const std::function<void()> &action)
    {
        Sys().BeforeCall("open", n, action);
    }

    static void NameCustomerFile(const std::string &path)
    {
        Host().registry.SetText(kMonitorKey, "FILENAME", path);
        TellCustomerFileChanged();
    }
    static void TellCustomerFileChanged()
    {
        IsCustFileChanged = 1;
        ChangeCustFile();
    }
    static void NameTarget(const std::string &path)
    {
        Host().registry.SetText(kFileMonitorKey, "FILENAME", path);
        ChangeFileMonObj();
    }

    VKVMon *each_;

  private:
    static Strings Reported()
    {
        Strings texts;
        for (const test::SentReport &report : Host().reports) {
            const size_t at = report.message.find("prog: ");
            texts.push_back(at == std::string::npos ? report.message
                                                    : report.message.substr(at + 6));
        }
        return texts;
    }
};

const Strings kNothing = {};

// ---- starting afresh: the monitor goes on from the end of the live file ----

using StartsAfresh = LossTest;

TEST_F(StartsAfresh, WhatWasWrittenBeforeTheFirstPassIsNotCounted)
{
    Log({"before 1", "before 2"});
    EXPECT_EQ(kNothing, Pass());
    Log({"after"});
    EXPECT_EQ(Strings{"after"}, Pass());
}

TEST_F(StartsAfresh, ALogThatIsEmptyAtTheFirstPassLosesWhatComesBeforeTheSecond)
{
    WriteLog("messages", "");
    EXPECT_EQ(kNothing, Pass());
    Log({"lost 1", "lost 2"});
    EXPECT_EQ(kNothing, Pass());
    Log({"counted"});
    EXPECT_EQ(Strings{"counted"}, Pass());
}

TEST_F(StartsAfresh, AnEmptyBackupNewerThanTheLastLineCheckedLosesAllThatIsUnread)
{
    Log({"checked"});
    Pass();
    Log({"lost, old"});
    Rotate();
    Rotate(); // the empty log
    Log({"lost, new"});
    EXPECT_EQ(kNothing, Pass());
    Log({"counted"});
    EXPECT_EQ(Strings{"counted"}, Pass());
}

TEST_F(StartsAfresh, AnEmptyBackupDoesNoHarmOnceTheMonitorHasComeToTheLiveFile)
{
    Log({"checked"});
    Pass();
    Rotate();
    Rotate();
    Rotate();
    Log({"head"});
    Pass();
    Log({"old"});
    Rotate();
    Log({"new"});
    EXPECT_EQ((Strings{"old", "new"}), Pass());
}

TEST_F(StartsAfresh, AnEmptyLiveFileOnlyDelaysWhatTheBackupHolds)
{
    Log({"checked"});
    Pass();
    Log({"old"});
    Rotate();
    EXPECT_EQ(kNothing, Pass());
    Log({"new"});
    EXPECT_EQ((Strings{"old", "new"}), Pass());
}

TEST_F(StartsAfresh, ABackupThatCannotBeOpenedLosesAllThatIsUnread)
{
    Log({"checked"});
    Pass();
    Log({"lost, old"});
    Rotate();
    Log({"lost, middle"});
    Rotate();
    RemoveLog("messages.1");
    std::filesystem::create_directory(LogFile("messages.1"));
    Log({"lost, new"});
    EXPECT_EQ(kNothing, Pass());
}

TEST_F(StartsAfresh, ABackupThatIsCompressedAtOnceLosesAllThatIsUnread)
{
    Log({"checked"});
    Pass();
    Log({"lost, old"});
    Rotate();
    RenameLog("messages.1", "messages.1.gz");
    Log({"lost, new"});
    EXPECT_EQ(kNothing, Pass());
}

TEST_F(StartsAfresh, ABackupThatIsCompressedOneRotationLaterIsReadInTime)
{
    Log({"checked"});
    Pass();
    Log({"old"});
    Rotate();
    Log({"new"});
    EXPECT_EQ((Strings{"old", "new"}), Pass());
    Rotate();
    RenameLog("messages.2", "messages.2.gz");
    Log({"third"});
    EXPECT_EQ(Strings{"third"}, Pass());
}

TEST_F(StartsAfresh, ABackupUnderANameOfAnotherFormLosesAllThatIsUnread)
{
    for (const char *name : {"messages-2024031012", "messages-1710068400", "messages.old"}) {
        Log({"checked"});
        Pass();
        LogLater({"lost, old"});
        RenameLog("messages", name);
        LogLater({"lost, new"});
        EXPECT_EQ(kNothing, Pass()) << name;
    }
}

TEST_F(StartsAfresh, AGapInTheNumbersHidesTheBackupsBehindIt)
{
    Log({"checked"});
    Pass();
    Log({"lost, old"});
    Rotate();
    Log({"lost, middle"});
    Rotate();
    RemoveLog("messages.1");
    Log({"lost, new"});
    EXPECT_EQ(kNothing, Pass());
}

TEST_F(StartsAfresh, AFileNamedMessagesDotHidesAllNumberedBackups)
{
    WriteLog("messages.", "");
    Log({"checked"});
    Pass();
    Log({"lost, old"});
    Rotate();
    Log({"lost, new"});
    EXPECT_EQ(kNothing, Pass());
}

TEST_F(StartsAfresh, MoreRotationsBetweenTwoPassesThanBackupsAreKeptLoseAllThatIsUnread)
{
    Log({"checked"});
    Pass();
    LogLater({"lost, old"});
    Rotate();
    LogLater({"lost, middle"});
    Rotate();
    RemoveLog("messages.2"); // one backup is kept
    LogLater({"lost, new"});
    EXPECT_EQ(kNothing, Pass());
}

TEST_F(StartsAfresh, TruncatingWithoutACopyLosesAllThatIsWrittenUntilTheNextPass)
{
    for (const int count : {1, 50}) { // whether or not the file grows beyond its old size
        Log({"checked"});
        Pass();
        Log({"lost, old"});
        Move(1);
        WriteLog("messages", "");
        Log(Strings(static_cast<size_t>(count), "lost, new"));
        EXPECT_EQ(kNothing, Pass());
        Log({"counted"});
        EXPECT_EQ(Strings{"counted"}, Pass());
    }
}

TEST_F(StartsAfresh, RemovingTheLogLosesWhatIsUnreadAndAllThatIsWrittenUntilTheNextPass)
{
    Log({"checked"});
    Pass();
    Log({"lost, old"});
    RemoveLog("messages");
    EXPECT_EQ(kNothing, Pass());
    LogLater({"lost, new"});
    EXPECT_EQ(kNothing, Pass());
    Log({"counted"});
    EXPECT_EQ(Strings{"counted"}, Pass());
}

TEST_F(StartsAfresh, CopyingAndTruncatingLosesNothingHoweverMuchIsWrittenAfterwards)
{
    for (const int count : {1, 50}) {
        Move(1);
        WriteLog("messages", "");
        RemoveLog("messages.1");
        Log({"checked"});
        Pass();
        Log({"old"});
        std::filesystem::copy(LogFile("messages"), LogFile("messages.1"));
        Move(1);
        WriteLog("messages", "");
        Log(Strings(static_cast<size_t>(count), "new"));
        Strings want = {"old"};
        want.insert(want.end(), static_cast<size_t>(count), "new");
        EXPECT_EQ(want, Pass());
    }
}

TEST_F(StartsAfresh, AChangeFromNumberedToDatedBackupsLosesWhatTheNumberedOnesHold)
{
    Log({"checked"});
    Pass();
    Log({"lost, old"});
    Rotate();
    SetModified("messages.1", *Sys().now);
    LogLater({"lost, middle"});
    RenameLog("messages", "messages-20240310");
    SetModified("messages-20240310", *Sys().now);
    LogLater({"lost, new"});
    EXPECT_EQ(kNothing, Pass());
}

TEST_F(StartsAfresh, AChangeFromNumberedToDatedBackupsAfterAPassLosesNothing)
{
    Log({"checked"});
    Pass();
    Log({"old"});
    Rotate();
    SetModified("messages.1", *Sys().now);
    LogLater({"middle"});
    EXPECT_EQ((Strings{"old", "middle"}), Pass());
    RenameLog("messages", "messages-20240310");
    SetModified("messages-20240310", *Sys().now);
    LogLater({"new"});
    EXPECT_EQ(Strings{"new"}, Pass());
}

// ---- rotations in the middle of a pass ----

using RotationInAPass = LossTest;

// Files opened by a pass that goes on in messages.1: the live file and messages.1, looking for the place;
// messages.1, to read it; the live file, for its first line; the live file, to read it.
constexpr int kToReadBackup = 3;
constexpr int kForLiveHead = 4;

TEST_F(RotationInAPass, OneWhileABackupIsReadIsFollowedAtOnce)
{
    Log({"checked"});
    Pass();
    Log({"old"});
    Rotate();
    LogLater({"middle 1", "middle 2"});
    BeforeFile(kForLiveHead, [this] {
        Rotate();
        LogLater({"new"});
    });
    EXPECT_EQ((Strings{"old", "middle 1", "middle 2", "new"}), Pass());
    EXPECT_EQ(kNothing, Pass());
}

TEST_F(RotationInAPass, OneWhileABackupIsReadLosesNothingWhenTheNewLogIsStillEmpty)
{
    Log({"checked"});
    Pass();
    Log({"old"});
    Rotate();
    LogLater({"middle"});
    BeforeFile(kForLiveHead, [this] { Rotate(); });
    EXPECT_EQ(Strings{"old"}, Pass());
    LogLater({"new"});
    EXPECT_EQ((Strings{"middle", "new"}), Pass());
}

TEST_F(RotationInAPass, OneBeforeTheBackupIsOpenedIsFollowedAtOnce)
{
    Log({"checked 1", "checked 2"});
    Pass();
    Log({"old"});
    Rotate();
    LogLater({"middle"});
    BeforeFile(kToReadBackup, [this] {
        Rotate();
        LogLater({"new"});
    });
    EXPECT_EQ((Strings{"old", "middle", "new"}), Pass());
    EXPECT_EQ(kNothing, Pass());
}

TEST_F(RotationInAPass, OneBetweenLookingAndReadingIsFollowedAtOnce)
{
    Log({"checked"});
    Pass();
    LogLater({"old"});
    BeforeFile(2, [this] {
        Rotate();
        LogLater({"new 1", "new 2", "new 3"});
    });
    EXPECT_EQ((Strings{"old", "new 1", "new 2", "new 3"}), Pass());
    EXPECT_EQ(kNothing, Pass());
}

TEST_F(RotationInAPass, OneByCopyingAndTruncatingBetweenLookingAndReadingIsFollowedAtOnce)
{
    Log({"checked", "also checked"});
    Pass();
    LogLater({"old"});
    BeforeFile(2, [this] {
        std::filesystem::copy(LogFile("messages"), LogFile("messages.1"));
        WriteLog("messages", "");
        LogLater({"new"});
    });
    EXPECT_EQ((Strings{"old", "new"}), Pass());
    EXPECT_EQ(kNothing, Pass());
}

TEST_F(RotationInAPass,
       OneByCopyingAndTruncatingGoesUnnoticedWhenTheFileIsLongerAgainBeforeItIsRead)
{
    Log({"checked"});
    Pass();
    LogLater({"lost, old"});
    BeforeFile(2, [this] {
        std::filesystem::copy(LogFile("messages"), LogFile("messages.1"));
        WriteLog("messages", "");
        LogLater({"passed over, then counted", "twice 1", "twice 2"});
    });
    EXPECT_EQ((Strings{"twice 1", "twice 2"}), Pass());
    EXPECT_EQ((Strings{"passed over, then counted", "twice 1", "twice 2"}), Pass());
}

TEST_F(RotationInAPass, OneBetweenLookingAndReadingLosesNothingWhenTheNewLogIsStillEmpty)
{
    Log({"checked"});
    Pass();
    LogLater({"old"});
    BeforeFile(2, [this] { Rotate(); });
    EXPECT_EQ(kNothing, Pass());
    LogLater({"new"});
    EXPECT_EQ((Strings{"old", "new"}), Pass());
}

TEST_F(RotationInAPass, OneBetweenListingAndLookingIsFollowedAtOnce)
{
    Log({"checked"});
    Pass();
    LogLater({"old"});
    BeforeFile(1, [this] { // the list is made; it is empty
        Rotate();
        LogLater({"new"});
    });
    EXPECT_EQ((Strings{"old", "new"}), Pass());
    EXPECT_EQ(kNothing, Pass());
}

TEST_F(RotationInAPass, OneBetweenListingAndLookingIsFollowedAtOnceWhenBackupsAreDated)
{
    Log({"older"});
    RenameLog("messages", "messages-20240309");
    LogLater({"checked"});
    Pass();
    LogLater({"old"});
    BeforeFile(1, [this] {
        RenameLog("messages", "messages-20240310");
        LogLater({"new"});
    });
    EXPECT_EQ((Strings{"old", "new"}), Pass());
    EXPECT_EQ(kNothing, Pass());
}

TEST_F(RotationInAPass, OneBetweenListingAndLookingIsFollowedAtOnceWhenThereWereNumberedBackups)
{
    Log({"checked"});
    Rotate();
    LogLater({"head"});
    Pass();
    LogLater({"old"});
    BeforeFile(1, [this] {
        Rotate();
        LogLater({"new"});
    });
    EXPECT_EQ((Strings{"old", "new"}), Pass());
}

// An empty log is opened twice: to look for the place, and once more to start afresh, which an empty log
// makes impossible. One that has a line by then is looked at again.
TEST_F(RotationInAPass, AFirstLineThatComesWhileTheEmptyLogIsLookedAtIsCountedAtOnce)
{
    Log({"checked"});
    Pass();
    Log({"old"});
    Rotate();
    Sys().ForgetCalls();
    EXPECT_EQ(kNothing, Pass());
    // The name is looked at twice by the search, and as often by each of the two openings.
    const int looks = Sys().Calls("stat");
    Sys().BeforeCall("stat", (looks / 2) + 2, [this] { LogLater({"new"}); });
    EXPECT_EQ((Strings{"old", "new"}), Pass());
    EXPECT_EQ(kNothing, Pass());
}

// Rotates, and again each time that a search for the place has listed its backups, which are one more each time.
class RotationInEverySearch : public RotationInAPass {
  protected:
    void RotateInTheNext(int searches, int backups = 0)
    {
        // The search before this one, which was in vain, still opens the backups that it listed, and the live
        // file to start afresh.
        BeforeFile(backups + 1, [this, searches, backups] {
            Rotate();
            LogLater({"new " + std::to_string(backups)});
            if (searches > 1)
                RotateInTheNext(searches - 1, backups + 1);
        });
    }
};

TEST_F(RotationInEverySearch, LosesNothingUpToThreeTimes)
{
    Log({"checked"});
    Pass();
    LogLater({"old"});
    RotateInTheNext(3);
    EXPECT_EQ((Strings{"old", "new 0", "new 1", "new 2"}), Pass());
    EXPECT_EQ(kNothing, Pass());
}

TEST_F(RotationInEverySearch, LosesAllThatIsUnreadTheFourthTime)
{
    Log({"checked"});
    Pass();
    LogLater({"lost, old"});
    RotateInTheNext(4);
    EXPECT_EQ(kNothing, Pass());
    LogLater({"counted"});
    EXPECT_EQ(Strings{"counted"}, Pass());
}

// Rotates each time that a search has found the place, before it is read.
class RotationBeforeEveryReading : public RotationInAPass {
  protected:
    void RotateBeforeTheNext(int readings, int backups = 0)
    {
        // The place is found in the oldest backup; the next file is the one that is read.
        BeforeFile(backups + 2, [this, readings, backups] {
            Rotate();
            LogLater({"new " + std::to_string(backups)});
            if (readings > 1)
                RotateBeforeTheNext(readings - 1, backups + 1);
        });
    }
};

TEST_F(RotationBeforeEveryReading, LosesNothingUpToThreeTimes)
{
    Log({"checked"});
    Pass();
    LogLater({"old"});
    RotateBeforeTheNext(3);
    EXPECT_EQ((Strings{"old", "new 0", "new 1", "new 2"}), Pass());
    EXPECT_EQ(kNothing, Pass());
}

// What has the name of messages.3 then is taken for the file that had it.
TEST_F(RotationBeforeEveryReading, PassesOverWhatIsUnreadTheFourthTime)
{
    Log({"checked"});
    Pass();
    LogLater({"lost, old"});
    RotateBeforeTheNext(4);
    EXPECT_EQ((Strings{"new 1", "new 2", "new 3"}), Pass());
    EXPECT_EQ(kNothing, Pass());
    LogLater({"counted"});
    EXPECT_EQ(Strings{"counted"}, Pass());
}

TEST_F(RotationInAPass, OneWhileTheLiveFileIsReadLosesNothing)
{
    Log({"checked"});
    Pass();
    LogLater({"old 1"});
    Host().on_report = [this](const ReportRequest &) {
        Host().on_report = nullptr;
        Log({"old 2"});
        Rotate();
        LogLater({"new"});
    };
    EXPECT_EQ(Strings{"old 1"}, Pass());
    EXPECT_EQ((Strings{"old 2", "new"}), Pass());
}

// ---- two files that cannot be told apart by their first line ----

using SameHead = LossTest;

TEST_F(SameHead, ALogThatBeginsWithAnEmptyLineHidesItsRotation)
{
    WriteLog("messages", "\n");
    Log({"checked"});
    Pass();
    LogLater({"lost, old"});
    Rotate();
    LogLater({"lost, first"});
    LogLater({"new"});
    EXPECT_EQ(Strings{"new"}, Pass());
}

TEST_F(SameHead, ANewLogThatBeginsWithTheSameLineIsTakenForTheOldOne)
{
    Log({"daemon started"});
    Pass();
    Log({"lost, old"});
    Rotate();
    Log({"daemon started", "new"}); // within the second
    EXPECT_EQ(Strings{"new"}, Pass());
}

TEST_F(SameHead, AFirstLineThatWasRecordedUnfinishedFitsTheNextFileToo)
{
    const std::string line = Line("checked"); // "Mar 10 12:00:00 host prog: checked"
    WriteLog("messages", line.substr(0, 10));
    Pass();
    AppendLog("messages", line.substr(10) + "\n");
    Pass();
    LogLater({"lost, old"});
    Rotate();
    LogLater({"passed over"});
    LogLater({"new"});
    EXPECT_EQ(Strings{"new"}, Pass());
}

// ---- logs that were edited ----

using Edited = LossTest;

TEST_F(Edited, WhenTheLastLineCheckedIsCutOffNewLinesOfItsSecondArePassedOver)
{
    Log({"head"});
    LogLater({"checked 1", "checked 2"});
    Pass();
    std::filesystem::resize_file(LogFile("messages"),
                                 std::filesystem::file_size(LogFile("messages")) -
                                     (Line("checked 2").size() + 1));
    Log({"lost"}); // in the same second as the line that is gone
    LogLater({"counted"});
    EXPECT_EQ(Strings{"counted"}, Pass());
}

TEST_F(Edited, WhenAllThatIsLeftIsNewerThanTheLastLineCheckedItCountsAgainButForTheFirstLine)
{
    Log({"head"});
    LogLater({"first"});
    LogLater({"second"});
    Pass();
    Move(-kHour); // the clock is set back
    Log({"third"});
    EXPECT_EQ(Strings{"third"}, Pass());
    std::filesystem::resize_file(LogFile("messages"),
                                 std::filesystem::file_size(LogFile("messages")) -
                                     (Line("third").size() + 1));
    EXPECT_EQ((Strings{"first", "second"}), Pass());
}

// ---- time ----

using Time = LossTest;

TEST_F(Time, ALineThatIsReadTwoMonthsLaterIsNotCounted)
{
    Log({"checked"});
    Pass();
    Log({"lost"}); // 10 March
    SetClock(2024, 5, 1, 0, 0, 0);
    Log({"counted"});
    EXPECT_EQ(Strings{"counted"}, Pass());
}

TEST_F(Time, ALineThatIsReadInTheNextMonthIsCounted)
{
    Log({"checked"});
    Pass();
    Log({"march"});
    SetClock(2024, 4, 30, 23, 59, 59);
    EXPECT_EQ(Strings{"march"}, Pass());
    SetClock(2024, 12, 31, 23, 59, 59);
    Log({"december"});
    SetClock(2025, 1, 31, 23, 59, 59);
    EXPECT_EQ(Strings{"december"}, Pass());
}

TEST_F(Time, ALineOfAMonthThatIsStillToComeIsNotCounted)
{
    SetClock(2024, 4, 1, 0, 0, 1);
    Log({"checked"});
    Pass();
    Log({"lost"});
    Move(-kHour); // the clock is set back, to 31 March
    Log({"counted"});
    EXPECT_EQ(Strings{"counted"}, Pass());
}

TEST_F(Time, AClockSetBackWithinTheMonthLosesNothing)
{
    Log({"checked"});
    Pass();
    Log({"later"});
    Rotate();
    Move(-kDay);
    Log({"earlier"});
    EXPECT_EQ((Strings{"later", "earlier"}), Pass());
}

TEST_F(Time, ADatedBackupOfAnEarlierDayThanTheNewestMakesTheNewestCountTwice)
{
    Log({"checked"});
    Pass();
    LogLater({"once 1"});
    RenameLog("messages", "messages-20240310");
    LogLater({"twice 1", "twice 2"});
    EXPECT_EQ((Strings{"once 1", "twice 1", "twice 2"}), Pass());
    RenameLog("messages", "messages-20240312"); // the clock stood wrong
    LogLater({"once 2"});
    EXPECT_EQ(Strings{"once 2"}, Pass());
    RenameLog("messages", "messages-20240311"); // and was set right
    LogLater({"new"});
    EXPECT_EQ((Strings{"twice 1", "twice 2", "new"}), Pass());
}

// ---- repeat lines ----

using Repeats = LossTest;

TEST_F(Repeats, AtTheHeadOfAFileAreNotCounted)
{
    each_->ReportCount = 1000;
    Log({"checked"});
    Pass();
    Log({"A"});
    Rotate();
    Log({"last message repeated 5 times", "B"});
    Pass();
    EXPECT_EQ(2, each_->CurrentCount); // A and B
}

TEST_F(Repeats, BehindALineThatAnEarlierPassCheckedAreCounted)
{
    each_->ReportCount = 1000;
    Log({"checked", "A"});
    Pass();
    Log({"last message repeated 5 times"});
    Pass();
    EXPECT_EQ(5, each_->CurrentCount);
    Pass();
    EXPECT_EQ(5, each_->CurrentCount);
}

TEST_F(Repeats, ThatAreOnlyQuotedStandForTheLineBeforeThem)
{
    each_->ReportCount = 1000;
    VKVMon *quoted = AddEntry({.source = "QUOTED", .keywords = {"support", "", ""}});
    Log({"checked"});
    Pass();
    Log({"A", "support asks: what is \"last message repeated 7 times\"?"});
    EXPECT_EQ(kNothing, Pass());
    EXPECT_EQ(0, quoted->CurrentCount);
    EXPECT_EQ(8, each_->CurrentCount);
}

TEST_F(Repeats, MakeOneReportHoweverManyThereAre)
{
    each_->ReportCount = 3;
    Log({"checked"});
    Pass();
    Log({"A", "last message repeated 10 times"});
    EXPECT_EQ(Strings{"A"}, Pass());
    EXPECT_EQ(0, each_->CurrentCount); // 11 are more than three times 3: the surplus is gone
}

TEST_F(Repeats, OfALineThatIsTwoMonthsOldAreNotCounted)
{
    each_->ReportCount = 1000;
    Log({"checked", "A"});
    Pass();
    SetClock(2024, 5, 1, 0, 0, 0);
    Log({"last message repeated 5 times"});
    Pass();
    EXPECT_EQ(0, each_->CurrentCount);
}

// ---- a line that is still being written ----

class Unfinished : public LossTest {
  protected:
    // The first part of a line, written this moment.
    void LogPart(const std::string &part) const
    {
        AppendLog("messages", part);
        SetModified("messages", *Sys().now);
    }
};

TEST_F(Unfinished, ALineCountsByItsFirstPartWhenTheRestComesLaterThanFiftyMilliseconds)
{
    each_->ReportCount = 1000;
    VKVMon *rest = AddEntry({.source = "REST", .keywords = {"on fire", "", ""}});
    Log({"checked"});
    Pass();
    LogPart(Line("the disk is"));
    Pass();
    EXPECT_EQ(1, each_->CurrentCount);
    AppendLog("messages", " on fire\n");
    EXPECT_EQ(kNothing, Pass());
    EXPECT_EQ(0, rest->CurrentCount);
    EXPECT_EQ(1, each_->CurrentCount); // and not again
}

TEST_F(Unfinished, ALineCountsWholeWhenTheRestComesWithinFiftyMilliseconds)
{
    Log({"checked"});
    Pass();
    LogPart(Line("the disk is"));
    history::TheSlowClock().BeginWake();
    history::TheSlowClock().after_pause = [this](int64_t slept) {
        if (slept == 49)
            AppendLog("messages", " on fire\n");
    };
    EXPECT_EQ(Strings{"the disk is on fire"}, Pass());
}

TEST_F(Unfinished, ARepeatLineCountsForWhatItsNumberIsSoFar)
{
    each_->ReportCount = 1000;
    Log({"checked", "A"});
    Pass();
    LogPart(Line("last message repeated 1"));
    Pass();
    EXPECT_EQ(1, each_->CurrentCount);
    AppendLog("messages", "2 times\n");
    Pass();
    EXPECT_EQ(1, each_->CurrentCount); // of 12
}

TEST_F(Unfinished, ALineThatIsNeverFinishedHidesTheOneThatFollowsIt)
{
    Log({"checked"});
    Pass();
    LogPart(Line("cut off"));
    EXPECT_EQ(Strings{"cut off"}, Pass());
    Log({"lost"}); // the syslog daemon was killed, the next one goes on without a line end
    Log({"counted"});
    EXPECT_EQ(Strings{"counted"}, Pass());
}

// ---- the customer file ----

using CustomerFile = LossTest;

// Files opened by a pass over both logs: the system log twice, then the customer file twice.
constexpr int kToLookAtCustomerFile = 3;
constexpr int kToReadCustomerFile = 4;

TEST_F(CustomerFile, LosesWhatIsUnreadWhenTheMonitorIsToldTwiceOfTheSameName)
{
    Log({"system"});
    Log({"checked"}, "customer.log");
    NameCustomerFile("/var/log/customer.log");
    Pass();
    Log({"lost"}, "customer.log");
    TellCustomerFileChanged();
    EXPECT_EQ(kNothing, Pass());
    Log({"counted"}, "customer.log");
    EXPECT_EQ(Strings{"counted"}, Pass());
}

TEST_F(CustomerFile, LosesItsFirstLinesWhenItIsMissingAsItIsNamed)
{
    Log({"system"});
    NameCustomerFile("/var/log/customer.log");
    Pass();
    Log({"lost 1", "lost 2"}, "customer.log");
    EXPECT_EQ(kNothing, Pass());
    Log({"counted"}, "customer.log");
    EXPECT_EQ(Strings{"counted"}, Pass());
}

TEST_F(CustomerFile, LosesAtItsRotationWhatIsUnreadAndWhatIsNew)
{
    Log({"system"});
    Log({"checked"}, "customer.log");
    NameCustomerFile("/var/log/customer.log");
    Pass();
    LogLater({"lost, old"}, "customer.log");
    Rotate("customer.log");
    LogLater({"lost, new"}, "customer.log");
    EXPECT_EQ(kNothing, Pass());
    LogLater({"counted"}, "customer.log");
    EXPECT_EQ(Strings{"counted"}, Pass());
}

TEST_F(CustomerFile, LosesWhatIsNewAfterItsRotationAlsoWhenAllWasReadBefore)
{
    Log({"system"});
    Log({"checked"}, "customer.log");
    NameCustomerFile("/var/log/customer.log");
    Pass();
    LogLater({"old"}, "customer.log");
    EXPECT_EQ(Strings{"old"}, Pass());
    Rotate("customer.log");
    EXPECT_EQ(kNothing, Pass());
    LogLater({"lost"}, "customer.log");
    EXPECT_EQ(kNothing, Pass());
    LogLater({"counted"}, "customer.log");
    EXPECT_EQ(Strings{"counted"}, Pass());
}

// There are no backups to look for the place in, so it starts afresh in this pass and not in the next.
TEST_F(CustomerFile, LosesNothingThatComesAfterThePassInWhichItIsRotated)
{
    Log({"system"});
    Log({"checked"}, "customer.log");
    NameCustomerFile("/var/log/customer.log");
    Pass();
    LogLater({"lost, old"}, "customer.log");
    BeforeFile(kToLookAtCustomerFile, [this] {
        Rotate("customer.log");
        LogLater({"lost, new"}, "customer.log");
    });
    EXPECT_EQ(kNothing, Pass());
    LogLater({"counted"}, "customer.log");
    EXPECT_EQ(Strings{"counted"}, Pass());
}

// The new file is read as if it were the old one, by its time stamps.
TEST_F(CustomerFile, LosesWhatIsUnreadAndTheFirstNewLineWhenItIsRotatedBeforeItIsRead)
{
    Log({"system"});
    Log({"checked"}, "customer.log");
    NameCustomerFile("/var/log/customer.log");
    Pass();
    LogLater({"lost, old"}, "customer.log");
    BeforeFile(kToReadCustomerFile, [this] {
        Rotate("customer.log");
        LogLater({"passed over", "new 1", "new 2"}, "customer.log");
    });
    EXPECT_EQ((Strings{"new 1", "new 2"}), Pass());
    LogLater({"lost"}, "customer.log");
    EXPECT_EQ(kNothing, Pass());
    LogLater({"counted"}, "customer.log");
    EXPECT_EQ(Strings{"counted"}, Pass());
}

TEST_F(CustomerFile, LosesNothingAtItsRotationWhenItIsVmkernel)
{
    Log({"system"});
    Log({"checked"}, "vmkernel");
    NameCustomerFile("/var/log/vmkernel");
    Pass();
    LogLater({"old"}, "vmkernel");
    Rotate("vmkernel");
    LogLater({"new"}, "vmkernel");
    EXPECT_EQ((Strings{"old", "new"}), Pass());
}

TEST_F(CustomerFile, LosesAllThatIsUnreadAfterFiveRotationsOfVmkernelBetweenTwoPasses)
{
    Log({"system"});
    Log({"checked"}, "vmkernel");
    NameCustomerFile("/var/log/vmkernel");
    Pass();
    for (int i = 0; i < 5; ++i) {
        LogLater({"lost"}, "vmkernel");
        Rotate("vmkernel");
    }
    LogLater({"lost"}, "vmkernel");
    EXPECT_EQ(kNothing, Pass());
}

// ---- the file monitor ----

class WatchedFile : public LossTest {
  protected:
    // A watched file of which everything was read.
    WatchedFile()
    {
        Log({"checked"}, "app.log");
        NameTarget("/var/log/app.log");
        FilePass();
    }
};

TEST_F(WatchedFile, LosesWhatIsUnreadWhenItIsReplaced)
{
    Log({"lost"}, "app.log");
    Rotate("app.log");
    Log({"new"}, "app.log");
    EXPECT_EQ(Strings{"new"}, FilePass());
}

TEST_F(WatchedFile, LosesNothingWhenItWasReadBeforeItsReplacement)
{
    Log({"old"}, "app.log");
    EXPECT_EQ(Strings{"old"}, FilePass());
    Rotate("app.log");
    Log({"new"}, "app.log");
    EXPECT_EQ(Strings{"new"}, FilePass());
}

TEST_F(WatchedFile, LosesWhatIsWrittenBetweenItsTruncationAndTheNextPassThatFindsItShorter)
{
    Log({"old"}, "app.log");
    EXPECT_EQ(Strings{"old"}, FilePass());
    std::filesystem::copy(LogFile("app.log"), LogFile("app.log.1"));
    WriteLog("app.log", "");
    Log({"lost"}, "app.log");
    EXPECT_EQ(kNothing, FilePass());
    Log({"counted"}, "app.log");
    EXPECT_EQ(Strings{"counted"}, FilePass());
}

TEST_F(WatchedFile, LosesWhatIsRewrittenInPlaceAtEqualSize)
{
    WriteLog("app.log", Line("CHANGED") + "\n"); // as long as "checked"
    EXPECT_EQ(kNothing, FilePass());
    Log({"counted"}, "app.log");
    EXPECT_EQ(Strings{"counted"}, FilePass());
}

TEST_F(WatchedFile, LosesWhatItHoldsAtTheFirstPassThatFindsItShorter)
{
    Log({"also checked"}, "app.log");
    FilePass();
    WriteLog("app.log", Line("lost") + "\n");
    EXPECT_EQ(kNothing, FilePass());
    Log({"counted"}, "app.log");
    EXPECT_EQ(Strings{"counted"}, FilePass());
}

TEST_F(WatchedFile, IsReadOnFromItsOldSizeWhenItWasTruncatedAndRefilledBeyondIt)
{
    // "checked" took as many bytes as "lost 01".
    WriteLog("app.log", Line("lost 01") + "\n" + Line("counted") + "\n");
    EXPECT_EQ(Strings{"counted"}, FilePass());
}

TEST_F(WatchedFile, IsReadFromTheMiddleOfALineWhenItsOldSizeLiesThere)
{
    VKVMon *host = each_;
    snprintf(host->Keyword1, sizeof host->Keyword1, "tail");
    WriteLog("app.log", Line("a long line that was lost, but for its tail") + "\n");
    const Strings reported = FilePass();
    ASSERT_EQ(1U, reported.size());
    EXPECT_EQ(std::string::npos, reported[0].find("host"));
    EXPECT_NE(std::string::npos, reported[0].find("tail"));
}

TEST_F(WatchedFile, LosesTheFirstPartOfALineThatIsUnfinishedWhenItIsFoundShorter)
{
    snprintf(each_->Keyword1, sizeof each_->Keyword1, "rest");
    WriteLog("app.log", "a line: ");
    EXPECT_EQ(kNothing, FilePass());
    AppendLog("app.log", "the rest\n");
    EXPECT_EQ(Strings{"the rest"}, FilePass());
}

TEST_F(WatchedFile, WaitsForTheEndOfAnUnfinishedLine)
{
    AppendLog("app.log", Line("half and "));
    EXPECT_EQ(kNothing, FilePass());
    AppendLog("app.log", "half\n");
    EXPECT_EQ(Strings{"half and half"}, FilePass());
}

TEST_F(WatchedFile, CountsALineTwiceBehindALongOneThatLiesAcrossTheEdgeOfABlock)
{
    constexpr size_t kBlock = 16384;
    constexpr size_t kBeforeTheEdge = 1500; // of the long line; with all of it more than is handled
    snprintf(each_->Keyword1, sizeof each_->Keyword1, "twice");
    const size_t filled = kBlock - kBeforeTheEdge;
    AppendLog("app.log", std::string(filled - 1, 'x') + "\n");
    AppendLog("app.log", std::string(2000, 'y') + "\n");
    Log({"twice", "after"}, "app.log");
    const Strings reported = FilePass();
    ASSERT_EQ(2U, reported.size());
    EXPECT_EQ("twice\n", reported[0].substr(0, 6)); // behind the long line, whose delivery runs on
    EXPECT_EQ("twice", reported[1]);
}

TEST_F(WatchedFile, CountsALineOnceBehindAShorterOneThatLiesAcrossTheEdgeOfABlock)
{
    snprintf(each_->Keyword1, sizeof each_->Keyword1, "once");
    AppendLog("app.log", std::string(16384 - 1500, 'x') + "\n");
    AppendLog("app.log", std::string(1664, 'y') + "\n"); // twice that is no more than is handled
    Log({"once", "after"}, "app.log");
    EXPECT_EQ(Strings{"once"}, FilePass());
}

TEST_F(WatchedFile, CountsAgainWhenItIsNamedAgainAfterAnother)
{
    Log({"other"}, "other.log");
    NameTarget("/var/log/other.log");
    EXPECT_EQ(Strings{"other"}, FilePass());
    NameTarget("/var/log/app.log");
    EXPECT_EQ(Strings{"checked"}, FilePass());
}

TEST_F(WatchedFile, CountsFromItsFirstLineWhenItIsNamed)
{
    Log({"written long ago", "and yesterday"}, "other.log");
    NameTarget("/var/log/other.log");
    EXPECT_EQ((Strings{"written long ago", "and yesterday"}), FilePass());
}

} // namespace

// Losses by what stands in a log and when it was written: like heads, edits, times, repeats, lines without end.
// See losses.h.
#include "tests/history/losses.h"

namespace history {
namespace {

using test::Sys;

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

// ---- a power cut ----

// What a log is like after it, of which the monitor has stored that it has read more.
class PowerCut : public LossTest {
  protected:
    // The last `size` bytes of the log were not on the disk. There, zero bytes may be in their place.
    void CutOff(size_t size, bool has_zeros) const
    {
        const auto path = LogFile("messages");
        const auto whole = std::filesystem::file_size(path);
        std::filesystem::resize_file(path, whole - size);
        if (has_zeros)
            std::filesystem::resize_file(path, whole);
    }
    static size_t SizeOf(const std::string &text) { return Line(text).size() + 1; }
};

TEST_F(PowerCut, WhatHadCountedAndIsGoneDoesNotCountAgainNorHideWhatComesLater)
{
    for (const bool has_zeros : {false, true}) {
        Log({"head"});
        LogLater({"checked 1"});
        LogLater({"checked 2"});
        Pass();
        CutOff(SizeOf("checked 2"), has_zeros);
        EXPECT_EQ(kNothing, Pass());
        LogLater({"new"});
        EXPECT_EQ(Strings{"new"}, Pass()) << has_zeros;
    }
}

TEST_F(PowerCut, AnOlderEndOfTheLogDoesNotCountAgain)
{
    Log({"head"});
    LogLater({"checked 1"});
    LogLater({"checked 2"});
    LogLater({"checked 3"});
    Pass();
    CutOff(SizeOf("checked 2") + SizeOf("checked 3"), false);
    LogLater({"the system starts"});
    LogLater({"new"});
    EXPECT_EQ((Strings{"the system starts", "new"}), Pass());
}

TEST_F(PowerCut, ALineOfWhichTheEndIsGoneIsContinuedByTheNextOne)
{
    Log({"checked"});
    Pass();
    LogLater({"unread"});
    CutOff(sizeof "read", false);
    LogLater({"hidden"});
    const std::string hidden = Line("hidden");
    LogLater({"new"});
    EXPECT_EQ((Strings{"un" + hidden, "new"}), Pass());
}

TEST_F(PowerCut, ALineThatEndsInZeroBytesCountsByItsFirstPartAndHidesNone)
{
    Log({"checked"});
    Pass();
    LogLater({"unread"});
    CutOff(sizeof "read", true);
    LogLater({"new 1"});
    LogLater({"new 2"});
    EXPECT_EQ((Strings{"un", "new 1", "new 2"}), Pass());
}

TEST_F(PowerCut, ALogOfNothingButZeroBytesIsFollowedFromItsEndOn)
{
    Log({"checked"});
    Pass();
    CutOff(SizeOf("checked"), true);
    EXPECT_EQ(kNothing, Pass());
    LogLater({"new 1"});
    LogLater({"new 2"});
    EXPECT_EQ((Strings{"new 1", "new 2"}), Pass());
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

} // namespace
} // namespace history

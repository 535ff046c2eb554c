// Where the monitor starts afresh: it goes on from the end of the live file, and what is unread before it is
// passed over. See losses.h.
#include <cerrno>

#include "tests/history/losses.h"

namespace history {
namespace {

using test::Sys;

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

// For example, because the process has as many files open as it may.
TEST_F(StartsAfresh, AFolderOfBackupsThatCannotBeListedLosesAllThatIsUnread)
{
    Log({"checked"});
    Pass();
    Log({"lost, old"});
    Rotate();
    Log({"lost, new"});
    Sys().FailCall("scandir", 1, EMFILE);
    EXPECT_EQ(kNothing, Pass());
    Log({"counted"});
    EXPECT_EQ(Strings{"counted"}, Pass());
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

} // namespace
} // namespace history

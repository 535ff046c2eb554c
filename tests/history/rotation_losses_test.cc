// Rotations in the middle of a pass. See losses.h.
#include "tests/history/losses.h"

namespace history {
namespace {

using test::Host;
using test::Sys;

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

} // namespace
} // namespace history

// Which file holds the line where the last pass stopped.
#include <filesystem>
#include <string>
#include <sys/stat.h>

#include "tests/unit/vkevmon/pass_fixture.h"
#include "vkevmon/file_set.h"
#include "vkevmon/settings.h"

namespace {

using test::Host;
using test::kMonitorKey;
using test::kVmkernel;
using test::NotableRecordsOf;
using test::RecordsOf;
using test::ResumePoint;
using test::Strings;
using test::Sys;
using test::SyslogScanTest;

// ---- the resume point ----

class ResumeFile : public SyslogScanTest {
  protected:
    ResumeFile() { gMonIndex = 0; }

    static Strings Own() { return RecordsOf("CheckSyslog"); }
    static Strings OwnNotable() { return NotableRecordsOf("CheckSyslog"); }

    // Looks for the resume point and checks what holds in any case.
    static int Check(int slot = 0)
    {
        Host().ForgetRecords();
        gMonIndex = slot;
        const int result = CheckSyslog(slot);
        EXPECT_EQ(nullptr, gfp);
        EXPECT_EQ(0, Host().registry.OpenHandles());
        if (result != 1) {
            EXPECT_EQ(0U, logindex[slot]);
        }
        return result;
    }

    // The slot starts afresh at the end of this live file.
    static void ExpectBaseline(const Strings &lines, int slot = 0)
    {
        EXPECT_EQ("0 <return 0.", Own().back());
        const ResumePoint end = {lines.front(), OffsetOf(lines.back(), Text(lines)), lines.back()};
        EXPECT_EQ(end, StoredResumePoint(slot));
        EXPECT_EQ(end, (ResumePoint{headline[slot], curpos[slot], content[slot]}));
        ExpectNothingHeld();
    }

    const Strings live_ = {Line("live head", -30), Line("live middle", -20), Line("live end", -10)};
    const Strings backup1_ = {Line("backup 1 head", -60), Line("backup 1 end", -40)};
    const Strings backup2_ = {Line("backup 2 head", -90), Line("backup 2 end", -70)};

    // The live file with two backups.
    void SetRotatedFolder() const
    {
        SetFolder({{"messages", Text(live_)},
                   {"messages.1", Text(backup1_)},
                   {"messages.2", Text(backup2_)}});
    }
};

TEST_F(ResumeFile, OfNoSlotIsAnError)
{
    EXPECT_EQ(-1, CheckSyslog(-1));
    EXPECT_EQ(Strings{"1 <monindex[-1] is invalided, return -1."}, Own());
    Host().ForgetRecords();
    EXPECT_EQ(-1, CheckSyslog(2));
    EXPECT_EQ(Strings{"1 <monindex[2] must less than MAX_MON_FILES[2], return -1."}, Own());
    EXPECT_TRUE(Host().calls.empty());
    EXPECT_EQ(1, Host().Traced(0, ">monindex=2"));
}

TEST_F(ResumeFile, OfALogThatDoesNotExistIsAnError)
{
    logindex[0] = 7;
    EXPECT_EQ(-1, Check());
    EXPECT_EQ(Strings{"1 <stat syslog file[/var/log/messages] failed.return -1."}, Own());
    EXPECT_TRUE(Host().calls.empty());
    WatchCustomerFile("/var/log/app.log");
    IsCustFileChanged = 1;
    EXPECT_EQ(-1, Check(1));
    EXPECT_EQ(Strings{"1 <stat syslog file[/var/log/app.log] failed.return -1."}, Own());
    EXPECT_EQ(1, IsCustFileChanged); // still to be met
}

TEST_F(ResumeFile, IsTheEndOfTheLiveFileAtTheFirstStart)
{
    SetRotatedFolder();
    EXPECT_EQ(0, Check());
    EXPECT_EQ(Strings{"1 RegGetHeadLine error"}, OwnNotable());
    ExpectBaseline(live_);
}

TEST_F(ResumeFile, IsTheEndOfTheLiveFileWhenPartOfWhatWasStoredIsLost)
{
    for (const char *lost : {"HEADLINE", "POS", "H_POS", "CONTENT"}) {
        SetRotatedFolder();
        StoreResumePoint(0, PointAt(live_[0], live_));
        Host().registry.DeleteValue(kMonitorKey, lost);
        EXPECT_EQ(0, Check());
        EXPECT_EQ(Strings{lost == std::string("HEADLINE") ? "1 RegGetHeadLine error"
                                                          : "1 RegGetOrientation error"},
                  OwnNotable());
        ExpectBaseline(live_);
        EXPECT_EQ(0, Sys().Calls("scandir"));
    }
}

TEST_F(ResumeFile, IsTheLiveFileWhenItsFirstLineIsTheStoredOne)
{
    SetRotatedFolder();
    StoreResumePoint(0, PointAt(live_[1], live_));
    EXPECT_EQ(1, Check());
    EXPECT_EQ(0U, logindex[0]);
    EXPECT_EQ(PointAt(live_[1], live_), (ResumePoint{headline[0], curpos[0], content[0]}));
    EXPECT_EQ((Strings{"messages.1", "messages.2"}), BackupNames(0)); // kept for the pass
    EXPECT_EQ((Strings{"3 Check log file: [/var/log/messages]",
                       "0 <Get syslog file last checked: /var/log/messages.return 1."}),
              Own());
}

TEST_F(ResumeFile, IsTheBackupWhoseFirstLineIsTheStoredOne)
{
    SetRotatedFolder();
    StoreResumePoint(0, PointAt(backup1_[0], backup1_));
    EXPECT_EQ(1, Check());
    EXPECT_EQ(1U, logindex[0]);
    EXPECT_EQ(
        (Strings{"3 Check log file: [/var/log/messages]", "3 Check log file: [/var/log/messages.1]",
                 "3 <Get syslog file last checked: /var/log/messages.1.return 1."}),
        Own());

    StoreResumePoint(0, PointAt(backup2_[1], backup2_));
    EXPECT_EQ(1, Check());
    EXPECT_EQ(2U, logindex[0]);
    EXPECT_EQ((Strings{"messages.1", "messages.2"}), BackupNames(0));
    EXPECT_EQ(
        (Strings{"3 Check log file: [/var/log/messages]", "3 Check log file: [/var/log/messages.1]",
                 "3 Check log file: [/var/log/messages.2]",
                 "3 <Get syslog file last checked: /var/log/messages.2.return 1."}),
        Own());
}

TEST_F(ResumeFile, IsTheNewestWhenSeveralBeginWithTheSameLine)
{
    SetFolder({{"messages", Text({"other"})},
               {"messages.1", Text({backup1_[0], "one"})},
               {"messages.2", Text({backup1_[0], "two"})}});
    StoreResumePoint(0, {backup1_[0], 0, backup1_[0]});
    EXPECT_EQ(1, Check());
    EXPECT_EQ(1U, logindex[0]);
}

TEST_F(ResumeFile, IsFoundAmongDatedBackups)
{
    SetFolder({{"messages", Text(live_)},
               {"messages-20240305", Text(backup2_)},
               {"messages-20240309", Text(backup1_)}});
    StoreResumePoint(0, PointAt(backup2_[0], backup2_));
    EXPECT_EQ(1, Check());
    EXPECT_EQ(2U, logindex[0]);
    EXPECT_EQ((Strings{"messages-20240309", "messages-20240305"}), BackupNames(0));
    EXPECT_EQ("3 <Get syslog file last checked: /var/log/messages-20240305.return 1.",
              Own().back());
}

TEST_F(ResumeFile, IsFoundByTheBeginningOfItsFirstLine)
{
    const Strings lines = {Line(std::string(600, 'h')), Line("end")};
    SetFolder({{"messages", Text(lines)}});
    EXPECT_EQ(0, Check()); // stores 499 bytes of the first line
    EXPECT_EQ(lines[0].substr(0, 499), StoredResumePoint().head);
    EXPECT_EQ(1, Check());
    EXPECT_EQ(lines[0].substr(0, 499), headline[0]);
}

TEST_F(ResumeFile, IsNotFoundByAPieceFromTheMiddle)
{
    SetFolder({{"messages", Text(live_)}});
    StoreResumePoint(0, {"live head", 0, live_[0]});
    EXPECT_EQ(0, Check());
    EXPECT_EQ(1, Host().Traced(3, "Cannot find the headline. file headline = live head\\0"));
}

TEST_F(ResumeFile, IsTheLiveFileWhenTheStoredHeadLineIsEmpty)
{
    SetRotatedFolder();
    StoreResumePoint(0, {"", -1, ""});
    EXPECT_EQ(1, Check());
    EXPECT_EQ(0U, logindex[0]);
}

TEST_F(ResumeFile, IsTheEndOfTheLiveFileWhenTheHeadLineIsNowhere)
{
    SetRotatedFolder();
    const std::string gone = Line("rotated away", -900);
    StoreResumePoint(0, {gone, 5, "x"});
    EXPECT_EQ(0, Check());
    EXPECT_EQ(
        (Strings{"3 Check log file: [/var/log/messages]", "3 Check log file: [/var/log/messages.1]",
                 "3 Check log file: [/var/log/messages.2]",
                 "3 Cannot find the headline. file headline = " + gone + "\\0"}),
        OwnNotable());
    ExpectBaseline(live_);
}

TEST_F(ResumeFile, IsNotLookedForBehindAGapOfTheBackups)
{
    SetFolder({{"messages", Text(live_)}, {"messages.2", Text(backup2_)}});
    StoreResumePoint(0, PointAt(backup2_[0], backup2_));
    EXPECT_EQ(0, Check());
    ExpectBaseline(live_);
}

TEST_F(ResumeFile, IsTheEndOfTheLiveFileWhenABackupCannotBeOpened)
{
    SetRotatedFolder();
    RemoveLog("messages.1");
    ASSERT_EQ(0, mkfifo(LogFile("messages.1").c_str(), 0600));
    StoreResumePoint(0, PointAt(backup2_[0], backup2_));
    EXPECT_EQ(0, Check());
    EXPECT_EQ((Strings{"3 Check log file: [/var/log/messages]",
                       "3 Check log file: [/var/log/messages.1]", "1 InitFile() failed."}),
              OwnNotable());
    ExpectBaseline(live_);
}

TEST_F(ResumeFile, IsTheEndOfTheLiveFileWhenABackupIsEmpty)
{
    SetRotatedFolder();
    WriteLog("messages.1", "");
    StoreResumePoint(0, PointAt(backup2_[0], backup2_));
    EXPECT_EQ(0, Check());
    EXPECT_EQ((Strings{"3 Check log file: [/var/log/messages]",
                       "3 Check log file: [/var/log/messages.1]", "1 GetFirstLine() failed."}),
              OwnNotable());
    ExpectBaseline(live_);
}

TEST_F(ResumeFile, StaysWhereItWasWhileTheLiveFileIsEmpty)
{
    SetRotatedFolder();
    WriteLog("messages", "");
    const ResumePoint before = PointAt(backup1_[0], backup1_);
    StoreResumePoint(0, before);
    EXPECT_EQ(-1, Check());
    EXPECT_EQ((Strings{"3 Check log file: [/var/log/messages]", "1 GetFirstLine() failed.",
                       "1 <GetFirstLine failed.return -1."}),
              OwnNotable());
    EXPECT_EQ(before, StoredResumePoint());
    ExpectNothingHeld();
}

TEST_F(ResumeFile, IsLookedForAgainWhenTheFirstLinesOfAnEmptyLiveFileComeJustThen)
{
    SetRotatedFolder();
    WriteLog("messages", "");
    StoreResumePoint(0, PointAt(backup1_[0], backup1_));
    EXPECT_EQ(-1, Check());
    // The name is looked at twice by the search, and as often by each of the two openings. The second one is
    // for the new baseline.
    const int looks = Sys().Calls("stat");
    Sys().BeforeCall("stat", (looks / 2) + 2, [this] { WriteLog("messages", Text(live_)); });
    EXPECT_EQ(1, Check());
    EXPECT_EQ(1U, logindex[0]);
    EXPECT_EQ(PointAt(backup1_[0], backup1_), (ResumePoint{headline[0], curpos[0], content[0]}));
    EXPECT_EQ(
        (Strings{"3 Check log file: [/var/log/messages]", "1 GetFirstLine() failed.",
                 "3 Check log file: [/var/log/messages]", "3 Check log file: [/var/log/messages.1]",
                 "3 <Get syslog file last checked: /var/log/messages.1.return 1."}),
        OwnNotable());
}

TEST_F(ResumeFile, IsTheEndOfAnEmptyLogWhoseFirstLinesComeJustThenWhenThereAreNoBackups)
{
    SetFolder({{"messages", ""}});
    StoreResumePoint(0, PointAt(backup1_[0], backup1_));
    EXPECT_EQ(-1, Check());
    const int looks = Sys().Calls("stat");
    Sys().BeforeCall("stat", (looks / 2) + 2, [this] { WriteLog("messages", Text(live_)); });
    EXPECT_EQ(0, Check());
    EXPECT_EQ((Strings{"3 Check log file: [/var/log/messages]", "1 GetFirstLine() failed."}),
              OwnNotable());
    ExpectBaseline(live_);
}

// ---- rotations in between ----

class ResumeFileInARotation : public ResumeFile {
  protected:
    // The log that is followed; its backups are there from the first rotation on.
    ResumeFileInARotation()
    {
        SetFolder({{"messages", Text(backup1_)}});
        StoreResumePoint(0, point_);
    }

    // Moves the log away, under a number, and puts another in its place.
    void Rotate() const
    {
        for (int number = 4; number >= 1; --number) {
            const std::string name = "messages." + std::to_string(number);
            if (std::filesystem::exists(LogFile(name)))
                RenameLog(name, "messages." + std::to_string(number + 1));
        }
        RenameLog("messages", "messages.1");
        WriteLog("messages", Text(live_));
    }

    // Rotates before the first file of this search is opened, and of each of the next ones.
    void RotateInEachOf(int searches, int backups = 0)
    {
        // The search before this one, which was in vain, still opens the backups that it listed, and the live
        // file for the baseline.
        Sys().BeforeCall("open", backups + 1, [this, searches, backups] {
            Rotate();
            if (searches > 1)
                RotateInEachOf(searches - 1, backups + 1);
        });
    }

    const ResumePoint point_ = PointAt(backup1_[0], backup1_);
};

TEST_F(ResumeFileInARotation, IsLookedForAgainWhenTheBackupsWereListedBeforeIt)
{
    RotateInEachOf(1);
    EXPECT_EQ(1, Check());
    EXPECT_EQ(1U, logindex[0]);
    EXPECT_EQ(
        (Strings{"3 Check log file: [/var/log/messages]",
                 "3 Cannot find the headline. file headline = " + backup1_[0] + "\\0",
                 "3 Check log file: [/var/log/messages]", "3 Check log file: [/var/log/messages.1]",
                 "3 <Get syslog file last checked: /var/log/messages.1.return 1."}),
        OwnNotable());
}

// Moved away before the listing, and not yet there when it is looked at.
TEST_F(ResumeFileInARotation, IsLookedForAgainWhenTheNewLogIsThereOnlyLater)
{
    Sys().BeforeCall("stat", 2, [this] {
        RenameLog("messages", "messages.1");
        Sys().BeforeCall("stat", 2, [this] { WriteLog("messages", Text(live_)); });
    });
    EXPECT_EQ(1, Check());
    EXPECT_EQ(1U, logindex[0]);
    EXPECT_EQ(
        (Strings{"3 Check log file: [/var/log/messages]", "1 InitFile() failed.",
                 "3 Check log file: [/var/log/messages]", "3 Check log file: [/var/log/messages.1]",
                 "3 <Get syslog file last checked: /var/log/messages.1.return 1."}),
        OwnNotable());
}

TEST_F(ResumeFileInARotation, IsLookedForAgainThreeTimes)
{
    RotateInEachOf(3);
    EXPECT_EQ(1, Check());
    EXPECT_EQ(3U, logindex[0]);
    EXPECT_EQ(point_, StoredResumePoint());
}

TEST_F(ResumeFileInARotation, IsTheEndOfTheLiveFileTheFourthTime)
{
    RotateInEachOf(4);
    EXPECT_EQ(0, Check());
    EXPECT_EQ(4,
              Host().Traced(3, "Cannot find the headline. file headline = " + backup1_[0] + "\\0"));
    EXPECT_EQ(0, Host().Traced(1, "<InitFile /var/log/messages failed.return -1."));
    ExpectBaseline(live_);
}

TEST_F(ResumeFileInARotation, IsTheEndOfTheLiveFileAtOnceWhenItHasNoBackups)
{
    Sys().BeforeCall("open", 1, [this] {
        RenameLog("messages", "messages.old"); // a name that is no backup's
        WriteLog("messages", Text(live_));
    });
    EXPECT_EQ(0, Check());
    EXPECT_EQ((Strings{"3 Check log file: [/var/log/messages]",
                       "3 Cannot find the headline. file headline = " + backup1_[0] + "\\0"}),
              OwnNotable());
    ExpectBaseline(live_);
}

TEST_F(ResumeFileInARotation, IsTheEndOfTheLiveFileAtOnceWhenItComesBeforeTheListing)
{
    SetFolder({{"messages", Text(backup1_)}, {"messages.1", Text(backup2_)}});
    Sys().BeforeCall("stat", 2, [this] { // while the resume point is read
        RenameLog("messages", "messages.old");
        WriteLog("messages", Text(live_));
    });
    EXPECT_EQ(0, Check());
    EXPECT_EQ(
        (Strings{"3 Check log file: [/var/log/messages]", "3 Check log file: [/var/log/messages.1]",
                 "3 Cannot find the headline. file headline = " + backup1_[0] + "\\0"}),
        OwnNotable());
    ExpectBaseline(live_);
}

TEST_F(ResumeFileInARotation, OfACustomerFileIsItsEndAtOnce)
{
    WatchCustomerFile("/var/log/app.log");
    SetFolder(
        {{"app.log", Text(backup1_)}, {"messages", Text(live_)}, {"messages.1", Text(live_)}});
    StoreResumePoint(1, point_);
    Sys().BeforeCall("open", 1, [this] {
        RenameLog("app.log", "app.log.1");
        WriteLog("app.log", Text(live_));
    });
    EXPECT_EQ(0, Check(1));
    EXPECT_EQ((Strings{"3 Check log file: [/var/log/app.log]",
                       "3 Cannot find the headline. file headline = " + backup1_[0] + "\\0"}),
              OwnNotable());
    ExpectBaseline(live_, 1);
}

TEST_F(ResumeFileInARotation, StaysWhereItWasWhenTheNewLogIsEmpty)
{
    Sys().BeforeCall("open", 1, [this] {
        Rotate();
        WriteLog("messages", "");
    });
    EXPECT_EQ(-1, Check());
    EXPECT_EQ("1 <GetFirstLine failed.return -1.", OwnNotable().back());
    EXPECT_EQ(point_, StoredResumePoint());
    ExpectNothingHeld();
}

TEST_F(ResumeFile, OfALogThatIsNoFileIsAnError)
{
    std::filesystem::create_directory(LogFile("messages"));
    EXPECT_EQ(-1, Check());
    EXPECT_EQ((Strings{"1 RegGetHeadLine error", "1 <GetFirstLine failed.return -1."}),
              OwnNotable());
    RemoveLog("messages");
    ASSERT_EQ(0, mkfifo(LogFile("messages").c_str(), 0600));
    StoreResumePoint(0, {"head", 0, "x"});
    EXPECT_EQ(-1, Check()); // and it does not wait for a writer
    EXPECT_EQ((Strings{"3 Check log file: [/var/log/messages]", "1 InitFile() failed.",
                       "1 <InitFile /var/log/messages failed.return -1."}),
              OwnNotable());
    ExpectNothingHeld();
}

TEST_F(ResumeFile, OfALogWhoseLastLineCannotBeReadIsAnError)
{
    SetFolder({{"messages", Text(live_)}});
    // The first line takes one seek, the last one the others.
    Sys().FailCall("fseek", 2);
    EXPECT_EQ(-1, Check());
    EXPECT_EQ((Strings{"1 RegGetHeadLine error", "1 <GetLastLine failed.return -1."}),
              OwnNotable());
    EXPECT_EQ("(none)", StoredResumePoint().head);
    ExpectNothingHeld();
}

TEST_F(ResumeFile, FreesTheBackupListBeforeItStartsAfresh)
{
    SetRotatedFolder();
    StoreResumePoint(0, {"nowhere", 0, ""});
    // The list is gone when the live file is opened for the new baseline.
    bool looked = false;
    Sys().BeforeCall("open", 4, [&looked] {
        looked = true;
        EXPECT_EQ(nullptr, syslog_bakfilelist[0].lpbakfilelist);
        EXPECT_EQ(0, syslog_bakfilelist[0].ibakfilenum);
    });
    EXPECT_EQ(0, Check());
    EXPECT_TRUE(looked);
}

TEST_F(ResumeFile, MakesAListAnewEachTime)
{
    SetRotatedFolder();
    StoreResumePoint(0, PointAt(backup2_[0], backup2_));
    EXPECT_EQ(1, Check());
    EXPECT_EQ(2, syslog_bakfilelist[0].ibakfilenum);
    RenameLog("messages.2", "messages.3");
    RenameLog("messages.1", "messages.2");
    RenameLog("messages", "messages.1");
    WriteLog("messages", Text({Line("new head")}));
    EXPECT_EQ(1, Check());
    EXPECT_EQ(3U, logindex[0]);
    EXPECT_EQ((Strings{"messages.1", "messages.2", "messages.3"}), BackupNames(0));
}

// ---- when the registry cannot be written ----

TEST_F(ResumeFile, IsKeptInMemoryWhenTheHeadLineCannotBeStored)
{
    SetFolder({{"messages", Text(live_)}});
    Host().FailCall("RegCreateKeyEx", 1);
    EXPECT_EQ(0, Check());
    EXPECT_EQ((Strings{"1 RegGetHeadLine error", "1 RegSetHeadLine error IGNORED: " + live_[0]}),
              OwnNotable());
    EXPECT_EQ("(none)", StoredResumePoint().head);
    EXPECT_EQ(live_[2], StoredResumePoint().content);
    EXPECT_EQ(live_[0], headline[0]);
}

TEST_F(ResumeFile, IsKeptInMemoryWhenThePositionCannotBeStored)
{
    SetFolder({{"messages", Text(live_)}});
    Host().FailCall("RegCreateKeyEx", 2);
    EXPECT_EQ(0, Check());
    const int64_t end = OffsetOf(live_[2], Text(live_));
    EXPECT_EQ((Strings{"1 RegGetHeadLine error", "1 RegSetOrientation error IGNORED: " +
                                                     std::to_string(end) + ", " + live_[2]}),
              OwnNotable());
    EXPECT_EQ(live_[0], StoredResumePoint().head);
    EXPECT_EQ("(none)", StoredResumePoint().content);
    EXPECT_EQ(end, curpos[0]);
}

// ---- the customer file ----

class CustomerResumeFile : public ResumeFile {
  protected:
    const Strings app_ = {Line("app head", -8), Line("app middle", -6), Line("app end", -4)};

    void SetCustomerFile() const
    {
        SetFolder({{"messages", Text(live_)}, {"app.log", Text(app_)}});
        WatchCustomerFile("/var/log/app.log");
    }
};

TEST_F(CustomerResumeFile, IsRecordedInValuesOfItsOwn)
{
    SetCustomerFile();
    EXPECT_EQ(0, Check(1));
    ExpectBaseline(app_, 1);
    EXPECT_EQ("(none)", StoredResumePoint(0).head);
    EXPECT_EQ(1, Check(1));
    EXPECT_EQ(0U, logindex[1]);
    EXPECT_EQ(0, Sys().Calls("scandir"));
}

TEST_F(CustomerResumeFile, IsTheEndOfTheFileWhenItsNameChanged)
{
    SetCustomerFile();
    StoreResumePoint(1, PointAt(app_[0], app_));
    IsCustFileChanged = 1;
    EXPECT_EQ(0, Check(1));
    EXPECT_EQ(0, IsCustFileChanged);
    EXPECT_EQ("0 custom monitor file changed:[/var/log/app.log]", Own().at(0));
    EXPECT_TRUE(OwnNotable().empty());
    ExpectBaseline(app_, 1);
    EXPECT_EQ(0, Host().Calls("RegQueryValueEx")); // what was stored is not looked at
    EXPECT_EQ(1, Check(1));
}

TEST_F(CustomerResumeFile, IsOfNoConcernToTheSystemLogsSlot)
{
    SetCustomerFile();
    StoreResumePoint(0, PointAt(live_[1], live_));
    IsCustFileChanged = 1;
    EXPECT_EQ(1, Check(0));
    EXPECT_EQ(1, IsCustFileChanged);
}

TEST_F(CustomerResumeFile, ChangesByTheValueOneOnly)
{
    SetCustomerFile();
    StoreResumePoint(1, PointAt(app_[0], app_));
    IsCustFileChanged = 2;
    EXPECT_EQ(1, Check(1));
    EXPECT_EQ(2, IsCustFileChanged);
}

TEST_F(CustomerResumeFile, IsLostWhenAFileOtherThanVmkernelIsRotated)
{
    SetCustomerFile();
    EXPECT_EQ(0, Check(1));
    RenameLog("app.log", "app.log.1");
    const Strings fresh = {Line("fresh head"), Line("fresh end")};
    WriteLog("app.log", Text(fresh));
    EXPECT_EQ(0, Check(1));
    EXPECT_EQ((Strings{"3 Check log file: [/var/log/app.log]",
                       "3 Cannot find the headline. file headline = " + app_[0] + "\\0"}),
              OwnNotable());
    ExpectBaseline(fresh, 1);
}

TEST_F(CustomerResumeFile, IsFollowedIntoABackupOfVmkernel)
{
    SetFolder({{"vmkernel", Text(live_)},
               {"vmkernel.1", Text(backup1_)},
               {"vmkernel.2", Text(backup2_)},
               {"messages", Text(app_)},
               {"messages.1", Text(backup2_)}});
    WatchCustomerFile(kVmkernel);
    StoreResumePoint(1, PointAt(backup2_[1], backup2_));
    EXPECT_EQ(1, Check(1));
    EXPECT_EQ(2U, logindex[1]);
    EXPECT_EQ((Strings{"vmkernel.1", "vmkernel.2"}), BackupNames(1));
    EXPECT_EQ("3 <Get syslog file last checked: /var/log/vmkernel.2.return 1.", Own().back());
}

// ---- every system call fails once ----

// Whatever fails, the outcome is one of three, and each leaves what it must.
TEST_F(ResumeFile, SurvivesTheFailureOfAnySystemCall)
{
    for (const char *name :
         {"stat", "fstat", "open", "fdopen", "fseek", "fread", "scandir", "calloc", "malloc"}) {
        for (int n = 1;; ++n) {
            SCOPED_TRACE(std::string(name) + " " + std::to_string(n));
            StartOver();
            SetRotatedFolder();
            const ResumePoint point = PointAt(backup2_[0], backup2_);
            StoreResumePoint(0, point);
            Sys().FailCall(name, n);
            const int result = Check();
            Sys().count_memory = false;
            if (Sys().Calls(name) < n) {
                EXPECT_EQ(1, result);
                break;
            }
            if (result == 1) {
                EXPECT_EQ(2U, logindex[0]);
                EXPECT_EQ(point, StoredResumePoint());
            } else if (result == 0) {
                EXPECT_FALSE(OwnNotable().empty());
                ExpectBaseline(live_);
            } else {
                EXPECT_FALSE(OwnNotable().empty());
                EXPECT_EQ(point, StoredResumePoint());
                ExpectNothingHeld();
            }
        }
    }
}

} // namespace

// Which names are backups, and their list.
#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <string>

#include "tests/unit/vkevmon/pass_fixture.h"
#include "vkevmon/file_set.h"
#include "vkevmon/settings.h"

namespace {

using test::Host;
using test::kVmkernel;
using test::NotableRecordsOf;
using test::RecordsOf;
using test::Strings;
using test::Sys;
using test::SyslogScanTest;

// ---- which names are backups ----

class NameOfABackup : public SyslogScanTest {
  protected:
    static struct dirent Entry(const std::string &name)
    {
        struct dirent entry {};
        snprintf(entry.d_name, sizeof entry.d_name, "%s", name.c_str());
        return entry;
    }

    static bool IsNumbered(int slot, const std::string &name)
    {
        gMonIndex = slot;
        const struct dirent entry = Entry(name);
        return check_message_i(&entry) != 0;
    }

    static bool IsDated(int slot, const std::string &name)
    {
        gMonIndex = slot;
        const struct dirent entry = Entry(name);
        return check_message_time(&entry) != 0;
    }
};

TEST_F(NameOfABackup, OfTheSystemLogEndsInANumberWithoutALeadingZero)
{
    for (const char *name : {"messages.1", "messages.2", "messages.9", "messages.10",
                             "messages.123", "messages.4294967297"})
        EXPECT_TRUE(IsNumbered(0, name)) << name;
    for (const char *name :
         {"messages", "messages.0", "messages.01", "messages.1.gz", "messages.1a", "messages.a",
          "messages.-1", "messages. 1", "messages-1", "Messages.1", "xmessages.1", "message.1",
          "messages1", "vmkernel.1", "", ".", "..", "messages.1 ", "messages.\xB2"})
        EXPECT_FALSE(IsNumbered(0, name)) << name;
}

TEST_F(NameOfABackup, IsTracedWithWhatBecomesOfIt)
{
    ASSERT_TRUE(IsNumbered(0, "messages.1"));
    EXPECT_EQ(1, Host().Traced(0, ">d_name=messages.1"));
    EXPECT_EQ(1, Host().Traced(0, "<return 1."));
    ASSERT_FALSE(IsDated(0, "messages.1"));
    EXPECT_EQ(2, Host().Traced(0, ">d_name=messages.1"));
    EXPECT_EQ(1, Host().Traced(0, "<return 0."));
}

TEST_F(NameOfABackup, OfTheSystemLogHas31BytesAtMost)
{
    EXPECT_TRUE(IsNumbered(0, "messages." + std::string(22, '1')));
    EXPECT_FALSE(IsNumbered(0, "messages." + std::string(23, '1')));
}

TEST_F(NameOfABackup, OfVmkernelEndsInOneToFour)
{
    for (const char *name : {"vmkernel.1", "vmkernel.2", "vmkernel.3", "vmkernel.4"})
        EXPECT_TRUE(IsNumbered(1, name)) << name;
    for (const char *name :
         {"vmkernel", "vmkernel.0", "vmkernel.5", "vmkernel.9", "vmkernel.10", "vmkernel.11",
          "vmkernel.1a", "vmkernel.a", "vmkernel.:", "vmkernel-1", "Vmkernel.1", "messages.1", ""})
        EXPECT_FALSE(IsNumbered(1, name)) << name;
}

TEST_F(NameOfABackup, MayLackItsNumber)
{
    EXPECT_TRUE(IsNumbered(0, "messages."));
    EXPECT_TRUE(IsNumbered(1, "vmkernel."));
    EXPECT_FALSE(IsNumbered(1, "messages."));
    EXPECT_FALSE(IsNumbered(0, "vmkernel."));
}

TEST_F(NameOfABackup, OfAnyOtherSlotIsNone)
{
    for (const int slot : {-1, 2, 3, 100}) {
        EXPECT_FALSE(IsNumbered(slot, "messages.1"));
        EXPECT_FALSE(IsNumbered(slot, "vmkernel.1"));
        EXPECT_FALSE(IsDated(slot, "messages-20240105"));
    }
}

TEST_F(NameOfABackup, MayEndInADate)
{
    for (const char *name : {"messages-20240105", "messages-20231231", "messages-00000101",
                             "messages-99991231", "messages-20240230", "messages-20240431"})
        EXPECT_TRUE(IsDated(0, name)) << name;
}

TEST_F(NameOfABackup, HasAMonthOf1To12AndADayOf1To31)
{
    for (int month = 0; month <= 99; ++month) {
        for (int day = 0; day <= 99; ++day) {
            char name[64];
            snprintf(name, sizeof name, "messages-2024%02d%02d", month, day);
            EXPECT_EQ(month >= 1 && month <= 12 && day >= 1 && day <= 31, IsDated(0, name)) << name;
        }
    }
}

TEST_F(NameOfABackup, HasADateOfExactlyEightDigits)
{
    for (const char *name :
         {"messages-2024010", "messages-202401055", "messages-20240105.gz", "messages-2024010x",
          "messages-x0240105", "messages-2024-105", "messages.20240105", "Messages-20240105",
          "vmkernel-20240105", "messages-", "messages-20240+05", "messages-202401 5", ""})
        EXPECT_FALSE(IsDated(0, name)) << name;
}

TEST_F(NameOfABackup, OfVmkernelHasNoDate)
{
    EXPECT_FALSE(IsDated(1, "vmkernel-20240105"));
    EXPECT_FALSE(IsDated(1, "messages-20240105"));
}

// ---- the list ----

class BackupList : public SyslogScanTest {
  protected:
    BackupList() { gMonIndex = 0; }

    // Makes these empty files and nothing else.
    void SetNames(const Strings &names) const
    {
        Files files;
        for (const auto &name : names)
            files[name] = "";
        SetFolder(files);
    }

    // What the list comes to. Checks what holds for every list.
    static Strings List(int monindex = 0)
    {
        Host().ForgetRecords();
        BackupName stale[1] = {};
        BackupName *names = stale; // anything but null
        const int count = GetSyslogBakFilelist(&names, monindex);
        Strings list;
        for (int i = 0; i < count; ++i) {
            list.emplace_back(names[i]);
            // The rest of each name's field is zero.
            EXPECT_EQ(std::string(kBackupNameSize - list.back().size(), '\0'),
                      std::string(names[i] + list.back().size(), names[i] + kBackupNameSize));
        }
        EXPECT_EQ(count > 0, names != nullptr);
        free(names);
        return list;
    }

    static void UseVmkernel()
    {
        WatchCustomerFile(kVmkernel);
        gMonIndex = 1;
    }

    static Strings Own() { return RecordsOf("GetSyslogBakFilelist"); }
};

TEST_F(BackupList, NeedsAPlaceForItsResult)
{
    EXPECT_EQ(0, GetSyslogBakFilelist(nullptr, 0));
    EXPECT_EQ(Strings{"1 <error parameter."}, Own());
    Host().ForgetRecords();
    EXPECT_EQ(0, GetSyslogBakFilelist(nullptr, -1));
    EXPECT_EQ(Strings{"1 <error parameter."}, Own());
}

TEST_F(BackupList, IsTracedWithItsArguments)
{
    BackupName *names = nullptr;
    GetSyslogBakFilelist(&names, -1);
    char entry[80];
    snprintf(entry, sizeof entry, ">lpbakfilelist=%p,monindex=-1", static_cast<void *>(&names));
    EXPECT_EQ(1, Host().Traced(0, entry));
}

TEST_F(BackupList, OfNoSlotIsEmptyThoughTheMessageSaysMinusOne)
{
    SetNames({"messages", "messages.1"});
    EXPECT_EQ(Strings{}, List(-1));
    EXPECT_EQ(Strings{"1 <monindex[-1] is invalided, return -1."}, Own());
    EXPECT_EQ(Strings{}, List(2));
    EXPECT_EQ(Strings{"1 <monindex[2] must less than MAX_MON_FILES[2], return -1."}, Own());
    EXPECT_EQ(Strings{}, List(77));
    EXPECT_EQ(Strings{"1 <monindex[77] must less than MAX_MON_FILES[2], return -1."}, Own());
    EXPECT_EQ(0, Sys().Calls("scandir"));
}

TEST_F(BackupList, OfACustomerFileOtherThanVmkernelIsEmpty)
{
    SetNames({"messages.1", "vmkernel.1", "app.log", "app.log.1"});
    gMonIndex = 1;
    for (const char *path : {"/var/log/app.log", "/var/log/vmkernel2", "/var/log/vmkerne",
                             "/var/log/VMKERNEL", "/var/log//vmkernel", ""}) {
        WatchCustomerFile(path);
        EXPECT_EQ(Strings{}, List(1)) << path;
        EXPECT_EQ(Strings{"0 custom file is not /var/log/vmkernel, ignore"}, Own());
    }
    EXPECT_EQ(0, Sys().Calls("scandir"));
}

TEST_F(BackupList, WithoutBackupsIsEmpty)
{
    SetNames({"messages", "messages.0", "messages.1.gz", "dmesg"});
    EXPECT_EQ(Strings{}, List());
    EXPECT_EQ((Strings{"0 There is no messages.i or messages-YYYYMMDD backup file.",
                       "0 < ibakfilenum=0"}),
              Own());
}

TEST_F(BackupList, OfNumberedBackupsCountsUpFromOne)
{
    SetNames({"messages", "messages.1", "messages.2", "messages.3"});
    EXPECT_EQ((Strings{"messages.1", "messages.2", "messages.3"}), List());
    EXPECT_EQ((Strings{"0 backup syslog file: messages.1", "0 backup syslog file: messages.2",
                       "0 backup syslog file: messages.3", "0 < ibakfilenum=3"}),
              Own());
}

TEST_F(BackupList, OfNumberedBackupsIsSortedByNumber)
{
    Strings names;
    for (int i = 1; i <= 12; ++i)
        names.push_back("messages." + std::to_string(i));
    SetNames(names);
    EXPECT_EQ(names, List());
}

TEST_F(BackupList, OfNumberedBackupsEndsAtAGap)
{
    SetNames({"messages.1", "messages.2", "messages.4", "messages.5"});
    EXPECT_EQ((Strings{"messages.1", "messages.2"}), List());
    EXPECT_EQ((Strings{"0 backup syslog file: messages.1", "0 backup syslog file: messages.2",
                       "1 discontinuous syslog file: messages.4, skip it and others behind it.",
                       "0 < ibakfilenum=2"}),
              Own());
}

TEST_F(BackupList, OfNumberedBackupsStartsAtOneOrIsEmpty)
{
    SetNames({"messages.2", "messages.3"});
    EXPECT_EQ(Strings{}, List());
    EXPECT_EQ((Strings{"1 discontinuous syslog file: messages.2, skip it and others behind it.",
                       "0 < ibakfilenum=0"}),
              Own());
}

TEST_F(BackupList, EndsAtANameWithoutANumber)
{
    SetNames({"messages.", "messages.1", "messages.2"});
    EXPECT_EQ(Strings{}, List()); // it is sorted before "messages.1"
    EXPECT_EQ((Strings{"1 discontinuous syslog file: messages., skip it and others behind it.",
                       "0 < ibakfilenum=0"}),
              Own());
    UseVmkernel();
    SetNames({"vmkernel.", "vmkernel.1"});
    EXPECT_EQ(Strings{}, List(1));
    EXPECT_EQ((Strings{"1 discontinuous syslog file: vmkernel., skip it and others behind it.",
                       "0 < ibakfilenum=0"}),
              Own());
}

TEST_F(BackupList, OfNumberedBackupsMeetsNamesOfFullLength)
{
    const std::string longest = "messages." + std::string(22, '9');
    SetNames({"messages.1", longest, longest + "9"});
    EXPECT_EQ(Strings{"messages.1"}, List());
    EXPECT_EQ(1, Host().Traced(1, "discontinuous syslog file: " + longest +
                                      ", skip it and others behind it."));
}

TEST_F(BackupList, OfDatedBackupsHasTheNewestFirst)
{
    SetNames({"messages", "messages-20231231", "messages-20240105", "messages-20240103"});
    EXPECT_EQ((Strings{"messages-20240105", "messages-20240103", "messages-20231231"}), List());
    EXPECT_EQ((Strings{"0 syslog backup file: messages-20240105",
                       "0 syslog backup file: messages-20240103",
                       "0 syslog backup file: messages-20231231", "0 < ibakfilenum=3"}),
              Own());
}

TEST_F(BackupList, OfDatedBackupsLooksAtTheNamesOnly)
{
    SetNames({"messages-20240105", "messages-20240104"});
    SetModified("messages-20240104", 2000000000);
    SetModified("messages-20240105", 1000000000);
    EXPECT_EQ((Strings{"messages-20240105", "messages-20240104"}), List());
    EXPECT_EQ(0, Sys().Calls("stat"));
}

// ---- both schemes at once ----

TEST_F(BackupList, OfBothSchemesIsTheOneRotatedLast)
{
    SetNames({"messages-20240101", "messages-20240105", "messages.1", "messages.2"});
    SetModified("messages-20240101", 1999); // of a scheme, the newest name counts
    SetModified("messages.2", 1999);
    SetModified("messages.1", 1000);
    SetModified("messages-20240105", 1001);
    EXPECT_EQ((Strings{"messages-20240105", "messages-20240101"}), List());
    SetModified("messages-20240105", 999);
    EXPECT_EQ((Strings{"messages.1", "messages.2"}), List());
}

TEST_F(BackupList, OfBothSchemesRotatedAtOnceIsTheNumberedOne)
{
    SetNames({"messages-20240105", "messages.1"});
    SetModified("messages-20240105", 1000);
    SetModified("messages.1", 1000);
    EXPECT_EQ(Strings{"messages.1"}, List());
}

TEST_F(BackupList, OfBothSchemesIsEmptyWhenTheNumberedOneIsChosenAndLacksItsFirst)
{
    SetNames({"messages-20240105", "messages.2", "messages.3"});
    SetModified("messages-20240105", 1000);
    SetModified("messages.2", 2000);
    EXPECT_EQ(Strings{}, List());
    EXPECT_EQ(1, Host().Traced(
                     1, "discontinuous syslog file: messages.2, skip it and others behind it."));
    SetModified("messages-20240105", 2001);
    EXPECT_EQ(Strings{"messages-20240105"}, List());
}

TEST_F(BackupList, OfBothSchemesNeedsTheTimesOfBoth)
{
    SetNames({"messages-20240101", "messages-20240105", "messages.1"});
    Sys().FailCall("stat", 1);
    EXPECT_EQ(Strings{}, List());
    EXPECT_EQ((Strings{"1 stat file /var/log/messages-20240105 failed.", "0 < ibakfilenum=0"}),
              Own());
    Sys().FailCall("stat", 2);
    EXPECT_EQ(Strings{}, List());
    EXPECT_EQ((Strings{"1 stat file /var/log/messages.1 failed.", "0 < ibakfilenum=0"}), Own());
}

// ---- the customer's vmkernel ----

TEST_F(BackupList, OfVmkernelHasFourAtMost)
{
    SetNames({"vmkernel", "vmkernel.1", "vmkernel.2", "vmkernel.3", "vmkernel.4", "vmkernel.5",
              "vmkernel.10", "messages.1", "messages-20240105", "vmkernel-20240105"});
    UseVmkernel();
    EXPECT_EQ((Strings{"vmkernel.1", "vmkernel.2", "vmkernel.3", "vmkernel.4"}), List(1));
    EXPECT_EQ(1, Host().Traced(0, "backup syslog file: vmkernel.4"));
}

TEST_F(BackupList, OfVmkernelEndsAtAGap)
{
    SetNames({"vmkernel.1", "vmkernel.3"});
    UseVmkernel();
    EXPECT_EQ(Strings{"vmkernel.1"}, List(1));
    EXPECT_EQ(1, Host().Traced(
                     1, "discontinuous syslog file: vmkernel.3, skip it and others behind it."));
}

TEST_F(BackupList, IsFilteredForTheSlotThatIsBeingScanned)
{
    SetNames({"messages.1", "vmkernel.1"});
    UseVmkernel();
    gMonIndex = 0;
    EXPECT_EQ(Strings{}, List(1)); // "messages.1" is listed where "vmkernel.1" is expected
    EXPECT_EQ(1, Host().Traced(
                     1, "discontinuous syslog file: messages.1, skip it and others behind it."));
    gMonIndex = -1;
    EXPECT_EQ(Strings{}, List(1));
    EXPECT_EQ(1, Host().Traced(0, "There is no messages.i or messages-YYYYMMDD backup file."));
}

// ---- failures ----

TEST_F(BackupList, IsEmptyWhenTheFolderDoesNotExist)
{
    SetNames({"messages.1", "messages-20240105"});
    for (const int n : {1, 2}) {
        Sys().FailCall("scandir", n, ENOENT);
        EXPECT_EQ(Strings{}, List());
        EXPECT_EQ((Strings{"1 Dir /var/log is not exist."}),
                  NotableRecordsOf("GetSyslogBakFilelist"));
    }
}

TEST_F(BackupList, IsEmptyWhenTheFolderCannotBeRead)
{
    SetNames({"messages.1", "messages-20240105"});
    for (const int reason : {EACCES, ENOMEM, ENOTDIR}) {
        for (const int n : {1, 2}) {
            Sys().FailCall("scandir", n, reason);
            EXPECT_EQ(Strings{}, List());
            EXPECT_EQ((Strings{"2 scandir /var/log failed."}),
                      NotableRecordsOf("GetSyslogBakFilelist"));
        }
    }
}

TEST_F(BackupList, ReadsTheFolderForDatesFirst)
{
    SetNames({"messages.1", "messages-20240105"});
    Sys().BeforeCall("scandir", 2, [this] { SetNames({"messages.1", "messages.2"}); });
    SetModified("messages-20240105", 1);
    // The dated name was listed before it went, so its time is asked for.
    EXPECT_EQ(Strings{}, List());
    EXPECT_EQ(1, Host().Traced(1, "stat file /var/log/messages-20240105 failed."));
}

TEST_F(BackupList, IsEmptyWithoutMemory)
{
    for (const char *name : {"messages.1", "messages-20240105"}) {
        SetNames({name});
        Sys().FailCall("calloc", 1, ENOMEM);
        EXPECT_EQ(Strings{}, List());
        Sys().count_memory = false;
        EXPECT_EQ((Strings{"1 malloc failed, *lpbakfilelist is NULL", "0 < ibakfilenum=0"}), Own());
    }
}

} // namespace

// The settings that change while the monitor runs: the scan cycle and the customer file.
#include "vkevmon/settings.h"

#include <cstring>

#include "tests/unit/vkevmon/frame_fixture.h"

namespace {

using test::ExpectNothingToTell;
using test::ExpectTraced;
using test::Host;
using test::kMonitorKey;

// Taken before any test has put the module back to its first state.
const int32_t cycle_at_load = cycle;
const bool paths_are_empty_at_load = syslogpath[0][0] == '\0' && syslogpath[1][0] == '\0';
const int32_t change_mark_at_load = IsCustFileChanged;

constexpr char kNoCycle[] =
    "<Try to read cycle from registry not success, use 300 second as the default cycle value.";
constexpr char kCycleRefused[] = "<value not in range[10,3600]";
constexpr char kNoKey[] = "<RegOpenKeyEx() failed.";
constexpr char kNoFileName[] = "<Try to read FILENAME from registry not success.";

TEST(SettingsAtLoad, AreFiveMinutesAndNoFiles)
{
    EXPECT_EQ(300, cycle_at_load);
    EXPECT_TRUE(paths_are_empty_at_load);
    EXPECT_EQ(0, change_mark_at_load);
}

// ---- the scan cycle ----

class ScanCycle : public test::ModuleTest {
  protected:
    static void StoreCycle(uint32_t seconds)
    {
        Host().registry.SetNumber(kMonitorKey, "CYCLE", seconds);
    }
    static void ExpectEveryKeyIsClosed() { EXPECT_EQ(0, Host().registry.OpenHandles()); }
};

TEST_F(ScanCycle, InsideTheRangeIsTaken)
{
    for (const int32_t seconds : {10, 11, 60, 300, 3599, 3600}) {
        Host().ForgetRecords();
        StoreCycle(static_cast<uint32_t>(seconds));
        ChangeCycle();
        EXPECT_EQ(seconds, cycle);
        ExpectTraced(3, "ChangeCycle", "<cycle changed to " + std::to_string(seconds));
        EXPECT_EQ(1U, Host().Texts(3).size());
        EXPECT_TRUE(Host().Texts(1).empty());
        ExpectEveryKeyIsClosed();
    }
}

TEST_F(ScanCycle, OutsideTheRangeIsRefusedAndKeepsTheCycle)
{
    cycle = 77;
    for (const uint32_t seconds :
         {0U, 1U, 9U, 3601U, 100000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFBU, 0xFFFFFFFFU}) {
        Host().ForgetRecords();
        StoreCycle(seconds);
        ChangeCycle();
        EXPECT_EQ(77, cycle) << seconds;
        ExpectTraced(1, "ChangeCycle", kCycleRefused);
        EXPECT_TRUE(Host().Texts(3).empty());
        ExpectEveryKeyIsClosed();
    }
}

TEST_F(ScanCycle, WithoutAValueStaysWhatItWasWhateverTheMessageSays)
{
    StoreCycle(42);
    ChangeCycle();
    Host().registry.DeleteValue(kMonitorKey, "CYCLE");
    ChangeCycle();
    EXPECT_EQ(42, cycle);
    ExpectTraced(1, "ChangeCycle", kNoCycle);
    ExpectEveryKeyIsClosed();
}

TEST_F(ScanCycle, WithoutTheKeyStaysWhatItWas)
{
    cycle = 42;
    ChangeCycle();
    EXPECT_EQ(42, cycle);
    ExpectTraced(1, "ChangeCycle", kNoKey);
    EXPECT_EQ(0, Host().Calls("RegQueryValueEx"));
}

TEST_F(ScanCycle, OfMoreThanFourBytesCannotBeRead)
{
    Host().registry.SetBytes(kMonitorKey, "CYCLE", REG_BINARY, std::string("\x3C\0\0\0\0", 5));
    ChangeCycle();
    EXPECT_EQ(300, cycle);
    ExpectTraced(1, "ChangeCycle", kNoCycle);
    ExpectEveryKeyIsClosed();
}

TEST_F(ScanCycle, OfFewerThanFourBytesIsFilledUpWithZeros)
{
    Host().registry.SetBytes(kMonitorKey, "CYCLE", REG_BINARY, "\x3C");
    ChangeCycle();
    EXPECT_EQ(60, cycle);
    Host().registry.SetBytes(kMonitorKey, "CYCLE", REG_BINARY, "");
    ChangeCycle();
    EXPECT_EQ(60, cycle);
    ExpectTraced(1, "ChangeCycle", kCycleRefused);
}

TEST_F(ScanCycle, WrittenAsTextIsReadAsTheBytesItHas)
{
    Host().registry.SetText(kMonitorKey, "CYCLE", "60"); // 0x00003036
    ChangeCycle();
    EXPECT_EQ(300, cycle);
    ExpectTraced(1, "ChangeCycle", kCycleRefused);
}

TEST_F(ScanCycle, IsKeptWhenAnyCallFails)
{
    StoreCycle(60);
    cycle = 42;
    Host().FailCall("RegOpenKeyEx", 1);
    ChangeCycle();
    EXPECT_EQ(42, cycle);
    ExpectTraced(1, "ChangeCycle", kNoKey);

    Host().FailCall("RegQueryValueEx", 1);
    ChangeCycle();
    EXPECT_EQ(42, cycle);
    ExpectTraced(1, "ChangeCycle", kNoCycle);
    ExpectEveryKeyIsClosed();
}

TEST_F(ScanCycle, IsTakenAlsoWhenTheKeyCannotBeClosed)
{
    StoreCycle(60);
    Host().FailCall("RegCloseKey", 1);
    ChangeCycle();
    EXPECT_EQ(60, cycle);
    EXPECT_TRUE(Host().Texts(1).empty());
}

TEST_F(ScanCycle, LeavesTheCustomerFileAlone)
{
    strcpy(syslogpath[1], "/var/log/app");
    StoreCycle(60);
    ChangeCycle();
    EXPECT_STREQ("/var/log/app", syslogpath[1]);
}

// ---- the customer file ----

class CustomerFile : public test::ModuleTest {
  protected:
    CustomerFile()
    {
        memset(syslogpath, '#', sizeof syslogpath);
        Host().registry.CreateKey(kMonitorKey);
    }

    static void StoreName(const std::string &bytes)
    {
        Host().registry.SetBytes(kMonitorKey, "FILENAME", REG_SZ, bytes);
    }

    // Both buffers, to the last byte. Empty: no customer file.
    static void ExpectCustomerFile(const std::string &path)
    {
        std::string want(kSyslogPathSize, '\0');
        want.replace(0, 17, "/var/log/messages");
        EXPECT_EQ(want, std::string(syslogpath[0], kSyslogPathSize));
        want.assign(kSyslogPathSize, '\0');
        want.replace(0, path.size(), path);
        EXPECT_EQ(want, std::string(syslogpath[1], kSyslogPathSize));
        EXPECT_EQ(0, Host().registry.OpenHandles());
    }
    static void ExpectTaken(const std::string &path)
    {
        ExpectCustomerFile(path);
        ExpectTraced(3, "ChangeCustFile", "<customer monitoring file changed to " + path);
        EXPECT_EQ(1U, Host().Texts(3).size());
        EXPECT_TRUE(Host().Texts(1).empty());
    }
};

TEST_F(CustomerFile, IsTakenAsItStands)
{
    for (const char *path : {"/var/log/app.log", "/var/log/vmkernel", "relative", "/a b/../%s%n",
                             "/var/log/messages", "/var/log/\xC3\xA4rger", "/x"}) {
        Host().ForgetRecords();
        Host().registry.SetText(kMonitorKey, "FILENAME", path);
        EXPECT_EQ(0, ChangeCustFile());
        ExpectTaken(path);
    }
}

TEST_F(CustomerFile, WithoutAValueIsNoneAndNothingIsSaid)
{
    EXPECT_EQ(0, ChangeCustFile());
    ExpectCustomerFile("");
    ExpectNothingToTell();
}

TEST_F(CustomerFile, OfAnEmptyNameIsNone)
{
    for (const std::string &bytes :
         {std::string(1, '\0'), std::string(), std::string("\0abc", 4)}) {
        Host().ForgetRecords();
        StoreName(bytes);
        EXPECT_EQ(0, ChangeCustFile());
        ExpectCustomerFile("");
        ExpectTraced(3, "ChangeCustFile", "<no customer monitoring file");
        EXPECT_TRUE(Host().Texts(1).empty());
    }
}

TEST_F(CustomerFile, IsForgottenWhenItsValueIsGone)
{
    StoreName("/var/log/app");
    EXPECT_EQ(0, ChangeCustFile());
    Host().registry.DeleteValue(kMonitorKey, "FILENAME");
    Host().ForgetRecords();
    EXPECT_EQ(0, ChangeCustFile());
    ExpectCustomerFile("");
    ExpectNothingToTell();
}

TEST_F(CustomerFile, OfAShorterNameLeavesNothingOfTheLongerOne)
{
    StoreName("/var/log/" + std::string(200, 'l'));
    EXPECT_EQ(0, ChangeCustFile());
    Host().ForgetRecords();
    StoreName("/s");
    EXPECT_EQ(0, ChangeCustFile());
    ExpectTaken("/s");
}

TEST_F(CustomerFile, Of254BytesFitsWithItsZeroByte)
{
    const std::string path = "/" + std::string(253, 'n');
    StoreName(path + '\0');
    EXPECT_EQ(0, ChangeCustFile());
    ExpectTaken(path);
}

TEST_F(CustomerFile, Of255BytesFitsOnlyWithoutItsZeroByte)
{
    const std::string path = "/" + std::string(254, 'n');
    StoreName(path);
    EXPECT_EQ(0, ChangeCustFile());
    ExpectTaken(path);

    Host().ForgetRecords();
    StoreName(path + '\0');
    EXPECT_EQ(0, ChangeCustFile());
    ExpectCustomerFile("");
    ExpectTraced(1, "ChangeCustFile", kNoFileName);
}

TEST_F(CustomerFile, Of256BytesAndMoreCannotBeRead)
{
    for (const size_t size : {256U, 257U, 300U, 5000U}) {
        Host().ForgetRecords();
        StoreName(std::string(size, '/'));
        EXPECT_EQ(0, ChangeCustFile());
        ExpectCustomerFile("");
        ExpectTraced(1, "ChangeCustFile", kNoFileName);
    }
}

TEST_F(CustomerFile, EndsAtAZeroByteInsideTheValue)
{
    StoreName(std::string("/var/log/app\0.old\0", 18));
    EXPECT_EQ(0, ChangeCustFile());
    ExpectTaken("/var/log/app");
}

TEST_F(CustomerFile, OfAnotherTypeIsTheBytesItHas)
{
    Host().registry.SetNumber(kMonitorKey, "FILENAME", 0x0074782F); // "/xt" and a zero byte
    EXPECT_EQ(0, ChangeCustFile());
    ExpectTaken("/xt");
}

TEST_F(CustomerFile, IsNoneWhenTheKeyCannotBeOpened)
{
    StoreName("/var/log/app");
    Host().FailCall("RegOpenKeyEx", 1);
    EXPECT_EQ(0, ChangeCustFile()); // a name that cannot be read is nobody's failure
    ExpectCustomerFile("");
    ExpectTraced(1, "ChangeCustFile", kNoKey);
    EXPECT_EQ(0, Host().Calls("RegQueryValueEx"));
}

TEST_F(CustomerFile, IsNoneWhenTheKeyDoesNotExist)
{
    Host().registry.DeleteKey(kMonitorKey);
    EXPECT_EQ(0, ChangeCustFile());
    ExpectCustomerFile("");
    ExpectTraced(1, "ChangeCustFile", kNoKey);
}

TEST_F(CustomerFile, IsNoneWhenItsValueCannotBeRead)
{
    StoreName("/var/log/app");
    Host().FailCall("RegQueryValueEx", 1);
    EXPECT_EQ(0, ChangeCustFile());
    ExpectCustomerFile("");
    ExpectTraced(1, "ChangeCustFile", kNoFileName);
}

TEST_F(CustomerFile, IsTakenAlsoWhenTheKeyCannotBeClosed)
{
    StoreName("/var/log/app");
    Host().FailCall("RegCloseKey", 1);
    EXPECT_EQ(0, ChangeCustFile());
    EXPECT_STREQ("/var/log/app", syslogpath[1]);
    EXPECT_TRUE(Host().Texts(1).empty());
}

TEST_F(CustomerFile, IsReadFromTheValueOfTheMonitorNotOfTheFileMonitor)
{
    Host().registry.SetText(test::kFileMonitorKey, "FILENAME", "/var/log/other");
    EXPECT_EQ(0, ChangeCustFile());
    ExpectCustomerFile("");
}

TEST_F(CustomerFile, LeavesTheChangeMarkAndTheCycleAlone)
{
    Host().registry.SetNumber(kMonitorKey, "CYCLE", 60);
    StoreName("/var/log/app");
    IsCustFileChanged = 1;
    EXPECT_EQ(0, ChangeCustFile());
    EXPECT_EQ(1, IsCustFileChanged);
    IsCustFileChanged = 0;
    EXPECT_EQ(0, ChangeCustFile());
    EXPECT_EQ(0, IsCustFileChanged);
    EXPECT_EQ(300, cycle);
}

} // namespace

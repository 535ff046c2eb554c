// The two slots of a pass, and when it ended.
#include <cstdint>
#include <cstring>
#include <string>

#include "regacc/last_end_time.h"
#include "tests/unit/vkevmon/pass_fixture.h"
#include "tests/unit/vkevmon/pass_story.h"

namespace {

using test::CheckedList;
using test::CustomerPass;
using test::Host;
using test::kMonitorKey;
using test::kNow;
using test::Once;
using test::Pass;
using test::RecordsOf;
using test::Strings;
using test::Sys;

// ---- the two slots ----

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

TEST_F(CustomerPass, TellsOfEachPartOfWhichLogItIs)
{
    FollowBoth();
    Append({a_});
    AppendLog("app.log", Text({b_}));
    Host().parts.clear();
    Run();
    Strings logs;
    for (const LogPart &part : Host().parts)
        logs.push_back(std::to_string(part.slot) + " " + part.log);
    EXPECT_EQ((Strings{"0 /var/log/messages", "1 /var/log/app.log"}), logs);
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

} // namespace

// The settings: what is accepted, what is refused, and who is told.
#include "agent/settings/settings.h"

#include <map>

#include "agent/host/agent_values.h"
#include "platform/agent.h"
#include "platform/contract.h"
#include "platform/sync.h"
#include "tests/agent/support/host_test.h"

namespace {

using settings::FindSetting;
using test::ErrorOf;
using test::TreeValue;

class Settings : public test::HostTest {
  protected:
    static std::string Set(const std::string &name, const std::string &text)
    {
        return ErrorOf([&] { settings::ChangeSetting(test::TheHost(), FindSetting(name), text); });
    }
    static std::string Get(const std::string &name)
    {
        return settings::GetSetting(test::Registry(), FindSetting(name));
    }
    static void ExpectTaken(const std::string &name, const std::string &text)
    {
        EXPECT_EQ("no error", Set(name, text));
        EXPECT_EQ(text, Get(name));
    }
    // Refused with this text, and nothing is changed.
    static void ExpectRefused(const std::string &name, const std::string &text,
                              const std::string &accepted)
    {
        const std::string before = Get(name);
        EXPECT_EQ("cannot set " + name + " to \"" + text + "\": the value is not accepted; use " +
                      accepted,
                  Set(name, text));
        EXPECT_EQ(before, Get(name));
    }
};

TEST_F(Settings, HaveTheirDefaultsInAnEmptyRegistry)
{
    EXPECT_EQ("300", Get("cycle"));
    EXPECT_EQ("", Get("customer-file"));
    EXPECT_EQ("", Get("file-monitor"));
    EXPECT_EQ("off", Get("fault-tolerant"));
    EXPECT_EQ("UTF-8", Get("log-charset"));
    EXPECT_EQ("error", Get("trace-level"));
    EXPECT_EQ("1000", Get("trigger-interval"));
    EXPECT_EQ("64", Get("spool-megabytes"));
    EXPECT_EQ("900", Get("alarm-after"));
    EXPECT_EQ("24", Get("silent-after"));
    EXPECT_EQ("100000", Get("alert-limit"));
    EXPECT_EQ("0", Get("alert-megabytes"));
}

TEST_F(Settings, AreSetBackByTheWordDefault)
{
    for (const auto &[name, value] : {std::pair{"cycle", "10"},
                                      {"customer-file", "/a"},
                                      {"file-monitor", "/a"},
                                      {"fault-tolerant", "on"},
                                      {"log-charset", "EUC-JP"},
                                      {"trace-level", "off"},
                                      {"trigger-interval", "0"},
                                      {"spool-megabytes", "1"},
                                      {"alarm-after", "1"},
                                      {"silent-after", "0"},
                                      {"alert-limit", "100"},
                                      {"alert-megabytes", "1"}}) {
        const std::string before = Get(name);
        ExpectTaken(name, value);
        EXPECT_EQ("no error", Set(name, "default"));
        EXPECT_EQ(before, Get(name));
    }
}

TEST_F(Settings, ThatAreNotKnownAreNamedWithThoseThatAre)
{
    EXPECT_EQ("cannot find the setting \"cylce\": there is none of that name; did you mean cycle? "
              "use one of cycle, customer-file, file-monitor, fault-tolerant, log-charset, "
              "trace-level, trigger-interval, spool-megabytes, web, alarm-after, silent-after, "
              "alert-limit, alert-megabytes",
              ErrorOf([] { FindSetting("cylce"); }));
}

// ---- each of them ----

TEST_F(Settings, CycleIsFrom10To3600Seconds)
{
    for (const char *text : {"10", "11", "300", "3600"})
        ExpectTaken("cycle", text);
    for (const char *text :
         {"9", "3601", "0", "-10", "4294967306", "", "abc", "10s", " 10", "1e2", "0x10", "10.0"})
        ExpectRefused("cycle", text, "a number of seconds from 10 to 3600");
    EXPECT_EQ(test::NumberBytes(3600), TreeValue(kMonitorKey, "CYCLE")->data);
    EXPECT_EQ(REG_DWORD, TreeValue(kMonitorKey, "CYCLE")->type);
}

TEST_F(Settings, TheSpoolHoldsFrom1To65536Megabytes)
{
    for (const char *text : {"1", "64", "65536"})
        ExpectTaken("spool-megabytes", text);
    for (const char *text : {"0", "65537", "-1", "", "1.5", "64M"})
        ExpectRefused("spool-megabytes", text, "a number of megabytes from 1 to 65536");
}

TEST_F(Settings, ATroubleIsToldAfter1To86400Seconds)
{
    for (const char *text : {"1", "900", "86400"})
        ExpectTaken("alarm-after", text);
    for (const char *text : {"0", "86401", "-1", "", "1m"})
        ExpectRefused("alarm-after", text, "a number of seconds from 1 to 86400");
}

TEST_F(Settings, ALogIsSilentAfter1To8760HoursOrNever)
{
    for (const char *text : {"0", "24", "8760"})
        ExpectTaken("silent-after", text);
    for (const char *text : {"8761", "-1", "", "1d"})
        ExpectRefused("silent-after", text,
                      "a number of hours from 1 to 8760, or 0 for no such alert");
}

TEST_F(Settings, AlertsAreKeptUpToALimitOfNumberAndSize)
{
    for (const char *text : {"100", "100000", "100000000"})
        ExpectTaken("alert-limit", text);
    for (const char *text : {"99", "100000001", "-1", "", "1e5"})
        ExpectRefused("alert-limit", text, "a number of alerts from 100 to 100000000");
    for (const char *text : {"0", "1", "1048576"})
        ExpectTaken("alert-megabytes", text);
    for (const char *text : {"1048577", "-1", "", "1M"})
        ExpectRefused("alert-megabytes", text,
                      "a number of megabytes from 1 to 1048576, or 0 for 256, and no more than a "
                      "quarter of the disk");
}

// While there are inputs, the module's customer file is the spool.
TEST_F(Settings, CustomerFileIsTheOneThatWasSetAlsoWhileTheModuleReadsTheSpool)
{
    test::SetTreeText(kMonitorKey, kFileNameValue, "/state/spool");
    test::SetTreeText(host::kAgentKey, host::kInputSpool, "/state/spool");
    EXPECT_EQ("", Get("customer-file"));
    test::SetTreeText(host::kAgentKey, host::kCustomerFile, "/var/log/app");
    EXPECT_EQ("/var/log/app", Get("customer-file"));
    ExpectTaken("customer-file", "/var/log/other");
}

TEST_F(Settings, AStoredCycleOutOfRangeIsShownAsTheDefault)
{
    for (const uint32_t seconds : {0U, 9U, 3601U, 0xFFFFFFFFU}) {
        test::SetTreeNumber(kMonitorKey, "CYCLE", seconds);
        EXPECT_EQ("300", Get("cycle"));
    }
    test::SetTreeText(kMonitorKey, "CYCLE", "100");
    EXPECT_EQ("300", Get("cycle"));
}

constexpr char kPaths[] =
    "an absolute path of at most 254 bytes, or nothing (\"\") to watch no such file";

TEST_F(Settings, CustomerFileIsAnAbsolutePathOrNothing)
{
    const std::string longest = "/" + std::string(253, 'p');
    for (const std::string &text : {std::string("/var/log/app.log"), longest, std::string()})
        ExpectTaken("customer-file", text);
    for (const std::string &text :
         {std::string("app.log"), std::string("./app.log"), longest + "p"})
        ExpectRefused("customer-file", text, kPaths);
    EXPECT_EQ(std::string("\0", 1), TreeValue(kMonitorKey, "FILENAME")->data);
}

TEST_F(Settings, CustomerFileIsNotTheSystemLog)
{
    EXPECT_EQ("cannot set customer-file to /var/log/messages: it is watched already; name another "
              "file",
              Set("customer-file", "/var/log/messages"));
    EXPECT_EQ("", Get("customer-file"));
}

TEST_F(Settings, FileMonitorIsAnAbsolutePathOrNothing)
{
    const std::string longest = "/" + std::string(253, 'p');
    for (const std::string &text : {std::string("/var/log/messages"), longest, std::string()})
        ExpectTaken("file-monitor", text);
    for (const std::string &text : {std::string("app.log"), longest + "p"})
        ExpectRefused("file-monitor", text, kPaths);
    EXPECT_EQ("no error", Set("file-monitor", longest));
    EXPECT_EQ(255U, TreeValue(kFileMonitorKey, "FILENAME")->data.size())
        << "what the monitor reads, its zero byte included";
}

TEST_F(Settings, FaultTolerantIsOnOrOff)
{
    EXPECT_EQ(0, call_tarsk_is_ft());
    ExpectTaken("fault-tolerant", "on");
    EXPECT_EQ(1, call_tarsk_is_ft());
    ExpectTaken("fault-tolerant", "off");
    EXPECT_EQ(0, call_tarsk_is_ft());
    for (const char *text : {"", "1", "yes", "ON"})
        ExpectRefused("fault-tolerant", text, "on or off");
}

TEST_F(Settings, LogCharsetIsOneThatIconvKnows)
{
    for (const char *text : {"EUC-JP", "ISO-8859-1", "utf-8"})
        ExpectTaken("log-charset", text);
    for (const char *text : {"NO-SUCH-SET", "", "UTF-16", "UTF-8//IGNORE"})
        ExpectRefused("log-charset", text, "a character set that iconv --list shows");
}

TEST_F(Settings, TraceLevelIsANameOrANumber)
{
    constexpr const char *kNames[] = {"detail", "error", "system", "notable", "off"};
    for (uint32_t level = 0; level < 5; ++level) {
        ExpectTaken("trace-level", kNames[level]);
        EXPECT_EQ(level, host::AgentNumber(test::Registry(), "TraceLevel"));
        EXPECT_EQ("no error", Set("trace-level", std::to_string(level)));
        EXPECT_EQ(kNames[level], Get("trace-level"));
    }
    for (const char *text : {"", "5", "-1", "Detail", "unknown", "01"})
        ExpectRefused("trace-level", text, "detail, error, system, notable or off");
    test::SetTreeNumber(host::kAgentKey, "TraceLevel", 77);
    EXPECT_EQ("off", Get("trace-level"));
}

// ---- who is told ----

TEST_F(Settings, AChangeSetsTheEventOfItsSettingAndNoOther)
{
    const std::vector<std::pair<const char *, const char *>> events = {
        {kCycleEvent, "cycle"},
        {kCustomerFileEvent, "customer-file"},
        {kFileMonitorEvent, "file-monitor"},
        {host::kAgentSettingsEvent, "fault-tolerant"},
        {host::kAgentSettingsEvent, "log-charset"},
        {host::kAgentSettingsEvent, "trace-level"}};
    std::map<std::string, HANDLE> handles;
    for (const auto &[event, setting] : events)
        handles.try_emplace(event, CreateEvent(nullptr, FALSE, FALSE, event));
    for (const auto &[event, setting] : events) {
        EXPECT_EQ("no error", Set(setting, "default"));
        for (const auto &[name, handle] : handles)
            EXPECT_EQ(name == event ? WAIT_RESULT_FIRST : WAIT_RESULT_TIMEOUT,
                      WaitForSingleObject(handle, 0))
                << setting << " and " << name;
    }
}

TEST_F(Settings, ARefusedValueSetsNoEvent)
{
    HANDLE event = CreateEvent(nullptr, FALSE, FALSE, kCycleEvent);
    EXPECT_NE("no error", Set("cycle", "1"));
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(event, 0));
}

// ---- the agent's own values ----

TEST_F(Settings, AnAgentValueOfTheWrongTypeIsNoValue)
{
    EXPECT_FALSE(host::AgentNumber(test::Registry(), "TraceLevel"));
    EXPECT_FALSE(host::AgentText(test::Registry(), "LogCharset"));
    test::SetTreeText(host::kAgentKey, "TraceLevel", "3");
    test::SetTreeNumber(host::kAgentKey, "LogCharset", 3);
    test::SetTreeValue(host::kAgentKey, "Short", REG_DWORD, "12");
    EXPECT_FALSE(host::AgentNumber(test::Registry(), "TraceLevel"));
    EXPECT_FALSE(host::AgentText(test::Registry(), "LogCharset"));
    EXPECT_FALSE(host::AgentNumber(test::Registry(), "Short"));
}

TEST_F(Settings, FaultToleranceCannotBeToldWithoutAHost)
{
    test::StopHost();
    EXPECT_EQ(-1, call_tarsk_is_ft());
}

} // namespace

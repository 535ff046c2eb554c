// syslogmon get, set, trace level.
#include <map>

#include <nlohmann/json.hpp>

#include "agent/host/agent_values.h"
#include "agent/settings/settings.h"
#include "platform/contract.h"
#include "platform/sync.h"
#include "tests/agent/support/command_test.h"

namespace {

using nlohmann::json;
using SettingCommand = test::CommandTest;

constexpr char kPaths[] =
    "use an absolute path of at most 254 bytes, or nothing (\"\") to watch no such file";

TEST_F(SettingCommand, GetShowsEverySettingWithItsUnitAndMeaning)
{
    ExpectOutput(
        {"get"},
        "cycle\t300\tseconds\tTime from one look at all files to the next\n"
        "customer-file\t\t\tA second log that is watched like the system log\n"
        "file-monitor\t\t\tOne more file of any format, followed by inode and offset\n"
        "fault-tolerant\toff\t\tThis is a fault-tolerant server: keywords may be regular "
        "expressions\n"
        "log-charset\tUTF-8\t\tCharacter set of the logs\n"
        "trace-level\terror\t\tLowest level that the trace log keeps\n"
        "trigger-interval\t1000\tmilliseconds\tLeast time between two looks at files "
        "that are being written; 0: once in a cycle\n"
        "spool-megabytes\t64\tmegabytes\tSo much of the inputs' entries may wait for the "
        "monitor; then the inputs wait\n"
        "web\toff\t\tWhere the page, its data and the metrics are served\n"
        "alarm-after\t900\tseconds\tA trouble of the monitor that may pass by itself is told "
        "of when it has lasted so long\n"
        "silent-after\t24\thours\tTime without a line of the system log after which an alert "
        "tells of it; 0: never\n"
        "alert-limit\t100000\talerts\tHow many alerts are kept; beyond it the oldest go\n"
        "alert-megabytes\t0\tmegabytes\tHow many megabytes of them are kept; 0: 256, and no more "
        "than a quarter of the disk\n");
    EXPECT_EQ((json{{"version", 1},
                    {"settings",
                     {{"cycle", "300"},
                      {"customer-file", ""},
                      {"file-monitor", ""},
                      {"fault-tolerant", "off"},
                      {"log-charset", "UTF-8"},
                      {"trace-level", "error"},
                      {"trigger-interval", "1000"},
                      {"spool-megabytes", "64"},
                      {"web", "off"},
                      {"alarm-after", "900"},
                      {"silent-after", "24"},
                      {"alert-limit", "100000"},
                      {"alert-megabytes", "0"}}}}),
              Json({"get"}));
}

TEST_F(SettingCommand, GetShowsOneValue)
{
    ExpectOutput({"get", "cycle"}, "300\n");
    ExpectOutput({"get", "customer-file"}, "\n");
    EXPECT_EQ((json{{"version", 1}, {"settings", {{"cycle", "300"}}}}), Json({"get", "cycle"}));
}

TEST_F(SettingCommand, SetAndGetGiveTheSameValue)
{
    for (const auto &[name, value] : {std::pair{"cycle", "10"},
                                      {"cycle", "3600"},
                                      {"customer-file", "/var/log/app log"},
                                      {"customer-file", ""},
                                      {"file-monitor", "/var/log/app"},
                                      {"file-monitor", ""},
                                      {"fault-tolerant", "on"},
                                      {"fault-tolerant", "off"},
                                      {"log-charset", "EUC-JP"},
                                      {"trace-level", "detail"},
                                      {"trace-level", "off"},
                                      {"trigger-interval", "0"},
                                      {"trigger-interval", "3600000"}}) {
        ExpectDone({"set", name, value});
        ExpectOutput({"get", name}, std::string(value) + "\n");
    }
}

TEST_F(SettingCommand, SetTakesDefault)
{
    ExpectDone({"set", "cycle", "10"});
    ExpectDone({"set", "cycle", "default"});
    ExpectOutput({"get", "cycle"}, "300\n");
}

TEST_F(SettingCommand, DefaultTakesTheStoredValueAwayExceptOfTheCycle)
{
    const std::map<std::string, std::string> others = {
        {"cycle", "10"},           {"customer-file", "/a"},   {"file-monitor", "/a"},
        {"fault-tolerant", "on"},  {"log-charset", "ASCII"},  {"trace-level", "off"},
        {"trigger-interval", "5"}, {"spool-megabytes", "5"},  {"alarm-after", "5"},
        {"silent-after", "5"},     {"web", "127.0.0.1:9514"}, {"alert-limit", "500"},
        {"alert-megabytes", "5"}};
    for (const settings::Setting &setting : settings::AllSettings()) {
        ExpectDone({"set", setting.name, others.at(setting.name)});
        ExpectDone({"set", setting.name, "default"});
        StartHere();
        // Without a value the running monitor would keep its cycle.
        EXPECT_EQ(setting.name == std::string("cycle"),
                  test::TreeValue(setting.key, setting.value).has_value())
            << setting.name;
        test::StopHost();
        ExpectOutput({"get", setting.name}, std::string(setting.shown_default) + "\n");
    }
}

TEST_F(SettingCommand, SetRefusesAWrongValueWithItsRange)
{
    ExpectDone({"set", "cycle", "20"});
    for (const char *value : {"9", "3601", "-5", "abc", "", "99999999999"})
        ExpectFailed({"set", "cycle", value},
                     std::string("cannot set cycle to \"") + value +
                         "\": the value is not accepted; use a number of seconds from 10 to 3600");
    const std::string too_long = "/" + std::string(254, 'p');
    for (const char *name : {"customer-file", "file-monitor"}) {
        for (const std::string &value : {std::string("relative"), too_long})
            ExpectFailed({"set", name, value}, std::string("cannot set ") + name + " to \"" +
                                                   value + "\": the value is not accepted; " +
                                                   kPaths);
    }
    for (const std::string &folder : {std::string("/"), Layout().state.string()})
        ExpectFailed({"set", "web", folder},
                     "cannot set web to \"" + folder +
                         "\": the value is not accepted; use an address with a port, such as "
                         "127.0.0.1:9514 or [::1]:9514, the absolute path of a socket, or off");
    ExpectFailed({"set", "customer-file", "/var/log/messages"},
                 "cannot set customer-file to /var/log/messages: it is watched already; name "
                 "another file");
    ExpectFailed(
        {"set", "fault-tolerant", "maybe"},
        "cannot set fault-tolerant to \"maybe\": the value is not accepted; use on or off");
    for (const char *value : {"NO-SUCH-SET", ""})
        ExpectFailed({"set", "log-charset", value},
                     std::string("cannot set log-charset to \"") + value +
                         "\": the value is not accepted; use a character set that iconv --list "
                         "shows");
    ExpectFailed({"set", "trace-level", "5"},
                 "cannot set trace-level to \"5\": the value is not accepted; use detail, error, "
                 "system, notable or off");
    ExpectOutput({"get", "cycle"}, "20\n");
}

TEST_F(SettingCommand, TheTriggerIntervalIsANumberOfMillisecondsUpToAnHour)
{
    for (const char *value : {"3600001", "-1", "1s", "", "99999999999"}) {
        ExpectFailed({"set", "trigger-interval", value},
                     std::string("cannot set trigger-interval to \"") + value +
                         "\": the value is not accepted; use a number of milliseconds from 1 to "
                         "3600000, or 0 to look once in a cycle only");
    }
    ExpectDone({"set", "trigger-interval", "default"});
    ExpectOutput({"get", "trigger-interval"}, "1000\n");
}

TEST_F(SettingCommand, ASettingThatIsNotKnownIsNamedWithThoseThatAre)
{
    const std::string known =
        ": there is none of that name; did you mean cycle? use one of "
        "cycle, customer-file, file-monitor, fault-tolerant, log-charset, trace-level, "
        "trigger-interval, spool-megabytes, web, alarm-after, silent-after, alert-limit, "
        "alert-megabytes";
    ExpectFailed({"get", "cylce"}, "cannot find the setting \"cylce\"" + known);
    ExpectFailed({"set", "cylce", "10"}, "cannot find the setting \"cylce\"" + known);
}

TEST_F(SettingCommand, SetWithoutAValueIsWrongUsage)
{
    ExpectUsage({"set"}, "setting is required");
    ExpectUsage({"set", "cycle"}, "value is required");
    ExpectUsage({"set", "cycle", "10", "20"}, "20");
}

TEST_F(SettingCommand, SetWakesTheDaemon)
{
    StartHere();
    HANDLE cycle = CreateEvent(nullptr, FALSE, FALSE, kCycleEvent);
    HANDLE settings = CreateEvent(nullptr, FALSE, FALSE, host::kAgentSettingsEvent);
    ExpectDone({"set", "cycle", "10"});
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(cycle, 0));
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(settings, 0));
    ExpectDone({"trace", "level", "detail"});
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(settings, 0));
    CloseHandle(cycle);
    CloseHandle(settings);
}

// ---- trace level ----

TEST_F(SettingCommand, TraceLevelShowsAndSetsTheLevel)
{
    ExpectOutput({"trace", "level"}, "error\n");
    EXPECT_EQ((json{{"version", 1}, {"trace_level", "error"}}), Json({"trace", "level"}));
    for (const auto &[typed, shown] : {std::pair{"detail", "detail"}, {"3", "notable"}}) {
        ExpectDone({"trace", "level", typed});
        ExpectOutput({"trace", "level"}, std::string(shown) + "\n");
        ExpectOutput({"get", "trace-level"}, std::string(shown) + "\n");
    }
}

TEST_F(SettingCommand, TraceLevelRefusesAnythingElse)
{
    for (const char *level : {"5", "loud", "-1"})
        ExpectFailed({"trace", "level", level},
                     std::string("cannot set trace-level to \"") + level +
                         "\": the value is not accepted; use detail, error, system, notable or "
                         "off");
    ExpectUsage({"trace"}, "it needs a command behind it");
}

TEST_F(SettingCommand, AWaitForTheMonitorsPassIsTold)
{
    StartHere();
    test::StopHost();
    test::Child daemon(test::Helper(Root(), {"hold-write-lock"}));
    ASSERT_EQ("locked", daemon.ReadLine());
    test::Child command(
        {"/bin/sh", "-c",
         "exec " + std::string(SYSLOGMON) + " --root '" + Root().string() + "' set cycle 77 2>&1"});
    EXPECT_EQ("syslogmon: waiting for the monitor to finish its pass...", command.ReadLine());
    daemon.Say("release it");
    EXPECT_EQ(0, command.Wait());
    ExpectOutput({"get", "cycle"}, "77\n");
}

} // namespace

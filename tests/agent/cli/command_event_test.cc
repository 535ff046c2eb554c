// syslogmon event list, show, add, set, remove; and the words of the command line in general.
#include <cstring>
#include <filesystem>

#include <nlohmann/json.hpp>

#include "agent/events/events.h"
#include "agent/host/hit_counters.h"
#include "platform/contract.h"
#include "platform/sync.h"
#include "tests/agent/support/command_test.h"

namespace {

using nlohmann::json;

class EventCommand : public test::CommandTest {
  protected:
    static std::string SettingsPath(const std::string &source, const std::string &id)
    {
        return std::string(kApplicationKey) + "\\" + source + "\\" + id + "\\WATCHSETTING";
    }
    // Stores hits of one event, as a daemon does.
    void StoreHits(const char *source, uint32_t id, int32_t report_count, int32_t hits) const
    {
        VKVMon entry{};
        strcpy(entry.Source, source);
        entry.EventID = id;
        entry.ReportCount = report_count;
        entry.CurrentCount = hits;
        VKVMon *slots[] = {&entry};
        int count = 1;
        StartHere();
        host::HitCounters(test::Store()).Save({slots, &count});
        test::StopHost();
    }
};

// ---- add ----

TEST_F(EventCommand, AddStoresAnEventWithItsDefaults)
{
    ExpectDone({"event", "add", "DISK", "1a2b", "-k", "error"});
    EXPECT_EQ((json{{"version", 1},
                    {"event",
                     {{"source", "DISK"},
                      {"id", "1A2B"},
                      {"keywords", {"error"}},
                      {"report_count", 1},
                      {"hours", "all"},
                      {"hits", nullptr}}}}),
              Json({"event", "show", "DISK", "1A2B"}));
}

TEST_F(EventCommand, AddStoresEveryValueThatIsGiven)
{
    ExpectDone({"event", "add", "DISK", "1", "-k", "one", "--keyword", "two words", "-k", "три",
                "-n", "2147483647", "--hours", "22-6"});
    const json event = Json({"event", "show", "disk", "01"})["event"];
    EXPECT_EQ((json{"one", "two words", "три"}), event["keywords"]);
    EXPECT_EQ(2147483647, event["report_count"]);
    EXPECT_EQ("22-6", event["hours"]);
}

TEST_F(EventCommand, AddSetsTheTableEvent)
{
    StartHere();
    HANDLE changed = CreateEvent(nullptr, FALSE, FALSE, kTableEvent);
    ExpectDone({"event", "add", "DISK", "1", "-k", "error"});
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(changed, 0));
    ExpectFailed({"event", "add", "DISK", "2"},
                 "cannot use event DISK 2: it has no keyword; give it one to three texts that a "
                 "line must contain");
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(changed, 0));
    CloseHandle(changed);
}

TEST_F(EventCommand, AddRefusesAnEventThatIsThere)
{
    ExpectDone({"event", "add", "DISK", "1A", "-k", "error"});
    ExpectFailed({"event", "add", "disk", "01a", "-k", "other"},
                 "cannot add event disk 1A: it is registered already; change it with syslogmon "
                 "event set");
}

TEST_F(EventCommand, AddRefusesWrongValuesWithTheirRange)
{
    ExpectFailed(
        {"event", "add", "DISK", "xyz", "-k", "a"},
        "cannot use the event ID \"xyz\": it is not one to eight hexadecimal digits; write "
        "it without a prefix, such as 1A2B");
    ExpectFailed({"event", "add", "DISK", "1", "-k", "a", "-k", "b", "-k", "c", "-k", "d"},
                 "cannot use event DISK 1: it has more than three keywords; give at most three");
    ExpectFailed(
        {"event", "add", "DISK", "1", "-k", std::string(257, 'k')},
        "cannot use a keyword of event DISK 1: it has 257 bytes; a keyword has at most 256 "
        "bytes");
    ExpectFailed({"event", "add", "DISK", "1", "-k", "a", "--hours", "25"},
                 "cannot use the hours \"25\": they are not of a form that is known; write all, "
                 "none, or hours and spans from 0 to 24, such as 8-18 or 22-6,12");
    for (const char *count : {"0", "-1", "2147483648", "9223372036854775807"})
        ExpectFailed({"event", "add", "DISK", "1", "-k", "a", "-n", count},
                     std::string("cannot use the report count ") + count +
                         " of event DISK 1: it is out of range; use a number from 1 to 2147483647");
    ExpectFailed({"event", "add", "a\\b", "1", "-k", "a"},
                 "cannot use the source name \"a\\b\": it is empty, too long, or holds a backslash "
                 "or a control character; choose a name of 1 to 255 bytes without them");
}

TEST_F(EventCommand, AddTakesAKeywordThatLooksLikeAnOption)
{
    ExpectDone({"event", "add", "DISK", "1", "--keyword=--root"});
    EXPECT_EQ(json{"--root"}, Json({"event", "show", "DISK", "1"})["event"]["keywords"]);
}

TEST_F(EventCommand, AddWaitsForTheMutexAndSaysSo)
{
    test::Child owner(test::Helper(Root(), {"own-mutex", kTableMutex, "1"}));
    ASSERT_EQ("owned", owner.ReadLine());
    // Runs until the mutex is free; the helper lets it go when the command's words have come.
    test::Child command({"/bin/sh", "-c",
                         "exec " + std::string(SYSLOGMON) + " --root '" + Root().string() +
                             "' event add DISK 1 -k error 2>&1"});
    EXPECT_EQ("syslogmon: waiting until the table of events is free...", command.ReadLine());
    owner.Say("release it");
    EXPECT_EQ(0, command.Wait());
}

// ---- set ----

TEST_F(EventCommand, SetChangesWhatIsGivenAndKeepsTheRest)
{
    ExpectDone(
        {"event", "add", "DISK", "1", "-k", "one", "-k", "two", "-n", "3", "--hours", "8-18"});
    ExpectDone({"event", "set", "DISK", "1", "-n", "5"});
    ExpectOutput({"event", "list"}, "DISK\t1\t-/5\t8-18\t\"one\" + \"two\"\n");
    ExpectDone({"event", "set", "disk", "01", "--hours", "none"});
    ExpectOutput({"event", "list"}, "DISK\t1\t-/5\tnone\t\"one\" + \"two\"\n");
    ExpectDone({"event", "set", "DISK", "1", "-k", "three"});
    ExpectOutput({"event", "list"}, "DISK\t1\t-/5\tnone\t\"three\"\n");
}

TEST_F(EventCommand, SetRefusesAWrongValueAndChangesNothing)
{
    ExpectDone({"event", "add", "DISK", "1", "-k", "one"});
    ExpectFailed({"event", "set", "DISK", "1", "-k", "two", "-n", "0"},
                 "cannot use the report count 0 of event DISK 1: it is out of range; use a number "
                 "from 1 to 2147483647");
    ExpectFailed({"event", "set", "DISK", "2", "-n", "2"},
                 "cannot find event DISK 2: it is not registered; see syslogmon event list");
}

TEST_F(EventCommand, AnEmptyValueIsRefusedAndNotPassedOver)
{
    ExpectDone({"event", "add", "DISK", "1", "-k", "one"});
    ExpectFailed({"event", "set", "DISK", "1", "-k", ""},
                 "cannot use event DISK 1: it has no keyword; give it one to three texts that a "
                 "line must contain");
    ExpectFailed(
        {"event", "set", "DISK", "1", "--hours", ""},
        "cannot use the hours \"\": they are not of a form that is known; write all, none, "
        "or hours and spans from 0 to 24, such as 8-18 or 22-6,12");
    ExpectUsage({"event", "set", "DISK", "1", "-n", ""}, "--report-count");
}

TEST_F(EventCommand, SetWritesADamagedEventWhole)
{
    ExpectDone({"event", "add", "DISK", "1", "-k", "one", "-n", "2"});
    ExpectDone({"reg", "delete", SettingsPath("DISK", "1"), "KeyWord3"});
    EXPECT_EQ("it has no KeyWord3", Json({"event", "show", "DISK", "1"})["event"]["problem"]);
    ExpectDone({"event", "set", "DISK", "1", "-n", "4"});
    EXPECT_FALSE(Json({"event", "show", "DISK", "1"})["event"].contains("problem"));
}

// ---- remove ----

TEST_F(EventCommand, RemoveTakesAnEventAway)
{
    ExpectDone({"event", "add", "DISK", "1", "-k", "one"});
    ExpectDone({"event", "add", "DISK", "2", "-k", "two"});
    ExpectDone({"event", "remove", "disk", "1"});
    ExpectOutput({"event", "list"}, "DISK\t2\t-/1\tall\t\"two\"\n");
    ExpectFailed({"event", "remove", "DISK", "1"},
                 "cannot find event DISK 1: it is not registered; see syslogmon event list");
}

// ---- list and show ----

TEST_F(EventCommand, ListOfNothingIsEmpty)
{
    ExpectOutput({"event", "list"}, "");
    EXPECT_EQ((json{{"version", 1}, {"events", json::array()}}), Json({"event", "list"}));
}

TEST_F(EventCommand, ListShowsTheHitsOfTheLastPass)
{
    ExpectDone({"event", "add", "DISK", "1", "-k", "one", "-n", "5"});
    ExpectDone({"event", "add", "DISK", "2", "-k", "two", "-n", "5"});
    StoreHits("DISK", 1, 5, 3);
    ExpectOutput({"event", "list"}, "DISK\t1\t3/5\tall\t\"one\"\nDISK\t2\t-/5\tall\t\"two\"\n");
    const json events = Json({"event", "list"})["events"];
    EXPECT_EQ(3, events[0]["hits"]);
    EXPECT_EQ(nullptr, events[1]["hits"]);
    ExpectOutput({"event", "show", "DISK", "1"},
                 "source\tDISK\nid\t1\nkeyword\tone\nreport-count\t5\nhours\tall\nhits\t3\n");
}

TEST_F(EventCommand, ListNamesWhatIsWrongWithAnEvent)
{
    ExpectDone({"event", "add", "DISK", "1", "-k", "one"});
    ExpectDone({"reg", "delete", SettingsPath("DISK", "1"), "WatchTime"});
    ExpectOutput({"event", "list"}, "DISK\t1\t-/1\tnone\t(it has no WatchTime of 4 bytes)\n");
    const json event = Json({"event", "list"})["events"][0];
    EXPECT_EQ("it has no WatchTime of 4 bytes", event["problem"]);
    ExpectOutput({"event", "show", "DISK", "1"},
                 "source\tDISK\nid\t1\nkeyword\tone\nreport-count\t1\nhours\tnone\nhits\t-\n"
                 "problem\tit has no WatchTime of 4 bytes\n");
}

TEST_F(EventCommand, ListLeavesOutSourcesThatReportUnderATypeOfTheirOwn)
{
    ExpectDone({"event", "add", "THEIRS", "1", "-k", "one"});
    ExpectDone({"reg", "set", std::string(kApplicationKey) + "\\THEIRS", "NEWAPPLICATIONTYPE", "1",
                "--type", "dword"});
    ExpectOutput({"event", "list"}, "");
}

TEST_F(EventCommand, ListShowsControlCharactersAndTabsHarmlessly)
{
    StartHere();
    events::EventRegistry(test::Registry())
        .Write({{"DISK", 1}, {"tab\there", "", ""}, 1, events::kAllHours});
    test::SetTreeText(SettingsPath("DISK", "1"), "KeyWord2", "\x1B[2J");
    test::StopHost();
    ExpectOutput({"event", "list"}, "DISK\t1\t-/1\tall\t\"tab here\" + \"?[2J\"\n");
}

TEST_F(EventCommand, ShowOfAnEventThatIsNotThereFails)
{
    ExpectFailed({"event", "show", "DISK", "1"},
                 "cannot find event DISK 1: it is not registered; see syslogmon event list");
}

// ---- the words of the command line ----

TEST_F(EventCommand, WordsThatAreMissingOrTooManyAreWrongUsage)
{
    ExpectUsage({}, "cannot run syslogmon: it needs a command behind it; see syslogmon --help");
    ExpectUsage({"event"}, "it needs a command behind it; see syslogmon event --help");
    ExpectUsage({"event", "add"}, "source is required");
    ExpectUsage({"event", "add", "DISK"}, "id is required");
    ExpectUsage({"event", "add", "DISK", "1", "-n", "many"}, "--report-count");
    ExpectUsage({"event", "add", "DISK", "1", "--no-such-option"}, "--no-such-option");
    ExpectUsage({"event", "list", "more"}, "more");
    ExpectUsage({"event", "show", "DISK", "1", "more"}, "more");
}

TEST_F(EventCommand, AVerbThatIsNotKnownIsNamed)
{
    ExpectUsage({"nosuchverb"},
                "cannot find the command \"nosuchverb\": there is none of that name; "
                "see syslogmon --help\n");
}

TEST_F(EventCommand, AWordThatIsNearAKnownOneIsAskedFor)
{
    ExpectUsage({"alert"}, "did you mean alerts? see syslogmon --help\n");
    ExpectUsage({"event", "ad"}, "did you mean add? see syslogmon event --help\n");
    ExpectUsage({"event", "list", "--jsn"}, "cannot use the option --jsn: event list has none of "
                                            "that name; did you mean --json? see syslogmon event "
                                            "list --help\n");
    ExpectUsage({"event", "add", "DISK", "77", "text"},
                "cannot use the word \"text\": event add takes no further word");
}

TEST_F(EventCommand, ARootThatIsNoneIsNamedAndLeftAlone)
{
    std::filesystem::create_directory(File("other"));
    const std::string other = File("other");
    const std::string none = File("none");
    for (const test::Words &words : std::vector<test::Words>{{"status"},
                                                             {"event", "list"},
                                                             {"event", "add", "A", "1", "-k", "a"},
                                                             {"alerts"},
                                                             {"doctor"},
                                                             {"scan"},
                                                             {"set", "cycle", "10"}}) {
        test::Finished finished = test::RunToEnd(test::Command(other, words));
        EXPECT_EQ(1, finished.status) << words[0];
        EXPECT_EQ("", finished.out);
        EXPECT_EQ("syslogmon: cannot use the install root " + other +
                      ": there is neither lib/vkevmon.dll nor state/agent.db in it; name an "
                      "install root with --root\n",
                  finished.err);
        finished = test::RunToEnd(test::Command(none, words));
        EXPECT_EQ(1, finished.status) << words[0];
        EXPECT_EQ("syslogmon: cannot use the install root " + none +
                      ": No such file or directory; name an install root with --root\n",
                  finished.err);
    }
    EXPECT_TRUE(std::filesystem::is_empty(other));
    EXPECT_FALSE(std::filesystem::exists(none));
}

TEST_F(EventCommand, WhatOnlyReadsMakesNoStoreAndNoFolder)
{
    const std::filesystem::path root = File("fresh");
    std::filesystem::create_directory(root);
    std::filesystem::create_directory_symlink(AGENT_LIBRARIES, root / "lib");
    for (const test::Words &words : std::vector<test::Words>{{"status"},
                                                             {"event", "list"},
                                                             {"event", "show", "A", "1"},
                                                             {"export"},
                                                             {"get"},
                                                             {"alerts"},
                                                             {"sink", "list"},
                                                             {"sink", "limit"},
                                                             {"reg", "list"},
                                                             {"reg", "export"},
                                                             {"reg", "get", "A", "b"},
                                                             {"trace", "level"},
                                                             {"test", "--explain", "x"}}) {
        const test::Finished finished = test::RunToEnd(test::Command(root, words));
        EXPECT_EQ(1, finished.status) << words[0];
        EXPECT_EQ("syslogmon: cannot open " + (root / "state/agent.db").string() +
                      ": it is not there; start the daemon, or register events with syslogmon "
                      "apply or syslogmon event add\n",
                  finished.err);
    }
    EXPECT_EQ(1, test::RunToEnd(test::Command(root, {"doctor"})).status);
    for (const auto &entry : std::filesystem::directory_iterator(root))
        EXPECT_EQ("lib", entry.path().filename());
}

TEST_F(EventCommand, AProgramWithoutItsModuleNamesTheMissingFile)
{
    const std::filesystem::path root = File("tree");
    std::filesystem::create_directories(root / "bin");
    std::filesystem::create_directory(root / "lib");
    std::filesystem::copy_file(SYSLOGMON, root / "bin/syslogmon");
    for (const auto &entry : std::filesystem::directory_iterator(AGENT_LIBRARIES)) {
        if (entry.path().filename() != "vkevmon.dll")
            std::filesystem::create_symlink(entry.path(), root / "lib" / entry.path().filename());
    }
    const test::Finished finished = test::RunToEnd({(root / "bin/syslogmon").string(), "status"});
    EXPECT_EQ(1, finished.status);
    EXPECT_EQ("", finished.out);
    EXPECT_EQ("syslogmon: cannot find " + (root / "lib/vkevmon.dll").string() +
                  ": the program lies in an install root without its module; build it, or name "
                  "another install root with --root\n",
              finished.err);
}

TEST_F(EventCommand, StandardOutputThatTakesNothingIsAFailureEverywhere)
{
    std::filesystem::create_directory_symlink(AGENT_LIBRARIES, File("lib"));
    ExpectDone({"event", "add", "DISK", "1", "-k", "error"});
    for (const std::string words :
         {"status", "event list", "--json event list", "get", "get cycle", "export", "reg list -r",
          "reg export", "--json alerts --help", "--version", "doctor", "apply --dry-run -"}) {
        const test::Finished finished =
            test::RunToEnd({"/bin/sh", "-c",
                            "echo 'events: []' | " + std::string(SYSLOGMON) + " --root '" +
                                Root().string() + "' " + words + " >/dev/full"});
        EXPECT_EQ(1, finished.status) << words;
        EXPECT_NE(std::string::npos,
                  finished.err.find("syslogmon: cannot write on standard output: "))
            << words << finished.err;
    }
}

TEST_F(EventCommand, TheTableHasRoomForSoManyEventsAndTheNextIsRefused)
{
    StartHere();
    {
        host::Transaction transaction(test::Store());
        events::EventRegistry events(test::Registry());
        for (uint32_t id = 1; id <= 2047; ++id)
            events.Write({{"DISK", id}, {"error", "", ""}, 1, events::kAllHours});
        transaction.Commit();
    }
    test::StopHost();
    ExpectDone({"event", "add", "DISK", "800", "-k", "error"});
    ExpectFailed({"event", "add", "NET", "1", "-k", "error"},
                 "cannot add event NET 1: there are 2048 events, and the monitor's table has room "
                 "for 2048; remove events that are not needed");
    ExpectDone({"event", "set", "DISK", "800", "-k", "other"});
}

// ---- keywords as expressions ----

TEST_F(EventCommand, AFaultTolerantServerTakesNoExpressionThatDoesNotCompile)
{
    ExpectDone({"event", "add", "PLAIN", "1", "-k", "([a-z"});
    ExpectDone({"set", "fault-tolerant", "on"});
    const std::string advice = "; put a backslash before a bracket or sign that is meant as it "
                               "stands, or add --force";
    ExpectFailed({"event", "add", "DISK", "1", "-k", "error", "-k", "([a-z"},
                 "cannot use the keyword \"([a-z\" of event DISK 1: it is not a regular expression "
                 "that can be used on a fault-tolerant server: Unmatched [, [^, [:, [., or [=" +
                     advice);
    ExpectFailed({"event", "set", "PLAIN", "1", "-k", "disk (sda"},
                 "cannot use the keyword \"disk (sda\" of event PLAIN 1: it is not a regular "
                 "expression that can be used on a fault-tolerant server: Unmatched ( or \\(" +
                     advice);
    ExpectDone({"event", "set", "PLAIN", "1", "-n", "2"}); // its keywords stay
    ExpectDone({"event", "add", "DISK", "1", "-k", "disk (sda", "--force"});
    ExpectDone({"event", "add", "DISK", "2", "-k", "disk \\(sd[a-z]"});
}

TEST_F(EventCommand, AFaultTolerantServerTakesBackReferencesOnlyByForce)
{
    ExpectDone({"event", "add", "PLAIN", "1", "-k", "(a*)\\1"});
    ExpectDone({"set", "fault-tolerant", "on"});
    ExpectFailed(
        {"event", "add", "DISK", "1", "-k", "(a*)\\1"},
        "cannot use the keyword \"(a*)\\1\" of event DISK 1: it refers back to a group of "
        "itself (\\1), which can take the monitor seconds for one line; write out what the "
        "line shows, or add --force");
    ExpectDone({"event", "add", "DISK", "1", "-k", "(a*)\\1", "--force"});
    ExpectDone({"event", "add", "DISK", "2", "-k", "x[\\1]", "-k", "\\\\1"}); // none is one
}

TEST_F(EventCommand, HelpAndVersionAreNoFailure)
{
    for (const test::Words &words :
         {test::Words{"--help"}, {"event", "--help"}, {"event", "add", "--help"}}) {
        const test::Finished finished = Syslogmon(words);
        EXPECT_EQ(0, finished.status);
        EXPECT_NE(std::string::npos, finished.out.find("syslogmon"));
    }
    ExpectOutput({"--version"}, "syslogmon " SYSLOGMON_VERSION "\n");
}

TEST_F(EventCommand, RootAndJsonMayStandBehindTheVerb)
{
    const test::Finished finished =
        test::RunToEnd({SYSLOGMON, "event", "list", "--json", "--root", Root().string()});
    EXPECT_EQ(0, finished.status) << finished.err;
    EXPECT_EQ((json{{"version", 1}, {"events", json::array()}}), json::parse(finished.out));
}

TEST_F(EventCommand, AStoreThatCannotBeUsedIsAFailureOfEveryVerb)
{
    Layout().CreateFolders();
    test::WriteFile(Layout().Store(), "");
    for (const test::Words &words : std::vector<test::Words>{{"status"},
                                                             {"event", "list"},
                                                             {"event", "show", "A", "1"},
                                                             {"event", "add", "A", "1", "-k", "a"},
                                                             {"event", "set", "A", "1"},
                                                             {"event", "remove", "A", "1"},
                                                             {"get"},
                                                             {"set", "cycle", "10"},
                                                             {"alerts"},
                                                             {"reg", "list"},
                                                             {"reg", "get", "A", "b"},
                                                             {"reg", "set", "A", "b", "c"},
                                                             {"reg", "delete", "A"},
                                                             {"trace", "level"}})
        ExpectFailed(words, "cannot use " + Layout().Store().string() + ": the file is empty; " +
                                host::kReplaceStore);
}

} // namespace

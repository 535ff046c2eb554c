// syslogmon apply and export, as processes.
#include <cstdio>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "agent/host/store.h"
#include "platform/contract.h"
#include "platform/sync.h"
#include "tests/agent/support/command_test.h"
#include "tests/agent/support/random_test.h"

namespace {

using nlohmann::json;
using test::Finished;

class ApplyCommand : public test::CommandTest {
  protected:
    // A rules file of the test.
    [[nodiscard]] std::string Rules(const std::string &text, const char *name = "rules.yaml") const
    {
        test::WriteFile(File(name), text);
        return File(name).string();
    }
    [[nodiscard]] std::string Registry() const { return Syslogmon({"reg", "export"}).out; }
    [[nodiscard]] std::string Events() const { return Syslogmon({"event", "list"}).out; }

    // The command fails after these issues ("1:2: ...", one line each) and has changed nothing.
    void ExpectRefused(const std::string &text, const std::vector<std::string> &issues) const
    {
        const std::string file = Rules(text);
        const std::string before = Registry();
        const Finished finished = Syslogmon({"apply", file, "--prune"});
        std::string expected;
        for (const std::string &issue : issues)
            expected += file + ":" + issue + "\n";
        const std::string cause = issues.size() == 1
                                      ? "it has a mistake"
                                      : "it has " + std::to_string(issues.size()) + " mistakes";
        EXPECT_EQ(1, finished.status);
        EXPECT_EQ("", finished.out);
        EXPECT_EQ(expected + "syslogmon: cannot apply " + file + ": " + cause +
                      "; correct what is said above; nothing was done\n",
                  finished.err);
        EXPECT_EQ(before, Registry());
    }
};

constexpr char kTwoEvents[] = "events:\n"
                              "  - source: DISK\n"
                              "    id: 1A\n"
                              "    keywords: I/O error\n"
                              "  - source: NETWORK\n"
                              "    id: 1\n"
                              "    keywords: [link, down]\n"
                              "    report_count: 3\n"
                              "    hours: 8-18\n";

TEST_F(ApplyCommand, ShowsTheDifferenceAndMakesIt)
{
    const std::string file = Rules(kTwoEvents);
    ExpectOutput({"apply", file}, "--- registered\n"
                                  "+++ " +
                                      file +
                                      "\n"
                                      "+ DISK 1A\n"
                                      "+     keywords: [\"I/O error\"]\n"
                                      "+     report_count: 1\n"
                                      "+     hours: all\n"
                                      "+ NETWORK 1\n"
                                      "+     keywords: [\"link\", \"down\"]\n"
                                      "+     report_count: 3\n"
                                      "+     hours: 8-18\n"
                                      "2 added, 0 changed, 0 removed, 0 unchanged.\n");
    EXPECT_EQ("DISK\t1A\t-/1\tall\t\"I/O error\"\nNETWORK\t1\t-/3\t8-18\t\"link\" + \"down\"\n",
              Events());
    ExpectOutput({"apply", file}, "0 added, 0 changed, 0 removed, 2 unchanged.\n");
}

TEST_F(ApplyCommand, ShowsChangesValueByValue)
{
    ExpectDone({"event", "add", "DISK", "1A", "-k", "I/O error", "-n", "7"});
    const std::string file =
        Rules("events: [{source: DISK, id: 1A, keywords: I/O error, hours: none}]");
    ExpectOutput({"apply", file}, "--- registered\n"
                                  "+++ " +
                                      file +
                                      "\n"
                                      "  DISK 1A\n"
                                      "-     report_count: 7\n"
                                      "+     report_count: 1\n"
                                      "-     hours: all\n"
                                      "+     hours: none\n"
                                      "0 added, 1 changed, 0 removed, 0 unchanged.\n");
}

TEST_F(ApplyCommand, LeavesWhatIsNotInTheFileAndSaysSo)
{
    ExpectDone({"event", "add", "OLD", "1", "-k", "x"});
    const std::string file = Rules("events: []");
    ExpectOutput({"apply", file},
                 "0 added, 0 changed, 0 removed, 0 unchanged.\n"
                 "1 registered event is not in the file and stays (--prune removes it): OLD 1\n");
    for (int id = 2; id <= 12; ++id) {
        char text[8];
        snprintf(text, sizeof text, "%X", static_cast<unsigned>(id));
        ExpectDone({"event", "add", "OLD", text, "-k", "x"});
    }
    ExpectOutput(
        {"apply", file},
        "0 added, 0 changed, 0 removed, 0 unchanged.\n"
        "12 registered events are not in the file and stay (--prune removes them): OLD 1, OLD "
        "2, OLD 3, OLD 4, OLD 5, OLD 6, OLD 7, OLD 8, OLD 9, OLD A, and 2 more\n");
}

TEST_F(ApplyCommand, WithPruneRemovesWhatIsNotInTheFile)
{
    ExpectDone({"event", "add", "OLD", "1", "-k", "x"});
    const std::string file = Rules("events: [{source: NEW, id: 1, keywords: y}]");
    ExpectOutput({"apply", "--prune", file}, "--- registered\n"
                                             "+++ " +
                                                 file +
                                                 "\n"
                                                 "+ NEW 1\n"
                                                 "+     keywords: [\"y\"]\n"
                                                 "+     report_count: 1\n"
                                                 "+     hours: all\n"
                                                 "- OLD 1\n"
                                                 "-     keywords: [\"x\"]\n"
                                                 "-     report_count: 1\n"
                                                 "-     hours: all\n"
                                                 "1 added, 0 changed, 1 removed, 0 unchanged.\n");
    EXPECT_EQ("NEW\t1\t-/1\tall\t\"y\"\n", Events());
}

TEST_F(ApplyCommand, ADryRunShowsTheSameAndChangesNothing)
{
    ExpectDone({"event", "add", "OLD", "1", "-k", "x"});
    const std::string before = Registry();
    const std::string file = Rules(kTwoEvents);
    const Finished dry = Syslogmon({"apply", "--dry-run", "--prune", file});
    EXPECT_EQ(0, dry.status) << dry.err;
    EXPECT_EQ(before, Registry());
    const Finished real = Syslogmon({"apply", "--prune", file});
    const std::string summary = "2 added, 0 changed, 1 removed, 0 unchanged.";
    EXPECT_EQ(real.out.substr(0, real.out.find(summary)), dry.out.substr(0, dry.out.find(summary)));
    EXPECT_NE(std::string::npos,
              dry.out.find(summary + " This was a dry run: nothing was changed.\n"));
}

TEST_F(ApplyCommand, WakesTheMonitorOnlyWhenSomethingChanged)
{
    StartHere();
    HANDLE changed = CreateEvent(nullptr, FALSE, FALSE, kTableEvent);
    const std::string file = Rules(kTwoEvents);
    EXPECT_EQ(0, Syslogmon({"apply", file, "--dry-run"}).status);
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(changed, 0));
    EXPECT_EQ(0, Syslogmon({"apply", file}).status);
    EXPECT_EQ(WAIT_RESULT_FIRST, WaitForSingleObject(changed, 0));
    EXPECT_EQ(0, Syslogmon({"apply", file}).status);
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(changed, 0));
    EXPECT_EQ(1, Syslogmon({"apply", Rules("events: [x]")}).status);
    EXPECT_EQ(WAIT_RESULT_TIMEOUT, WaitForSingleObject(changed, 0));
    CloseHandle(changed);
}

TEST_F(ApplyCommand, WaitsForTheMutexOfTheTable)
{
    StartHere();
    HANDLE mutex = CreateMutex(nullptr, TRUE, kTableMutex);
    test::Child child(test::Command(Root(), {"apply", Rules(kTwoEvents)}));
    usleep(300 * 1000);
    EXPECT_EQ("", Events());
    ReleaseMutex(mutex);
    EXPECT_EQ(0, child.Wait());
    EXPECT_NE("", Events());
    CloseHandle(mutex);
}

TEST_F(ApplyCommand, ADryRunAndAnExportWaitForNobody)
{
    const std::string file = Rules(kTwoEvents);
    ASSERT_EQ(0, Syslogmon({"apply", file}).status);
    StartHere();
    HANDLE mutex = CreateMutex(nullptr, TRUE, kTableMutex);
    host::Transaction pass(test::Store());
    test::Registry().Create(host::kRootKey, "Something");
    EXPECT_EQ(
        "0 added, 0 changed, 0 removed, 2 unchanged. This was a dry run: nothing was changed.\n",
        Syslogmon({"apply", file, "--dry-run"}).out);
    EXPECT_NE("", Syslogmon({"export"}).out);
    EXPECT_EQ(std::string::npos, Syslogmon({"reg", "export"}).out.find("Something"));
    ReleaseMutex(mutex);
    CloseHandle(mutex);
}

// ---- refusals ----

TEST_F(ApplyCommand, ShowsEveryMistakeWithItsPlaceAndChangesNothing)
{
    ExpectDone({"event", "add", "OLD", "1", "-k", "x"});
    ExpectRefused(
        "events:\n"
        "  - {source: A, id: 1, keywords: good}\n"
        "  - {source: A, id: 2, keywords: x, hours: 25}\n"
        "  - {source: A, id: 1, keywords: x, count: 3}\n",
        {"3:44: cannot use the hours \"25\": they are not of a form that is known; write all, "
         "none, or hours and spans from 0 to 24, such as 8-18 or 22-6,12",
         "4:5: cannot use event \"A\" 1: it stands already in line 2; write each pair of "
         "source and ID once",
         "4:37: cannot use the key \"count\": an event has none of that name; use source, "
         "id, keywords, or others of syslogmon-rules(5)"});
}

TEST_F(ApplyCommand, AQuoteThatIsNotClosedIsRefusedWithItsLine)
{
    ExpectDone({"event", "add", "OLD", "1", "-k", "x"});
    const std::string rest = "  - source: A\n    id: 2\n    keywords: second\n"
                             "  - source: A\n    id: 3\n    keywords: third\n";
    for (const char quote : {'"', '\''})
        ExpectRefused("events:\n  - source: A\n    id: 1\n    keywords: " + std::string(1, quote) +
                          "I/O error\n" + rest,
                      {"4:15: cannot read the file from here on: the closing quote of the text "
                       "that begins here is missing; close the quote where the text ends"});
}

TEST_F(ApplyCommand, SaysHowManyMistakesAreNotShown)
{
    std::string text = "events:\n";
    for (int i = 0; i < 1000; ++i)
        text += "  - {source: A, id: x, keywords: x}\n";
    const std::string file = Rules(text);
    const Finished finished = Syslogmon({"apply", file});
    EXPECT_NE(std::string::npos, finished.err.find(": 800 more mistakes are not shown: "))
        << finished.err;
    EXPECT_NE(std::string::npos, finished.err.find("it has 1000 mistakes; correct"))
        << finished.err;
}

TEST_F(ApplyCommand, AFaultTolerantServerTakesBadExpressionsOnlyByForce)
{
    const std::string text = "events:\n"
                             "  - {source: A, id: 1, keywords: '([a-z'}\n"
                             "  - {source: A, id: 2, keywords: [good, '(x*)\\1']}\n";
    EXPECT_EQ(0, Syslogmon({"apply", "--dry-run", Rules(text)}).status);
    ExpectDone({"set", "fault-tolerant", "on"});
    const std::string compile =
        "it is not a regular expression that can be used on a fault-tolerant "
        "server: Unmatched [, [^, [:, [., or [=; put a backslash before a "
        "bracket or sign that is meant as it stands";
    const std::string slow =
        "it refers back to a group of itself (\\1), which can take the monitor "
        "seconds for one line; write out what the line shows";
    ExpectRefused(
        text,
        {"2:34: cannot use the keyword \"([a-z\" of event A 1: " + compile + ", or add --force",
         "3:41: cannot use the keyword \"(x*)\\1\" of event A 2: " + slow + ", or add --force"});
    const Finished forced = Syslogmon({"apply", "--force", Rules(text)});
    EXPECT_EQ(0, forced.status);
    const std::string warnings =
        "syslogmon: warning: cannot use the keyword \"([a-z\" of event A 1 as an expression: " +
        compile +
        "\nsyslogmon: warning: cannot use the keyword \"(x*)\\1\" of event A 2 as an expression: " +
        slow + "\n";
    EXPECT_EQ(warnings, forced.err);
    const Finished unchanged = Syslogmon({"apply", Rules(text)});
    EXPECT_EQ(0, unchanged.status) << "what is registered already is no reason to refuse";
    EXPECT_EQ(warnings, unchanged.err);
}

TEST_F(ApplyCommand, RefusesASourceOfAnotherComponent)
{
    ExpectDone({"reg", "set", std::string(kApplicationKey) + "\\OTHER", "NEWAPPLICATIONTYPE", "1",
                "--type", "dword"});
    ExpectRefused("events: [{source: OTHER, id: 1, keywords: x}]",
                  {"1:10: cannot use the source \"OTHER\": it is registered as one that another "
                   "component watches (NEWAPPLICATIONTYPE); choose another name"});
}

TEST_F(ApplyCommand, RefusesAKeywordThatTheLogsCharacterSetMakesTooLong)
{
    ExpectDone({"set", "log-charset", "GB18030"});
    std::string keyword; // two bytes each in UTF-8, four in GB18030
    for (int i = 0; i < 65; ++i)
        keyword += "\u00C5";
    ExpectRefused(
        "events: [{source: A, id: 1, keywords: [" + keyword + "]}]",
        {"1:40: cannot use a keyword of event A 1: it has 260 bytes in the character set of "
         "the log (GB18030); a keyword has at most 256 bytes there, too"});
    ExpectDone({"event", "add", "A", "1", "-k", keyword});
    const Finished finished = Syslogmon({"apply", File("rules.yaml")});
    EXPECT_EQ(0, finished.status);
    EXPECT_EQ(0U,
              finished.err.find("syslogmon: warning: cannot use a keyword of event A 1: it has 260 "
                                "bytes"));
}

TEST_F(ApplyCommand, WarnsOfACharacterThatTheLogDoesNotHave)
{
    ExpectDone({"set", "log-charset", "ISO-8859-1"});
    const Finished finished =
        Syslogmon({"apply", Rules("events: [{source: A, id: 1, keywords: [\u00C5, \u20AC]}]")});
    EXPECT_EQ(0, finished.status);
    EXPECT_EQ(
        "syslogmon: warning: the keyword \"\u20AC\" of event A 1 has characters that the character "
        "set of the log (ISO-8859-1) does not have\n",
        finished.err);
}

TEST_F(ApplyCommand, NamesAFileThatItCannotRead)
{
    ExpectFailed(
        {"apply", File("none").string()},
        "cannot read " + File("none").string() +
            ": No such file or directory; name a file that you may read, or - for standard "
            "input");
    ExpectFailed({"apply", Root().string()},
                 "cannot read " + Root().string() +
                     ": there is no file NAME.yaml in this folder; put one there, or name a file");
    ExpectFailed(
        {"apply", "/dev/zero"},
        "cannot read /dev/zero: it has more than 16 MiB; is this the file that you meant?");
    ExpectUsage({"apply"}, "file is required");
    ExpectUsage({"apply", "a", "b"}, "b");
}

TEST_F(ApplyCommand, ReadsStandardInput)
{
    const Finished finished = test::RunToEnd(
        {"/bin/sh", "-c",
         std::string(SYSLOGMON " --root ") + Root().string() + " apply - <" + Rules(kTwoEvents)});
    EXPECT_EQ(0, finished.status) << finished.err;
    EXPECT_EQ(0U, finished.out.find("--- registered\n+++ standard input\n"));
    const Finished nothing = Syslogmon({"apply", "-"}); // standard input is empty
    EXPECT_EQ(1, nothing.status);
    EXPECT_EQ(
        "standard input:1:1: cannot use the file: it is empty; begin with \"events:\" and list the "
        "events below it, or write \"events: []\" for none\n"
        "syslogmon: cannot apply standard input: it has a mistake; correct what is said above; "
        "nothing was done\n",
        nothing.err);
}

// ---- JSON ----

TEST_F(ApplyCommand, TellsTheDifferenceInJson)
{
    ExpectDone({"event", "add", "DISK", "1A", "-k", "old"});
    ExpectDone({"event", "add", "OLD", "1", "-k", "x"});
    const std::string file = Rules(kTwoEvents);
    const json before = {{"keywords", json::array({"old"})}, {"report_count", 1}, {"hours", "all"}};
    const json changed = {
        {"change", "changed"},
        {"source", "DISK"},
        {"id", "1A"},
        {"before", before},
        {"after",
         {{"keywords", json::array({"I/O error"})}, {"report_count", 1}, {"hours", "all"}}}};
    const json added = {
        {"change", "added"},
        {"source", "NETWORK"},
        {"id", "1"},
        {"before", nullptr},
        {"after", {{"keywords", {"link", "down"}}, {"report_count", 3}, {"hours", "8-18"}}}};
    EXPECT_EQ((json{{"version", 1},
                    {"file", file},
                    {"dry_run", true},
                    {"changes", {changed, added}},
                    {"unchanged", 0},
                    {"staying", json::array({{{"source", "OLD"}, {"id", "1"}}})},
                    {"warnings", json::array()}}),
              Json({"apply", "--dry-run", file}));
    const json pruned = Json({"apply", "--prune", file});
    EXPECT_EQ("removed", pruned["changes"][2]["change"]);
    EXPECT_EQ("OLD", pruned["changes"][2]["source"]);
    EXPECT_EQ(nullptr, pruned["changes"][2]["after"]);
}

TEST_F(ApplyCommand, TellsMistakesInJson)
{
    const std::string file = Rules("events: [{source: A, id: x, keywords: y}]");
    EXPECT_EQ(
        (json{{"version", 1},
              {"errors",
               json::array({{{"file", file},
                             {"line", 1},
                             {"column", 26},
                             {"message", "cannot use the event ID \"x\": it is not one to eight "
                                         "hexadecimal digits; write it without a prefix, such as "
                                         "1A2B"}}})}}),
        Json({"apply", file}, 1));
}

// ---- export ----

TEST_F(ApplyCommand, ExportOfNothingCanBeApplied)
{
    const std::string file = Rules(Syslogmon({"export"}).out);
    EXPECT_NE(std::string::npos, test::ReadFile(file).find("events: []\n"));
    ExpectOutput({"apply", file, "--prune"}, "0 added, 0 changed, 0 removed, 0 unchanged.\n");
}

TEST_F(ApplyCommand, ExportLeavesOutDamagedEventsAndSaysSo)
{
    ExpectDone({"event", "add", "DISK", "1", "-k", "x"});
    ExpectDone({"event", "add", "DISK", "2", "-k", "x"});
    ExpectDone(
        {"reg", "delete", std::string(kApplicationKey) + "\\DISK\\1\\WATCHSETTING", "WatchTime"});
    const Finished finished = Syslogmon({"export"});
    EXPECT_EQ(0, finished.status);
    EXPECT_EQ("syslogmon: left out: DISK 1: it has no WatchTime of 4 bytes\n", finished.err);
    EXPECT_NE(std::string::npos,
              finished.out.find("# Left out: DISK 1: it has no WatchTime of 4 bytes\n"));
    EXPECT_EQ((json{"DISK 1: it has no WatchTime of 4 bytes"}), Json({"export"})["left_out"]);
    EXPECT_EQ(1U, Json({"export"})["events"].size());
}

TEST_F(ApplyCommand, ExportInJsonCanBeApplied)
{
    EXPECT_EQ(0, Syslogmon({"apply", Rules(kTwoEvents)}).status);
    json exported = Json({"export"});
    exported.erase("left_out");
    ExpectOutput({"apply", "--prune", Rules(exported.dump())},
                 "0 added, 0 changed, 0 removed, 2 unchanged.\n");
}

TEST_F(ApplyCommand, AnExportThatDoesNotFitOnTheDiskFails)
{
    for (const char *words : {"export", "reg export"}) {
        const Finished finished = test::RunToEnd(
            {"/bin/sh", "-c",
             std::string(SYSLOGMON " --root ") + Root().string() + " " + words + " >/dev/full"});
        EXPECT_EQ(1, finished.status);
        EXPECT_EQ("syslogmon: cannot write on standard output: No space left on device; what was "
                  "written is not complete: make room, and try again\n",
                  finished.err);
    }
}

// Events that `event add` made, with anything that an argument can hold.
TEST_F(ApplyCommand, ARoundTripChangesNoByteOfTheRegistry)
{
    test::RandomData random;
    SCOPED_TRACE("SYSLOGMON_TEST_SEED=" + std::to_string(random.seed()));
    const std::string never("\0\n\r\x01\x1B", 5);
    size_t added = 0;
    for (int i = 0; i < 60; ++i) {
        const std::string source = "S" + random.OddText(40, never + "\\");
        test::Words words = {"event", "add", "--keyword=k" + random.OddText(100, never)};
        if (random.OneIn(2))
            words.push_back("--keyword=" + random.OddText(255, never));
        if (random.OneIn(2))
            words.insert(words.end(), {"-n", std::to_string(1 + random.Below(INT32_MAX))});
        if (random.OneIn(2))
            words.insert(words.end(), {"--hours", "22-6,8-9,12"});
        words.insert(words.end(), {"--", source, "1A"});
        added += Syslogmon(words).status == 0 ? 1U : 0U; // two may have the same source
    }
    EXPECT_LT(40U, added);
    const std::string before = Registry();
    const std::string file = Rules(Syslogmon({"export"}).out);
    ExpectOutput({"apply", "--prune", file},
                 "0 added, 0 changed, 0 removed, " + std::to_string(added) + " unchanged.\n");
    EXPECT_EQ(before, Registry());
    EXPECT_EQ(0, Syslogmon({"apply", "--prune", Rules("events: []", "empty.yaml")}).status);
    EXPECT_NE(before, Registry());
    EXPECT_EQ(0, Syslogmon({"apply", file}).status);
    EXPECT_EQ(before, Registry());
}

// ---- the examples ----

TEST_F(ApplyCommand, TheFirstEventsAreRegisteredByTheExample)
{
    const std::string command =
        std::string("PATH=$(dirname " SYSLOGMON "):$PATH exec " SOURCE_FOLDER
                    "/examples/first-events --root ") +
        Root().string();
    const Finished finished = test::RunToEnd({"/bin/sh", "-c", command});
    EXPECT_EQ(0, finished.status) << finished.err;
    EXPECT_EQ("", finished.out + finished.err);
    EXPECT_EQ(9U, Json({"event", "list"})["events"].size());
}

} // namespace

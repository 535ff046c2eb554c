// syslogmon test: what the rules would report over a log.
#include <csignal>
#include <ctime>
#include <filesystem>

#include <nlohmann/json.hpp>

#include "platform/contract.h"
#include "tests/agent/support/command_test.h"

namespace {

namespace fs = std::filesystem;

using nlohmann::json;
using test::Finished;
using test::RunToEnd;

std::string Stamp(time_t moment)
{
    char text[32];
    struct tm local {};
    strftime(text, sizeof text, "%b %e %H:%M:%S ", localtime_r(&moment, &local));
    return text;
}

const std::string now = Stamp(time(nullptr));

// The hours of the day without the current one, and without the next, if it begins soon.
std::string OtherHours()
{
    const time_t moment = time(nullptr);
    struct tm local {};
    localtime_r(&moment, &local);
    return std::to_string((local.tm_hour + 2) % 24) + "-" + std::to_string(local.tm_hour);
}

// Where temporary folders are made, for the commands that are run while it lives.
class TemporaryPlace {
  public:
    explicit TemporaryPlace(const fs::path &place) { setenv("TMPDIR", place.c_str(), 1); }
    ~TemporaryPlace() { unsetenv("TMPDIR"); }
    TemporaryPlace(const TemporaryPlace &) = delete;
    TemporaryPlace &operator=(const TemporaryPlace &) = delete;
};

class TryRules : public test::CommandTest {
  protected:
    TryRules()
    {
        fs::create_directory_symlink(AGENT_LIBRARIES, File("lib"));
        fs::create_directory(File("tmp"));
    }

    void WriteLog(const std::vector<std::string> &lines, const std::string &name = "the.log") const
    {
        std::string text;
        for (const std::string &line : lines)
            text += line + "\n";
        test::WriteFile(File(name), text);
    }
    [[nodiscard]] json Try(test::Words words = {}) const
    {
        if (words.empty())
            words = {File("the.log")};
        words.insert(words.begin(), "test");
        return Json(words);
    }
    // The event of the results with this source.
    static json EventOf(const json &result, const std::string &source)
    {
        for (const json &event : result["events"]) {
            if (event["source"] == source)
                return event;
        }
        return nullptr;
    }
    // Why an event does not match the line, or what a match does.
    [[nodiscard]] std::string Explain(const std::string &line, const std::string &source,
                                      bool matches, const test::Words &more = {}) const
    {
        test::Words words = {"--explain", line};
        words.insert(words.end(), more.begin(), more.end());
        const json event = EventOf(Try(words), source);
        EXPECT_EQ(matches, event.value("matches", !matches)) << event;
        return event.value("reason", "(none)");
    }
    static void ExpectText(const json &sighting, int line, const std::string &text)
    {
        EXPECT_EQ(line, sighting.value("line", 0));
        EXPECT_EQ(text, sighting.value("text", ""));
    }
};

TEST_F(TryRules, CountsLinesHitsAndReportsOfEachEvent)
{
    ExpectDone({"event", "add", "ONE", "1A", "-k", "bad"});
    ExpectDone({"event", "add", "THREE", "2", "-k", "bad", "-n", "3"});
    ExpectDone({"event", "add", "NEVER", "3", "-k", "worse"});
    WriteLog({now + "h bad 1", now + "h good", now + "h bad 2", now + "h bad 3", now + "h bad 4"});
    const json result = Try();
    EXPECT_EQ(5, result["lines"]);
    const json one = EventOf(result, "ONE");
    EXPECT_EQ("1A", one["id"]);
    EXPECT_EQ(4, one["lines"]);
    EXPECT_EQ(4, one["hits"]);
    EXPECT_EQ(4, one["reports"]);
    ExpectText(one["first"], 1, now + "h bad 1");
    ExpectText(one["last"], 5, now + "h bad 4");
    const json three = EventOf(result, "THREE");
    EXPECT_EQ(4, three["lines"]);
    EXPECT_EQ(1, three["reports"]);
    const json never = EventOf(result, "NEVER");
    EXPECT_EQ(0, never["lines"]);
    EXPECT_EQ(nullptr, never["first"]);
}

TEST_F(TryRules, WritesAPageOfTheTrial)
{
    ExpectDone({"event", "add", "ONE", "1A", "-k", "bad"});
    ExpectDone({"event", "add", "THREE", "2", "-k", "bad", "-n", "3"});
    WriteLog({now + "web7 bad <1>", now + "web7 good", now + "web8 bad 2", now + "web8 bad 3"});
    EXPECT_EQ(4, Try({"--report", File("page.html"), File("the.log")})["lines"]);
    const std::string page = test::ReadFile(File("page.html"));
    EXPECT_NE(std::string::npos, page.find("<h1>Trial of " + File("the.log").string()));
    EXPECT_NE(std::string::npos, page.find("<dt>Hits</dt><dd>6</dd>"));
    EXPECT_NE(std::string::npos, page.find("<dt>Reports</dt><dd>4</dd>"));
    EXPECT_NE(std::string::npos, page.find("<dt>Lines read</dt><dd>4</dd>"));
    EXPECT_NE(std::string::npos, page.find("bad &lt;1&gt;"));
    EXPECT_NE(std::string::npos, page.find(">web8<"));
    // A page of one line would be none.
    ExpectUsage({"test", "--explain", "x", "--report", "page.html"}, "--report is of logs");
    EXPECT_EQ(1, Syslogmon({"test", "--report", "/nowhere/page.html", File("the.log")}).status);
}

TEST_F(TryRules, WritesThePlotsOfThePageAsFilesOfTheirOwn)
{
    ExpectDone({"event", "add", "ONE", "1A", "-k", "bad"});
    WriteLog({now + "web7 bad 1", now + "web8 bad 2"});
    fs::create_directory(File("plots"));
    EXPECT_EQ(2, Try({"--svg", File("plots"), File("the.log")})["lines"]);
    EXPECT_FALSE(fs::exists(File("page.html"))) << "a page was not asked for";
    EXPECT_EQ(
        2, Try({"--report", File("page.html"), "--svg", File("plots"), File("the.log")})["lines"]);
    const std::string page = test::ReadFile(File("page.html"));
    for (const char *name : {"hits.svg", "events.svg", "hosts.svg", "hours.svg"}) {
        const std::string plot = test::ReadFile(File("plots") / name);
        EXPECT_TRUE(plot.starts_with("<svg xmlns=")) << name;
        EXPECT_NE(std::string::npos, page.find(plot)) << name;
    }
    EXPECT_NE(std::string::npos, test::ReadFile(File("plots") / "hosts.svg").find(">web8<"));
    ExpectUsage({"test", "--explain", "x", "--svg", File("plots")}, "--svg is of logs");
    EXPECT_EQ(1, Syslogmon({"test", "--svg", "/nowhere", File("the.log")}).status);
}

TEST_F(TryRules, PrintsColumnsInAPipeAndWhatCouldNotMatchBelow)
{
    ExpectDone({"event", "add", "ONE", "1A", "-k", "bad"});
    WriteLog({now + "h bad", "2026-11-21T10:00:01+01:00 h bad",
              now + "h last message repeated 2 times"});
    const Finished finished = Syslogmon({"test", File("the.log")});
    EXPECT_EQ(0, finished.status) << finished.err;
    EXPECT_EQ("", finished.err) << "no bar without a terminal";
    const std::string log = File("the.log");
    const std::string line = log + ":1: " + now + "h bad";
    EXPECT_EQ(0U, finished.out.find("ONE\t1A\t1\t1\t1\t" + line + "\t" + line +
                                    "\n\nno event can match 1 line: it has an ISO time stamp\n"
                                    "  first: " +
                                    log +
                                    ":2: 2026-11-21T10:00:01+01:00 h bad\n"
                                    "  make the syslog daemon write traditional time stamps"))
        << finished.out;
    EXPECT_NE(std::string::npos, finished.out.find("\n3 lines in 1 file, ")) << finished.out;
    EXPECT_NE(std::string::npos,
              finished.out.find(" 1 of them repeat another line, 0 are the agent's own\n"));
}

TEST_F(TryRules, RepeatsCountForTheLineBeforeThem)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad"});
    ExpectDone({"event", "add", "SEVEN", "1", "-k", "bad", "-n", "7"});
    ExpectDone({"event", "add", "REPEAT", "1", "-k", "repeated"});
    const std::string repeat = now + "h last message repeated ";
    WriteLog({repeat + "9 times", now + "h bad", repeat + "3 times", repeat + "2 times",
              now + "h bad", now + "h good", repeat + "5 times"});
    const json result = Try();
    EXPECT_EQ(4, result["repeats"]);
    EXPECT_EQ(2, EventOf(result, "ONE")["lines"]);
    EXPECT_EQ(7, EventOf(result, "ONE")["hits"]);
    EXPECT_EQ(2, EventOf(result, "ONE")["reports"]) << "one for a line, however often it occurred";
    EXPECT_EQ(1, EventOf(result, "SEVEN")["reports"]);
    EXPECT_EQ(0, EventOf(result, "REPEAT")["lines"]) << "a repeat is no line of its own";
}

TEST_F(TryRules, SeveralFilesAreReadInTheirOrder)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad"});
    WriteLog({now + "h bad 1", now + "h good"}, "a");
    WriteLog({now + "h good", now + "h bad 2"}, "b");
    const json result = Try({File("a"), File("b")});
    const json one = EventOf(result, "ONE");
    EXPECT_EQ(File("a").string(), one["first"]["file"]);
    EXPECT_EQ(File("b").string(), one["last"]["file"]);
    EXPECT_EQ(2, one["last"]["line"]);
    EXPECT_EQ((json{{{"file", File("a").string()}, {"lines", 2}},
                    {{"file", File("b").string()}, {"lines", 2}}}),
              result["files"]);
}

TEST_F(TryRules, AnEmptyFileAndOneWithoutALineEndAreRead)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad"});
    test::WriteFile(File("empty"), "");
    test::WriteFile(File("open"), now + "h bad");
    const json result = Try({File("empty"), File("open")});
    EXPECT_EQ(1, result["lines"]);
    EXPECT_EQ(1, EventOf(result, "ONE")["reports"]);
}

TEST_F(TryRules, ALogOfManyBlocksIsReadWhole)
{
    ExpectDone({"event", "add", "TEN", "1", "-k", "bad", "-n", "10"});
    std::vector<std::string> lines;
    for (int i = 0; i < 20000; ++i)
        lines.push_back(now + "h " + (i % 20 == 0 ? "bad " : "good ") + std::to_string(i));
    WriteLog(lines);
    const json result = Try();
    EXPECT_EQ(20000, result["lines"]);
    const json ten = EventOf(result, "TEN");
    EXPECT_EQ(1000, ten["lines"]);
    EXPECT_EQ(100, ten["reports"]);
    ExpectText(ten["last"], 19981, now + "h bad 19980");
}

TEST_F(TryRules, LinesThatNoEventCanSeeAreGroupedByTheReason)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad"});
    const std::string far = Stamp(time(nullptr) + 86400 * 150);
    WriteLog({now + "h bad", "2026-11-21T10:00:01+01:00 h bad", "2026-11-21 10:00:01 h bad", "",
              "  bad, continued", "<34>" + now + "h bad", "[  123.456] bad", "1795255201.5 bad",
              "Sat " + now + "2026 bad", "xyz 21 10:00:01 h bad", far + "h bad"});
    const json result = Try();
    EXPECT_EQ(1, EventOf(result, "ONE")["lines"]);
    std::map<std::string, int> groups;
    for (const json &group : result["unseen"])
        groups[group["reason"]] = group["lines"];
    EXPECT_EQ((std::map<std::string, int>{{"iso", 2},
                                          {"empty", 1},
                                          {"none", 1},
                                          {"priority", 1},
                                          {"seconds", 2},
                                          {"weekday", 1},
                                          {"month-name", 1},
                                          {"other-month", 1}}),
              groups);
    for (const json &group : result["unseen"]) {
        if (group["reason"] == "iso")
            ExpectText(group["first"], 2, "2026-11-21T10:00:01+01:00 h bad");
    }
}

TEST_F(TryRules, LinesOfTheAgentItselfAreCountedAndMatchNothing)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad"});
    WriteLog({now + "h TARSKvkvmain: bad"});
    const json result = Try();
    EXPECT_EQ(1, result["own_lines"]);
    EXPECT_EQ(0, EventOf(result, "ONE")["lines"]);
}

TEST_F(TryRules, WithheldReportsAreToldApart)
{
    ExpectDone({"event", "add", "FTREPORT", "1", "-k", "bad"});
    WriteLog({now + "h bad"});
    const json event = EventOf(Try(), "FTREPORT");
    EXPECT_EQ(1, event["lines"]);
    EXPECT_EQ(0, event["reports"]);
    EXPECT_EQ(1, event["withheld"]);
}

TEST_F(TryRules, TheCurrentHourCountsOrThatOfTheLine)
{
    ExpectDone({"event", "add", "LATER", "1", "-k", "bad", "--hours", OtherHours()});
    ExpectDone({"event", "add", "ALWAYS", "1", "-k", "bad"});
    ExpectDone({"event", "add", "TEN", "1", "-k", "bad", "-n", "2", "--hours", "10"});
    const std::string day = now.substr(0, 7);
    WriteLog({day + "09:59:59 h bad", day + "10:00:00 h bad", day + "10:59:59 h bad",
              day + "11:00:00 h bad"});
    EXPECT_EQ(0, EventOf(Try(), "LATER")["lines"]);
    EXPECT_EQ(4, EventOf(Try(), "ALWAYS")["lines"]);
    const json by_line = Try({"--line-hours", File("the.log")});
    EXPECT_EQ(2, EventOf(by_line, "TEN")["lines"]);
    EXPECT_EQ(1, EventOf(by_line, "TEN")["reports"]);
    ExpectText(EventOf(by_line, "TEN")["first"], 2, day + "10:00:00 h bad");
    EXPECT_EQ(4, EventOf(by_line, "ALWAYS")["lines"]);
}

TEST_F(TryRules, ProductsAndSettingsOfTheHostCount)
{
    ExpectDone({"event", "add", "PRODUCT", "1", "-k", "bad"});
    ExpectDone({"event", "add", "EXPRESSION", "1", "-k", "b.d"});
    const std::string product = std::string(kAlertReportKey) + "\\Mirror";
    ExpectDone({"reg", "set", product, "Setup", "0", "--type", "dword"});
    ExpectDone(
        {"reg", "set", product, "Source", "00000000 74 00 50726f6475637400", "--type", "binary"});
    ExpectDone({"set", "fault-tolerant", "on"});
    WriteLog({now + "h bad"});
    const json result = Try();
    EXPECT_EQ(nullptr, EventOf(result, "PRODUCT"));
    EXPECT_EQ(
        (json{{{"source", "PRODUCT"},
               {"id", "1"},
               {"cause", "the product Mirror, which reports under its source, is not set up"}}}),
        result["not_loaded"]);
    EXPECT_EQ(1, EventOf(result, "EXPRESSION")["lines"]);
}

// ---- what stays ----

TEST_F(TryRules, NothingOfTheHostIsChangedAndNothingStaysBehind)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad"});
    WriteLog({now + "h bad"});
    const json before = Json({"reg", "list", "-r"});
    const TemporaryPlace place(File("tmp"));
    EXPECT_EQ(1, EventOf(Try(), "ONE")["reports"]);
    EXPECT_EQ(1, Syslogmon({"test", File("none")}).status);
    EXPECT_EQ(before, Json({"reg", "list", "-r"}));
    EXPECT_EQ("", Syslogmon({"alerts"}).out);
    EXPECT_TRUE(fs::is_empty(File("tmp")));
}

TEST_F(TryRules, AnInterruptedTrialLeavesNothingBehind)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad"});
    std::string text;
    for (int i = 0; i < 500000; ++i)
        text += now + "h good\n";
    test::WriteFile(File("the.log"), text);
    const TemporaryPlace place(File("tmp"));
    test::Child trial(test::Command(Root(), {"test", File("the.log")}));
    while (fs::is_empty(File("tmp")))
        continue;
    trial.Signal(SIGTERM);
    EXPECT_EQ(1, trial.Wait());
    EXPECT_TRUE(fs::is_empty(File("tmp")));
}

TEST_F(TryRules, NeedsNoStoreWhenRulesAreGiven)
{
    fs::remove_all(Layout().state);
    test::WriteFile(File("rules.yaml"),
                    "version: 1\nevents:\n  - source: FILE\n    id: 7\n    keywords: [bad]\n");
    WriteLog({now + "h bad"});
    const json result = Try({"--rules", File("rules.yaml"), File("the.log")});
    EXPECT_EQ(1, EventOf(result, "FILE")["reports"]);
    EXPECT_FALSE(fs::exists(Layout().Store()));
}

TEST_F(TryRules, RulesOfAFileCanBeTriedWhereverTheRootPoints)
{
    test::WriteFile(File("rules.yaml"), "events:\n  - {source: FILE, id: 7, keywords: bad}\n");
    WriteLog({now + "h bad"});
    for (const fs::path &root : {File("none"), fs::path("/etc")}) {
        const Finished finished = RunToEnd(test::Command(
            root, {"test", "--json", "--rules", File("rules.yaml"), File("the.log")}));
        EXPECT_EQ(0, finished.status) << finished.err;
        EXPECT_EQ("", finished.err);
        EXPECT_EQ(1, EventOf(json::parse(finished.out, nullptr, false), "FILE")["reports"]);
    }
    EXPECT_FALSE(fs::exists(File("none")));
    EXPECT_FALSE(fs::exists("/etc/state/agent.db"));
}

TEST_F(TryRules, RulesOfAFileCanBeTriedWhoeverMayReadTheStore)
{
    test::WriteFile(File("rules.yaml"), "events:\n  - {source: FILE, id: 7, keywords: bad}\n");
    WriteLog({now + "h bad"});
    test::WriteFile(Layout().Store(), ""); // as for somebody who may not read it
    const Finished finished =
        Syslogmon({"test", "--json", "--rules", File("rules.yaml"), File("the.log")});
    EXPECT_EQ(0, finished.status);
    EXPECT_EQ(0U, finished.err.find("syslogmon: warning: the settings of this host are not used: "
                                    "cannot use " +
                                    Layout().Store().string()))
        << finished.err;
    EXPECT_EQ(1, EventOf(json::parse(finished.out, nullptr, false), "FILE")["reports"]);
}

TEST_F(TryRules, StandardInputAndPipesAreReadAsLogs)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad"});
    WriteLog({now + "h bad 1", now + "h good", now + "h bad 2"});
    const TemporaryPlace place(File("tmp"));
    const std::string program = std::string(SYSLOGMON) + " --root '" + Root().string() + "'";
    const std::string log = "'" + File("the.log").string() + "'";
    for (const std::string &line :
         {"cat " + log + " | " + program + " test --json -", program + " test --json - <" + log,
          "mkfifo " + log + ".pipe; cat " + log + " >" + log + ".pipe & " + program +
              " test --json " + log + ".pipe"}) {
        const Finished finished = RunToEnd({"/bin/sh", "-c", line});
        EXPECT_EQ(0, finished.status) << line << finished.err;
        const json one = EventOf(json::parse(finished.out, nullptr, false), "ONE");
        EXPECT_EQ(2, one["reports"]) << line;
        EXPECT_EQ(3, one["last"]["line"]);
    }
    EXPECT_TRUE(fs::is_empty(File("tmp")));
    const Finished both = RunToEnd({"/bin/sh", "-c", program + " test --rules - - </dev/null"});
    EXPECT_EQ(2, both.status);
    EXPECT_NE(std::string::npos, both.err.find("standard input (-) can be read only once"));
}

TEST_F(TryRules, ACompressedLogIsReadAndADamagedOneIsNamed)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad"});
    WriteLog({now + "h bad", now + "h good", now + "h bad"});
    ASSERT_EQ(0, RunToEnd({"/bin/sh", "-c", "gzip -k " + File("the.log").string()}).status);
    const json one = EventOf(Try({File("the.log.gz")}), "ONE");
    EXPECT_EQ(2, one["reports"]);
    ExpectText(one["last"], 3, now + "h bad");
    test::WriteFile(File("broken.gz"), "\x1F\x8B\x08 and so on");
    const Finished finished = Syslogmon({"test", File("broken.gz")});
    EXPECT_EQ(1, finished.status);
    EXPECT_NE(std::string::npos, finished.err.find(File("broken.gz"))) << finished.err;
}

TEST_F(TryRules, AsAnInputReadsStampsOfAnyFormAndAge)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad"});
    WriteLog(
        {"2019-03-04T05:06:07.123+00:00 web07 app[7]: bad", "1551675967 bad", "no stamp: bad"});
    EXPECT_EQ(0, EventOf(Try(), "ONE")["reports"]);
    const json one = EventOf(Try({"--as-input", File("the.log")}), "ONE");
    EXPECT_EQ(3, one["reports"]);
    const std::string first = one["first"]["text"];
    EXPECT_EQ(" web07 app[7]: bad", first.substr(15)) << first;
}

TEST_F(TryRules, AsAnInputALineKeepsTheHourOfItsOldStamp)
{
    ExpectDone({"event", "add", "NIGHT", "1", "-k", "bad", "--hours", "3"});
    WriteLog({"2019-03-04 03:06:07 h bad", "2019-03-04 04:06:07 h bad"});
    EXPECT_EQ(1, EventOf(Try({"--as-input", "--line-hours", File("the.log")}), "NIGHT")["lines"]);
}

TEST_F(TryRules, AsAnInputAWordOfAStrangerHidesNoLine)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad"});
    const std::string line = "2019-03-04T05:06:07Z web07 sshd[7]: bad user TARSKvkvmain";
    EXPECT_NE("", Explain(line, "ONE", false));
    EXPECT_NE("", Explain(line, "ONE", true, {"--as-input"}));
    WriteLog({line});
    const std::string text = EventOf(Try({"--as-input", File("the.log")}), "ONE")["last"]["text"];
    EXPECT_EQ(" web07 sshd[7]: bad user TARSKvkvmain", text.substr(15));
}

TEST_F(TryRules, WithAnInputsOptionsItReadsWhatThatInputWould)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad", "-k", "worse"});
    ExpectDone({"event", "add", "MANY", "1", "-k", "seldom"});
    WriteLog({"2019-03-04T05:06:07Z web07 app[7]: bad", "  and worse",
              "2019-03-04T05:06:07Z web07 app[7]: message repeated 9 times: [ seldom]"});
    const json apart = Try({"--as-input", File("the.log")});
    EXPECT_EQ(0, EventOf(apart, "ONE")["lines"]);
    EXPECT_EQ(9, EventOf(apart, "MANY")["hits"]);
    for (const char *joined : {"join=indentation", "begins-with=^[0-9]"}) {
        const json result =
            Try({"--input-option", joined, "--input-option", "repeats=no", File("the.log")});
        EXPECT_EQ(1, EventOf(result, "ONE")["lines"]) << joined;
        EXPECT_EQ(1, EventOf(result, "MANY")["hits"]) << joined;
    }
    const json none = Try(
        {"--input-option", "format=none", "--input-option", "identifier=mine", File("the.log")});
    const std::string text = EventOf(none, "MANY")["last"]["text"];
    EXPECT_NE(std::string::npos, text.find(" mine: 2019-03-04T05:06:07Z web07 app[7]:")) << text;
    EXPECT_NE("", Explain("message repeated 9 times: [ seldom]", "MANY", true,
                          {"--input-option", "format=none"}));
}

TEST_F(TryRules, WithAnInputsEncodingItReadsWhatThatInputWould)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad"});
    std::string wide;
    for (const char byte : std::string("one bad\ntwo bad\n"))
        wide += {byte, '\0'};
    std::ofstream(File("the.log"), std::ios::binary) << wide;
    EXPECT_EQ(0, EventOf(Try({"--as-input", File("the.log")}), "ONE")["lines"]);
    EXPECT_EQ(
        2, EventOf(Try({"--input-option", "encoding=UTF-16LE", File("the.log")}), "ONE")["lines"]);
}

TEST_F(TryRules, AnInputsOptionWithAMistakeIsRefused)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad"});
    WriteLog({"bad"});
    for (const auto &[option, said] : std::vector<std::pair<std::string, std::string>>{
             {"format=ISO", "cannot use format=ISO: the value is not accepted; use one of auto"},
             {"formt=auto", "did you mean format?"},
             {"path=/var/log/a.log", "the logs that are tried are named themselves"},
             {"priority=loud", "use emerg, alert"},
             {"begins-with=(", "missing )"}}) {
        const Finished finished = Syslogmon({"test", "--input-option", option, File("the.log")});
        EXPECT_EQ(1, finished.status) << option;
        EXPECT_NE(std::string::npos, finished.err.find(said)) << finished.err;
    }
}

// ---- at another moment ----

TEST_F(TryRules, AsOfAMomentTheLinesOfItsMonthAndOfTheLastOneMatch)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad"});
    WriteLog({"Feb 29 23:59:59 h bad", "Mar  4 05:06:07 h bad", "Jan 31 10:00:00 h bad"});
    const json result = Try({"--as-of", "2016-03-05", File("the.log")});
    const json one = EventOf(result, "ONE");
    EXPECT_EQ(2, one["lines"]);
    ExpectText(one["first"], 1, "Feb 29 23:59:59 h bad");
    ASSERT_EQ(1U, result["unseen"].size()) << result;
    EXPECT_EQ("other-month", result["unseen"][0]["reason"]);
    ExpectText(result["unseen"][0]["first"], 3, "Jan 31 10:00:00 h bad");
}

TEST_F(TryRules, AsOfAMomentItsHourIsTheOneThatEventsMustWatch)
{
    ExpectDone({"event", "add", "NIGHT", "1", "-k", "bad", "--hours", "3"});
    WriteLog({"Mar  4 05:06:07 h bad"});
    EXPECT_EQ(1, EventOf(Try({"--as-of", "2016-03-05 03:30", File("the.log")}), "NIGHT")["lines"]);
    EXPECT_EQ(0, EventOf(Try({"--as-of", "2016-03-05 04:30", File("the.log")}), "NIGHT")["lines"]);
}

TEST_F(TryRules, AsOfAMomentALineIsExplained)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad"});
    const std::string line = "Mar  4 05:06:07 h bad";
    EXPECT_NE("", Explain(line, "ONE", true, {"--as-of", "2016-03-05T12:00:00.5+01:00"}));
    EXPECT_NE(std::string::npos,
              Explain(line, "ONE", false, {"--as-of", "2016-05-01"}).find("neither this month"));
}

TEST_F(TryRules, AsOfAMomentAnInputsLinesKeepTheirOwnStamps)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad"});
    WriteLog({"2016-02-29 05:06:07 bad", "2015-02-28 05:06:07 bad"});
    const json one =
        EventOf(Try({"--as-input", "--as-of", "2016-03-05 12:00", File("the.log")}), "ONE");
    EXPECT_EQ(0U, one["first"].value("text", "").find("Feb 29 05:06:07 ")) << one;
    EXPECT_EQ(0U, one["last"].value("text", "").find("Mar  5 05:06:07 ")) << one;
}

TEST_F(TryRules, AMomentThatIsNoneIsRefused)
{
    WriteLog({"Mar  4 05:06:07 h bad"});
    ExpectFailed({"test", "--as-of", "long ago", File("the.log")},
                 "cannot use the time \"long ago\": its form is not known; write 10m, 1h30m, 1d, "
                 "10:00, yesterday or \"2026-11-21 10:00\"");
    ExpectFailed({"test", "--as-of", "1969-07-20", File("the.log")},
                 "cannot try logs as of 1969-07-20: the monitor knows no time before 1970; name a "
                 "later moment");
}

TEST_F(TryRules, LinesOfAnotherMonthAreSaidToBeTriedAsOfTheirTime)
{
    WriteLog({"Mar  4 05:06:07 h bad"});
    const Finished then = Syslogmon({"test", "--as-of", "2016-06-01", File("the.log")});
    EXPECT_EQ(std::string::npos, then.out.find("--as-of")) << then.out;
    const time_t half_a_year_ago = time(nullptr) - 183 * 86400;
    WriteLog({Stamp(half_a_year_ago) + "h bad"});
    const Finished now_tried = Syslogmon({"test", File("the.log")});
    EXPECT_NE(std::string::npos, now_tried.out.find("--as-of TIME tries them")) << now_tried.out;
}

TEST_F(TryRules, RulesOfAFileStandInPlaceOfThoseOfTheHost)
{
    ExpectDone({"event", "add", "HOST", "1", "-k", "bad"});
    test::WriteFile(File("rules.yaml"),
                    "version: 1\nevents:\n  - source: FILE\n    id: 7\n    keywords: [bad]\n");
    WriteLog({now + "h bad"});
    const json result = Try({"--rules", File("rules.yaml"), File("the.log")});
    EXPECT_EQ(nullptr, EventOf(result, "HOST"));
    EXPECT_EQ(1, EventOf(result, "FILE")["reports"]);
}

TEST_F(TryRules, AFaultyRulesFileIsRefusedWithThePlace)
{
    test::WriteFile(File("rules.yaml"), "version: 1\nevents: 7\n");
    WriteLog({now + "h bad"});
    const Finished finished = Syslogmon({"test", "--rules", File("rules.yaml"), File("the.log")});
    EXPECT_EQ(1, finished.status);
    EXPECT_EQ(0U, finished.err.find(File("rules.yaml").string() + ":2:")) << finished.err;
    EXPECT_NE(std::string::npos, finished.err.find("it has a mistake; correct what is said above; "
                                                   "nothing was done\n"))
        << finished.err;
}

// ---- one line ----

TEST_F(TryRules, ExplainsWhyEachEventMatchesOrNot)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad"});
    ExpectDone({"event", "add", "FIVE", "1", "-k", "bad", "-n", "5"});
    ExpectDone({"event", "add", "FIRST", "1", "-k", "Bad"});
    ExpectDone({"event", "add", "THIRD", "1", "-k", "bad", "-k", "disk", "-k", "sda"});
    ExpectDone({"event", "add", "HOUR", "1", "-k", "bad", "--hours", "none"});
    ExpectDone({"event", "add", "FTREPORT", "1", "-k", "bad"});
    ExpectDone({"event", "add", "COUNT", "1", "-k", "bad"});
    ExpectDone({"reg", "set", std::string(kApplicationKey) + "\\COUNT\\1\\WATCHSETTING",
                "ReportCount", "0", "--type", "dword"});
    const std::string line = now + "h bad disk";
    EXPECT_EQ("it is reported", Explain(line, "ONE", true));
    EXPECT_EQ("it counts; every 5 hits are reported", Explain(line, "FIVE", true));
    EXPECT_EQ("keyword 1 \"Bad\" is missing", Explain(line, "FIRST", false));
    EXPECT_EQ("keyword 3 \"sda\" is missing", Explain(line, "THIRD", false));
    EXPECT_EQ("all its keywords are there, but reports of this source are withheld",
              Explain(line, "FTREPORT", true));
    EXPECT_EQ("its report count is 0", Explain(line, "COUNT", false));
    const std::string hour =
        Explain(now.substr(0, 7) + "07:30:00 h bad", "HOUR", false, {"--line-hours"});
    EXPECT_EQ("the hour from 7:00 is not watched", hour);
    EXPECT_NE(std::string::npos, Explain(line, "HOUR", false).find(" is not watched"));
}

TEST_F(TryRules, ExplainsLinesThatNoEventCanMatch)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad"});
    EXPECT_EQ("the monitor cannot read its time stamp: it has an ISO time stamp",
              Explain("2026-11-21T10:00:01+01:00 h bad", "ONE", false));
    EXPECT_EQ("it is the agent's own: it holds TARSKvkvmain",
              Explain(now + "h TARSKvkvmain bad", "ONE", false));
}

TEST_F(TryRules, ExplainsExpressionsOnAFaultTolerantServer)
{
    ExpectDone({"event", "add", "GOOD", "1", "-k", "b.d"});
    ExpectDone({"event", "add", "MISSING", "1", "-k", "w.rse"});
    ExpectDone({"event", "add", "BROKEN", "1", "-k", "b(d"});
    const std::string line = now + "h bad";
    EXPECT_EQ("keyword 1 \"b.d\" is missing", Explain(line, "GOOD", false));
    ExpectDone({"set", "fault-tolerant", "on"});
    EXPECT_EQ("it is reported", Explain(line, "GOOD", true));
    EXPECT_EQ("keyword 1 \"w.rse\" is missing, as text and as a regular expression",
              Explain(line, "MISSING", false));
    EXPECT_EQ(0U, Explain(line, "BROKEN", false)
                      .find("keyword 1 \"b(d\" is missing, and it is not a regular expression: "));
}

TEST_F(TryRules, ExplainsEventsThatAreNotLoaded)
{
    ExpectDone({"event", "add", "OTHER", "1", "-k", "bad"});
    ExpectDone({"reg", "set", std::string(kApplicationKey) + "\\OTHER", "NEWAPPLICATIONTYPE", "1",
                "--type", "dword"});
    ExpectDone({"event", "add", "EMPTY", "1", "-k", "bad"});
    ExpectDone(
        {"reg", "set", std::string(kApplicationKey) + "\\EMPTY\\1\\WATCHSETTING", "KeyWord", ""});
    const std::string line = now + "h bad";
    EXPECT_EQ("not loaded: its source reports under a type of its own (NEWAPPLICATIONTYPE)",
              Explain(line, "OTHER", false));
    EXPECT_EQ("not loaded: it has no keyword", Explain(line, "EMPTY", false));
}

TEST_F(TryRules, PrintsTheExplanationAsATable)
{
    ExpectDone({"event", "add", "ONE", "1A", "-k", "bad"});
    ExpectOutput({"test", "--explain", now + "h bad\n"}, "ONE\t1A\tyes\tit is reported\n");
}

// ---- failures ----

TEST_F(TryRules, FilesThatCannotBeReadAreNamed)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad"});
    ExpectFailed({"test", File("none")}, "cannot read " + File("none").string() +
                                             ": No such file or directory; name a log that can "
                                             "be read");
    ExpectFailed({"test", Root()}, "cannot read " + Root().string() +
                                       ": it is not a regular file; name a log that can be read");
}

TEST_F(TryRules, AnEventThatCannotBeLoadedIsNamed)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad"});
    ExpectDone(
        {"reg", "delete", std::string(kApplicationKey) + "\\ONE\\1\\WATCHSETTING", "WatchTime"});
    WriteLog({now + "h bad"});
    ExpectFailed(
        {"test", File("the.log")},
        "cannot load event ONE 1: it has no WatchTime of 4 bytes; remove it with syslogmon "
        "event remove and add it with all its values; until then, the monitor loads no "
        "event at all");
}

TEST_F(TryRules, WithoutTheModuleItSaysSo)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad"});
    fs::remove(File("lib"));
    WriteLog({now + "h bad"});
    const Finished finished = Syslogmon({"test", File("the.log")});
    EXPECT_EQ(1, finished.status);
    EXPECT_EQ(0U, finished.err.find("syslogmon: cannot load the monitor module: ")) << finished.err;
}

TEST_F(TryRules, NeedsFilesOrALine)
{
    ExpectUsage({"test"}, "name logs to be tried, or one line with --explain");
    ExpectUsage({"test", "--explain", "x", "file"},
                "name logs to be tried, or one line with --explain");
}

// ---- on a terminal ----

TEST_F(TryRules, OnATerminalABarShowsRateAndTimeLeft)
{
    ExpectDone({"event", "add", "ONE", "1", "-k", "bad"});
    std::string text;
    for (int i = 0; i < 1000; ++i)
        text += now + "h good\n";
    test::WriteFile(File("the.log"), text);
    // script runs it on a terminal of its own.
    const Finished finished = RunToEnd({"/usr/bin/script", "-qec",
                                        std::string(SYSLOGMON) + " --root " + Root().string() +
                                            " test " + File("the.log").string(),
                                        "/dev/null"});
    EXPECT_EQ(0, finished.status) << finished.err;
    EXPECT_NE(std::string::npos, finished.out.find("[")) << finished.out;
    EXPECT_NE(std::string::npos, finished.out.find(" % ")) << finished.out;
    EXPECT_NE(std::string::npos, finished.out.find(" lines/s  ")) << finished.out;
    EXPECT_NE(std::string::npos, finished.out.find(" left")) << finished.out;
    EXPECT_NE(std::string::npos, finished.out.find("SOURCE")) << "heads, on a terminal";
}

} // namespace

// The sections of a rules file beside its events: what is taken, and what is said of a mistake.
#include "agent/rules/rules_file.h"
#include "agent/rules/sections.h"
#include "agent/sinks/sink.h"
#include "tests/agent/support/host_test.h"
#include "tests/agent/support/issues_test.h"

namespace {

using rules::ParsedRules;

std::string IssuesOf(const std::string &text)
{
    return test::Text(rules::ParseRules(text).issues);
}

// The first mistake of a value in the file that ends with it: where the value begins, and these words.
void ExpectMistake(const std::string &before, const std::string &value, const std::string &words)
{
    const std::string text = before + value + "\n";
    const auto issues = rules::ParseRules(text).issues;
    ASSERT_EQ(1U, issues.size()) << text << test::Text(issues);
    EXPECT_NE(std::string::npos, issues[0].what.find(words)) << text << issues[0].what;
    const size_t line = before.rfind('\n') + 1;
    EXPECT_EQ(before.size() - line + 1, issues[0].at.column) << text;
    EXPECT_EQ(static_cast<size_t>(std::count(before.begin(), before.end(), '\n')) + 1,
              issues[0].at.line)
        << text;
}

void ExpectTaken(const std::string &text)
{
    EXPECT_EQ("", IssuesOf(text)) << text;
}

TEST(RulesSections, AFileMayHaveAnyOfThemAlone)
{
    const ParsedRules none = rules::ParseRules("events: []");
    EXPECT_TRUE(none.has_events);
    EXPECT_FALSE(none.sections.sinks || none.sections.inputs || none.sections.silences ||
                 none.sections.settings);
    for (const std::string section : {"sinks: []", "inputs: []", "silences: []", "settings: {}"})
        ExpectTaken(section);
    const ParsedRules empty = rules::ParseRules("sinks: []\nsettings: {}\n");
    EXPECT_FALSE(empty.has_events);
    EXPECT_TRUE(empty.sections.sinks && empty.sections.sinks->empty());
    EXPECT_TRUE(empty.sections.settings && empty.sections.settings->empty());
}

TEST(RulesSections, OfAnotherFormAreRefused)
{
    EXPECT_EQ(
        "1:1: cannot use \"sinks\": it has no value; begin each sink with \"- name: NAME\", or "
        "write \"sinks: []\" for none\n",
        IssuesOf("sinks:"));
    EXPECT_EQ(
        "1:9: cannot use \"inputs\": it is a text; begin each input with \"- name: NAME\", or "
        "write \"inputs: []\" for none\n",
        IssuesOf("inputs: journal"));
    EXPECT_EQ(
        "1:11: cannot use \"silences\": it is a mapping (name: value); begin each silence with "
        "\"- source: PATTERN\", or write \"silences: []\" for none\n",
        IssuesOf("silences: {source: x}"));
    EXPECT_EQ(
        "1:11: cannot use \"settings\": it is a list; write each setting as \"name: value\", or "
        "\"settings: {}\" for the defaults\n",
        IssuesOf("settings: [cycle]"));
}

// ---- sinks ----

TEST(RulesSections, ASinkHasTheOptionsOfItsKind)
{
    const ParsedRules parsed =
        rules::ParseRules("sinks:\n  - name: ops\n    kind: webhook\n    url: http://h/x\n"
                          "    header.X-Team: ops\n    timeout: 5\n");
    EXPECT_EQ("", test::Text(parsed.issues));
    ASSERT_EQ(1U, parsed.sections.sinks->size());
    const auto &sink = parsed.sections.sinks->front();
    EXPECT_EQ("ops", sink.config.name);
    EXPECT_STREQ("webhook", sink.config.kind->name);
    EXPECT_EQ((std::map<std::string, std::string>{
                  {"url", "http://h/x"}, {"header.X-Team", "ops"}, {"timeout", "5"}}),
              sink.config.options);
    EXPECT_EQ((text::Position{2, 5}), sink.at);
}

TEST(RulesSections, AMistakeInASinkIsToldAtItsPlace)
{
    const std::string head = "sinks:\n  - name: ops\n";
    ExpectMistake(head + "    kind: ", "webhok",
                  "did you mean webhook? use one of console, file, journal");
    ExpectMistake(head + "    kind: ", "''", "there is none of that name");
    ExpectMistake("sinks:\n  - kind: journal\n    name: ", "a b", "use 1 to 64 letters");
    ExpectMistake("sinks:\n  - kind: journal\n    name: ", "[x]", "it is a list");
    ExpectMistake("sinks:\n  - {name: a, kind: journal}\n  - kind: journal\n    name: ", "A",
                  "it stands already in line 2");
    ExpectMistake(head + "    kind: journal\n    ", "colour: red",
                  "a sink of kind journal has none");
    ExpectMistake(head + "    kind: journal\n    level: err\n    ", "level: err",
                  "it stands twice");
    ExpectMistake("sinks:\n  - ", "name: x", "it has no \"kind:\"");
    ExpectMistake("sinks:\n  - ", "kind: journal", "it has no \"name:\"");
    ExpectMistake("sinks:\n  - ", "text", "it is a text");
}

// A value of each option of each kind that its check takes, and one that it does not; in the file, each is taken or refused as the
// command would.
TEST(RulesSections, EachOptionOfASinkIsCheckedAsTheCommandChecksIt)
{
    const std::vector<std::string> values = {
        "x",          "/tmp/x", "30",     "http://h/x", "daemon",   "err",       "json",
        "inform",     "2c",     "auto",   "none",       "30/min",   "smtp://h",  "a@b.c",
        "SHA",        "AES",    "host=a", "true",       "0",        "-1",        "999999",
        "severity>=", "?",      "ftp:",   "8000000001", "nats://h", "text/html", ""};
    size_t accepted = 0;
    size_t refused = 0;
    for (const sinks::SinkKind &kind : sinks::AllKinds()) {
        for (const sinks::SinkOption &option : kind.options) {
            std::string name = option.name;
            name += name.back() == '.' ? "1" : "";
            bool has_good = false;
            for (const std::string &value : values) {
                const std::string allowed = option.check(value);
                const std::string file =
                    "sinks:\n  - name: s\n    kind: " + std::string(kind.name) + "\n    " + name +
                    ": ";
                if (allowed.empty()) {
                    ExpectTaken(file + "\"" + value + "\"\n");
                    has_good = true;
                    ++accepted;
                } else {
                    ExpectMistake(file, "\"" + value + "\"", "use " + allowed);
                    ++refused;
                }
            }
            EXPECT_TRUE(has_good) << kind.name << " " << name;
        }
    }
    EXPECT_LT(200U, accepted);
    EXPECT_LT(200U, refused);
}

// ---- inputs ----

TEST(RulesSections, AnInputTakesListsWhereAnOptionIsRepeated)
{
    const ParsedRules parsed = rules::ParseRules(
        "inputs:\n  - name: web\n    kind: files\n    path: [/a, /b]\n    exclude: '*.gz'\n");
    EXPECT_EQ("", test::Text(parsed.issues));
    ASSERT_EQ(1U, parsed.sections.inputs->size());
    EXPECT_EQ((std::map<std::string, std::vector<std::string>>{{"path", {"/a", "/b"}},
                                                               {"exclude", {"*.gz"}}}),
              parsed.sections.inputs->front().config.options);
}

TEST(RulesSections, EachOptionOfAnInputHasAValueThatIsTakenAndOneThatIsNot)
{
    struct Row {
        std::string kind;
        std::string option;
        std::string good;
        std::string bad;
    };
    const std::vector<Row> rows = {
        {"files", "path", "/a/*.log", "a.log"},
        {"files", "exclude", "x", "\"\""},
        {"files", "format", "rfc3339", "iso"},
        {"files", "encoding", "UTF-8", "\"\""},
        {"files", "join", "indentation", "yes"},
        {"files", "begins-with", "^x", "\"\""},
        {"files", "identifier", "java", "\"\""},
        {"files", "begin", "start", "yesterday"},
        {"files", "repeats", "no", "maybe"},
        {"journal", "match", "_UID=0", "x"},
        {"journal", "priority", "err", "loud"},
        {"journal", "namespace", "n", "\"\""},
        {"journal", "directory", "/var/log/journal", "\"\""},
        {"journal", "begin", "now", "then"},
    };
    EXPECT_EQ(inputs::AllInputOptions().size(), rows.size());
    for (const Row &row : rows) {
        const std::string path =
            row.kind == "files" && row.option != "path" ? "    path: /x\n" : "";
        const std::string file = "inputs:\n  - name: i\n    kind: " + row.kind + "\n" + path +
                                 "    " + row.option + ": ";
        ExpectTaken(file + row.good + "\n");
        ExpectMistake(file, row.bad, "cannot use " + row.option);
    }
}

TEST(RulesSections, AMistakeInAnInputIsToldAtItsPlace)
{
    ExpectMistake("inputs:\n  - name: i\n    kind: ", "file", "did you mean files?");
    ExpectMistake("inputs:\n  - kind: journal\n    name: ", "\"\"", "use 1 to 64 letters");
    ExpectMistake("inputs:\n  - name: i\n    kind: journal\n    ", "path: /x",
                  "an input of the kind journal has none");
    ExpectMistake("inputs:\n  - name: i\n    kind: journal\n    priority: ", "[err]",
                  "it is a list");
    ExpectMistake("inputs:\n  - name: i\n    kind: journal\n    match: [a=b, ", "[x]]",
                  "it is a list");
    ExpectMistake("inputs:\n  - ", "{name: i, kind: files}", "it names no files");
}

// ---- silences ----

TEST(RulesSections, ASilenceHasPatternsAndTimes)
{
    const ParsedRules parsed = rules::ParseRules("silences:\n"
                                                 "  - source: BACKUP\n"
                                                 "    host: web*\n"
                                                 "    event: 1A\n"
                                                 "    labels: team=db,tier=web*\n"
                                                 "    every: sat,sun 02:00-04:00 Europe/Berlin\n"
                                                 "    from: 2026-12-24T17:00:00Z\n"
                                                 "    until: 2026-12-26T18:00:00+01:00\n"
                                                 "    summary: true\n"
                                                 "    comment: the yearly one\n"
                                                 "    author: ops\n");
    EXPECT_EQ("", test::Text(parsed.issues));
    ASSERT_EQ(1U, parsed.sections.silences->size());
    const policy::Silence &silence = parsed.sections.silences->front().silence;
    EXPECT_EQ("BACKUP", silence.source);
    EXPECT_EQ("web*", silence.host);
    EXPECT_EQ(0x1AU, silence.event_id);
    EXPECT_EQ("team=db,tier=web*", policy::LabelsText(silence.labels));
    EXPECT_EQ("sat,sun 02:00-04:00 Europe/Berlin", policy::WindowText(*silence.window));
    EXPECT_EQ(1798131600, silence.begin_s);
    EXPECT_EQ(1798304400, silence.end_s);
    EXPECT_TRUE(silence.wants_summary);
    EXPECT_EQ("the yearly one", silence.comment);
    EXPECT_EQ("ops", silence.author);
}

TEST(RulesSections, EachValueOfASilenceHasOneThatIsTakenAndOneThatIsNot)
{
    struct Row {
        std::string name;
        std::string good;
        std::string bad;
        std::string words;
    };
    const std::vector<Row> rows = {
        {"source", "DISK*", "\"\"", "use a text of 1 to 256 bytes"},
        {"host", "web?", "\"a\\x01\"", "use a text of 1 to 256 bytes"},
        {"event", "FF", "0x1", "hexadecimal"},
        {"labels", "\"team=db,tier=\"", "team", "write them as team=db,tier=web*"},
        {"every", "mon-fri", "monday", "write days and hours"},
        {"from", "2026-12-24", "yesterday", "write it as \"2026-12-24 18:00\""},
        {"until", "2026-12-24 18:00", "2h", "write it as \"2026-12-24 18:00\""},
        {"summary", "false", "1", "use true or false"},
        {"comment", "why", "[x]", "it is a list"},
        {"author", "ops", "\"a\\x01\"", "use a text of 1 to 256 bytes"},
    };
    EXPECT_EQ(rules::kSilenceKeys.size(), rows.size());
    for (const Row &row : rows) {
        const std::string every = row.name == "every" ? "" : "    every: sat\n";
        const std::string file = "silences:\n  -\n" + every + "    " + row.name + ": ";
        ExpectTaken(file + row.good + "\n");
        ExpectMistake(file, row.bad, row.words);
    }
    ExpectMistake("silences:\n  - every: ", "sat Europe/Berln", "did you mean Europe/Berlin?");
    ExpectMistake("silences:\n  - ", "source: DISK", "it has no end");
    ExpectMistake("silences:\n  - every: sat\n    ", "for: 2h", "a silence has none of that name");
    ExpectMistake("silences:\n  - ", "x", "it is a text");
}

// ---- settings ----

TEST(RulesSections, EachSettingHasAValueThatIsTakenAndOneThatIsNot)
{
    struct Row {
        std::string name;
        std::string good;
        std::string bad;
    };
    const std::vector<Row> rows = {
        {"cycle", "60", "5"},
        {"customer-file", "/var/log/app", "app"},
        {"file-monitor", "\"\"", "app"},
        {"fault-tolerant", "on", "yes"},
        {"log-charset", "ISO-8859-1", "klingon"},
        {"trace-level", "detail", "loud"},
        {"trigger-interval", "0", "-1"},
        {"spool-megabytes", "1", "0"},
        {"web", "127.0.0.1:9514", "9514"},
        {"alarm-after", "1", "0"},
        {"silent-after", "0", "x"},
        {"alert-limit", "500", "99"},
        {"alert-megabytes", "0", "-1"},
    };
    EXPECT_EQ(settings::AllSettings().size(), rows.size());
    for (const Row &row : rows) {
        const settings::Setting &setting = settings::FindSetting(row.name);
        const std::string file = "settings:\n  " + row.name + ": ";
        ExpectTaken(file + row.good + "\n");
        ExpectTaken(file + "default\n");
        ExpectMistake(file, row.bad, std::string("use ") + setting.accepted);
    }
    ExpectMistake("settings:\n  ", "cycel: 60", "did you mean cycle?");
    ExpectMistake("settings:\n  cycle: 60\n  ", "cycle: 60", "it stands already in line 2");
    ExpectMistake("settings:\n  cycle: ", "[60]", "it is a list");
}

// ---- several files ----

TEST(RulesSections, FilesThatGoTogetherAreReadAsOne)
{
    const ParsedRules parsed = rules::ParseRulesFiles({
        {"10.yaml", "events: [{source: A, id: 1, keywords: x}]\nsettings: {cycle: 60}\n"},
        {"20.yaml", "# nothing yet\n"},
        {"30.yaml", "events: [{source: A, id: 2, keywords: x}]\nsettings: {web: off}\n"},
    });
    EXPECT_EQ("", test::Text(parsed.issues));
    EXPECT_EQ(2U, parsed.rules.size());
    EXPECT_EQ(2U, parsed.sections.settings->size());
    EXPECT_EQ(2U, parsed.rules[1].at.file);
}

TEST(RulesSections, WhatStandsInTwoFilesIsToldWithBothPlaces)
{
    const std::string text = "events: [{source: A, id: 1, keywords: x}]\n"
                             "sinks: [{name: j, kind: journal}]\n"
                             "settings: {cycle: 60}\n";
    const ParsedRules parsed = rules::ParseRulesFiles({{"10.yaml", text}, {"20.yaml", text}});
    EXPECT_EQ("1:10: cannot use event \"A\" 1: it stands already in line 1 of 10.yaml; write each "
              "pair of source and ID once\n"
              "2:16: cannot use \"j\" of sinks: it stands already in line 2 of 10.yaml; write it "
              "once\n"
              "3:12: cannot use \"cycle\" of settings: it stands already in line 3 of 10.yaml; "
              "write it once\n",
              test::Text(parsed.issues));
    for (const text::Issue &issue : parsed.issues)
        EXPECT_EQ(1U, issue.at.file);
}

TEST(RulesSections, AQuoteThatIsNotClosedIsRefusedInEachOfThem)
{
    for (const std::string text :
         {"sinks:\n  - name: \"j\n    kind: journal\n",
          "inputs:\n  - name: 'j\n    kind: journal\n",
          "silences:\n  - source: \"x\n    every: sat\n", "settings:\n  cycle: \"60\n  web: off\n"})
        EXPECT_NE(std::string::npos, IssuesOf(text + "events: []\n").find("closing quote")) << text;
}

} // namespace

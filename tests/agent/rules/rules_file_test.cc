// Rules files: what they may say, and what is said about what they may not.
#include "agent/rules/rules_file.h"

#include "tests/agent/support/issues_test.h"

namespace {

using events::EventRecord;
using rules::ParsedRules;
using rules::ParseRules;
using namespace std::string_literals;

std::string IssuesOf(const std::string &file)
{
    return test::Text(ParseRules(file).issues);
}

// The events of a file that has no issue.
std::vector<EventRecord> EventsOf(const std::string &file)
{
    const ParsedRules parsed = ParseRules(file);
    EXPECT_EQ("", test::Text(parsed.issues)) << file;
    std::vector<EventRecord> events;
    for (const rules::Rule &rule : parsed.rules)
        events.push_back(rule.event);
    return events;
}

// A file with one event, whose source, ID and keyword are sound. The values stand in line 5.
std::string FileWith(const std::string &values)
{
    return "events:\n  - source: DISK\n    id: 1\n    keywords: error\n    " + values + "\n";
}

EventRecord EventWith(const std::string &values)
{
    const auto events = EventsOf(FileWith(values));
    return events.empty() ? EventRecord{} : events[0];
}

// A file whose only event has these keywords, which begin in line 4, column 15.
std::string FileWithKeywords(const std::string &keywords)
{
    return "events:\n  - source: DISK\n    id: 1\n    keywords: " + keywords + "\n";
}

std::array<std::string, 3> KeywordsOf(const std::string &keywords)
{
    const auto events = EventsOf(FileWithKeywords(keywords));
    return events.empty() ? std::array<std::string, 3>{"(no event)"} : events[0].keywords;
}

using Three = std::array<std::string, 3>;

// ---- what a file may say ----

TEST(RulesFile, AnEventHasDefaults)
{
    EXPECT_EQ((std::vector<EventRecord>{{{"DISK", 0x1A2B}, {"I/O error", "", ""}, 1, 0xFFFFFF}}),
              EventsOf("events:\n- source: DISK\n  id: 1A2B\n  keywords: [I/O error]\n"));
}

TEST(RulesFile, AnEventHasAllItsValues)
{
    EXPECT_EQ((std::vector<EventRecord>{{{"DISK", 1}, {"a", "b", "c"}, 2147483647, 0xFF00}}),
              EventsOf("version: 1\nevents:\n- source: DISK\n  id: '00000001'\n  keywords: [a, b, "
                       "c]\n  report_count: 2147483647\n  hours: 8-16\n"));
}

TEST(RulesFile, EventsKeepTheirOrder)
{
    const auto events = EventsOf("events:\n"
                                 "- {source: B, id: 2, keywords: x}\n"
                                 "- {source: A, id: 1, keywords: x}\n"
                                 "- {source: B, id: 1, keywords: x}\n");
    ASSERT_EQ(3U, events.size());
    EXPECT_EQ((events::EventKey{"B", 2}), events[0].key);
    EXPECT_EQ((events::EventKey{"A", 1}), events[1].key);
    EXPECT_EQ((events::EventKey{"B", 1}), events[2].key);
}

TEST(RulesFile, NoEventsAreWrittenAsAnEmptyList)
{
    EXPECT_TRUE(EventsOf("events: []\n").empty());
    EXPECT_TRUE(EventsOf("# nothing\nversion: 1\nevents: []").empty());
}

TEST(RulesFile, IdsAreHexadecimalHoweverTheyLook)
{
    const std::vector<std::pair<std::string, uint32_t>> ids = {
        {"10", 0x10},    {"1e2", 0x1E2},           {"'0'", 0},      {"ABCDEF01", 0xABCDEF01},
        {"00000001", 1}, {"ffffffff", 0xFFFFFFFF}, {"\"1a\"", 0x1A}};
    for (const auto &[text, id] : ids)
        EXPECT_EQ(id,
                  EventsOf("events: [{source: A, keywords: x, id: " + text + "}]").at(0).key.id);
}

TEST(RulesFile, TextsStayTexts)
{
    EXPECT_EQ((Three{"yes", "0x10", "1e3"}), KeywordsOf("[yes, 0x10, 1e3]"));
    EXPECT_EQ((Three{"null", "~", ""}), KeywordsOf("['null', \"~\", '']"));
    EXPECT_EQ((Three{"a: b", " #c", "\\d"}), KeywordsOf("['a: b', \" #c\", '\\d']"));
    EXPECT_EQ((Three{"три", "\u00E4", "\U0001F600"}),
              KeywordsOf("[три, \"\\xE4\", \"\\U0001F600\"]"));
    EXPECT_EQ((Three{"one two", "", ""}), KeywordsOf("one\n      two"));
    EXPECT_EQ((Three{"12", "", ""}), KeywordsOf("!!str 12"));
}

TEST(RulesFile, BytesThatAreNotUtf8AreWrittenInBase64)
{
    EXPECT_EQ((Three{"a\xE4", "", ""}), KeywordsOf("!!binary YeQ="));
    EXPECT_EQ((Three{"a\xE4", "b", ""}), KeywordsOf("[!!binary \"YeQ=\", b]"));
    EXPECT_EQ("4:15: cannot use the !!binary value \"Y\": it is not in base64; write base64, or a "
              "text without the tag\n",
              IssuesOf(FileWithKeywords("!!binary Y")));
}

TEST(RulesFile, AKeywordMayBeEmptyWhenAnotherOneIsNot)
{
    EXPECT_EQ((Three{"", "x", ""}), KeywordsOf("['', x]"));
    EXPECT_EQ((Three{"", "", "x"}), KeywordsOf("['', '', x]"));
}

TEST(RulesFile, HoursAreWrittenAsPeopleDo)
{
    const std::vector<std::pair<std::string, uint32_t>> hours = {{"all", 0xFFFFFF},
                                                                 {"none", 0},
                                                                 {"8-18", 0x3FF00},
                                                                 {"22-6", 0xC0003F},
                                                                 {"'8'", 0x100},
                                                                 {"8", 0x100},
                                                                 {"08-09", 0x100},
                                                                 {"8-10,12", 0x1300},
                                                                 {"8 - 10 , 12", 0x1300},
                                                                 {"[8-10, 12]", 0x1300},
                                                                 {"['8-9,9-10', 12]", 0x1300},
                                                                 {"[8, 9]", 0x300},
                                                                 {"\" 8 \"", 0x100},
                                                                 {"0-24", 0xFFFFFF}};
    for (const auto &[text, mask] : hours)
        EXPECT_EQ(mask, EventWith("hours: " + text).hours) << text;
}

TEST(RulesFile, ThePlacesOfAnEventAreKnown)
{
    const ParsedRules parsed = ParseRules("events:\n- source: A\n  id: 1\n  keywords:\n  - x\n"
                                          "  -   y\n- {source: A, id: 2, keywords: z}\n");
    ASSERT_EQ(2U, parsed.rules.size());
    EXPECT_EQ((text::Position{2, 3}), parsed.rules[0].at);
    EXPECT_EQ((text::Position{5, 5}), parsed.rules[0].keywords_at[0]);
    EXPECT_EQ((text::Position{6, 7}), parsed.rules[0].keywords_at[1]);
    EXPECT_EQ((text::Position{7, 3}), parsed.rules[1].at);
    EXPECT_EQ((text::Position{7, 32}), parsed.rules[1].keywords_at[0]);
}

TEST(RulesFile, LineEndsOfWindowsMarksAndUtf16AreTaken)
{
    const std::string file = "events:\r\n- source: A\r\n  id: 1\r\n  keywords: \"\u00E4\"\r\n";
    std::string utf16 = "\xFF\xFE";
    for (const char c : "events: [{source: A, id: 1, keywords: \xE4}]\n"s)
        utf16 += {c, '\0'};
    for (const std::string &bytes : {file, "\xEF\xBB\xBF" + file, utf16})
        EXPECT_EQ((std::vector<EventRecord>{{{"A", 1}, {"\u00E4", "", ""}, 1, 0xFFFFFF}}),
                  EventsOf(bytes));
}

TEST(RulesFile, JsonIsYamlToo)
{
    EXPECT_EQ((std::vector<EventRecord>{{{"A", 1}, {"x\"\\\u00E4", "", ""}, 2, 0xFFFFFF}}),
              EventsOf(R"({"events": [{"source": "A", "id": "1", "keywords": ["x\"\\\u00E4"],
                          "report_count": 2}]})"));
}

// ---- the file as a whole ----

constexpr char kEmptyFile[] =
    "cannot use the file: it is empty; begin with \"events:\" and list the "
    "events below it, or write \"events: []\" for none\n";

TEST(RulesFile, AnEmptyFileIsRefused)
{
    for (const char *file : {"", "\n\n", "# only this\n", "---\n", "\xEF\xBB\xBF", "~\n"})
        EXPECT_EQ("1:1: "s + kEmptyFile, IssuesOf(file)) << file;
}

TEST(RulesFile, AFileWithoutEventsIsRefused)
{
    EXPECT_EQ(
        "1:1: cannot use the file: it has no \"events:\"; begin with \"events:\" and list the "
        "events below it, or write \"events: []\" for none\n",
        IssuesOf("version: 1\n"));
    EXPECT_EQ("2:1: cannot use \"events\": it has no value; begin each event with \"- source: "
              "NAME\", or write \"events: []\" for none\n",
              IssuesOf("version: 1\nevents:\n"));
    EXPECT_EQ("1:9: cannot use \"events\": it is a text; begin each event with \"- source: NAME\", "
              "or write \"events: []\" for none\n",
              IssuesOf("events: none\n"));
    EXPECT_EQ(
        "2:3: cannot use \"events\": it is a mapping (name: value); begin each event with \"- "
        "source: NAME\", or write \"events: []\" for none\n",
        IssuesOf("events:\n  source: A\n  id: 1\n"));
}

TEST(RulesFile, AFileOfAnotherFormIsRefused)
{
    EXPECT_EQ("1:1: cannot use the file: it is a list; begin with \"events:\" and list the events "
              "below it\n",
              IssuesOf("- source: A\n"));
    EXPECT_EQ("1:1: cannot use the file: it is a text; begin with \"events:\" and list the events "
              "below it\n",
              IssuesOf("hello\n"));
}

TEST(RulesFile, AnotherVersionIsRefused)
{
    EXPECT_EQ("1:10: cannot use the version \"2\": this program does not know it; write \"version: "
              "1\", or leave it out\n",
              IssuesOf("version: 2\nevents: []\n"));
    EXPECT_EQ("1:10: cannot use the version: it is a list; write \"version: 1\", or leave it out\n",
              IssuesOf("version: [1]\nevents: []\n"));
    EXPECT_EQ("1:1: cannot use the version: it has no value; write \"version: 1\", or leave it "
              "out\n",
              IssuesOf("version:\nevents: []\n"));
}

TEST(RulesFile, AKeyThatIsNotKnownIsNamedWithTheOneThatIsNear)
{
    EXPECT_EQ("1:1: cannot use the key \"evnts\": a rules file has none of that name; did you mean "
              "events? use version, events, settings, or others of syslogmon-rules(5)\n",
              IssuesOf("evnts: []\nevents: []\n"));
    EXPECT_EQ("5:5: cannot use the key \"report-count\": an event has none of that name; did you "
              "mean report_count? use source, id, keywords, or others of "
              "syslogmon-rules(5)\n",
              IssuesOf(FileWith("report-count: 1")));
    EXPECT_EQ("5:5: cannot use the key \"<<\": an event has none of that name; use source, id, "
              "keywords, or others of syslogmon-rules(5)\n",
              IssuesOf(FileWith("<<: x")));
    EXPECT_EQ("5:5: cannot use the key \"Hours\": an event has none of that name; did you mean "
              "hours? use source, id, keywords, or others of syslogmon-rules(5)\n",
              IssuesOf(FileWith("Hours: all")));
}

TEST(RulesFile, AKeyThatStandsTwiceIsRefused)
{
    EXPECT_EQ("5:5: cannot use the key \"id\": it stands twice in one mapping; write it once\n",
              IssuesOf(FileWith("id: 2")));
    EXPECT_EQ("2:1: cannot use the key \"events\": it stands twice in one mapping; write it once\n",
              IssuesOf("events: []\nevents: []\n"));
}

// ---- YAML that is not taken ----

TEST(RulesFile, AnchorsAndAliasesAreRefused)
{
    EXPECT_EQ("4:15: cannot use an anchor (&): anchors are not taken here; write the value out; a "
              "text that begins with & needs quotes\n",
              IssuesOf(FileWithKeywords("&k error")));
    EXPECT_EQ("1:16: cannot use an anchor (&): anchors are not taken here; write the value out; a "
              "text that begins with & needs quotes\n"
              "1:47: cannot use an alias (*): anchors are not taken here; write the value out; a "
              "text that begins with * needs quotes\n",
              IssuesOf("{events: [{id: &a 1, source: A, keywords: [x, *a]}]}"));
    EXPECT_EQ("4:15: cannot use an alias (*): anchors are not taken here; write the value out; a "
              "text that begins with * needs quotes\n",
              IssuesOf(FileWithKeywords("*error")));
}

TEST(RulesFile, AnAliasBombIsNotExpanded)
{
    std::string bomb = "a0: &a0 x\n";
    for (int i = 1; i < 30; ++i) {
        const std::string last = "*a" + std::to_string(i - 1);
        bomb += "a" + std::to_string(i) + ": &a" + std::to_string(i) + " [" + last + ", " + last +
                ", " + last + "]\n";
    }
    EXPECT_LT(0U, ParseRules(bomb).issues.size());
}

TEST(RulesFile, TagsAreRefused)
{
    EXPECT_EQ("4:15: cannot use the tag \"!x\": of tags, only !!binary is taken here; leave it "
              "out; a text that begins with ! needs quotes\n",
              IssuesOf(FileWithKeywords("!x error")));
    EXPECT_EQ("4:15: cannot use the tag \"tag:yaml.org,2002:set\": of tags, only !!binary is taken "
              "here; leave it out; a text that begins with ! needs quotes\n",
              IssuesOf(FileWithKeywords("!!set [a]")));
}

TEST(RulesFile, ATabThatIndentsIsRefused)
{
    EXPECT_EQ("3:1: cannot read the line: it is indented with a tab; indent with spaces\n"
              "4:3: cannot read the line: it is indented with a tab; indent with spaces\n",
              IssuesOf("events:\n- source: A\n\tid: 1\n  \tkeywords: x\n"));
    EXPECT_EQ(
        1U, EventsOf("events:\n\t# a comment\n\t\n- {source: A,\tid: 1, keywords: x}\t\n").size());
}

TEST(RulesFile, ASecondDocumentIsRefused)
{
    EXPECT_EQ("2:1: cannot use a second document (---): a rules file is one document; put its "
              "events into the first one\n",
              IssuesOf("events: []\n---\nevents: []\n"));
    EXPECT_TRUE(EventsOf("%YAML 1.2\n---\nevents: []\n...\n").empty());
}

TEST(RulesFile, AFaultInTheYamlIsNamedWithItsPlace)
{
    const std::string next = "; look at the indentation and the brackets here and above; a text "
                             "with special characters needs quotes\n";
    EXPECT_EQ("2:1: cannot read the file from here on: it is not YAML (did not find expected "
              "node content)" +
                  next,
              IssuesOf("events: [\n"));
    EXPECT_EQ("4:21: cannot read the file from here on: it is not YAML (mapping values are not "
              "allowed in this context)" +
                  next,
              IssuesOf(FileWithKeywords("kernel: BUG: x")));
}

constexpr char kOpenQuote[] =
    "cannot read the file from here on: the closing quote of the text that "
    "begins here is missing; close the quote where the text ends\n";
constexpr char kLongQuote[] =
    "cannot use the text that begins here: its closing quote is missing in "
    "this line; close the quote where the text ends\n";

TEST(RulesFile, AQuoteThatIsNotClosedIsRefusedWhereItBegins)
{
    for (const char *keywords :
         {"\"I/O error", "'I/O error", "\"I/O error\n  - source: B", "\"a\n\nb", "\"it\\\"s", "\""})
        EXPECT_EQ(std::string("4:15: ") + kOpenQuote, IssuesOf(FileWithKeywords(keywords)))
            << keywords;
}

TEST(RulesFile, AQuoteThatIsClosedInALaterLineIsRefusedWhereItBegins)
{
    EXPECT_EQ(std::string("4:15: ") + kLongQuote, IssuesOf(FileWithKeywords("\"I/O\n  error\"")));
    EXPECT_EQ(std::string("4:15: ") + kLongQuote, IssuesOf(FileWithKeywords("'I/O\n  error'")));
    // The next quote closes it, and what stands behind that is no YAML.
    const std::string issues =
        IssuesOf(FileWithKeywords("\"I/O error\n  - source: B\n    id: 2\n    keywords: \"x\""));
    EXPECT_EQ(0U, issues.find(std::string("4:15: ") + kLongQuote)) << issues;
    EXPECT_EQ("4:15: ",
              IssuesOf(FileWithKeywords("'I/O error\n    hours: all # don't")).substr(0, 6));
}

TEST(RulesFile, PlacesAreRightBehindCharactersOfAnyLength)
{
    EXPECT_EQ("5:19: cannot use an anchor (&): anchors are not taken here; write the value out; a "
              "text that begins with & needs quotes\n",
              IssuesOf("# \u3042\U0001F600\n" + FileWithKeywords("[\u00E4, &k x]")));
}

TEST(RulesFile, ListsThatLieTooDeepAreRefused)
{
    EXPECT_NE(std::string::npos,
              IssuesOf(std::string(100000, '['))
                  .find("cannot read the file from here on: its lists and mappings lie too deep in "
                        "each other; a rules file needs four levels"));
}

TEST(RulesFile, ADocumentOfTooManyValuesIsRefused)
{
    std::string file = "events: [";
    for (int i = 0; i < 200001; ++i)
        file += "x,";
    EXPECT_EQ(
        "1:400004: cannot read the file from here on: it has more than 200000 values; is this "
        "the file that you meant?\n",
        IssuesOf(file + "]\n"));
}

// ---- events ----

TEST(RulesFile, AnEventThatIsNoMappingIsRefused)
{
    EXPECT_EQ("1:10: cannot use an event: it is a text; write source, id and keywords, each as "
              "\"name: value\"\n"
              "1:13: cannot use an event: it is a list; write source, id and keywords, each as "
              "\"name: value\"\n",
              IssuesOf("events: [a, [b]]\n"));
}

TEST(RulesFile, AnEventNeedsSourceIdAndKeywords)
{
    EXPECT_EQ("1:10: cannot use an event: it has no \"source:\"; write its source, its id and its "
              "keywords\n"
              "1:10: cannot use an event: it has no \"id:\"; write its source, its id and its "
              "keywords\n"
              "1:10: cannot use an event: it has no \"keywords:\"; write one to three texts that a "
              "line must contain, such as [\"kernel:\", \"I/O error\"]\n",
              IssuesOf("events: [{hours: all}]\n"));
}

TEST(RulesFile, AllMistakesOfAnEventAreFound)
{
    EXPECT_EQ(5U, ParseRules("events: [{source: 'a\\b', id: x, keywords: [], report_count: 0, "
                             "hours: 25}]\n")
                      .issues.size());
}

std::string SourceIssue(const std::string &source)
{
    return IssuesOf("events: [{id: 1, keywords: x, source: " + source + "}]\n");
}

TEST(RulesFile, ASourceIsANameOfTheRegistry)
{
    const std::string cause = ": it is empty, too long, or holds a backslash or a control "
                              "character; choose a name of 1 to 255 bytes without them\n";
    EXPECT_EQ("1:39: cannot use the source name \"\"" + cause, SourceIssue("''"));
    EXPECT_EQ("1:39: cannot use the source name \"a\\b\"" + cause, SourceIssue("'a\\b'"));
    EXPECT_EQ("1:39: cannot use the source name \"a\nb\"" + cause, SourceIssue("\"a\\nb\""));
    EXPECT_EQ("1:39: cannot use the source name \"" + std::string(60, 'x') + "\"" + cause,
              SourceIssue(std::string(256, 'x')));
    EXPECT_EQ("", SourceIssue(std::string(255, 'x')));
    EXPECT_EQ("1:39: cannot use the source of an event: it is a list; write the name of the "
              "source, in quotes\n",
              SourceIssue("[a]"));
    EXPECT_EQ("1:31: cannot use the source of an event: it has no value; write the name of the "
              "source, in quotes\n",
              SourceIssue("~"));
}

TEST(RulesFile, AnIdIsOneToEightHexadecimalDigits)
{
    for (const char *id : {"''", "0x1", "123456789", "G", "-1", "1.0", "'1 '"}) {
        const std::string issue = IssuesOf("events: [{source: A, keywords: x, id: "s + id + "}]\n");
        EXPECT_EQ(0U, issue.find("1:39: cannot use the event ID \"")) << issue;
        EXPECT_NE(std::string::npos,
                  issue.find("\": it is not one to eight hexadecimal digits; write it without a "
                             "prefix, such as 1A2B\n"));
    }
    EXPECT_EQ("1:39: cannot use the ID of an event: it is a list; write one to eight hexadecimal "
              "digits\n",
              IssuesOf("events: [{source: A, keywords: x, id: [1]}]\n"));
}

TEST(RulesFile, APairOfSourceAndIdStandsOnce)
{
    EXPECT_EQ(
        "3:3: cannot use event \"a\" 1: it stands already in line 2; write each pair of "
        "source and ID once\n",
        IssuesOf("events:\n- {source: A, id: 1, keywords: x}\n- {source: a, id: 01, keywords: "
                 "y}\n"));
}

TEST(RulesFile, ASourceIsWrittenTheSameWayEverywhere)
{
    EXPECT_EQ("3:3: cannot use the source \"a\": line 2 writes it \"A\", and the registry does not "
              "tell small letters from capitals; write it the same way everywhere\n",
              IssuesOf("events:\n- {source: A, id: 1, keywords: x}\n- {source: a, id: 2, keywords: "
                       "y}\n"));
    // Only of ASCII letters.
    EXPECT_EQ("",
              IssuesOf("events:\n- {source: \u00C4, id: 1, keywords: x}\n- {source: \u00E4, id: "
                       "1, keywords: y}\n"));
}

TEST(RulesFile, KeywordsAreOneToThree)
{
    const std::string next = "; write one to three texts that a line must contain, such as "
                             "[\"kernel:\", \"I/O error\"]\n";
    EXPECT_EQ("4:25: cannot use the keywords of an event: there are 5 of them; give at most "
              "three\n",
              IssuesOf(FileWithKeywords("[a, b, c, d, e]")));
    EXPECT_EQ("4:15: cannot use the keywords of an event: there are none" + next,
              IssuesOf(FileWithKeywords("[]")));
    EXPECT_EQ("4:15: cannot use the keywords of an event: they are all empty" + next,
              IssuesOf(FileWithKeywords("['', '']")));
    EXPECT_EQ("4:15: cannot use the keywords of an event: they are all empty" + next,
              IssuesOf(FileWithKeywords("''")));
    EXPECT_EQ("4:5: cannot use the keywords of an event: it has no value" + next,
              IssuesOf(FileWithKeywords("")));
    EXPECT_EQ("4:15: cannot use the keywords of an event: it is a mapping (name: value)" + next,
              IssuesOf(FileWithKeywords("{a: b}")));
}

TEST(RulesFile, AKeywordIsAText)
{
    const std::string next = "; write a text; one with \": \" or \" #\" in it needs quotes\n";
    EXPECT_EQ("5:9: cannot use a keyword: it is a mapping (name: value)" + next,
              IssuesOf(FileWithKeywords("\n      - kernel: BUG")));
    EXPECT_EQ("4:16: cannot use a keyword: it is a list" + next,
              IssuesOf(FileWithKeywords("[[a]]")));
    EXPECT_EQ("4:16: cannot use a keyword: it has no value" + next,
              IssuesOf(FileWithKeywords("[~, a]")));
}

TEST(RulesFile, AKeywordHasAtMost256Bytes)
{
    EXPECT_EQ(256U, KeywordsOf(std::string(256, 'x'))[0].size());
    EXPECT_EQ("4:18: cannot use a keyword of event DISK 1: it has 257 bytes; a keyword has at most "
              "256 bytes\n",
              IssuesOf(FileWithKeywords("[a,"s + std::string(257, 'x') + "]")));
    std::string umlauts;
    for (int i = 0; i < 129; ++i)
        umlauts += "\u00E4";
    EXPECT_EQ("4:15: cannot use a keyword of event DISK 1: it has 258 bytes; a keyword has at most "
              "256 bytes\n",
              IssuesOf(FileWithKeywords(umlauts)));
}

TEST(RulesFile, AKeywordHoldsNoControlCharacters)
{
    const std::string issue = "cannot use a keyword of event DISK 1: it holds a control character, "
                              "which no log line does; write the text that the line shows\n";
    EXPECT_EQ("4:15: " + issue, IssuesOf(FileWithKeywords("\"a\\nb\"")));
    EXPECT_EQ("4:15: " + issue, IssuesOf(FileWithKeywords("\"\\0\"")));
    EXPECT_EQ("4:15: " + issue, IssuesOf(FileWithKeywords("|\n      a line")));
    EXPECT_EQ((Three{"a\tb", "", ""}), KeywordsOf("\"a\\tb\""));
}

TEST(RulesFile, AReportCountIsAPositiveNumber)
{
    for (const char *count :
         {"0", "-1", "2147483648", "1.0", "1e3", "0x1", "'1 '", "''", "+1", "x"}) {
        const std::string issue = IssuesOf(FileWith("report_count: "s + count));
        EXPECT_EQ(0U, issue.find("5:19: cannot use the report count \"")) << issue;
        EXPECT_NE(std::string::npos,
                  issue.find("\": it is not a whole number in that range; use a number from 1 to "
                             "2147483647, or leave it out for 1\n"));
    }
    EXPECT_EQ("5:5: cannot use the report count of an event: it has no value; use a number from 1 "
              "to 2147483647, or leave it out for 1\n",
              IssuesOf(FileWith("report_count:")));
}

TEST(RulesFile, HoursOfAnotherFormAreRefused)
{
    for (const char *hours :
         {"24", "8-25", "''", "8-", "'8,'", "1 2", "8:00", "All", "[all, 8]", "[]", "-8"}) {
        const std::string issue = IssuesOf(FileWith("hours: "s + hours));
        EXPECT_EQ(0U, issue.find("5:12: cannot use the hours \"")) << issue;
        EXPECT_NE(std::string::npos, issue.find("\": they are not of a form that is known; write "
                                                "all, none, or hours and spans from 0 to 24, such "
                                                "as 8-18 or 22-6,12\n"));
    }
    const std::string next = "; write all, none, or hours and spans from 0 to 24, such as 8-18 or "
                             "[22-6, 12]\n";
    EXPECT_EQ("5:12: cannot use the hours of an event: it is a mapping (name: value)" + next,
              IssuesOf(FileWith("hours: {from: 8}")));
    EXPECT_EQ("5:13: cannot use the hours of an event: it is a list" + next,
              IssuesOf(FileWith("hours: [[8]]")));
}

TEST(RulesFile, MessagesAreShortAndHarmless)
{
    const std::string issue = IssuesOf(FileWith("\"\\e[2J" + std::string(100, 'x') + "\": 1"));
    EXPECT_EQ(std::string::npos, issue.find('\x1B'));
    EXPECT_GT(200U, issue.size());
}

// ---- writing ----

TEST(FormatRules, WritesEveryValue)
{
    EXPECT_EQ(
        "# yaml-language-server: $schema=/schema\n"
        "# The events that are registered. Change them here and hand the file back:\n"
        "#     syslogmon apply FILE --dry-run     shows what would change\n"
        "#     syslogmon apply FILE               changes it\n"
        "# Left out: X 1: why\n"
        "version: 1\n"
        "events:\n"
        "  - source: \"DISK\"\n"
        "    id: \"1A2B\"\n"
        "    keywords: [\"a \\\"b\\\" \\\\c\", \"\", \"\\x09\\x7F\\u2028\\x80 \u00E4\"]\n"
        "    report_count: 3\n"
        "    hours: 22-6\n"
        "  - source: !!binary \"/w==\"\n"
        "    id: \"0\"\n"
        "    keywords: [\"\", !!binary \"YeQ=\"]\n"
        "    report_count: 1\n"
        "    hours: all\n",
        rules::FormatRules(
            {{{"DISK", 0x1A2B}, {"a \"b\" \\c", "", "\t\x7F\u2028\u0080 \u00E4"}, 3, 0xC0003F},
             {{"\xFF", 0}, {"", "a\xE4", ""}, 1, 0xFFFFFF}},
            {"/schema", {"X 1: why"}}));
}

TEST(FormatRules, NoEventsAreAnEmptyList)
{
    EXPECT_TRUE(EventsOf(rules::FormatRules({}, {})).empty());
}

TEST(FormatRules, WhatIsLeftOutStaysInOneCommentLine)
{
    const std::string file = rules::FormatRules({}, {"", {"a\nevents: [x]\n\u2028\xFF"}});
    EXPECT_NE(std::string::npos, file.find("# Left out: a?events: [x]???\n"));
    EXPECT_TRUE(EventsOf(file).empty());
}

} // namespace

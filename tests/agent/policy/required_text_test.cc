// The text that an expression needs: what the monitor's table searches for must be in each line that the
// expression matches.
#include <re2/re2.h>

#include "agent/events/events.h"
#include "agent/events/required_text.h"
#include "tests/agent/support/host_test.h"
#include "tests/agent/support/random_test.h"

namespace {

using events::RequiredText;

TEST(RequiredText, IsTheLongestRunOfWhatMustBeThere)
{
    EXPECT_EQ("Failed password for ", RequiredText(R"(Failed password for (\S+) from)", false));
    EXPECT_EQ("I/O error, dev s", RequiredText(R"(^.*I/O error, dev sd?[a-z])", false));
    EXPECT_EQ("a.b[1]", RequiredText(R"(a\.b\[1\])", false));
    EXPECT_EQ("", RequiredText("(invalid|bad)x*", false));
    EXPECT_EQ("needed", RequiredText("(maybe longer)?needed(not at all)*(or this){0,3}", false));
    EXPECT_EQ("twice", RequiredText("(twice){2}", false));
    EXPECT_EQ("ab", RequiredText("ab+c", false));
    EXPECT_EQ(" port ", RequiredText(R"((?P<user>\w+) port (?:\d+))", false));
    EXPECT_EQ("{x", RequiredText("\\{x", false));
}

TEST(RequiredText, LettersAreOfNoUseWhenCaseIsIgnored)
{
    EXPECT_EQ(": [12] ", RequiredText(R"(error: \[12\] dev)", true));
    EXPECT_EQ("", RequiredText("error", true));
}

TEST(RequiredText, GivesUpWhereAnotherPartCouldMeanAnything)
{
    for (const char *expression : {"(?i)error", "a|b", R"(\x41bcd)", R"(\Qa*b\E)", R"(\pLabc)",
                                   "(?i:error)x|y", R"(\101abc)"})
        EXPECT_EQ("", RequiredText(expression, false)) << expression;
}

TEST(RequiredText, IsAtMostAKeyword)
{
    EXPECT_EQ(std::string(256, 'x'), RequiredText(std::string(300, 'x'), false));
}

// ---- beside RE2 itself ----

// An expression of every kind of piece, mostly one that RE2 takes.
std::string RandomExpression(test::RandomData &random, int depth)
{
    static const std::vector<std::string> pieces = {
        "a",      "b", "A",   "1",        "-",     " ",           ".",    "\\.",
        "^",      "$", "\\d", "\\w",      "\\b",   "[ab]",        "[^a]", "[]a]",
        "[a\\]]", "{", "}",   "\\-",      "\\A",   "[[:alpha:]]", "ab",   "a1",
        "k",      "K", "s",   "\xC3\xA4", "\\x61", "\\Qa\\E",     "(?i)", "[a-b1]",
        "\\[",    "]", "\\s", "b{",       "{1}",   "a{,2}",       "\\\\", "\\z"};
    static const std::vector<std::string> quantifiers = {
        "*", "+", "?", "{2}", "{0}", "{0,2}", "*?", "+?", "{1,2}", "{1,}", "??"};
    std::string text;
    for (size_t i = 1 + random.Below(4); i > 0; --i) {
        if (depth > 0 && random.OneIn(4)) {
            static const std::vector<std::string> opens = {"(", "(?:", "(?P<n>", "(?i:"};
            text += opens[random.Below(opens.size())] + RandomExpression(random, depth - 1) + ")";
        } else {
            text += pieces[random.Below(pieces.size())];
        }
        if (random.OneIn(4))
            text += quantifiers[random.Below(quantifiers.size())];
        if (random.OneIn(12))
            text += "|";
    }
    return text;
}

std::string RandomLine(test::RandomData &random)
{
    static const std::vector<std::string> pieces = {"a",
                                                    "b",
                                                    "A",
                                                    "B",
                                                    "1",
                                                    "-",
                                                    " ",
                                                    ".",
                                                    "k",
                                                    "K",
                                                    "s",
                                                    "S",
                                                    "[",
                                                    "]",
                                                    "{",
                                                    "}",
                                                    "\\",
                                                    "\xC3\xA4",
                                                    "\xE2\x84\xAA",
                                                    "\xFF"};
    std::string line;
    for (size_t i = random.Below(9); i > 0; --i)
        line += pieces[random.Below(pieces.size())];
    return line;
}

// A line that the expression matches and the keyword search misses would never be reported.
TEST(RequiredText, IsInEachLineThatTheExpressionMatches)
{
    test::RandomData random;
    int64_t searches = 0;
    int64_t matches = 0;
    for (int i = 0; i < 30000; ++i) {
        const std::string expression = RandomExpression(random, 3);
        const bool ignore_case = random.OneIn(3);
        re2::RE2::Options options;
        options.set_log_errors(false);
        options.set_case_sensitive(!ignore_case);
        const re2::RE2 compiled(expression, options);
        const std::string text = compiled.ok() ? RequiredText(expression, ignore_case) : "";
        if (text.empty())
            continue;
        for (int k = 0; k < 60; ++k) {
            const std::string line = RandomLine(random);
            ++searches;
            if (!re2::RE2::PartialMatch(line, compiled))
                continue;
            ++matches;
            ASSERT_NE(std::string::npos, line.find(text))
                << "expression " << expression << ", line " << line << ", text " << text
                << ", SYSLOGMON_TEST_SEED=" << random.seed();
        }
    }
    // It was not for want of cases.
    EXPECT_LT(100000, searches);
    EXPECT_LT(2000, matches);
}

// ---- as the keyword of an event ----

TEST(RequiredText, BecomesTheKeywordOfTheTable)
{
    events::EventRecord event;
    event.key = {"A", 1};
    event.policy.regex = R"(an error \d+ on dev)";
    EXPECT_EQ((std::array<std::string, 3>{"an error ", "", ""}), events::TableKeywords(event));
    event.keywords[1] = "mine";
    EXPECT_EQ(event.keywords, events::TableKeywords(event));
}

TEST(RequiredText, WithoutAUsefulOneTheEventNeedsKeywords)
{
    events::EventRecord event;
    event.key = {"A", 1};
    event.policy.regex = "error|fault";
    EXPECT_EQ("cannot search for the expression \"error|fault\": there is no text that each of its "
              "matches is seen to hold; add keywords that are in each of its lines",
              test::ErrorOf([&] { events::CheckEvent(event); }));
    event.policy.regex = "[a-z]+ {1}[0-9]";
    EXPECT_EQ(
        "cannot search for the expression \"[a-z]+ {1}[0-9]\": all that each of its matches is "
        "seen to hold is \" \", which is in too many lines; add keywords that are in each of "
        "its lines",
        test::ErrorOf([&] { events::CheckEvent(event); }));
    event.keywords[0] = "kernel";
    EXPECT_EQ("no error", test::ErrorOf([&] { events::CheckEvent(event); }));
}

} // namespace

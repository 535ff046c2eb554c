// Keywords that are expressions.
#include <climits>
#include <string>

#include "match/expression.h"
#include "match/match.h"
#include "match/report.h"
#include "tests/support/module_test.h"
#include "tests/unit/match/match_fixture.h"
#include "tests/unit/vkevmon/pass_fixture.h"

namespace {

using test::Host;
using test::Match;
using test::Strings;
using test::Sys;
using test::TraceRecord;

class MatchExpression : public Match {
  protected:
    MatchExpression() { IsFTServer = 1; }

    static std::string Pattern(const std::string &keyword)
    {
        return "([[:space:]]*)" + keyword + "([[:space:]]*)";
    }

    static Strings TracedPatterns()
    {
        const std::string prefix = "Regular Expression is:";
        Strings patterns;
        for (const TraceRecord &record : Host().trace) {
            if (!record.text.starts_with(prefix))
                continue;
            EXPECT_EQ(0, record.level);
            EXPECT_EQ("CheckLine", record.function);
            EXPECT_EQ("vkevmon", record.unit);
            patterns.push_back(record.text.substr(prefix.size()));
        }
        return patterns;
    }

    // Does one keyword, alone in the table, hit a line with this text?
    static bool Hits(const std::string &keyword, const std::string &text)
    {
        EmptyTable();
        Watch(keyword);
        return Reports(text);
    }
};

TEST_F(MatchExpression, IsTriedWhenThePlainTextIsNotThere)
{
    Watch("err.r");
    EXPECT_TRUE(Reports("error"));
    EXPECT_EQ(Strings{Pattern("err.r")}, TracedPatterns());
    EXPECT_TRUE(Reports("err.r"));
    EXPECT_EQ(Strings{}, TracedPatterns());
    EXPECT_FALSE(Reports("eror"));
    EXPECT_EQ(Strings{Pattern("err.r")}, TracedPatterns());
}

TEST_F(MatchExpression, IsTriedForEveryValueThatMeansAFaultTolerantServer)
{
    for (const int value : {1, 2, INT_MAX}) {
        IsFTServer = value;
        EXPECT_TRUE(Hits("err.r", "error"));
    }
}

TEST_F(MatchExpression, IsTracedAlsoForAKeywordWithoutOperators)
{
    Watch("plain");
    EXPECT_FALSE(Reports("something else"));
    EXPECT_EQ(Strings{Pattern("plain")}, TracedPatterns());
}

TEST_F(MatchExpression, KnowsTheExtendedOperators)
{
    EXPECT_TRUE(Hits("ab+c", "xabbbcx"));
    EXPECT_FALSE(Hits("ab+c", "xacx"));
    EXPECT_TRUE(Hits("ab?c", "xacx"));
    EXPECT_TRUE(Hits("ab*c", "xacx"));
    EXPECT_TRUE(Hits("ab{3}c", "xabbbcx"));
    EXPECT_FALSE(Hits("ab{3}c", "xabbcx"));
    EXPECT_TRUE(Hits("ab{2,}c", "xabbbcx"));
    EXPECT_TRUE(Hits("(ab|cd)e", "cde"));
    EXPECT_TRUE(Hits("foo|bar", "a bar"));
    EXPECT_TRUE(Hits("disk [0-9]+ failed", "disk 12 failed"));
    EXPECT_FALSE(Hits("disk [^0-9]+ failed", "disk 12 failed"));
    EXPECT_TRUE(Hits("[[:digit:]]{4}", "no 1234"));
    EXPECT_TRUE(Hits("a\\.b", "a.b"));
    EXPECT_FALSE(Hits("a\\.b", "axb"));
    EXPECT_TRUE(Hits("[.]end", "the.end"));
}

TEST_F(MatchExpression, AnchorsAtTheEndsOfTheWholeLine)
{
    EXPECT_TRUE(Hits("^Mar", "x"));
    EXPECT_FALSE(Hits("^host", "x"));
    EXPECT_TRUE(Hits("x$", "the last x"));
    EXPECT_FALSE(Hits("x$", "x is not last"));
}

TEST_F(MatchExpression, MindsTheCase)
{
    EXPECT_FALSE(Hits("err.r", "ERROR"));
    EXPECT_FALSE(Hits("err.r", "Error"));
}

TEST_F(MatchExpression, TakesALineEndInsideTheLineForAnOrdinaryCharacter)
{
    EXPECT_TRUE(Hits("a.b", "a\nb"));
    EXPECT_TRUE(Hits("a[^x]b", "a\nb"));
    EXPECT_FALSE(Hits("a$", "a\nb"));
}

TEST_F(MatchExpression, MayBeLedByAnOperatorThatThenBelongsToTheWhiteSpace)
{
    EXPECT_TRUE(Hits("*", "anything"));
    EXPECT_TRUE(Hits("+", "anything"));
    EXPECT_TRUE(Hits("?x", "x"));
    EXPECT_FALSE(Hits("?xyz", "abc"));
    EXPECT_TRUE(Hits("{2}", "anything"));
    EXPECT_TRUE(Hits("|xyz", "anything"));
}

TEST_F(MatchExpression, CountsTheWhiteSpaceAsItsFirstGroup)
{
    EXPECT_TRUE(Hits("(ab)\\2", "xababx"));
    EXPECT_FALSE(Hits("(ab)\\2", "xabx"));
    EXPECT_TRUE(Hits("(ab)\\1", "xabx")); // the first group can be empty
}

TEST_F(MatchExpression, ThatDoesNotCompileIsAKeywordThatIsNotFound)
{
    for (const char *keyword :
         {"err(", "err)", "err[", "[z-a]x", "a{2,1}b", "a{1", "err\\", "[[:nothing:]]", "\\9x"}) {
        EXPECT_FALSE(Hits(keyword, "error aab")) << keyword;
        EXPECT_EQ(Strings{Pattern(keyword)}, TracedPatterns());
        for (const int level : {1, 2, 3})
            EXPECT_TRUE(Host().Texts(level).empty()) << keyword;
    }
}

TEST_F(MatchExpression, ThatDoesNotCompileStillMatchesAsPlainText)
{
    EXPECT_TRUE(Hits("err(", "an err("));
    EXPECT_TRUE(TracedPatterns().empty());
}

TEST_F(MatchExpression, ForWhichThereIsNoMemoryIsAKeywordThatIsNotFound)
{
    Watch("err.r");
    Sys().FailCall("regcomp", 1);
    EXPECT_FALSE(Reports("error"));
    EXPECT_EQ((Strings{"0 line \"" + Line("error") + "\" is checked, it happend 1 times\n",
                       "0 Regular Expression is:" + Pattern("err.r"), "0 <return 0."}),
              OwnRecords());
    EXPECT_TRUE(Reports("error"));
}

// Without them a match is found in a fraction of the time. What is not asked for is not written.
TEST_F(MatchExpression, IsSearchedWithSubMatchesOnlyWhereTheyMatter)
{
    const auto writes_sub_matches = [](const std::string &keyword) {
        ::Pattern pattern;
        CompiledPattern compiled;
        MakePattern(keyword.c_str(), &pattern);
        EXPECT_TRUE(Compile(pattern, &compiled)) << keyword;
        regmatch_t sub_match{-7, -7};
        EXPECT_EQ(0, regexec(&compiled.expression, "aa.b", 1, &sub_match, 0)) << keyword;
        Free(&compiled);
        return sub_match.rm_so != -7;
    };
    EXPECT_FALSE(writes_sub_matches("a.b"));
    EXPECT_FALSE(writes_sub_matches("a\\.b"));
    EXPECT_TRUE(writes_sub_matches("(a)\\2")); // the first one is the blanks in front
}

TEST_F(MatchExpression, OfEachKeywordIsTriedUntilOneIsMissing)
{
    Watch({"al.ha", "b.ta", "g.mma"});
    EXPECT_TRUE(Reports("gamma beta alpha"));
    EXPECT_EQ((Strings{Pattern("al.ha"), Pattern("b.ta"), Pattern("g.mma")}), TracedPatterns());
    EXPECT_FALSE(Reports("alpha gamma"));
    EXPECT_EQ((Strings{Pattern("al.ha"), Pattern("b.ta")}), TracedPatterns());
    EXPECT_FALSE(Reports("beta gamma"));
    EXPECT_EQ((Strings{Pattern("al.ha")}), TracedPatterns());
}

TEST_F(MatchExpression, StandsBesidePlainKeywords)
{
    Watch({"plain", "", "e.pression"});
    EXPECT_TRUE(Reports("an expression, and plain text"));
    EXPECT_EQ(Strings{Pattern("e.pression")}, TracedPatterns());
    EXPECT_FALSE(Reports("an expression"));
    EXPECT_EQ(Strings{Pattern("plain")}, TracedPatterns());
}

TEST_F(MatchExpression, OfFullLengthIsWhole)
{
    const std::string keyword = "x" + std::string(251, '.') + "[yz]"; // 256 bytes
    ASSERT_EQ(256U, keyword.size());
    EXPECT_TRUE(Hits(keyword, "x" + std::string(251, '-') + "z"));
    EXPECT_EQ(Strings{Pattern(keyword)}, TracedPatterns());
    EXPECT_FALSE(Hits(keyword, "x" + std::string(250, '-') + "z"));
}

TEST_F(MatchExpression, IsTriedForEveryEntryInTableOrder)
{
    Watch("on.");
    Watch("two");
    Watch("thre.");
    Check(Line("one two three"));
    EXPECT_EQ(3U, Host().reports.size());
    EXPECT_EQ((Strings{Pattern("on."), Pattern("thre.")}), TracedPatterns());
}

// A shorter one would do, and cost: it is looked for in each line in place of the expression.
TEST(RequiredTextOf, AnExpressionIsTheLongestThatEveryMatchMustHold)
{
    const struct {
        const char *keyword;
        const char *required;
    } cases[] = {
        {"disk [0-9]+ failed", " failed"},
        {"^abc$", "abc"},
        {"ab.cde", "cde"},
        {"abc.de", "abc"},
        {"ab.cd", "ab"}, // the first of two
        {"abc+d", "abc"},
        {"abc*d", "ab"},
        {"abc?d", "ab"},
        {"abc{2}d", "ab"},
        {"ab{2,3}cde", "cde"},
        {"ab+*cd", "cd"}, // the second one makes it optional
        {"a*", ""},
        {"a+", "a"},
        {"*abc", "abc"}, // belongs to what is put before the keyword
        {"abc|d", ""},
        {"(a|b)cd", "cd"},
        {"(abcd)efg", "efg"},
        {"(a(b)cdef)gh", "gh"},
        {"(a[)]bcd)ef", "ef"},
        {"(a\\)bcd)ef", "ef"},
        {"(abc)*de", "de"},
        {"ab(cdef", "ab"}, // is not closed
        {"abc)de", "abc"},
        {"[abc]de", "de"},
        {"[]abcd]ef", "ef"},
        {"[^]abcd]ef", "ef"},
        {"[[:digit:]abc]de", "de"},
        {"[[.].]bcd]ef", "ef"},
        {"[[=]=]bcd]ef", "ef"},
        {"[[:digit:ab", ""},
        {"[a[b]cd", "cd"},
        {"[ab]+cd", "cd"},
        {"ab[cde", "ab"},
        {"ab\\.cde", "cde"},
        {"abc\\.de", "abc"},
        {"\\wabc", "abc"},
        {"\\a*bc", "bc"},
        {"ab\\", "ab"},
        {"ab{2", "a"},
        {"\xC3\xA4\xC3\xA4*b", "b"},
    };
    for (const auto &one : cases) {
        const RequiredText found = FindRequiredText(one.keyword);
        EXPECT_EQ(one.required, std::string(one.keyword).substr(found.begin, found.length))
            << one.keyword;
    }
}

} // namespace

// What is said about an expression without compiling it, beside the C library's compiler: every line that
// matches has to hold the text that is said to be required.
#include "match/expression.h"

#include <clocale>
#include <string>

#include "tests/support/campaign.h"
#include "tests/support/random_log.h"
#include "tests/support/twin/matcher.h"

namespace test {
namespace {

void ExpectRequiredTextIn(const std::string &keyword, const std::string &line)
{
    const RequiredText required = FindRequiredText(keyword.c_str());
    ASSERT_LE(required.begin + required.length, keyword.size()) << keyword;
    const bool is_in =
        line.find(keyword.substr(required.begin, required.length)) != std::string::npos;
    const bool is_plain = line.find(keyword) != std::string::npos;
    if (is_in && (HasOperator(keyword.c_str()) || is_plain))
        return; // nothing is claimed about this line
    ASSERT_FALSE(twin::ExpressionMatches(line, keyword) && !is_plain)
        << '"' << keyword << "\" matches \"" << line << "\" without \""
        << keyword.substr(required.begin, required.length) << '"';
}

// A line with most of what the expression was made to match.
std::string RandomSubject(Random &random, const RandomKeyword &keyword)
{
    std::string line = random.Chance(50) ? random.Text(random.Below(4), "ab x\xC3") : "";
    line += keyword.sample;
    for (size_t edits = random.Below(4); edits > 0; --edits)
        line = Edited(random, line);
    if (random.Chance(50))
        line += random.Text(random.Below(4), "ab \xA9");
    return line;
}

void RunRound(Random &random)
{
    const RandomKeyword keyword =
        random.Chance(95) ? RandomExpression(random) : RandomPlainKeyword(random);
    if (keyword.text.empty())
        return;
    for (int lines = 0; lines < 6; ++lines)
        ExpectRequiredTextIn(keyword.text, RandomSubject(random, keyword));
}

// The C library's answers with and without sub-matches differ for these.
TEST(ExpressionTwin, AnswersABackReferenceToARepeatedGroupAsWithSubMatches)
{
    const struct {
        const char *keyword;
        const char *line;
    } cases[] = {{"(a*){2}\\2b", "abcd"},
                 {"(a|b*){2}\\2c", "ac"},
                 {"{2}\\1", "any line"},
                 {"(){2}\\2", "x"}};
    for (const auto &example : cases) {
        Pattern pattern{};
        MakePattern(example.keyword, &pattern);
        EXPECT_EQ(twin::ExpressionMatches(example.line, example.keyword),
                  MatchesPattern(example.line, pattern))
            << example.keyword;
    }
}

TEST(ExpressionTwin, RequiresOnlyWhatEveryMatchHolds)
{
    Campaign("expressions", 20000).Run(RunRound);
}

TEST(ExpressionTwin, RequiresOnlyWhatEveryMatchHoldsInAUtf8Locale)
{
    ASSERT_NE(nullptr, setlocale(LC_ALL, "C.UTF-8"))
        << "the C library's own UTF-8 locale is missing";
    Campaign("expressions in UTF-8", 10000).Run(RunRound);
    setlocale(LC_ALL, "C");
}

// All short keywords over the characters that matter, with all short lines: nothing is left to chance.
TEST(ExpressionTwin, RequiresOnlyWhatEveryMatchHoldsForAllShortKeywords)
{
    const std::string letters = "ab*?{}1,()[]|\\+";
    const std::string lines[] = {"",  "a",  "b",  "aa",  "ab", "ba", "bb", "aab", "a1", "1",
                                 ",", "a*", "a(", "(",   ")",  "[",  "]",  "|",   "\\", "{",
                                 "}", "+",  "?",  "ab1", "*",  "a)", "a]", "b}",  "a,"};
    std::string keyword;
    for (size_t number = 0; number < 15 * 15 * 15 * 15; ++number) {
        keyword.clear();
        for (size_t rest = number; rest > 0; rest /= 15)
            keyword += letters[rest % 15];
        const RequiredText required = FindRequiredText(keyword.c_str());
        if (keyword.empty() || required.length == 0)
            continue;
        const std::string text = keyword.substr(required.begin, required.length);
        for (const std::string &line : lines) {
            if (line.find(text) != std::string::npos)
                continue;
            ASSERT_FALSE(twin::ExpressionMatches(line, keyword))
                << '"' << keyword << "\" matches \"" << line << "\" without \"" << text << '"';
        }
    }
}

bool IsMatch(const std::string &line, const std::string &keyword)
{
    Pattern pattern;
    MakePattern(keyword.c_str(), &pattern);
    return MatchesPattern(line.c_str(), pattern);
}

TEST(ExpressionTwin, MatchesAsWithSubMatchesWhereAGroupHoldsAnAnchor)
{
    for (const char *keyword :
         {"(^a){2}", "(a$){2}", "((^b{0,2})+)+", "(^[^a]?){1,3}", "(\\>ab){0,2}", "a(\\`^b){0,2}",
          "(a|(^a){1,3}ba*)", "x)|(^a){2}", "\\((^a){2}|(^a){2}", "[(](^a){2}|(^a){2}"}) {
        for (const char *line : {"", "a", "aa", "ab", "baa", "abab", "aaba", "(aa"})
            EXPECT_EQ(twin::ExpressionMatches(line, keyword), IsMatch(line, keyword))
                << keyword << " on " << line;
    }
}

TEST(ExpressionTwin, MatchesAsWithSubMatches)
{
    Campaign("matches", 20000).Run([](Random &random) {
        const RandomKeyword keyword = RandomExpression(random);
        const std::string line = RandomSubject(random, keyword);
        EXPECT_EQ(twin::ExpressionMatches(line, keyword.text), IsMatch(line, keyword.text))
            << keyword.text << " on " << line;
    });
}

} // namespace
} // namespace test

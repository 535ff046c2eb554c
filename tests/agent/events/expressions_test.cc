// What an expression costs before it is compiled.
#include "agent/events/expressions.h"

#include <gtest/gtest.h>

namespace {

using events::WrittenOut;

TEST(WrittenOut, IsTheNumberOfCharactersClassesAndGroups)
{
    EXPECT_EQ(0U, WrittenOut(""));
    EXPECT_EQ(9U, WrittenOut("I/O error"));
    EXPECT_EQ(4U, WrittenOut("a[bc]]x")) << "the second ] stands for itself";
    EXPECT_EQ(2U, WrittenOut("[]x]\\*"));
    EXPECT_EQ(4U, WrittenOut("(ab|cd)"));
}

TEST(WrittenOut, CountsWhatARepeatRepeatsAsOftenAsItMay)
{
    EXPECT_EQ(5U, WrittenOut("a{5}"));
    EXPECT_EQ(9U, WrittenOut("a{5,9}"));
    EXPECT_EQ(6U, WrittenOut("a{5,}"));
    EXPECT_EQ(6U, WrittenOut("x(ab?){2}y"));
    EXPECT_EQ(31U, WrittenOut("x[0-9]{30}"));
    EXPECT_EQ(2U, WrittenOut("\\({2}"));
    // An endless one is a loop, and takes no room; of one that must be there, the first is apart from the loop.
    EXPECT_EQ(2U, WrittenOut("(a*b)*"));
    EXPECT_EQ(2U, WrittenOut("a+"));
}

TEST(WrittenOut, MultipliesRepeatsInRepeats)
{
    EXPECT_EQ(27000U, WrittenOut("((a{1,30}){1,30}){1,30}"));
    EXPECT_EQ(900U, WrittenOut("a{30}{30}"));
    EXPECT_EQ(2700U, WrittenOut("((a|b|c){30}){30}"));
    // The library takes 186 MB and 1.5 s for 18 of them, and twice as much for one more.
    EXPECT_EQ(size_t{1} << 18U, WrittenOut("a" + std::string(18, '+')));
    EXPECT_EQ(8U, WrittenOut("(((a)+)+)+"));
    EXPECT_EQ(8U, WrittenOut("a{1,}{1,}{1,}"));
    std::string deep = "a";
    for (int i = 0; i < 30; ++i)
        deep = "(" + deep + "){32767}";
    EXPECT_GE(WrittenOut(deep), size_t{1} << 30U);
}

TEST(WrittenOut, OfWhatIsNoExpressionIsSomeNumber)
{
    for (const char *odd : {"(", ")", "((", "a)", "[", "[^", "\\", "{", "a{", "a{1", "a{}", "a{,",
                            "*", "{3}", "a{x}"})
        EXPECT_LE(WrittenOut(odd), 4U) << odd;
    EXPECT_EQ(4U, WrittenOut("a{x}"));
}

} // namespace

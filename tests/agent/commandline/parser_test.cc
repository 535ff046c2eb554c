// The words of a command line, without a process.
#include "agent/commandline/parser.h"

#include <gtest/gtest.h>

namespace {

using commandline::CommandLine;
using commandline::Parser;
using commandline::UsageError;

struct Words {
    std::optional<std::string> hours;
    std::vector<std::string> keywords;
    std::optional<int64_t> lines;
    std::string type = "sz";
    std::string file;
};

// A program of one command that takes one option of each shape.
class CommandLineTest : public testing::Test {
  protected:
    CommandLineTest() : line_("program", "What it does.", "1.2.3")
    {
        line_.Group("thing", "Things");
        Parser parser = line_.Command("thing add", "Add a thing");
        parser.Add("--hours", words_.hours, "Hours").MayLackItsValue();
        parser.Add("-k,--keyword", words_.keywords, "Text").OneWordEach();
        parser.Add("-n,--lines", words_.lines, "Lines").NotNegative();
        parser.Add("--type", words_.type, "Type").OneOf({"sz", "dword"});
        parser.Add("file", words_.file, "File").Required();
        parser.Runs([this] { return ++runs_; },
                    [this] { return words_.file == "bad" ? "the file is bad" : ""; });
    }

    bool Parse(std::vector<const char *> words)
    {
        words.insert(words.begin(), "program");
        return line_.Parse(static_cast<int>(words.size()), words.data());
    }

    std::string Refusal(const std::vector<const char *> &words)
    {
        try {
            Parse(words);
        } catch (const UsageError &error) {
            return error.what();
        }
        return "it was taken";
    }

    CommandLine line_;
    Words words_;
    int runs_ = 0;
};

TEST_F(CommandLineTest, WhatACommandDoesIsRunByTheCallerAndNotByTheParser)
{
    ASSERT_TRUE(Parse({"thing", "add", "log"}));
    EXPECT_EQ(runs_, 0);
    EXPECT_EQ(line_.Chosen()(), 1);
    EXPECT_EQ(words_.file, "log");
}

TEST_F(CommandLineTest, WhatIsNotGivenKeepsItsValue)
{
    ASSERT_TRUE(Parse({"thing", "add", "log"}));
    EXPECT_FALSE(words_.hours);
    EXPECT_FALSE(words_.lines);
    EXPECT_TRUE(words_.keywords.empty());
    EXPECT_EQ(words_.type, "sz");
}

TEST_F(CommandLineTest, AnEmptyWordIsGivenAndSoIsAnOptionWithoutItsValue)
{
    ASSERT_TRUE(Parse({"thing", "add", "log", "--hours", ""}));
    EXPECT_EQ(words_.hours, "");
    words_.hours.reset();
    ASSERT_TRUE(Parse({"thing", "add", "log", "--hours"}));
    EXPECT_EQ(words_.hours, "");
}

TEST_F(CommandLineTest, AListWithOneWordEachLeavesTheWordBehindItAlone)
{
    ASSERT_TRUE(Parse({"thing", "add", "-k", "one", "-k", "two", "log"}));
    EXPECT_EQ(words_.keywords, (std::vector<std::string>{"one", "two"}));
    EXPECT_EQ(words_.file, "log");
}

TEST_F(CommandLineTest, HelpAndVersionLeaveNothingToDo)
{
    testing::internal::CaptureStdout();
    EXPECT_FALSE(Parse({"--version"}));
    EXPECT_FALSE(Parse({"thing", "add", "--help"}));
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_NE(printed.find(" 1.2.3\n"), std::string::npos);
    EXPECT_NE(printed.find("Add a thing"), std::string::npos);
}

TEST_F(CommandLineTest, EachMistakeIsNamedWithTheHelpToLookInto)
{
    EXPECT_EQ(Refusal({"thing", "add"}),
              "cannot run thing add: file is required; see program thing add --help");
    EXPECT_EQ(Refusal({"thing", "add", "log", "more"}),
              "cannot use the word \"more\": thing add takes no further word; "
              "see program thing add --help");
    EXPECT_EQ(Refusal({"thing", "add", "log", "--hour"}),
              "cannot use the option --hour: thing add has none of that name; "
              "did you mean --hours? see program thing add --help");
    EXPECT_EQ(Refusal({"thing"}),
              "cannot run thing: it needs a command behind it; see program thing --help");
    EXPECT_EQ(Refusal({"thin"}), "cannot find the command \"thin\": there is none of that name; "
                                 "did you mean thing? see program --help");
    EXPECT_EQ(Refusal({"thing", "add", "log", "-n", "-1"}),
              "cannot run thing add: --lines: \"-1\" is no number from 0 on; "
              "see program thing add --help");
    EXPECT_EQ(Refusal({"thing", "add", "bad"}),
              "cannot run thing add: the file is bad; see program thing add --help");
    EXPECT_NE(Refusal({"thing", "add", "log", "--type", "q"}).find("q not in {sz,dword}"),
              std::string::npos);
    EXPECT_EQ(runs_, 0);
}

TEST(CommandLine, AProgramWithoutCommandsNeedsNoWordAndNamesItselfInItsMistakes)
{
    CommandLine line("daemon", "Runs.", "1");
    std::string root;
    line.Program().Add("--root", root, "Root");
    const char *none[] = {"daemon"};
    EXPECT_TRUE(line.Parse(1, none));
    const char *wrong[] = {"daemon", "--rot"};
    try {
        line.Parse(2, wrong);
        FAIL() << "it was taken";
    } catch (const UsageError &error) {
        EXPECT_STREQ(error.what(), "cannot use the option --rot: daemon has none of that name; "
                                   "did you mean --root? see daemon --help");
    }
}

} // namespace

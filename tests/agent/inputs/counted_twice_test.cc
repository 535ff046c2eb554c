// Inputs, and what the monitor reads by itself, that have the same entries.
#include "agent/inputs/counted_twice.h"

#include <filesystem>
#include <gtest/gtest.h>

#include "tests/agent/inputs/log_world.h"

namespace {

using inputs::InputConfig;
using inputs::WhatIsRead;
using test::LogLine;

class CountedTwiceTest : public testing::Test, protected test::LogWorld {
  protected:
    [[nodiscard]] InputConfig Files(const std::string &name,
                                    const std::vector<std::string> &patterns) const
    {
        InputConfig input{1, name, inputs::kFilesKind, {}};
        for (const std::string &pattern : patterns)
            input.options["path"].push_back(Path(pattern));
        return input;
    }
    static InputConfig Journal(const std::string &name, const std::vector<std::string> &matches,
                               const std::string &directory = "/nowhere/journal")
    {
        InputConfig input{1, name, inputs::kJournalKind, {{"directory", {directory}}}};
        if (!matches.empty())
            input.options["match"] = matches;
        return input;
    }
    // All that is found, a line each.
    static std::string Found(const InputConfig &input, const WhatIsRead &read)
    {
        std::string found;
        for (const inputs::CountedTwice &twice : FindCountedTwice(input, read))
            found += twice.found + "; " + twice.advice + "\n";
        return found;
    }
};

TEST_F(CountedTwiceTest, AnInputByItselfReadsWhatNobodyElseReads)
{
    Write("a.log", LogLine("1"));
    const InputConfig input = Files("app", {"*.log"});
    EXPECT_EQ("", Found(input, {{input}, "", ""}));
}

TEST_F(CountedTwiceTest, AFileOfTwoInputsIsNamedWithHowToLeaveItOut)
{
    Write("a.log", LogLine("1"));
    Write("b.log", LogLine("1"));
    Write("c.log", LogLine("1"));
    InputConfig input = Files("app", {"*.log"});
    input.options["exclude"] = {"c.log"};
    EXPECT_EQ(Path("a.log") +
                  " is read by the input other too, so its lines count twice; leave it out of one "
                  "of them: syslogmon input set app exclude=c.log exclude=" +
                  Path("a.log") + "\n",
              Found(input, {{input, Files("other", {"a.log", "c.log"})}, "", ""}));
}

TEST_F(CountedTwiceTest, AFileIsTheSameUnderAnotherName)
{
    Write("a.log", LogLine("1"));
    std::filesystem::create_symlink(Path("a.log"), Path("link"));
    EXPECT_NE("", Found(Files("app", {"*.log"}), {{Files("other", {"link"})}, "", ""}));
    EXPECT_NE("", Found(Files("app", {"link"}), {{}, Path("a.log"), ""}));
}

TEST_F(CountedTwiceTest, OfManySharedFilesTheirNumberIsSaid)
{
    for (const char *name : {"a.log", "b.log", "c.log"})
        Write(name, LogLine("1"));
    const std::string found =
        Found(Files("app", {"*.log"}), {{Files("other", {"[ab].log"})}, "", ""});
    EXPECT_EQ(0U, found.find("2 files, as ")) << found;
    EXPECT_NE(std::string::npos, found.find("or remove one: syslogmon input remove app")) << found;
}

TEST_F(CountedTwiceTest, WhatTheMonitorReadsByItselfIsNamedThoughItIsNotThereYet)
{
    EXPECT_EQ(Path("a.log") +
                  " is read without an input as the customer file, so its lines count twice; leave "
                  "it out: syslogmon input set app exclude=" +
                  Path("a.log") + "\n" + Path("b.log") +
                  " is read without an input as the file monitor's target, so its lines count "
                  "twice; leave it out: syslogmon input set app exclude=" +
                  Path("b.log") + "\n",
              Found(Files("app", {"*.log"}), {{}, Path("a.log"), Path("b.log")}));
    EXPECT_EQ("", Found(Files("app", {"c.log"}), {{}, Path("a.log"), Path("b.log")}));
}

TEST_F(CountedTwiceTest, TwoInputsOfOneJournalAreNamedWhenBothCanWantAnEntry)
{
    const InputConfig ssh = Journal("ssh", {"_SYSTEMD_UNIT=ssh.service", "_UID=0"});
    EXPECT_NE("", Found(ssh, {{Journal("all", {})}, "", ""}));
    EXPECT_NE("", Found(ssh, {{Journal("root", {"_UID=0"})}, "", ""}));
    EXPECT_NE("", Found(ssh, {{Journal("two", {"_UID=1", "_UID=0"})}, "", ""}));
    EXPECT_EQ("",
              Found(ssh, {{Journal("cron", {"_SYSTEMD_UNIT=cron.service", "_UID=0"})}, "", ""}));
    EXPECT_EQ("", Found(ssh, {{Journal("else", {}, "/nowhere/else")}, "", ""}));
}

} // namespace

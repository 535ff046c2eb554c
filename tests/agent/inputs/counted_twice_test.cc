// Inputs, and what the monitor reads by itself, that have the same entries.
#include "agent/inputs/counted_twice.h"

#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <utility>

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
    // The words of a command as a shell takes them.
    static std::vector<std::string> WordsOf(const std::string &command)
    {
        const std::string print = "printf '%s\\n' " + command;
        FILE *shell = popen(print.c_str(), "r");
        std::vector<std::string> words;
        std::string word;
        for (int c = fgetc(shell); c != EOF; c = fgetc(shell)) {
            if (c != '\n')
                word += static_cast<char>(c);
            else
                words.push_back(std::exchange(word, ""));
        }
        EXPECT_EQ(0, pclose(shell));
        return words;
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

TEST_F(CountedTwiceTest, ARotatedFileThatAnotherInputHasForALogIsToldOfFromBothSides)
{
    Write("a.log", LogLine("1"));
    Write("a.log.3", LogLine("0"));
    const InputConfig logs = Files("logs", {"a.log"});
    const InputConfig rotated = Files("rotated", {"a.log.*"});
    const std::string told = Path("a.log.3") + " has what the input logs has read of " +
                             Path("a.log") +
                             " before it was rotated, so its lines count twice; leave it out: "
                             "syslogmon input set rotated exclude=" +
                             Path("a.log") + "\n";
    EXPECT_EQ(told, Found(rotated, {{logs, rotated}, "", ""}));
    EXPECT_EQ(told, Found(logs, {{logs, rotated}, "", ""}));
}

TEST_F(CountedTwiceTest, ARotatedFileIsToldOfBeforeTheFirstRotation)
{
    Write("a.log", LogLine("1"));
    const InputConfig logs = Files("logs", {"a.log"});
    EXPECT_EQ(0U, Found(Files("rotated", {"a.log.*"}), {{logs}, "", ""}).find(Path("a.log.1")));
}

TEST_F(CountedTwiceTest, WhatIsAdvisedOfARotatedFileEndsTheCountingTwice)
{
    Write("a.log", LogLine("1"));
    Write("a.log.1", LogLine("0"));
    InputConfig rotated = Files("rotated", {"a.log.*"});
    rotated.options["exclude"] = {Path("a.log")};
    EXPECT_EQ("", Found(rotated, {{Files("logs", {"a.log"})}, "", ""}));
}

// app.1.log may be a log beside app.log.
TEST_F(CountedTwiceTest, ANameThatMayBeThatOfAnotherLogIsNotTakenForARotatedFile)
{
    Write("a.log", LogLine("1"));
    Write("a.1.log", LogLine("0"));
    EXPECT_EQ("", Found(Files("one", {"a.1.log"}), {{Files("logs", {"a.log"})}, "", ""}));
}

TEST_F(CountedTwiceTest, ABackupOfTheSystemLogIsToldOfThoughItIsNotThereYet)
{
    for (const char *pattern : {"/var/log/messages.*", "/var/log/messages-*"}) {
        InputConfig input{1, "old", inputs::kFilesKind, {{"path", {pattern}}}};
        EXPECT_NE(std::string::npos, Found(input, {{}, "", ""})
                                         .find("has what the monitor has read of "
                                               "/var/log/messages before it was rotated"))
            << pattern;
        input.options["exclude"] = {"/var/log/messages"};
        EXPECT_EQ("", Found(input, {{}, "", ""})) << pattern;
    }
}

// Whoever may make files in the folder of a log chooses words of a command that an administrator is to type.
TEST_F(CountedTwiceTest, ANameOfAStrangerIsOneWordOfTheAdviceAndMatchesNothingElse)
{
    for (const std::string name :
         {"a b.log", "a$(touch made).log", "a;touch made;.log", "it's`touch made`.log", "a*.log",
          "[ab]?.log", "a\\b.log", "~.log", "\"a\".log", "a&b|c>made.log"}) {
        Write(name, LogLine("1"));
        InputConfig input = Files("app", {"*.log"});
        input.options["exclude"] = {"*.gz", "c.log"};
        const auto found = FindCountedTwice(input, {{}, Path(name), ""});
        ASSERT_EQ(1U, found.size()) << name;
        const std::string begin = "leave it out: ";
        ASSERT_TRUE(found[0].advice.starts_with(begin)) << name;
        const auto words = WordsOf(found[0].advice.substr(begin.size()));
        ASSERT_EQ(7U, words.size()) << found[0].advice;
        EXPECT_EQ("exclude=*.gz", words[4]);
        const std::string option = "exclude=";
        ASSERT_TRUE(words[6].starts_with(option)) << words[6];
        const inputs::PathRules rules{{}, {words[6].substr(option.size())}};
        EXPECT_TRUE(rules.Exclude(Path(name))) << words[6];
        EXPECT_FALSE(rules.Exclude(Path("ab.log"))) << words[6];
        Remove(name);
    }
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

TEST_F(CountedTwiceTest, AJournalIsTheSameHoweverItsFolderIsWritten)
{
    std::filesystem::create_directories(Path("journal/machine"));
    std::filesystem::create_directory_symlink(Path("journal"), Path("link"));
    const InputConfig input = Journal("one", {}, Path("journal"));
    for (const std::string same : {"journal/", "link", "link/", "./journal", "journal/machine"})
        EXPECT_NE("", Found(input, {{Journal("other", {}, Path(same))}, "", ""})) << same;
    for (const std::string other : {"journals", "journal/machine/deeper"})
        EXPECT_EQ("", Found(input, {{Journal("other", {}, Path(other))}, "", ""})) << other;
}

TEST_F(CountedTwiceTest, TheHostsOwnJournalIsTheSameByTheFolderOfAllJournals)
{
    const InputConfig own{1, "own", inputs::kJournalKind, {}};
    const InputConfig space{1, "space", inputs::kJournalKind, {{"namespace", {"web"}}}};
    const InputConfig all = Journal("all", {}, "/var/log/journal/");
    EXPECT_NE("", Found(all, {{own}, "", ""}));
    EXPECT_NE("", Found(own, {{all}, "", ""}));
    EXPECT_NE("", Found(space, {{all}, "", ""}));
    EXPECT_NE("", Found(own, {{Journal("volatile", {}, "/run/log/journal")}, "", ""}));
    EXPECT_EQ("", Found(space, {{own}, "", ""}));
    EXPECT_EQ("", Found(own, {{Journal("log", {}, "/var/log")}, "", ""}));
    InputConfig folder = Journal("folder", {}, "/nowhere/journal");
    folder.options["namespace"] = {"web"}; // of which the folder takes the place
    EXPECT_NE("", Found(folder, {{Journal("other", {})}, "", ""}));
}

} // namespace

// Tables: aligned on a terminal, as wide as it is at most, one line per row in a pipe.
#include "agent/cli/table.h"

#include <gtest/gtest.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "tests/agent/support/standard_output.h"

namespace {

using cli::BrokenInLines;
using cli::FittedWidths;
using Strings = std::vector<std::string>;
using Widths = std::vector<size_t>;

TEST(FittedWidths, StayAsTheyAreWhenThereIsRoom)
{
    EXPECT_EQ(Widths({4, 10}), FittedWidths({4, 10}, {4, 4}, 16));
    EXPECT_EQ(Widths({4, 10}), FittedWidths({4, 10}, {4, 4}, SIZE_MAX));
}

TEST(FittedWidths, TheWidestGiveWay)
{
    EXPECT_EQ(Widths({4, 9}), FittedWidths({4, 10}, {4, 4}, 15));
    EXPECT_EQ(Widths({6, 3, 5}), FittedWidths({20, 3, 10}, {6, 3, 4}, 18));
}

TEST(FittedWidths, StayAsTheyAreWhenNothingHelps)
{
    EXPECT_EQ(Widths({20, 30}), FittedWidths({20, 30}, {8, 8}, 17));
    EXPECT_EQ(Widths({8, 8}), FittedWidths({20, 30}, {8, 8}, 18));
}

TEST(BrokenInLines, BreaksAtBlanks)
{
    EXPECT_EQ(Strings({""}), BrokenInLines("", 5));
    EXPECT_EQ(Strings({"disk"}), BrokenInLines("disk", 4));
    EXPECT_EQ(Strings({"disk", "full"}), BrokenInLines("disk full", 5));
    EXPECT_EQ(Strings({"disk", "full"}), BrokenInLines("disk full", 4));
    EXPECT_EQ(Strings({"a disk", "is full"}), BrokenInLines("a disk is full", 7));
}

TEST(BrokenInLines, BreaksAWordThatIsTooLong)
{
    EXPECT_EQ(Strings({"/var/", "log/m", "essag", "es"}), BrokenInLines("/var/log/messages", 5));
    EXPECT_EQ(Strings({"at", "/var/", "log"}), BrokenInLines("at /var/log", 5));
    EXPECT_EQ(Strings({"  abc", "d"}), BrokenInLines("  abcd", 5))
        << "not in front of the first word";
}

TEST(BrokenInLines, BreaksBetweenCharactersNotWithinThem)
{
    EXPECT_EQ(Strings({"磁", "盤"}), BrokenInLines("磁盤", 3));
    EXPECT_EQ(Strings({"磁", "盤"}), BrokenInLines("磁盤", 1)) << "one at least";
    EXPECT_EQ(Strings({"é\xcc\x81", "é"}), BrokenInLines("é\xcc\x81é", 1));
}

// What a table becomes on a terminal of so many columns; 0: the terminal does not tell.
Strings OnTerminal(const cli::Table &table, unsigned short columns)
{
    int ours = -1;
    int terminal = -1;
    const winsize size{24, columns, 0, 0};
    EXPECT_EQ(0, openpty(&ours, &terminal, nullptr, nullptr, &size));
    {
        const test::StandardOutput to(terminal);
        table.Print();
        puts("end");
    }
    std::string text;
    while (text.find("end") == std::string::npos) {
        char part[4096];
        const ssize_t count = read(ours, part, sizeof part);
        if (count <= 0)
            break;
        text.append(part, static_cast<size_t>(count));
    }
    close(ours);
    close(terminal);
    Strings lines;
    for (size_t at = 0, end = 0; (end = text.find("\r\n", at)) != std::string::npos; at = end + 2)
        lines.push_back(text.substr(at, end - at));
    lines.pop_back();
    return lines;
}

cli::Table Files()
{
    cli::Table table({"FILE", "BEHIND", "PROBLEM"});
    table.Add({"/var/log/messages", "0 B", ""});
    table.Add({"/var/log/app/server.log", "17 B", "it cannot be read by this user"});
    return table;
}

TEST(Table, IsAlignedOnATerminal)
{
    const Strings expected = {"FILE                     BEHIND  PROBLEM",
                              "/var/log/messages        0 B",
                              "/var/log/app/server.log  17 B    it cannot be read by this user"};
    EXPECT_EQ(expected, OnTerminal(Files(), 80));
    EXPECT_EQ(expected, OnTerminal(Files(), 0));
    EXPECT_EQ(expected, OnTerminal(Files(), 20)) << "narrower than can be helped";
}

TEST(Table, BreaksItsWidestCellsOnANarrowTerminal)
{
    const Strings expected = {"FILE                BEHIND  PROBLEM", "/var/log/messages   0 B",
                              "/var/log/app/serve  17 B    it cannot be read",
                              "r.log                       by this user"};
    EXPECT_EQ(expected, OnTerminal(Files(), 46));
}

TEST(Table, ShowsControlCharactersAsQuestionMarks)
{
    cli::Table table({"TEXT"});
    table.Add({"a\x1b[2Jb"});
    EXPECT_EQ(Strings({"TEXT", "a?[2Jb"}), OnTerminal(table, 80));
}

TEST(Table, HasOneLineForARowInAPipe)
{
    int pipes[2];
    ASSERT_EQ(0, pipe(pipes));
    {
        const test::StandardOutput to(pipes[1]);
        cli::Table table = Files();
        table.Add({"a\tb", "", "x"});
        table.Print();
    }
    char text[4096];
    const ssize_t count = read(pipes[0], text, sizeof text);
    ASSERT_LT(0, count);
    EXPECT_EQ("/var/log/messages\t0 B\t\n/var/log/app/server.log\t17 B\tit cannot be read by this "
              "user\na b\t\tx\n",
              std::string(text, static_cast<size_t>(count)));
    close(pipes[0]);
    close(pipes[1]);
}

} // namespace

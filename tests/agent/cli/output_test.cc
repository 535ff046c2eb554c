// What is printed: widths and colours.
#include "agent/cli/output.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include "tests/agent/support/standard_output.h"

namespace {

using cli::DisplayWidth;
using cli::Paint;
using cli::Painted;
using test::StandardOutput;

TEST(Output, WideCharactersTakeTwoColumnsAndJoinedOnesNone)
{
    EXPECT_EQ(0U, DisplayWidth(""));
    EXPECT_EQ(4U, DisplayWidth("disk"));
    EXPECT_EQ(6U, DisplayWidth("Stör-é"));
    EXPECT_EQ(4U, DisplayWidth("磁盤"));
    EXPECT_EQ(1U, DisplayWidth("e\xcc\x81")); // e and an accent that joins it
    EXPECT_EQ(3U, DisplayWidth("a\xff"
                               "b")); // a byte that is no character is shown as a question mark
}

class Colours : public testing::Test {
  protected:
    Colours()
    {
        EXPECT_EQ(0, openpty(&ours_, &terminal_, nullptr, nullptr, nullptr));
        setenv("TERM", "xterm", 1);
        unsetenv("NO_COLOR");
    }
    ~Colours() override
    {
        close(ours_);
        close(terminal_);
        unsetenv("NO_COLOR");
    }
    Colours(const Colours &) = delete;
    Colours &operator=(const Colours &) = delete;
    [[nodiscard]] std::string OnTerminal() const
    {
        const StandardOutput terminal(terminal_);
        return Painted("bad", Paint::kBad);
    }

    int ours_ = -1;
    int terminal_ = -1;
};

TEST_F(Colours, AreForTerminalsThatKnowThemAndForUsersWhoWantThem)
{
    EXPECT_EQ("\x1b[1;31mbad\x1b[0m", OnTerminal());
    setenv("NO_COLOR", "1", 1);
    EXPECT_EQ("bad", OnTerminal());
    setenv("NO_COLOR", "", 1); // as good as none
    EXPECT_NE("bad", OnTerminal());
    setenv("TERM", "dumb", 1);
    EXPECT_EQ("bad", OnTerminal());
}

TEST_F(Colours, AreNotWrittenIntoAPipe)
{
    int pipes[2];
    ASSERT_EQ(0, pipe(pipes));
    {
        const StandardOutput into_pipe(pipes[1]);
        EXPECT_EQ("bad", Painted("bad", Paint::kBad));
    }
    close(pipes[0]);
    close(pipes[1]);
}

} // namespace

// What a member of groups says when it cannot look for its rules.
#include "agent/fleet/member.h"

#include <poll.h>
#include <unistd.h>

#include "agent/fleet/setup.h"
#include "tests/agent/support/host_test.h"

namespace {

// Standard error, as somebody reads it while it is written.
class StandardError {
  public:
    StandardError() : before_(dup(STDERR_FILENO))
    {
        EXPECT_EQ(0, pipe(pipe_));
        dup2(pipe_[1], STDERR_FILENO);
    }
    ~StandardError()
    {
        dup2(before_, STDERR_FILENO);
        for (const int fd : {before_, pipe_[0], pipe_[1]})
            close(fd);
    }
    StandardError(const StandardError &) = delete;
    StandardError &operator=(const StandardError &) = delete;

    // Empty: a minute has passed.
    [[nodiscard]] std::string ReadLine() const
    {
        std::string line;
        pollfd waiting{pipe_[0], POLLIN, 0};
        while (!line.ends_with('\n') && poll(&waiting, 1, 60000) == 1) {
            char c = 0;
            EXPECT_EQ(1, read(pipe_[0], &c, 1));
            line += c;
        }
        return line;
    }

  private:
    int before_;
    int pipe_[2] = {-1, -1};
};

class MemberTest : public test::HostTest {
  protected:
    // The first line that it says.
    static std::string Said(const host::Layout &layout)
    {
        sinks::SinkConfig config = fleet::NewSetup(fleet::SetupPart::kMember, test::Store());
        config.options = {{"groups", "web"},
                          {"servers", "nats://127.0.0.1:1"},
                          {"every", "60"},
                          {"timeout", "1"}};
        const StandardError error;
        const fleet::Member member(fleet::MemberOptions{layout, config});
        return error.ReadLine();
    }
};

TEST_F(MemberTest, TellsThatTheServersAreNotReached)
{
    const std::string said = Said(Layout());
    EXPECT_TRUE(said.starts_with(
        "syslogmond: the servers of the fleet are not reached, the rules of before stay: cannot "))
        << said;
}

TEST_F(MemberTest, TellsOfAStoreThatFailsWithoutAWordOfTheServers)
{
    const test::TempFolder other;
    const host::Layout layout = host::Layout::Below(other.path());
    std::filesystem::create_directories(layout.Store()); // where a file should be
    const std::string said = Said(layout);
    EXPECT_TRUE(
        said.starts_with("syslogmond: the store of this host fails, the rules of before stay: "))
        << said;
}

} // namespace

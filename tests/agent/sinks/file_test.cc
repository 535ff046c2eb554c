// Kind "file" and kind "console".
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/agent/sinks/sink_test.h"
#include "tests/agent/support/process.h"
#include "tests/support/json_text.h"

namespace {

using sinks::Message;
using sinks::Outcome;
using test::JsonAt;
using test::MessageOf;

class FileSinkTest : public test::SinkTest {
  protected:
    void Open(const std::string &path)
    {
        sink_ = sinks::FindKind("file").open(Config("file", {{"path", path}}), "", secrets_);
    }
    Outcome Send(const std::vector<Message> &messages) { return sink_->Send(messages, {}); }

    sinks::Secrets secrets_;
    std::unique_ptr<sinks::Sink> sink_;
};

TEST_F(FileSinkTest, WritesOneObjectALine)
{
    Open(File("alerts"));
    EXPECT_EQ(Outcome::Result::kTaken,
              Send({MessageOf("one", 7), MessageOf("two\n\xFF", 8)}).result);
    const auto lines = test::ReadLines(File("alerts"));
    ASSERT_EQ(2U, lines.size());
    EXPECT_EQ(
        "{\"key\":\"uuid/7\",\"id\":7,\"time\":\"2026-11-21T01:00:01.000Z\",\"host\":\"host\","
        "\"log\":\"Application\",\"source\":\"DISK\",\"event_id\":\"1A2B\",\"count\":3,"
        "\"message\":\"one\"}",
        lines[0]);
    EXPECT_EQ("two\n\uFFFD", JsonAt(lines[1], "/message"));
}

TEST_F(FileSinkTest, ATestSaysThatItIsOne)
{
    Open(File("alerts"));
    Message message = MessageOf("one");
    message.is_test = true;
    Send({message});
    EXPECT_EQ("true", JsonAt(test::ReadLines(File("alerts"))[0], "/test"));
}

TEST_F(FileSinkTest, AfterARotationANewFileIsBegun)
{
    Open(File("alerts"));
    Send({MessageOf("one")});
    std::filesystem::rename(File("alerts"), File("alerts.1"));
    Send({MessageOf("two")});
    EXPECT_EQ("one", JsonAt(test::ReadFile(File("alerts.1")), "/message"));
    EXPECT_EQ("two", JsonAt(test::ReadFile(File("alerts")), "/message"));
    std::filesystem::remove(File("alerts"));
    Send({MessageOf("three")});
    EXPECT_EQ("three", JsonAt(test::ReadFile(File("alerts")), "/message"));
}

TEST_F(FileSinkTest, OnAFullDiskNoPartOfALineStays)
{
    Open(File("alerts"));
    Send({MessageOf("one")});
    const std::string before = test::ReadFile(File("alerts"));
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    const rlimit small = {before.size() + 20, old.rlim_max};
    signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    const Outcome outcome = Send({MessageOf("two")});
    setrlimit(RLIMIT_FSIZE, &old);
    signal(SIGXFSZ, SIG_DFL);
    EXPECT_EQ(Outcome::Result::kFailed, outcome.result);
    EXPECT_NE(std::string::npos, outcome.answer.find("File too large")) << outcome.answer;
    EXPECT_EQ(before, test::ReadFile(File("alerts")));
    EXPECT_EQ(Outcome::Result::kTaken, Send({MessageOf("two")}).result);
    EXPECT_EQ(2U, test::ReadLines(File("alerts")).size());
}

TEST_F(FileSinkTest, AFolderOrAFifoInItsPlaceIsAFailure)
{
    std::filesystem::create_directory(File("folder"));
    Open(File("folder"));
    EXPECT_EQ("cannot write to " + File("folder").string() + ": Is a directory",
              Send({MessageOf("one")}).answer);
    mkfifo(File("fifo").c_str(), 0600);
    Open(File("fifo"));
    EXPECT_EQ(Outcome::Result::kFailed, Send({MessageOf("one")}).result);
    const host::Fd reader(open(File("fifo").c_str(), O_RDONLY | O_NONBLOCK));
    EXPECT_EQ("cannot write to " + File("fifo").string() + ": it is not a regular file",
              Send({MessageOf("one")}).answer);
}

TEST_F(FileSinkTest, AFileThatOthersCanChangeIsNotWrittenTo)
{
    const auto refusal = [&](const std::string &path) {
        return test::ErrorOf([&] { sinks::CheckSink(Config("file", {{"path", path}})); });
    };
    const std::string advice =
        "; name the file itself, and take the right to write to it from others: chmod go-w";
    Open(File("alerts"));
    test::WriteFile(File("alerts"), "");
    chmod(File("alerts").c_str(), 0660);
    const std::string text =
        "cannot write to " + File("alerts").string() + ": others than its owner may write to it";
    EXPECT_EQ(text, Send({MessageOf("one")}).answer);
    EXPECT_EQ("", test::ReadFile(File("alerts")));
    EXPECT_EQ("cannot write alerts to " + File("alerts").string() +
                  ": others than its owner may write to it" + advice,
              refusal(File("alerts")));
    chmod(File("alerts").c_str(), 0640);
    EXPECT_EQ(Outcome::Result::kTaken, Send({MessageOf("one")}).result);
}

TEST_F(FileSinkTest, ALinkIsNotFollowed)
{
    Open(File("alerts"));
    Send({MessageOf("one")});
    const std::string before = test::ReadFile(File("alerts"));
    // Somebody puts a link in the place of the log while it is open.
    std::filesystem::rename(File("alerts"), File("other"));
    std::filesystem::create_symlink(File("other"), File("alerts"));
    EXPECT_EQ("cannot write to " + File("alerts").string() +
                  ": it is a symbolic link, and those are not followed",
              Send({MessageOf("two")}).answer);
    EXPECT_EQ(before, test::ReadFile(File("other")));
}

TEST_F(FileSinkTest, AFolderThatIsMissingIsAFailureUntilItIsThere)
{
    Open(File("new/alerts"));
    EXPECT_EQ(Outcome::Result::kFailed, Send({MessageOf("one")}).result);
    std::filesystem::create_directory(File("new"));
    EXPECT_EQ(Outcome::Result::kTaken, Send({MessageOf("one")}).result);
}

// ---- console ----

TEST_F(FileSinkTest, TheConsoleIsStandardOutput)
{
    sink_ = sinks::FindKind("console").open(Config("console", {}), "", secrets_);
    testing::internal::CaptureStdout();
    const Outcome outcome = Send({MessageOf("one", 1), MessageOf("two", 2)});
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(Outcome::Result::kTaken, outcome.result);
    EXPECT_EQ(2, std::count(out.begin(), out.end(), '\n'));
    EXPECT_EQ("one", JsonAt(out.substr(0, out.find('\n')), "/message"));
}

TEST_F(FileSinkTest, AConsoleThatNobodyReadsDoesNotHoldUpTheStop)
{
    AddSink("console", "out", {});
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC | O_NONBLOCK));
    const int old = dup(STDOUT_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    StartDeliverer();
    Report(2000);
    pollfd full{ends[1], POLLOUT, 0};
    const bool filled = test::Eventually([&] { return poll(&full, 1, 0) == 0; });
    StopDeliverer();
    dup2(old, STDOUT_FILENO);
    close(old);
    close(ends[0]);
    close(ends[1]);
    EXPECT_TRUE(filled);
    EXPECT_EQ(0, Row("out").dropped);
    EXPECT_LT(Row("out").delivered, 2000);
}

} // namespace

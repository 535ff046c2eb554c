#include "tests/agent/support/command_test.h"

namespace test {

CommandTest::CommandTest()
{
    StartHere();
    test::StopHost();
}

CommandTest::~CommandTest()
{
    test::StopHost();
}

Finished CommandTest::Syslogmon(const Words &words) const
{
    return RunToEnd(Command(Root(), words));
}

void CommandTest::ExpectOutput(const Words &words, const std::string &out) const
{
    const Finished finished = Syslogmon(words);
    EXPECT_EQ(0, finished.status) << finished.err;
    EXPECT_EQ(out, finished.out);
    EXPECT_EQ("", finished.err);
}

void CommandTest::ExpectFailed(const Words &words, const std::string &error, int status) const
{
    const std::string before = Registry();
    const Finished finished = Syslogmon(words);
    EXPECT_EQ(status, finished.status);
    EXPECT_EQ("", finished.out);
    EXPECT_EQ("syslogmon: " + error + "\n", finished.err);
    EXPECT_EQ(before, Registry());
}

void CommandTest::ExpectUsage(const Words &words, const std::string &part) const
{
    const std::string before = Registry();
    const Finished finished = Syslogmon(words);
    EXPECT_EQ(2, finished.status);
    EXPECT_EQ("", finished.out);
    EXPECT_NE(std::string::npos, finished.err.find(part)) << finished.err;
    EXPECT_TRUE(finished.err.starts_with("syslogmon: ")) << finished.err;
    EXPECT_EQ(finished.err.size() - 1, finished.err.find('\n')) << "one line: " << finished.err;
    EXPECT_EQ(before, Registry());
}

std::string CommandTest::JsonText(const Words &words, int status) const
{
    Words all = {"--json"};
    all.insert(all.end(), words.begin(), words.end());
    const Finished finished = Syslogmon(all);
    EXPECT_EQ(status, finished.status) << finished.err;
    return finished.out;
}

void CommandTest::StartHere() const
{
    test::StartHost(Layout(), host::Role::kCommand);
}

std::string CommandTest::Registry() const
{
    return RunToEnd(Command(Root(), {"--json", "reg", "list", "-r"})).out;
}

} // namespace test

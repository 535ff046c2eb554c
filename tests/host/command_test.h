// The fixture of the tests of the command, which runs as a process on an install root of the test.
#ifndef TESTS_HOST_COMMAND_TEST_H
#define TESTS_HOST_COMMAND_TEST_H

#include <nlohmann/json.hpp>

#include "tests/host/host_test.h"
#include "tests/host/process.h"

namespace test {

class CommandTest : public RootTest {
  protected:
    ~CommandTest() override { tarsk::StopHost(); }

    [[nodiscard]] Finished Syslogmon(const Words &words) const
    {
        return RunToEnd(Command(Root(), words));
    }
    // The command does it, and prints this.
    void ExpectOutput(const Words &words, const std::string &out) const
    {
        const Finished finished = Syslogmon(words);
        EXPECT_EQ(0, finished.status) << finished.err;
        EXPECT_EQ(out, finished.out);
        EXPECT_EQ("", finished.err);
    }
    void ExpectDone(const Words &words) const { ExpectOutput(words, ""); }
    // The command fails with this text, prints nothing else, and has changed nothing.
    void ExpectFailed(const Words &words, const std::string &error, int status = 1) const
    {
        const std::string before = Registry();
        const Finished finished = Syslogmon(words);
        EXPECT_EQ(status, finished.status);
        EXPECT_EQ("", finished.out);
        EXPECT_EQ("syslogmon: " + error + "\n", finished.err);
        EXPECT_EQ(before, Registry());
    }
    // The words of the command are wrong; what is said about it has this text in it.
    void ExpectUsage(const Words &words, const std::string &part) const
    {
        const std::string before = Registry();
        const Finished finished = Syslogmon(words);
        EXPECT_EQ(2, finished.status);
        EXPECT_EQ("", finished.out);
        EXPECT_NE(std::string::npos, finished.err.find(part)) << finished.err;
        EXPECT_EQ(before, Registry());
    }
    [[nodiscard]] nlohmann::json Json(Words words, int status = 0) const
    {
        words.insert(words.begin(), "--json");
        const Finished finished = Syslogmon(words);
        EXPECT_EQ(status, finished.status) << finished.err;
        return nlohmann::json::parse(finished.out, nullptr, false);
    }

    // ---- the same root in this process ----
    void StartHere() const { tarsk::StartHost(Layout(), tarsk::Role::kCommand); }

  private:
    // Everything in the registry.
    [[nodiscard]] std::string Registry() const
    {
        return RunToEnd(Command(Root(), {"--json", "reg", "list", "-r"})).out;
    }
};

} // namespace test

#endif // TESTS_HOST_COMMAND_TEST_H

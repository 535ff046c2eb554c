// Kind "program".
#include <csignal>
#include <thread>
#include <unistd.h>

#include "agent/common/status_file.h"
#include "tests/sinks/sink_test.h"
#include "tests/support/json_text.h"

namespace {

using alerts::Outcome;
using test::JsonAt;
using test::MessageOf;
using test::Options;

class ProgramSinkTest : public test::SinkTest {
  protected:
    Outcome Run(const std::string &script, Options options = {}, const std::string &text = "one")
    {
        options["command"] = Script("program", script);
        alerts::Secrets secrets;
        const auto sink = alerts::FindKind("program").open(Config("program", options), "", secrets);
        const alerts::Message message = MessageOf(text);
        return sink->Send(std::span(&message, 1), interrupt_);
    }
    alerts::Interrupt interrupt_;
};

TEST_F(ProgramSinkTest, GetsTheAlertAsJsonOnItsStandardInput)
{
    const Outcome outcome = Run("cat > " + File("got").string());
    EXPECT_EQ(Outcome::Result::kTaken, outcome.result);
    const std::string got = test::ReadFile(File("got"));
    EXPECT_EQ("one", JsonAt(got, "/message"));
    EXPECT_EQ("uuid/1", JsonAt(got, "/key"));
}

TEST_F(ProgramSinkTest, ArgumentsAreAVectorAndNoShellReadsThem)
{
    const Outcome outcome =
        Run("cat > /dev/null; for word; do echo \"<$word>\"; done", {{"arg.1", "two words"},
                                                                     {"arg.2", "$(id);*"},
                                                                     {"arg.3", ""},
                                                                     {"arg.10", "ten"},
                                                                     {"arg.4", "4"},
                                                                     {"arg.5", "5"},
                                                                     {"arg.6", "6"},
                                                                     {"arg.7", "7"},
                                                                     {"arg.8", "8"},
                                                                     {"arg.9", "9"}});
    EXPECT_EQ(Outcome::Result::kTaken, outcome.result);
    EXPECT_NE(
        std::string::npos,
        outcome.answer.find("<two words>\n<$(id);*>\n<>\n<4>\n<5>\n<6>\n<7>\n<8>\n<9>\n<ten>"))
        << outcome.answer;
}

TEST_F(ProgramSinkTest, ItsExitStatusDecides)
{
    EXPECT_EQ(Outcome::Result::kTaken, Run("cat >/dev/null; exit 0").result);
    EXPECT_EQ(Outcome::Result::kFailed, Run("cat >/dev/null; exit 1").result);
    EXPECT_EQ(Outcome::Result::kFailed, Run("cat >/dev/null; exit 75").result);
    EXPECT_EQ(Outcome::Result::kRefused, Run("cat >/dev/null; exit 65").result);
    EXPECT_EQ(File("program").string() + " ended with status 3: no luck\n",
              Run("cat >/dev/null; echo no luck >&2; exit 3").answer);
    EXPECT_EQ(File("program").string() + " was ended by signal 15", Run("kill -TERM $$").answer);
}

TEST_F(ProgramSinkTest, ItMayEndWithoutReading)
{
    EXPECT_EQ(Outcome::Result::kTaken,
              Run("exec <&-; exit 0", {}, std::string(300000, 'x')).result);
}

TEST_F(ProgramSinkTest, AnAlertThatIsLongerThanAPipeArrivesWhole)
{
    const std::string text(300000, 'x');
    EXPECT_EQ(Outcome::Result::kTaken, Run("cat > " + File("got").string(), {}, text).result);
    EXPECT_EQ(text, JsonAt(test::ReadFile(File("got")), "/message"));
}

TEST_F(ProgramSinkTest, OneThatHangsIsKilledWithItsChildren)
{
    const int64_t began = agent::WallTimeMs();
    const Outcome outcome =
        Run("sleep 600 & echo $! > " + File("child").string() + "; wait", {{"timeout", "1"}});
    EXPECT_EQ(Outcome::Result::kFailed, outcome.result);
    EXPECT_EQ(File("program").string() + " did not end within 1 s and was killed", outcome.answer);
    EXPECT_LT(agent::WallTimeMs() - began, 5000);
    const pid_t child = std::stoi(test::ReadFile(File("child")));
    EXPECT_TRUE(test::Eventually([&] {
        // Killed, and perhaps not waited for by whoever has inherited it.
        const auto stat = "/proc/" + std::to_string(child) + "/stat";
        return access(stat.c_str(), F_OK) != 0 ||
               test::ReadFile(stat).find(") Z") != std::string::npos;
    }));
}

TEST_F(ProgramSinkTest, AChildThatKeepsItsOutputOpenIsNotWaitedFor)
{
    const int64_t began = agent::WallTimeMs();
    EXPECT_EQ(Outcome::Result::kTaken, Run("sleep 600 & exit 0").result);
    EXPECT_LT(agent::WallTimeMs() - began, 5000);
}

TEST_F(ProgramSinkTest, SignalsAreAsUsualInIt)
{
    sigset_t blocked;
    sigset_t old;
    sigfillset(&blocked);
    pthread_sigmask(SIG_BLOCK, &blocked, &old);
    signal(SIGPIPE, SIG_IGN);
    const Outcome outcome = Run("grep SigBlk /proc/self/status; kill -PIPE $$; exit 0");
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    EXPECT_EQ(File("program").string() + " was ended by signal 13: SigBlk:\t0000000000000000\n",
              outcome.answer);
}

TEST_F(ProgramSinkTest, AStopEndsItSoon)
{
    interrupt_.Raise(std::chrono::milliseconds(100));
    const int64_t began = agent::WallTimeMs();
    EXPECT_EQ(Outcome::Result::kFailed, Run("sleep 600").result);
    EXPECT_LT(agent::WallTimeMs() - began, 5000);
}

TEST_F(ProgramSinkTest, ManyDeathsAndHangsInBetweenLoseNothing)
{
    // Dies at every third alert, hangs at every tenth; keeps a line for each alert it has taken.
    const std::string program =
        Script("moody", "n=$(cat " + File("n").string() + " 2>/dev/null || echo 0); n=$((n+1))\n" +
                            "echo $n > " + File("n").string() + "\n" +
                            "[ $((n % 10)) = 0 ] && sleep 600\n[ $((n % 3)) = 0 ] && kill -9 $$\n" +
                            "cat >> " + File("taken").string());
    AddSink("program", "moody", {{"command", program}, {"timeout", "1"}});
    StartDeliverer();
    Report(20);
    ASSERT_TRUE(WaitDelivered("moody", 20));
    test::Strings taken;
    for (const std::string &line : test::ReadLines(File("taken")))
        taken.push_back(JsonAt(line, "/message"));
    EXPECT_EQ(AllStored(), taken);
}

TEST_F(ProgramSinkTest, ArgumentsWithAGapAndFilesThatAreNoProgramAreRefused)
{
    const std::string program = Script("p", "true");
    EXPECT_EQ("cannot use the arguments of " + program +
                  ": there is no arg.1; number them arg.1, arg.2, arg.3",
              test::ErrorOf([&] {
                  AddSink("program", "p", {{"command", program}, {"arg.2", "x"}});
              }));
    EXPECT_EQ("cannot run " + File("none").string() +
                  ": it is no program, or may not be run; name an executable file by its absolute "
                  "path",
              test::ErrorOf([&] {
                  AddSink("program", "p", {{"command", File("none")}});
              }));
}

} // namespace

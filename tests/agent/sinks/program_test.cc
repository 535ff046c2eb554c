// Kind "program".
#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/host/waitable.h"
#include "tests/agent/sinks/sink_test.h"
#include "tests/support/json_text.h"

namespace {

using sinks::Outcome;
using test::JsonAt;
using test::MessageOf;
using test::Options;

class ProgramSinkTest : public test::SinkTest {
  protected:
    Outcome Run(const std::string &script, Options options = {}, const std::string &text = "one")
    {
        options["command"] = Script("program", script);
        sinks::Secrets secrets;
        const auto sink = sinks::FindKind("program").open(Config("program", options), "", secrets);
        const sinks::Message message = MessageOf(text);
        return sink->Send(std::span(&message, 1), interrupt_);
    }
    sinks::Interrupt interrupt_;
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
    EXPECT_EQ(Outcome::Result::kRefused, Run("cat >/dev/null; exit 1").result);
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
    const Outcome outcome =
        Run("sleep 600 & echo $! > " + File("child").string() + "; wait", {{"timeout", "1"}});
    EXPECT_EQ(Outcome::Result::kRefused, outcome.result);
    EXPECT_EQ(File("program").string() + " did not end within 1 s and was killed", outcome.answer);
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
    EXPECT_EQ(Outcome::Result::kTaken, Run("sleep 600 & exit 0").result);
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
    const Outcome outcome = Run("sleep 600", {{"timeout", "120"}});
    EXPECT_EQ(Outcome::Result::kFailed, outcome.result);
    EXPECT_EQ(File("program").string() + " was ended with the daemon", outcome.answer);
}

TEST_F(ProgramSinkTest, ItInheritsNothingOfTheDaemon)
{
    // Open in any program that the test starts, unless somebody sees to it. The shell has its script
    // open under one of the numbers that are left out below.
    const host::Fd open_file(fcntl(STDIN_FILENO, F_DUPFD, 200));
    ASSERT_EQ(0, fcntl(open_file.get(), F_GETFD) & FD_CLOEXEC);
    setenv("SECRET_OF_THE_DAEMON", "x", 1);
    const Outcome outcome =
        Run("cd -P .; echo \"in $PWD:\"; set -- /proc/$$/fd/*\n"
            "for fd; do case ${fd##*/} in 10|255) ;; *) [ -L $fd ] && echo ${fd##*/};; esac; done\n"
            "env | grep -v '^_=\\|PWD=' | sort");
    unsetenv("SECRET_OF_THE_DAEMON");
    EXPECT_EQ(Outcome::Result::kTaken, outcome.result);
    EXPECT_EQ(File("program").string() +
                  " ended with status 0: in /:\n0\n1\n2\nHOME=/\nLANG=C.UTF-8\n"
                  "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin\n",
              outcome.answer);
}

TEST_F(ProgramSinkTest, OneWhoseEndCannotBeNoticedIsAnErrorThatSaysSo)
{
    const std::string program = Script("program", "exit 0");
    sinks::Secrets secrets;
    const auto sink =
        sinks::FindKind("program").open(Config("program", {{"command", program}}), "", secrets);
    const sinks::Message message = MessageOf("one");
    rlimit old{};
    getrlimit(RLIMIT_NOFILE, &old);
    rlimit small = old;
    {
        // Four are left, for two pipes.
        std::vector<host::Fd> next;
        for (int i = 0; i < 5; ++i)
            next.emplace_back(dup(STDIN_FILENO));
        small.rlim_cur = static_cast<rlim_t>(next.back().get());
    }
    setrlimit(RLIMIT_NOFILE, &small);
    const Outcome outcome = sink->Send(std::span(&message, 1), interrupt_);
    setrlimit(RLIMIT_NOFILE, &old);
    EXPECT_EQ(Outcome::Result::kFailed, outcome.result);
    EXPECT_EQ(program +
                  " was killed, since its end cannot be waited for: pidfd_open: Too many open "
                  "files",
              outcome.answer);
}

TEST_F(ProgramSinkTest, OneThatOthersCanChangeIsRefusedAndNotRun)
{
    const std::string program = Script("program", "touch " + File("was_run").string());
    const auto refusal = [&](const std::string &path) {
        return test::ErrorOf([&] { sinks::CheckSink(Config("program", {{"command", path}})); });
    };
    const std::string advice = "; name a program itself, which only root and its owner can change: "
                               "chmod go-w, and chown root";
    sinks::Secrets secrets;
    const auto sink =
        sinks::FindKind("program").open(Config("program", {{"command", program}}), "", secrets);
    const sinks::Message message = MessageOf("one");
    for (const mode_t mode : {0775U, 0757U}) {
        chmod(program.c_str(), mode);
        EXPECT_EQ("cannot run " + program + ": others than its owner may write to it" + advice,
                  refusal(program));
        EXPECT_EQ("cannot run " + program + ": others than its owner may write to it",
                  sink->Send(std::span(&message, 1), interrupt_).answer);
    }
    EXPECT_FALSE(std::filesystem::exists(File("was_run")));
    chmod(program.c_str(), 0755);
    std::filesystem::create_symlink(program, File("link"));
    EXPECT_EQ("cannot run " + File("link").string() +
                  ": it is a symbolic link, and those are not followed" + advice,
              refusal(File("link")));
    std::filesystem::create_directory(File("open"));
    std::filesystem::copy_file(program, File("open/program"));
    chmod(File("open").c_str(), 0777);
    EXPECT_EQ("cannot run " + File("open/program").string() +
                  ": others than the owner of its folder may put another file in its place" +
                  advice,
              refusal(File("open/program")));
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
    EXPECT_EQ(
        "cannot run " + File("none").string() +
            ": it is not a program, or may not be run; name an executable file by its absolute "
            "path",
        test::ErrorOf([&] {
            AddSink("program", "p", {{"command", File("none")}});
        }));
}

} // namespace

// What the running daemon writes into the history.
#include <fstream>

#include "agent/history/history_reader.h"
#include "tests/agent/support/daemon_test.h"

namespace {

using history::Kind;
using history::SeriesKey;

class CountedPasses : public test::DaemonTest {
  protected:
    [[nodiscard]] std::map<SeriesKey, int64_t> Totals() const
    {
        host::Database database(Layout().Store(), host::Database::Mode::kReadOnly);
        return history::ReadTotals(database);
    }
    [[nodiscard]] int64_t Total(Kind kind, const std::string &name, uint32_t id = 0) const
    {
        const auto totals = Totals();
        const auto found = totals.find({kind, name, id});
        return found != totals.end() ? found->second : 0;
    }
    const std::string log_ = "/var/log/messages";
};

TEST_F(CountedPasses, HitsReportsAndLinesOfAnEventAreCountedAcrossLivesAndAKill)
{
    ExpectDone({"event", "add", "DISK", "1", "-k", "disk", "-n", "3"});
    {
        test::Child daemon(Daemon());
        WaitUntilRunning(daemon);
        const int64_t lines = Total(Kind::kLines, log_);
        for (int i = 0; i < 4; ++i)
            Log("disk " + std::to_string(i));
        Log("nothing");
        EXPECT_EQ(4, Total(Kind::kHits, "DISK", 1));
        EXPECT_EQ(1, Total(Kind::kAlerts, "DISK", 1));
        EXPECT_EQ(lines + 5, Total(Kind::kLines, log_));
        daemon.Kill();
    }
    test::Child daemon(Daemon());
    WaitUntilRunning(daemon);
    EXPECT_EQ(4, Total(Kind::kHits, "DISK", 1));
    Log("disk 4");
    Log("disk 5");
    EXPECT_EQ(6, Total(Kind::kHits, "DISK", 1));
    EXPECT_EQ(2, Total(Kind::kAlerts, "DISK", 1));
}

TEST_F(CountedPasses, BytesAreThoseOfTheLines)
{
    test::Child daemon(Daemon());
    WaitUntilRunning(daemon);
    const int64_t before = Total(Kind::kBytes, log_);
    const auto size = std::filesystem::file_size(File("var-log/messages"));
    WriteLine("one");
    WriteLine("another one");
    Look();
    EXPECT_EQ(static_cast<int64_t>(std::filesystem::file_size(File("var-log/messages")) - size),
              Total(Kind::kBytes, log_) - before);
}

TEST_F(CountedPasses, WholeLinesOfTheFileMonitorsTargetAreCountedWithTheirBytes)
{
    const auto target = File("target.log");
    test::WriteFile(target, "there before\n");
    ExpectDone({"set", "file-monitor", target});
    test::Child daemon(Daemon());
    WaitUntilRunning(daemon);
    Look();
    const int64_t lines = Total(Kind::kLines, target);
    const int64_t bytes = Total(Kind::kBytes, target);
    std::ofstream(target, std::ios::app) << "one\nanother\nhalf";
    Look();
    EXPECT_EQ(2, Total(Kind::kLines, target) - lines);
    EXPECT_EQ(12, Total(Kind::kBytes, target) - bytes);
    std::ofstream(target, std::ios::app) << " done\n";
    Look();
    EXPECT_EQ(3, Total(Kind::kLines, target) - lines);
    EXPECT_EQ(22, Total(Kind::kBytes, target) - bytes);
}

TEST_F(CountedPasses, ReportsThatACooldownHoldsBackAreCountedApart)
{
    ASSERT_EQ(0, Syslogmon({"apply", Rules("events:\n"
                                           "  - source: DISK\n"
                                           "    id: 1\n"
                                           "    keywords: [disk]\n"
                                           "    cooldown: 1h\n")})
                     .status);
    test::Child daemon(Daemon());
    WaitUntilRunning(daemon);
    for (int i = 0; i < 3; ++i)
        Log("disk " + std::to_string(i));
    EXPECT_EQ(3, Total(Kind::kHits, "DISK", 1));
    EXPECT_EQ(1, Total(Kind::kAlerts, "DISK", 1));
    EXPECT_EQ(2, Total(Kind::kHeldBack, "DISK", 1));
}

TEST_F(CountedPasses, LinesWhoseTimeCannotBeReadAreCounted)
{
    test::Child daemon(Daemon());
    WaitUntilRunning(daemon);
    std::ofstream(File("var-log/messages"), std::ios::app) << "no stamp\n";
    Log("a line");
    EXPECT_EQ(1, Total(Kind::kWithoutTime, log_));
}

TEST_F(CountedPasses, AnEventThatIsChangedKeepsWhatWasCounted)
{
    ExpectDone({"event", "add", "DISK", "1", "-k", "disk", "-n", "3"});
    test::Child daemon(Daemon());
    WaitUntilRunning(daemon);
    Log("disk");
    ExpectDone({"event", "set", "DISK", "1", "-n", "5"});
    Log("disk");
    ExpectDone({"event", "add", "A", "1", "-k", "disk", "-n", "9"});
    Log("disk");
    EXPECT_EQ(3, Total(Kind::kHits, "DISK", 1));
    EXPECT_EQ(1, Total(Kind::kHits, "A", 1));
}

// One that wrote would count the passes before it.
TEST_F(CountedPasses, APassWithoutNewsWritesNothing)
{
    test::Child daemon(Daemon());
    WaitUntilRunning(daemon);
    Log("a line");
    const auto before = Totals();
    for (int i = 0; i < 3; ++i)
        Look();
    EXPECT_EQ(before, Totals());
    Log("a line");
    EXPECT_NE(before, Totals());
}

TEST_F(CountedPasses, EntriesOfAnInputAreCountedForIt)
{
    std::ofstream(File("app.log")) << "the log begins\n";
    ExpectDone({"input", "add", "files", "app", "path=" + File("app.log").string()});
    test::Child daemon(Daemon());
    WaitUntilRunning(daemon);
    std::ofstream(File("app.log"), std::ios::app) << "one\ntwo\n";
    Look();
    EXPECT_EQ(2, Total(Kind::kInputLines, "app"));
    EXPECT_LT(0, Total(Kind::kInputBytes, "app"));
}

} // namespace

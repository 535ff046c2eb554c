// A trial lets the module make its passes, and only counts what they say. Beside it is the plain way: each line taken
// from the module's reader, repeats added up, and checked by itself.
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <map>
#include <random>

#include "agent/cli/line_trial.h"
#include "agent/cli/tally.h"
#include "agent/cli/trial.h"
#include "agent/events/events.h"
#include "agent/host/trace_log.h"
#include "platform/contract.h"
#include "tests/agent/support/host_test.h"

namespace {

namespace fs = std::filesystem;

using cli::HourOf;

// More news than this is searched by the block.
constexpr size_t kMuch = size_t{6} << 20;

// All that is shown of a trial, as lines of text.
using Figures = std::vector<std::string>;

std::string Shown(const std::optional<cli::Sighting> &line)
{
    return line ? std::to_string(line->file) + ":" + std::to_string(line->number) + ":" + line->text
                : "-";
}

Figures FiguresOf(const cli::Tally &tally)
{
    Figures figures = {"lines " + std::to_string(tally.lines()) + " repeats " +
                       std::to_string(tally.repeats()) + " own " +
                       std::to_string(tally.own_lines())};
    for (const cli::EventTally &event : tally.events())
        figures.push_back(std::to_string(event.lines) + " " + std::to_string(event.hits) + " " +
                          std::to_string(event.reports) + " " + std::to_string(event.withheld) +
                          " " + Shown(event.first) + " " + Shown(event.last));
    for (int p = 0; p < logs::kStampProblems; ++p) {
        const auto &unseen = tally.unseen(static_cast<logs::StampProblem>(p));
        figures.push_back(std::to_string(unseen.lines) + " " + Shown(unseen.first));
    }
    return figures;
}

// The plain way over the same logs.
class PlainTrial {
  public:
    PlainTrial(monitor::Module &module, HourOf hour)
        : module_(module), lines_(module, hour), events_(lines_.entries())
    {
    }

    void Read(const fs::path &log)
    {
        ASSERT_EQ(0, module_.InitFile(log.c_str()));
        int64_t pos = -1;
        char text[kLineBufferSize] = {};
        ASSERT_EQ(0, module_.GotoPos(&pos, text, kLineBufferSize));
        int64_t number = 0;
        int times = 0;
        std::optional<cli::Sighting> waiting;
        while (module_.FEof() == 0 && module_.GetNextLine(&pos, text, kLineBufferSize) == 0) {
            ++number;
            const char *repeat = strstr(text, "last message repeated");
            int repeated = 0;
            if (repeat != nullptr &&
                sscanf(repeat, "last message repeated %d times", &repeated) == 1) {
                ++repeats_;
                times += repeated;
                continue;
            }
            Check(waiting, times);
            waiting = {file_, number, text};
            times = 1;
        }
        Check(waiting, times);
        module_.FinishFile();
        ++file_;
        read_ += number;
    }

    [[nodiscard]] Figures Result() const
    {
        Figures figures = {"lines " + std::to_string(read_) + " repeats " +
                           std::to_string(repeats_) + " own " + std::to_string(own_)};
        for (const cli::EventTally &event : events_)
            figures.push_back(std::to_string(event.lines) + " " + std::to_string(event.hits) + " " +
                              std::to_string(event.reports) + " " + std::to_string(event.withheld) +
                              " " + Shown(event.first) + " " + Shown(event.last));
        for (const cli::UnseenTally &unseen : unseen_)
            figures.push_back(std::to_string(unseen.lines) + " " + Shown(unseen.first));
        return figures;
    }

  private:
    void Check(const std::optional<cli::Sighting> &line, int times)
    {
        if (!line)
            return;
        if (const auto problem = lines_.StampProblem(line->text)) {
            cli::UnseenTally &unseen = unseen_[static_cast<size_t>(*problem)];
            if (unseen.lines++ == 0)
                unseen.first = line;
            return;
        }
        if (line->text.find(kSyslogIdentifier) != std::string::npos)
            ++own_;
        for (const size_t i : lines_.Check(line->text, times)) {
            cli::EventTally &event = events_[i];
            ++event.lines;
            event.hits += times;
            if (!event.first)
                event.first = line;
            event.last = line;
        }
        for (const size_t i : lines_.reported()) {
            const bool is_withheld = std::string(lines_.entry(i).Source) == kWithheldSource;
            ++(is_withheld ? events_[i].withheld : events_[i].reports);
        }
    }

    monitor::Module &module_;
    cli::LineTrial lines_;
    std::vector<cli::EventTally> events_;
    std::array<cli::UnseenTally, logs::kStampProblems> unseen_;
    size_t file_ = 0;
    int64_t read_ = 0;
    int64_t repeats_ = 0;
    int64_t own_ = 0;
};

class TrialPass : public test::RootTest {
  protected:
    TrialPass() { fs::create_directory_symlink(AGENT_LIBRARIES, File("lib")); }

    static cli::RulesCopy Rules(const std::vector<events::EventRecord> &events)
    {
        cli::RulesCopy rules;
        rules.events = events;
        return rules;
    }

    static events::EventRecord Event(const std::string &source, uint32_t id,
                                     const std::vector<std::string> &keywords, int report_count = 1)
    {
        events::EventRecord event;
        event.key = {source, id};
        std::copy(keywords.begin(), keywords.end(), event.keywords.begin());
        event.report_count = report_count;
        return event;
    }

    [[nodiscard]] cli::TrialLog WriteLog(const std::string &name, const std::string &text) const
    {
        test::WriteFile(File(name), text);
        return {name, File(name), static_cast<int64_t>(text.size())};
    }

    static std::string Stamp(time_t moment)
    {
        char text[32];
        struct tm local {};
        strftime(text, sizeof text, "%b %e %H:%M:%S ", localtime_r(&moment, &local));
        return text;
    }

    // Quiet lines but for each hundredth.
    static std::string LogOf(size_t size)
    {
        std::string text;
        const std::string stamp = Stamp(time(nullptr));
        for (int i = 0; text.size() < size; ++i)
            text += stamp + "host prog: " + (i % 100 == 99 ? "bad" : "good") +
                    " line of a long log, " + std::to_string(i) + "\n";
        return text;
    }
};

// ---- random logs ----

class Dice {
  public:
    explicit Dice(uint32_t seed) : engine_(seed) {}
    int Below(int end) { return static_cast<int>(engine_() % static_cast<uint32_t>(end)); }
    bool OneIn(int chances) { return Below(chances) == 0; }
    std::string Word()
    {
        static constexpr const char *kWords[] = {"disk", "failed", "sda",  "link",   "down", "fan",
                                                 "eth0", "power",  "lost", "memory", "ok",   "b.d"};
        return kWords[Below(std::size(kWords))];
    }
    std::string Text()
    {
        std::string text;
        for (int words = Below(12); words >= 0; --words)
            text += Word() + " ";
        return text + std::to_string(Below(1000));
    }

  private:
    std::mt19937 engine_;
};

std::string RandomLine(Dice &dice, const std::string &stamp)
{
    switch (dice.Below(30)) {
    case 0:
    case 1:
        return stamp + "h last message repeated " + std::to_string(dice.Below(9)) + " times";
    case 2:
        return stamp + "h " + kSyslogIdentifier + ": " + dice.Text();
    case 3:
        return dice.OneIn(2) ? "" : "  " + dice.Text();
    case 4:
        return "2026-11-21T10:00:01+01:00 h " + dice.Text();
    case 5:
        return stamp + dice.Text() + std::string(1, '\0') + stamp + dice.Text();
    case 6:
        return dice.OneIn(20)
                   ? stamp + dice.Text() + std::string(20000, 'x') + dice.Text()
                   : stamp + std::string(static_cast<size_t>(dice.Below(200)), 'y') + dice.Text();
    default:
        return stamp + "h prog: " + dice.Text();
    }
}

// Over the hours of this day that have begun.
std::string RandomLog(Dice &dice, size_t size)
{
    const time_t now = time(nullptr);
    std::string text;
    time_t moment = now - dice.Below(80000);
    while (text.size() < size) {
        if (dice.OneIn(20))
            moment = std::min(now, moment + dice.Below(900));
        char stamp[32];
        struct tm local {};
        strftime(stamp, sizeof stamp, "%b %e %H:%M:%S ", localtime_r(&moment, &local));
        text += RandomLine(dice, stamp) + "\n";
    }
    return dice.OneIn(2) ? text : text + "half a line with disk";
}

std::vector<events::EventRecord> RandomEvents(Dice &dice)
{
    std::vector<events::EventRecord> events;
    for (uint32_t id = 1; id < 40; ++id) {
        events::EventRecord event;
        event.key = {dice.OneIn(6) ? kWithheldSource : "SOURCE" + std::to_string(id % 7), id};
        for (int k = 0; k <= dice.Below(3); ++k)
            event.keywords[static_cast<size_t>(k)] = dice.Word();
        event.report_count = dice.OneIn(2) ? 1 : 1 + dice.Below(7);
        if (dice.OneIn(3))
            event.hours = 0x00F0FF0FU >> static_cast<unsigned>(dice.Below(4));
        events.push_back(event);
    }
    return events;
}

TEST_F(TrialPass, ComesToTheSameAsEachLineCheckedByItself)
{
    for (uint32_t round = 1; round <= 6; ++round) {
        SCOPED_TRACE("seed " + std::to_string(round));
        Dice dice(round);
        const std::vector<cli::TrialLog> logs = {
            WriteLog("a", RandomLog(dice, round > 4 ? kMuch : 100000)),
            WriteLog("b", RandomLog(dice, 3000)), WriteLog("c", RandomLog(dice, 300))};
        const HourOf hour = dice.OneIn(2) ? HourOf::kLine : HourOf::kNow;
        Figures of_pass;
        Figures of_lines;
        cli::RunTrial(Layout(), Rules(RandomEvents(dice)), [&](auto &module, host::Host &host) {
            {
                PlainTrial plain(module, hour);
                for (const cli::TrialLog &log : logs)
                    plain.Read(log.path);
                of_lines = plain.Result();
            }
            for (int i = 0; i < module.table().Size(); ++i)
                module.table().entries[i]->CurrentCount = 0;
            cli::Tally tally(module, host, hour);
            for (const cli::TrialLog &log : logs)
                tally.ReadLog(log, [](int64_t, int64_t) { return true; });
            of_pass = FiguresOf(tally);
        });
        EXPECT_EQ(of_lines, of_pass);
    }
}

// ---- what it costs ----

// The module traces detail with each line that it looks at by itself, whether that is written or not.
TEST_F(TrialPass, HasTheModuleSearchALongLogByTheBlockAndNotLineByLine)
{
    const cli::TrialLog log = WriteLog("long", LogOf(kMuch));
    cli::RunTrial(Layout(), Rules({Event("ONE", 1, {"bad", "no such word"})}),
                  [&](auto &module, host::Host &host) {
                      cli::Tally tally(module, host, HourOf::kNow);
                      int64_t steps = 0;
                      const uint64_t before = host::SignsOfLife();
                      tally.ReadLog(log, [&](int64_t, int64_t) { return ++steps > 0; });
                      EXPECT_LT(100000, tally.lines());
                      EXPECT_GT(tally.lines() / 20,
                                static_cast<int64_t>(host::SignsOfLife() - before));
                      EXPECT_GT(tally.lines() / 20, steps);
                      EXPECT_LT(static_cast<int64_t>(kMuch / (size_t{64} << 10)), steps);
                  });
}

TEST_F(TrialPass, GivesThePassUpWhenItIsToldTo)
{
    const cli::TrialLog log = WriteLog("long", LogOf(kMuch));
    cli::RunTrial(Layout(), Rules({Event("ONE", 1, {"bad"})}), [&](auto &module, host::Host &host) {
        cli::Tally tally(module, host, HourOf::kNow);
        tally.ReadLog(log, [&](int64_t bytes, int64_t) { return bytes < 1000000; });
        EXPECT_LT(999999, tally.files()[0].bytes);
        EXPECT_GT(2000000, tally.files()[0].bytes);
    });
}

TEST_F(TrialPass, LeavesTheTableAsItWasLoaded)
{
    const cli::TrialLog log = WriteLog("log", LogOf(1000));
    events::EventRecord event = Event("FIVE", 1, {"bad"}, 5);
    event.hours = 0x00FF00U;
    cli::RunTrial(Layout(), Rules({event}), [&](auto &module, host::Host &host) {
        cli::Tally(module, host, HourOf::kLine).ReadLog(log, [](int64_t, int64_t) { return true; });
        EXPECT_EQ(5, module.table().entries[0]->ReportCount);
        EXPECT_EQ(0x00FF00U, module.table().entries[0]->WatchTime);
    });
}

} // namespace

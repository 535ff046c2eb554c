// What the desk reports over random histories with kills, beside the slow twins of all values: a pass that
// was not stored has not happened, and its lines come again.
#include <map>
#include <sstream>

#include "agent/policy/report_desk.h"
#include "tests/agent/policy/count_twin.h"
#include "tests/agent/support/report_test.h"

namespace {

struct Line {
    std::string host;
    int64_t time_s;

    [[nodiscard]] std::string Text() const { return host + " " + std::to_string(time_s); }
};

// The time that stands behind the first word.
std::optional<int64_t> TimeOf(const std::string &line)
{
    return std::stoll(line.substr(line.find(' ') + 1));
}

class CountHistory : public test::ReportTest {
  protected:
    CountHistory() { Restart(host::Role::kDaemon); }

    // A life of the daemon: the table is loaded, and what was stored is read.
    void Start()
    {
        desk_.reset();
        test::TheHost().SetReportSource([](const std::string &line) {
            return host::ReportSource{line, "log", line.substr(0, line.find(' ')), "", ""};
        });
        desk_.emplace(test::TheHost(), TimeOf);
        desk_->Load();
    }
    void Register(const events::EventRecord &event)
    {
        events::EventRegistry(test::Registry()).Write(event);
        test::Store().CommitPass();
    }
    void Pass(const std::vector<Line> &lines)
    {
        for (const Line &line : lines)
            ASSERT_EQ(1, Report("LOGIN", 1, line.Text().c_str()));
        desk_->Save();
    }
    // What was stored, as the twins tell it.
    static std::vector<std::string> Told()
    {
        std::vector<std::string> told;
        for (const alerts::Alert &alert : Stored()) {
            const alerts::HeldBack &held = alert.held_back;
            told.push_back(alert.message + ": " +
                           test::ReportText(alert.count, held.reports, held.hits,
                                            held.first_ms / 1000, held.last_ms / 1000));
        }
        return told;
    }

    std::optional<policy::ReportDesk> desk_;
};

TEST_F(CountHistory, WithKillsTheAlertsAreThoseOfTheTwins)
{
    test::RandomData random;
    events::EventRecord event;
    event.key = {"LOGIN", 1};
    event.keywords[0] = "x";
    event.report_count = static_cast<int32_t>(1 + random.Below(5));
    event.policy.within_s = static_cast<int64_t>(1 + random.Below(40));
    event.policy.cooldown_s = static_cast<int64_t>(1 + random.Below(60));
    event.policy.per = "host";
    Register(event);
    const policy::CountTerms terms = {event.report_count, event.policy.within_s,
                                      event.policy.cooldown_s};
    std::map<std::string, test::CountTwin> twins;
    std::vector<std::string> expected;
    int64_t time_s = 1000000;
    int kills = 0;
    Start();
    for (int pass = 0; pass < 150; ++pass) {
        std::vector<Line> lines;
        for (size_t i = random.Below(12); i > 0; --i) {
            time_s = test::NextTime(random, time_s);
            lines.push_back({"h" + std::to_string(random.Below(4)), time_s});
        }
        // Killed any number of times before the commit, and maybe behind it.
        while (random.OneIn(4)) {
            ++kills;
            Pass(lines);
            test::Store().AbandonPass();
            Start();
        }
        Pass(lines);
        test::Store().CommitPass();
        for (const Line &line : lines) {
            const std::string told =
                twins.try_emplace(line.host, terms).first->second.Take(line.time_s, 1);
            if (told.find("hits") != std::string::npos)
                expected.push_back(line.Text() + ": " + told);
        }
        if (random.OneIn(6))
            Start();
    }
    EXPECT_LT(0, kills);
    EXPECT_EQ(expected, Told()) << "SYSLOGMON_TEST_SEED=" << random.seed();
}

TEST_F(CountHistory, AnEventThatIsCountedByOtherTermsBeginsAnew)
{
    events::EventRecord event;
    event.key = {"LOGIN", 1};
    event.keywords[0] = "x";
    event.report_count = 2;
    event.policy.within_s = 100;
    Register(event);
    Start();
    Pass({{"h", 1000}});
    // The severity is no term.
    event.policy.severity = "err";
    Register(event);
    desk_->Load();
    Pass({{"h", 1001}});
    EXPECT_EQ(1U, Told().size());
    Pass({{"h", 1002}});
    event.policy.within_s = 101;
    Register(event);
    desk_->Load();
    Pass({{"h", 1003}});
    EXPECT_EQ(1U, Told().size());
}

TEST_F(CountHistory, AnEventThatIsGoneLeavesNothing)
{
    events::EventRecord event;
    event.key = {"LOGIN", 1};
    event.keywords[0] = "x";
    event.policy.cooldown_s = 100;
    Register(event);
    Start();
    Pass({{"h", 1000}, {"h", 1001}});
    events::EventRegistry(test::Registry()).Remove(event.key);
    desk_->Load();
    for (const char *table : {"policy_event", "policy_value"}) {
        host::Statement count(test::Store().database(),
                              (std::string("SELECT count(*) FROM ") + table).c_str());
        count.Start();
        count.Next();
        EXPECT_EQ(0, count.Integer(0)) << table;
    }
    // Its reports are those of the monitor again.
    Pass({{"h", 1002}, {"h", 1003}});
    EXPECT_EQ(3U, Told().size());
}

TEST_F(CountHistory, APassWithoutAHitWritesNothing)
{
    events::EventRecord event;
    event.key = {"LOGIN", 1};
    event.keywords[0] = "x";
    event.policy.cooldown_s = 100;
    Register(event);
    Start();
    test::Store().CommitPass();
    Pass({});
    EXPECT_EQ(0, test::Store().CurrentTransaction());
    desk_->Load();
    EXPECT_EQ(0, test::Store().CurrentTransaction());
}

// However many hits there are, a value is written once.
TEST_F(CountHistory, APassWritesAValueOnce)
{
    events::EventRecord event;
    event.key = {"LOGIN", 1};
    event.keywords[0] = "x";
    event.report_count = 10000;
    event.policy.within_s = 100;
    event.policy.per = "host";
    Register(event);
    Start();
    const auto writes_of = [&](int lines) {
        host::Statement changes(test::Store().database(), "SELECT total_changes()");
        const auto now = [&] {
            changes.Start();
            changes.Next();
            const int64_t count = changes.Integer(0);
            changes.Reset();
            return count;
        };
        const int64_t before = now();
        Pass(std::vector<Line>(static_cast<size_t>(lines), Line{"h", 1000}));
        return now() - before;
    };
    const int64_t writes = writes_of(1);
    EXPECT_LT(0, writes);
    EXPECT_EQ(writes, writes_of(1000));
}

} // namespace

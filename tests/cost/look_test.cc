// What is looked at again and again is not read anew where nothing has changed. With thousands of events that is most of the
// work, and no result would tell that it is done: so it is counted here.
#include <chrono>
#include <unistd.h>

#include "agent/events/events.h"
#include "agent/history/history_writer.h"
#include "agent/metrics/overview.h"
#include "agent/web/answers.h"
#include "tests/agent/support/host_test.h"

namespace {

using history::Kind;

class CostOfALook : public test::HostTest {
  protected:
    CostOfALook() : writer_(test::Store()) { answers_.emplace(Layout(), "1"); }

    static void Register(const std::string &source)
    {
        host::RegistryTree registry(test::Store());
        host::Transaction transaction(test::Store());
        events::EventRegistry(registry).Write({{source, 1}, {"word", "", ""}});
        transaction.Commit();
    }
    // A pass that is stored at a moment.
    void Pass(int64_t now, const std::string &source = "DISK")
    {
        history::News news;
        news.Add({Kind::kHits, source, 1}, 1);
        writer_.Save(news, now);
        answers_->NewsCame();
    }
    // The values of a sample.
    std::string Sample(const std::string &name)
    {
        std::istringstream lines(*answers_->Get("/metrics", {}).body);
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with(name + " "))
                return line.substr(name.size() + 1);
        }
        return "none";
    }
    std::string Hits(const std::string &source = "DISK")
    {
        return Sample("syslogmon_hits_total{source=\"" + source + "\",event_id=\"1\"}");
    }

    static constexpr std::chrono::seconds kEventsKeptFor{5};
    // The begin of a minute.
    static constexpr int64_t kNow = 20'000 * history::kDay;
    history::HistoryWriter writer_;
    std::optional<web::Answers> answers_;
};

TEST_F(CostOfALook, EventsAreReadOnceForManyPassesAndTheirHitsAreThoseOfEachPass)
{
    Register("DISK");
    const auto began = std::chrono::steady_clock::now();
    EXPECT_EQ("0", Hits());
    for (int64_t pass = 1; pass <= 50; ++pass) {
        Pass(kNow);
        EXPECT_EQ(std::to_string(pass), Hits());
    }
    const auto took = std::chrono::steady_clock::now() - began;
    EXPECT_GE(1 + (took / kEventsKeptFor), answers_->lookout().EventReads());
    EXPECT_GE(2, answers_->lookout().FullReadsOfTotals()); // before and behind the first hit
}

TEST_F(CostOfALook, TotalsOfBeforeTheMinuteAreReadOnceAMinute)
{
    for (int64_t second = 0; second < 180; ++second) {
        Pass(kNow + second);
        EXPECT_EQ(std::to_string(second + 1), Hits());
    }
    EXPECT_EQ(3, answers_->lookout().FullReadsOfTotals());
}

// A host of a fleet looks so at each of its statuses.
TEST_F(CostOfALook, AtHowFarTheMonitorHasReadLeavesTheEventsAlone)
{
    Register("DISK");
    host::RegistryTree registry(test::Store());
    const metrics::Overview view = metrics::LookAtReading(registry, Layout(), getpid());
    EXPECT_EQ("system log", view.logs.at(0).role);
    EXPECT_TRUE(view.events.empty());
}

TEST_F(CostOfALook, WhenTheMonitorHasLoadedOthersTheEventsAreReadAtOnce)
{
    Register("DISK");
    EXPECT_EQ("1", Sample("syslogmon_events"));
    Register("NET");
    answers_->EventsChanged();
    EXPECT_EQ("2", Sample("syslogmon_events"));
    EXPECT_EQ("0", Hits("NET"));
}

TEST_F(CostOfALook, WhileNothingIsStoredTheEventsAreNotReadAgain)
{
    Register("DISK");
    host::RegistryTree registry(test::Store());
    metrics::Lookout lookout(registry, Layout());
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(1U, lookout.Look(getpid()).events.size());
    EXPECT_EQ(1, lookout.EventReads());
}

} // namespace

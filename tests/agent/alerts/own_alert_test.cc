// What the monitor tells about itself, and how often it has.
#include "agent/alerts/own_alert.h"

#include "tests/agent/support/host_test.h"

namespace {

using alerts::OwnEvent;
using alerts::OwnTotal;

class OwnAlerts : public test::HostTest {
  protected:
    static void TellOfLoss(const std::string &log, int64_t lines)
    {
        alerts::OwnAlert own{OwnEvent::kLoss, alerts::OwnState::kOnce, log + ".1", "lost", log};
        own.lines_passed_over = lines;
        alerts::AddOwnAlert(test::Store(), own);
    }
    static std::vector<OwnTotal> Totals()
    {
        return alerts::ReadOwnTotals(test::Store().database());
    }
};

TEST_F(OwnAlerts, LossesAreAddedUpByLogAndAllElseByKind)
{
    TellOfLoss("/var/log/messages", 3);
    TellOfLoss("/var/log/messages", 4);
    TellOfLoss("journal", 0);
    alerts::AddOwnAlert(test::Store(),
                        {OwnEvent::kSilent, alerts::OwnState::kBegins, "file /a", "silent", ""});
    alerts::AddOwnAlert(test::Store(),
                        {OwnEvent::kSilent, alerts::OwnState::kBegins, "file /b", "silent", ""});
    const auto totals = Totals();
    ASSERT_EQ(3U, totals.size());
    EXPECT_EQ("/var/log/messages", totals[0].log);
    EXPECT_EQ(2, totals[0].alerts);
    EXPECT_EQ(7, totals[0].lines_passed_over);
    EXPECT_EQ("journal", totals[1].log);
    EXPECT_EQ(1, totals[1].alerts);
    EXPECT_EQ(OwnEvent::kSilent, totals[2].event);
    EXPECT_EQ("", totals[2].log);
    EXPECT_EQ(2, totals[2].alerts);
}

TEST_F(OwnAlerts, ThatAreUndoneWithTheirPassDoNotCount)
{
    {
        const host::Transaction undone(test::Store());
        TellOfLoss("/var/log/messages", 3);
    }
    EXPECT_TRUE(Totals().empty());
}

TEST_F(OwnAlerts, LogsWithoutEndDoNotFillTheStore)
{
    host::Transaction all(test::Store());
    for (int64_t i = 0; i < alerts::kMostOwnTotals + 5; ++i)
        TellOfLoss("log " + std::to_string(i), 1);
    TellOfLoss("log 0", 1);
    all.Commit();
    int64_t told = 0;
    int64_t lines_of_others = 0;
    for (const OwnTotal &total : Totals()) {
        told += total.alerts;
        if (total.log.empty())
            lines_of_others = total.lines_passed_over;
    }
    EXPECT_EQ(alerts::kMostOwnTotals + 1, static_cast<int64_t>(Totals().size()));
    EXPECT_EQ(alerts::kMostOwnTotals + 6, told);
    EXPECT_EQ(5, lines_of_others);
}

} // namespace

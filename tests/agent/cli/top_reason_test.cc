// What the full screen says of the newest alert of an event.
#include "agent/cli/top_reason.h"

#include "agent/alerts/alert_store.h"
#include "tests/agent/support/host_test.h"

namespace {

using cli::TopReason;

class TopReasonTest : public test::HostTest {
  protected:
    static void AddAlert(const std::string &source, const std::string &line)
    {
        alerts::Alert alert;
        alert.time_ms = 1'700'000'000'000;
        alert.source = source;
        alert.event_id = 1;
        alert.count = 1;
        alert.message = line;
        alerts::AddAlert(test::Store(), alert);
    }
    TopReason Look()
    {
        known_ = cli::ReasonOf(test::Store().database(), {"DISK", 1}, known_);
        return *known_;
    }
    static void Change(const char *sql)
    {
        test::Store().Write([&](host::Database &database) { database.Execute(sql); });
    }

    std::optional<TopReason> known_; // from look to look
};

TEST_F(TopReasonTest, IsThatOfTheNewestAlertOfTheEvent)
{
    AddAlert("DISK", "the first");
    AddAlert("DISK", "the second");
    AddAlert("NET", "of another event");
    EXPECT_EQ("the second", Look().line);
    AddAlert("DISK", "the third");
    EXPECT_EQ("the third", Look().line);
    AddAlert("NET", "of another event");
    EXPECT_EQ("the third", Look().line);
}

TEST_F(TopReasonTest, OfAnEventWithoutAnyOnlyWhatIsNewIsLookedThrough)
{
    AddAlert("NET", "an old one");
    EXPECT_EQ("", Look().time);
    // Whoever looked through all of them again would find it.
    Change("UPDATE alert SET source = 'DISK'");
    AddAlert("NET", "a new one");
    EXPECT_EQ("", Look().time);
    AddAlert("DISK", "its first");
    EXPECT_EQ("its first", Look().line);
}

TEST_F(TopReasonTest, OfAnotherEventAndOfAnEarlierStoreNothingIsTakenOver)
{
    AddAlert("NET", "of the net");
    AddAlert("DISK", "of the disk");
    Look();
    EXPECT_EQ("of the net", cli::ReasonOf(test::Store().database(), {"NET", 1}, known_).line);
    Change(
        "DELETE FROM alert WHERE id = 2; UPDATE sqlite_sequence SET seq = 1 WHERE name = 'alert'");
    EXPECT_EQ("", Look().line);
}

} // namespace

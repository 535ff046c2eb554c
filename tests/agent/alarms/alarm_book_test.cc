// When a trouble of the monitor is told of, and how often.
#include "agent/alarms/alarm_book.h"
#include "tests/agent/support/host_test.h"

namespace {

using alerts::OwnEvent;
using Strings = std::vector<std::string>;

constexpr int64_t kMinute = 60'000;
constexpr int64_t kHour = 60 * kMinute;
constexpr int64_t kStart = 1'800'000'000'000;

class AlarmBook : public test::HostTest {
  protected:
    // What is told when these are there at a moment.
    Strings At(int64_t ms, const std::vector<alarms::Trouble> &troubles)
    {
        return book_->Take(troubles, kStart + ms);
    }
    void RestartDaemon() { book_.emplace(test::Store()); }

    static alarms::Trouble Sink(const std::string &name, const std::string &why = "refused")
    {
        return {OwnEvent::kSinkFails, name, name + ": " + why, 15 * kMinute};
    }
    static alarms::Trouble Ended() { return {OwnEvent::kMonitorEnded, "", "it ended", 0}; }

    static std::vector<alerts::Alert> Alerts()
    {
        return alerts::ReadAlerts(test::Store().database(), 0, 0, 1000);
    }

  private:
    std::optional<alarms::AlarmBook> book_{std::in_place, test::Store()};
};

const Strings kNothing;

TEST_F(AlarmBook, ATroubleIsToldOnceWhenItBegins)
{
    EXPECT_EQ(Strings{"it ended"}, At(0, {Ended()}));
    EXPECT_EQ(kNothing, At(kMinute, {Ended()}));
    EXPECT_EQ(kNothing, At(23 * kHour, {Ended()}));
}

TEST_F(AlarmBook, WhatMayPassByItselfHasToLast)
{
    EXPECT_EQ(kNothing, At(0, {Sink("mail")}));
    EXPECT_EQ(kNothing, At(14 * kMinute, {Sink("mail")}));
    EXPECT_EQ(kNothing, At(15 * kMinute - 1, {}));
    // It begins anew.
    EXPECT_EQ(kNothing, At(15 * kMinute, {Sink("mail")}));
    EXPECT_EQ(kNothing, At(29 * kMinute, {Sink("mail")}));
    EXPECT_EQ(Strings{"mail: refused"}, At(30 * kMinute, {Sink("mail")}));
}

TEST_F(AlarmBook, WhileItLastsItIsToldAgainAfterADay)
{
    At(0, {Ended()});
    EXPECT_EQ(kNothing, At(24 * kHour - 1, {Ended()}));
    EXPECT_EQ(Strings{"for 1d by now: it ended"}, At(24 * kHour, {Ended()}));
    EXPECT_EQ(kNothing, At(25 * kHour, {Ended()}));
}

TEST_F(AlarmBook, ItsEndIsToldOnce)
{
    At(0, {Ended()});
    EXPECT_EQ(kNothing, At(5 * kMinute, {}));
    EXPECT_EQ(kNothing, At(14 * kMinute, {}));
    EXPECT_EQ(Strings{"it is over, after 5m: it ended"}, At(15 * kMinute, {}));
    EXPECT_EQ(kNothing, At(16 * kMinute, {}));
    EXPECT_EQ(Strings{"it ended"}, At(17 * kMinute, {Ended()})) << "another one";
}

TEST_F(AlarmBook, WhatWasNotToldHasNoEnd)
{
    At(0, {Sink("mail")});
    EXPECT_EQ(kNothing, At(kMinute, {}));
    EXPECT_EQ(kNothing, At(kHour, {}));
    EXPECT_TRUE(Alerts().empty());
}

TEST_F(AlarmBook, WhatComesAndGoesIsToldOnce)
{
    Strings told;
    for (int64_t minute = 0; minute < 600; ++minute) {
        for (const auto &message :
             At(minute * kMinute,
                minute % 2 == 0 ? std::vector{Ended()} : std::vector<alarms::Trouble>{}))
            told.push_back(message);
    }
    EXPECT_EQ(Strings{"it ended"}, told);
}

TEST_F(AlarmBook, EachThingHasAnAlarmOfItsOwn)
{
    At(0, {Sink("mail"), Sink("web")});
    EXPECT_EQ((Strings{"mail: refused", "web: refused"}),
              At(15 * kMinute, {Sink("mail"), Sink("web")}));
    At(20 * kMinute, {Sink("web")});
    EXPECT_EQ(Strings{"it is over, after 20m: mail: refused"}, At(30 * kMinute, {Sink("web")}));
}

TEST_F(AlarmBook, ARestartTellsNothingAgain)
{
    At(0, {Ended()});
    RestartDaemon();
    EXPECT_EQ(kNothing, At(kMinute, {Ended()}));
    RestartDaemon();
    EXPECT_EQ(kNothing, At(2 * kMinute, {}));
    RestartDaemon();
    EXPECT_EQ(Strings{"it is over, after 2m: it ended"}, At(12 * kMinute, {}));
}

TEST_F(AlarmBook, AClockThatIsSetBackMakesNothingWaitLonger)
{
    At(0, {Ended()});
    EXPECT_EQ(kNothing, At(-1000 * kHour, {Ended()}));
    EXPECT_EQ(Strings{"for 1d by now: it ended"}, At(-976 * kHour, {Ended()}));
}

TEST_F(AlarmBook, AnAlertSaysWhatItIsAbout)
{
    At(0, {Sink("mail")});
    At(15 * kMinute, {Sink("mail")});
    const auto alerts = Alerts();
    ASSERT_EQ(1U, alerts.size());
    EXPECT_EQ("SYSLOGMON", alerts[0].source);
    EXPECT_EQ(8U, alerts[0].event_id);
    EXPECT_EQ("err", alerts[0].severity);
    EXPECT_EQ((events::Labels{{"about", "mail"}, {"alarm", "sink-fails"}, {"state", "begins"}}),
              alerts[0].labels);
    EXPECT_TRUE(alerts::IsAboutSink(alerts[0], "mail"));
    EXPECT_FALSE(alerts::IsAboutSink(alerts[0], "web"));
}

TEST_F(AlarmBook, ATroubleThatLastsIsNotWrittenAgain)
{
    At(0, {Ended(), Sink("mail")});
    const int64_t changes = test::Store().ChangeCount();
    for (int64_t minute = 1; minute < 15; ++minute)
        At(minute * kMinute, {Ended(), Sink("mail", "try " + std::to_string(minute))});
    EXPECT_EQ(changes, test::Store().ChangeCount());
}

TEST_F(AlarmBook, WhatCannotBeStoredIsToldLater)
{
    test::Store().Write([](host::Database &database) {
        database.Execute(
            "CREATE TRIGGER no BEFORE INSERT ON alert BEGIN SELECT RAISE(FAIL, 'no'); END");
    });
    EXPECT_THROW(At(0, {Ended()}), host::Error);
    test::Store().Write([](host::Database &database) { database.Execute("DROP TRIGGER no"); });
    EXPECT_EQ(Strings{"it ended"}, At(kMinute, {Ended()}));
}

} // namespace

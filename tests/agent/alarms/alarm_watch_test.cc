// The watch on a store: what it notices by itself becomes an alert.
#include "agent/alarms/alarm_watch.h"

#include <thread>

#include "agent/alerts/alert_store.h"
#include "agent/alerts/own_alert.h"
#include "tests/agent/support/host_test.h"

namespace {

using namespace std::chrono_literals;

class AlarmWatchTest : public test::HostTest {
  protected:
    alarms::AlarmWatchOptions Options()
    {
        return {Layout().Store(),
                [this] {
                    ++looks_;
                    return status::Status();
                },
                [] {}, [this] { return host::NowMs() + ahead_ms_; }};
    }
    // The first look comes at once, another one with each news.
    void WaitForLook(int number) const
    {
        for (int i = 0; i < 3000 && looks_ < number; ++i)
            std::this_thread::sleep_for(10ms);
        ASSERT_LE(number, looks_);
    }
    static std::vector<std::string> Told(alerts::OwnEvent event)
    {
        std::vector<std::string> told;
        for (const auto &alert : alerts::ReadAlerts(test::Store().database(), 0, 0, 100)) {
            if (alert.source == alerts::kOwnSource &&
                alert.event_id == static_cast<uint32_t>(event))
                told.push_back(alert.message);
        }
        return told;
    }

    std::atomic<int64_t> ahead_ms_ = 0;
    std::atomic<int> looks_ = 0;
};

TEST_F(AlarmWatchTest, AClockThatIsSetIsToldOfOnceWithByHowMuch)
{
    {
        alarms::AlarmWatch watch(Options());
        WaitForLook(1);
        ahead_ms_ = 3'600'500;
        // A look may have asked for the status before the clock was set, so two.
        watch.MonitorEnded({"a test ends it", true});
        WaitForLook(2);
        watch.MonitorEnded({"a test ends it", true});
        WaitForLook(3);
        ahead_ms_ = 3'600'500 - 120'500;
        watch.MonitorEnded({"a test ends it", true});
        WaitForLook(4);
        watch.MonitorEnded({"a test ends it", true});
        WaitForLook(5);
    }
    const auto told = Told(alerts::OwnEvent::kClock);
    ASSERT_EQ(2U, told.size());
    EXPECT_TRUE(told[0].starts_with("the clock was set forward by 1h")) << told[0];
    EXPECT_TRUE(told[1].starts_with("the clock was set back by 2m")) << told[1];
}

TEST_F(AlarmWatchTest, AMonitorThatEndsByItselfIsToldOf)
{
    {
        alarms::AlarmWatch watch(Options());
        WaitForLook(1);
        watch.MonitorEnded({"a test ends it", true});
        WaitForLook(2);
    }
    const auto told = Told(alerts::OwnEvent::kMonitorEnded);
    ASSERT_EQ(1U, told.size());
    EXPECT_NE(std::string::npos, told[0].find("a test ends it")) << told[0];
}

} // namespace

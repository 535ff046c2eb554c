// A sign of life, for receivers that raise the alarm when none comes.
#include "agent/sinks/heartbeat.h"

#include <atomic>

#include <nlohmann/json.hpp>
#include <unistd.h>

#include "agent/alerts/own_alert.h"
#include "agent/sinks/deliverer.h"
#include "agent/status/status_file.h"
#include "tests/agent/sinks/http_receiver.h"
#include "tests/agent/sinks/sink_test.h"

namespace {

using nlohmann::json;
using test::HttpReceiver;
using test::Request;

class HeartbeatTest : public test::SinkTest {
  protected:
    // Whose seconds are of a millisecond.
    void Start()
    {
        sinks::DelivererOptions options{Layout(), {}, std::chrono::milliseconds(20)};
        options.pauses = {std::chrono::milliseconds(10), std::chrono::milliseconds(80)};
        options.second = std::chrono::milliseconds(1);
        options.is_fresh = [this] {
            ++asked_;
            return is_fresh_.load();
        };
        deliverer_.emplace(std::move(options));
    }
    // Of the messages that came.
    size_t Beats()
    {
        size_t beats = 0;
        for (const Request &request : receiver_.Received())
            beats += IsBeat(request) ? 1U : 0U;
        return beats;
    }
    static bool IsBeat(const Request &request)
    {
        const json labels = json::parse(request.body).value("labels", json::object());
        return labels.value("alarm", "") == "heartbeat";
    }

    HttpReceiver receiver_;
    std::atomic<bool> is_fresh_{true};
    std::atomic<int> asked_{0};
    std::optional<sinks::Deliverer> deliverer_;
};

TEST_F(HeartbeatTest, ComesAgainAndAgainWhileTheMonitorDoesItsWork)
{
    AddSink("webhook", "hook", {{"url", receiver_.Url()}, {"heartbeat", "20"}});
    Start();
    ASSERT_TRUE(test::Eventually([&] { return Beats() >= 3; }));
    const json beat = json::parse(receiver_.Received()[0].body);
    EXPECT_EQ(alerts::kOwnSource, beat["source"]);
    EXPECT_EQ("info", beat["severity"]);
    is_fresh_ = false;
    // One may be on its way; behind two more questions none is.
    const int asked = asked_;
    ASSERT_TRUE(test::Eventually([&] { return asked_ > asked + 1; }));
    const size_t before = Beats();
    const int later = asked_;
    ASSERT_TRUE(test::Eventually([&] { return asked_ > later + 3; }));
    EXPECT_EQ(before, Beats());
    is_fresh_ = true;
    EXPECT_TRUE(test::Eventually([&] { return Beats() > before; }));
    EXPECT_EQ(0, Row("hook").delivered) << "it is no alert";
}

TEST_F(HeartbeatTest, WithoutTheOptionNoneComes)
{
    AddSink("webhook", "hook", {{"url", receiver_.Url()}});
    Start();
    Store(1);
    deliverer_->Wake();
    ASSERT_TRUE(WaitDelivered("hook", 1));
    EXPECT_EQ(1U, receiver_.Received().size());
    EXPECT_EQ(0, asked_);
}

TEST_F(HeartbeatTest, HoldsUpNoAlertAndIsBoundByNoRate)
{
    AddSink(
        "webhook", "hook",
        {{"url", receiver_.Url()}, {"heartbeat", "10"}, {"rate", "1/d"}, {"only", "host=none"}});
    Start();
    EXPECT_TRUE(test::Eventually([&] { return Beats() >= 5; }));
    AddSink("webhook", "other", {{"url", receiver_.Url()}, {"heartbeat", "10"}});
    deliverer_->Reload();
    Store(1);
    deliverer_->Wake();
    EXPECT_TRUE(WaitDelivered("other", 1));
}

TEST_F(HeartbeatTest, TakesNoTokenFromTheAlertsOfASinkWithARate)
{
    AddSink("webhook", "hook", {{"url", receiver_.Url()}, {"heartbeat", "10"}, {"rate", "1/d"}});
    Start();
    ASSERT_TRUE(test::Eventually([&] { return Beats() >= 3; }));
    Store(1);
    deliverer_->Wake();
    EXPECT_TRUE(WaitDelivered("hook", 1)) << "the one of this day";
}

// A daemon sets its sinks up before it has looked at any file.
TEST_F(HeartbeatTest, TheFirstOneDoesNotWaitForAnInterval)
{
    is_fresh_ = false;
    AddSink("webhook", "hook", {{"url", receiver_.Url()}, {"heartbeat", "86400"}});
    Start();
    ASSERT_TRUE(test::Eventually([&] { return asked_ > 0; }));
    EXPECT_EQ(0U, Beats());
    is_fresh_ = true;
    EXPECT_TRUE(test::Eventually([&] { return Beats() == 1; }));
}

// A receiver that takes no sign of life has all alerts, and the sink shows what is wrong.
TEST_F(HeartbeatTest, OneThatIsRefusedLeavesTheAlertsAlone)
{
    receiver_.Answer([](const Request &request) { return IsBeat(request) ? 400 : 200; });
    AddSink("webhook", "hook", {{"url", receiver_.Url()}, {"heartbeat", "10"}});
    Start();
    ASSERT_TRUE(test::Eventually([&] { return !Row("hook").last_error.empty(); }));
    for (int i = 0; i < 5; ++i)
        Store(1);
    deliverer_->Wake();
    EXPECT_TRUE(WaitDelivered("hook", 5));
    receiver_.Answer([](const Request &) { return 200; });
    EXPECT_TRUE(test::Eventually([&] { return Row("hook").last_error.empty(); }));
}

TEST_F(HeartbeatTest, IsFreshOnlyBehindALookOfThisProcessThatIsNotLate)
{
    status::Status status;
    status.pid = getpid();
    status.state = status::MonitorState::kRunning;
    status.alive_ns = status::UpTimeNs();
    const auto is_fresh = [&] {
        status::WriteStatus(Layout().run, status);
        return sinks::IsMonitorFresh(Layout());
    };
    EXPECT_FALSE(is_fresh()) << "no look has ended";
    status.last_full_pass = {1, status::PassKind::kStart, 0, status::BootTimeNs(), 1};
    EXPECT_TRUE(is_fresh());
    constexpr int64_t kSecond = 1'000'000'000;
    status.last_full_pass.began_boot_ns = status::BootTimeNs() - 320 * kSecond;
    EXPECT_TRUE(is_fresh());
    status.last_full_pass.began_boot_ns = status::BootTimeNs() - 340 * kSecond;
    EXPECT_FALSE(is_fresh()) << "a cycle has 300 seconds, and half a minute is added";
    status.last_full_pass.began_boot_ns = status::BootTimeNs();
    status.still_ms = 30000;
    EXPECT_FALSE(is_fresh()) << "its pass hangs";
    status.still_ms = 0;
    status.state = status::MonitorState::kPausing;
    EXPECT_FALSE(is_fresh());
    status.state = status::MonitorState::kRunning;
    status.pid = 1;
    EXPECT_FALSE(is_fresh()) << "another daemon's";
    std::filesystem::remove_all(Layout().run);
    EXPECT_FALSE(sinks::IsMonitorFresh(Layout()));
}

} // namespace

// The deliverer with its workers: order, keys, failures, the bound, settings that change.
#include <algorithm>
#include <csignal>
#include <set>
#include <thread>

#include "agent/alerts/own_alert.h"
#include "agent/host/waitable.h"
#include "agent/status/status_file.h"
#include "tests/agent/sinks/sink_test.h"
#include "tests/agent/support/process.h"
#include "tests/support/json_text.h"

namespace {

using sinks::Delivery;
using std::chrono::milliseconds;
using test::Eventually;
using test::HttpReceiver;
using test::KeysOf;
using test::MessagesOf;
using test::Request;
using test::Strings;

class DeliveryTest : public test::SinkTest {
  protected:
    void AddWebhook() { AddSink("webhook", "hook", {{"url", receiver_.Url("/alert")}}); }

    ~DeliveryTest() override { StopDeliverer(); } // before its receiver

    HttpReceiver receiver_;
};

TEST_F(DeliveryTest, AlertsArriveInTheOrderOfTheirReports)
{
    AddWebhook();
    StartDeliverer();
    Report(3);
    Report(40);
    ASSERT_TRUE(WaitDelivered("hook", 43));
    EXPECT_EQ(AllStored(), MessagesOf(receiver_.Received()));
    EXPECT_EQ(0, Row("hook").dropped);
    EXPECT_EQ("", Row("hook").last_error);
    EXPECT_EQ(43, Row("hook").last_id);
}

TEST_F(DeliveryTest, EachAlertHasTheKeyOfItsStoreAndNumber)
{
    AddWebhook();
    StartDeliverer();
    Report(2);
    ASSERT_TRUE(WaitDelivered("hook", 2));
    const std::string &uuid = test::Store().series();
    EXPECT_EQ((Strings{uuid + "/1", uuid + "/2"}), KeysOf(receiver_.Received()));
    EXPECT_EQ(uuid + "/2", receiver_.Received()[1].headers["idempotency-key"]);
}

TEST_F(DeliveryTest, ASinkGetsTheAlertsFromItsAdditionOn)
{
    Store(3);
    AddWebhook();
    Store(2);
    StartDeliverer();
    ASSERT_TRUE(WaitDelivered("hook", 2));
    EXPECT_EQ((Strings{"3", "4"}), MessagesOf(receiver_.Received()));
}

TEST_F(DeliveryTest, AlertsWaitForAReceiverThatIsDownAndArriveInOrder)
{
    AddWebhook();
    receiver_.Answer([](const Request &) { return 503; }, "down for repairs");
    StartDeliverer();
    Report(5);
    ASSERT_TRUE(Eventually([&] { return receiver_.Received().size() >= 4; }));
    ASSERT_TRUE(Eventually([&] { return Row("hook").last_error == "HTTP 503 down for repairs"; }));
    EXPECT_EQ(0, Row("hook").delivered);
    for (const std::string &message : MessagesOf(receiver_.Received()))
        EXPECT_EQ("0", message) << "none overtakes the first";

    receiver_.Answer([](const Request &) { return 200; });
    Report(1);
    ASSERT_TRUE(WaitDelivered("hook", 6));
    EXPECT_EQ(AllStored(), MessagesOf(receiver_.Taken()));
    EXPECT_EQ("", Row("hook").last_error);
}

TEST_F(DeliveryTest, AReceiverThatHangsUpLosesNothing)
{
    AddWebhook();
    int requests = 0;
    receiver_.Answer([&](const Request &) { return ++requests % 3 == 0 ? 200 : 0; });
    StartDeliverer();
    Report(10);
    ASSERT_TRUE(WaitDelivered("hook", 10));
    EXPECT_EQ(AllStored(), MessagesOf(receiver_.Taken()));
}

TEST_F(DeliveryTest, OneSinkThatIsDownDoesNotHoldUpAnother)
{
    AddWebhook();
    AddSink("file", "file", {{"path", File("alerts")}});
    receiver_.Answer([](const Request &) { return 500; });
    StartDeliverer();
    Report(20);
    ASSERT_TRUE(WaitDelivered("file", 20));
    EXPECT_EQ(20U, test::ReadLines(File("alerts")).size());
    EXPECT_EQ(0, Row("hook").delivered);
}

TEST_F(DeliveryTest, ThatASinkFailsIsSentToTheOthers)
{
    AddWebhook();
    AddSink("file", "file", {{"path", File("alerts")}});
    alerts::AddOwnAlert(test::Store(), {alerts::OwnEvent::kSinkFails, alerts::OwnState::kBegins,
                                        "hook", "the sink hook takes no alerts", ""});
    Store(1);
    StartDeliverer();
    ASSERT_TRUE(WaitDelivered("file", 2));
    ASSERT_TRUE(WaitDelivered("hook", 1));
    EXPECT_EQ(Strings{"0"}, MessagesOf(receiver_.Taken()));
}

TEST_F(DeliveryTest, AfterARestartASinkGoesOnWhereItWas)
{
    AddWebhook();
    StartDeliverer();
    Report(4);
    ASSERT_TRUE(WaitDelivered("hook", 4));
    StopDeliverer();
    Store(3);
    StartDeliverer();
    ASSERT_TRUE(WaitDelivered("hook", 7));
    EXPECT_EQ(AllStored(), MessagesOf(receiver_.Received()));
}

TEST_F(DeliveryTest, WhatWasTakenBeforeTheStopIsWrittenDown)
{
    AddWebhook();
    StartDeliverer({.record_every = std::chrono::hours(1)});
    Report(1);
    ASSERT_TRUE(WaitDelivered("hook", 1)) << "the first progress is written at once";
    Report(5);
    ASSERT_TRUE(Eventually([&] { return receiver_.Taken().size() == 6; }));
    StopDeliverer();
    EXPECT_EQ(6, Row("hook").last_id);
}

// ---- a crash between sending and recording ----

TEST_F(DeliveryTest, AfterACrashOnlyKeysThatWereSeenAreRepeated)
{
    AddWebhook();
    Store(200);
    for (const int until : {20, 90, 150}) {
        // Its progress is written once at most, so the crash comes between sending and recording.
        test::Child deliverer({SINK_HELPER, "deliver", Root()});
        ASSERT_TRUE(Eventually([&] {
            return test::WithoutRepeats(KeysOf(receiver_.Taken())).size() >= size_t(until);
        }));
        deliverer.Kill();
    }
    StartDeliverer();
    ASSERT_TRUE(Eventually([&] { return Row("hook").last_id == 200; }));

    const Strings keys = KeysOf(receiver_.Taken());
    EXPECT_GT(keys.size(), 200U) << "the crash came too late to show anything";
    Strings wanted;
    for (int id = 1; id <= 200; ++id)
        wanted.push_back(test::Store().series() + "/" + std::to_string(id));
    EXPECT_EQ(wanted, test::WithoutRepeats(keys)) << "each once and in order, but for repeats";
    std::map<std::string, std::string> bodies;
    for (const Request &request : receiver_.Taken()) {
        const std::string &first =
            bodies.emplace(request.headers.at("idempotency-key"), request.body).first->second;
        EXPECT_EQ(first, request.body) << "a repeated key tells of the same alert";
    }
}

// ---- refusals ----

TEST_F(DeliveryTest, AnAlertThatTheReceiverRefusesHoldsUpNoOther)
{
    AddWebhook();
    receiver_.Answer(
        [](const Request &request) {
            return test::JsonAt(request.body, "/message") == "2" ? 400 : 200;
        },
        "bad");
    StartDeliverer();
    Report(6);
    ASSERT_TRUE(WaitDelivered("hook", 5));
    EXPECT_EQ((Strings{"0", "1", "3", "4", "5"}), MessagesOf(receiver_.Taken()));
    ASSERT_TRUE(Eventually([&] { return Row("hook").last_id == 6; }));
    EXPECT_EQ(0, Row("hook").dropped);
}

TEST_F(DeliveryTest, AReceiverThatRefusesEverythingLosesNothing)
{
    AddWebhook();
    receiver_.Answer([](const Request &) { return 400; });
    StartDeliverer();
    Report(3);
    ASSERT_TRUE(Eventually([&] { return receiver_.Received().size() >= 12; }));
    EXPECT_EQ(0, Row("hook").dropped);
    receiver_.Answer([](const Request &) { return 200; });
    ASSERT_TRUE(WaitDelivered("hook", 3));
    // The first one comes second when it is the next one that finds the receiver well.
    Strings taken = MessagesOf(receiver_.Taken());
    std::sort(taken.begin(), taken.end());
    EXPECT_EQ(AllStored(), taken);
}

TEST_F(DeliveryTest, TheLastAlertWaitsWhenItIsRefused)
{
    AddWebhook();
    receiver_.Answer([](const Request &) { return 422; });
    StartDeliverer();
    Report(1);
    ASSERT_TRUE(Eventually([&] { return receiver_.Received().size() >= 8; }));
    EXPECT_EQ(0, Row("hook").dropped);
    EXPECT_EQ(0, Row("hook").last_id);
}

// ---- the bound ----

class BoundTest : public DeliveryTest {
  protected:
    BoundTest() { Sinks().SetAlertLimit("100"); }

    int64_t Kept() { return Newest() - Oldest() + 1; }
    int64_t Oldest() { return alerts::OldestAlertId(test::Store().database()); }
    int64_t Newest() { return alerts::NewestAlertId(test::Store().database()); }
};

TEST_F(BoundTest, TheOldestDeliveredAlertsGoFirst)
{
    AddWebhook();
    StartDeliverer();
    Report(90);
    ASSERT_TRUE(WaitDelivered("hook", 90));
    Report(50);
    ASSERT_TRUE(WaitDelivered("hook", 140));
    ASSERT_TRUE(Eventually([&] { return Kept() == 100; }));
    EXPECT_EQ(41, Oldest());
    EXPECT_EQ(0, Row("hook").dropped);
    EXPECT_EQ(AllStored(), MessagesOf(receiver_.Taken()));
}

TEST_F(BoundTest, WithoutASinkTheOldestGoAndNobodyIsWarned)
{
    StartDeliverer();
    testing::internal::CaptureStderr();
    Report(350);
    ASSERT_TRUE(Eventually([&] { return Kept() == 100; }));
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
    EXPECT_EQ(350, Newest());
}

TEST_F(BoundTest, AtEightyPercentAndAtTheBoundThereIsOneWarningEach)
{
    AddWebhook();
    receiver_.Answer([](const Request &) { return 503; });
    StartDeliverer();
    testing::internal::CaptureStderr();
    Report(79);
    ASSERT_TRUE(Eventually([&] { return receiver_.Received().size() > 2; }));
    std::this_thread::sleep_for(milliseconds(100));
    EXPECT_EQ("", testing::internal::GetCapturedStderr());

    testing::internal::CaptureStderr();
    Report(1);
    std::this_thread::sleep_for(milliseconds(200));
    Report(20);
    std::this_thread::sleep_for(milliseconds(200));
    EXPECT_EQ("syslogmond: 80 alerts wait for the sink hook, of at most 100; see syslogmon sink "
              "show hook\n",
              testing::internal::GetCapturedStderr());

    testing::internal::CaptureStderr();
    Report(1);
    ASSERT_TRUE(Eventually([&] { return Kept() == 100; }));
    Report(9);
    ASSERT_TRUE(Eventually([&] { return Oldest() == 11; }));
    EXPECT_EQ("syslogmond: the sink hook has taken no alert for so long that the limit of 100 "
              "alerts is reached: the oldest are dropped; see syslogmon sink show hook\n",
              testing::internal::GetCapturedStderr());
}

TEST_F(BoundTest, WhatIsDroppedIsCountedAndTheRestArrives)
{
    AddWebhook();
    AddSink("file", "file", {{"path", File("alerts")}});
    receiver_.Answer([](const Request &) { return 503; });
    StartDeliverer();
    Report(90);
    ASSERT_TRUE(WaitDelivered("file", 90));
    Report(40);
    ASSERT_TRUE(Eventually([&] { return Row("hook").dropped == 30; }));
    EXPECT_EQ(0, Row("file").dropped);
    receiver_.Answer([](const Request &) { return 200; });
    ASSERT_TRUE(WaitDelivered("hook", 100));
    const Strings all = AllStored();
    EXPECT_EQ(Strings(all.begin() + 30, all.end()), MessagesOf(receiver_.Taken()));
    EXPECT_EQ(130, Row("hook").last_id);
}

TEST_F(BoundTest, ALowerLimitIsTakenWhileItRuns)
{
    Sinks().SetAlertLimit("5000");
    StartDeliverer();
    Report(4000);
    Sinks().SetAlertLimit("200");
    Reload();
    ASSERT_TRUE(Eventually([&] { return Kept() == 200; }));
    EXPECT_EQ(4000, Newest());
}

// Alerts of a quarter of a megabyte: four of them fill one.
TEST_F(BoundTest, InBytesIsKeptToo)
{
    Sinks().SetAlertMegabytes("1");
    AddWebhook();
    receiver_.Answer([](const Request &) { return 500; });
    StartDeliverer();
    testing::internal::CaptureStderr();
    for (int i = 0; i < 8; ++i) {
        alerts::Alert alert;
        alert.source = "DISK";
        alert.message = std::string(262000, 'x');
        alerts::AddAlert(test::Store(), alert);
    }
    Wake();
    ASSERT_TRUE(Eventually([&] { return Kept() == 4; }));
    EXPECT_EQ(8, Newest());
    ASSERT_TRUE(Eventually([&] { return Row("hook").dropped == 4; }));
    EXPECT_NE(std::string::npos,
              testing::internal::GetCapturedStderr().find(
                  "the limit of 1 megabytes of alerts is reached: the oldest are dropped"));
}

// ---- settings that change while it runs ----

TEST_F(DeliveryTest, ASinkThatIsAddedWhileItRunsGetsWhatComesThen)
{
    StartDeliverer();
    Report(2);
    AddWebhook();
    Report(2);
    ASSERT_TRUE(WaitDelivered("hook", 2));
    EXPECT_EQ((Strings{"2", "3"}), MessagesOf(receiver_.Received()));
}

TEST_F(DeliveryTest, ASinkThatIsRemovedGetsNothingMore)
{
    AddWebhook();
    StartDeliverer();
    Report(2);
    ASSERT_TRUE(WaitDelivered("hook", 2));
    Sinks().Remove("hook");
    Reload();
    AddSink("file", "file", {{"path", File("alerts")}});
    Report(2);
    ASSERT_TRUE(WaitDelivered("file", 2));
    EXPECT_EQ(2U, receiver_.Received().size());
}

TEST_F(DeliveryTest, AChangedAddressIsUsedFromThenOnAndNothingIsLost)
{
    AddWebhook();
    HttpReceiver other;
    receiver_.Answer([](const Request &) { return 500; });
    StartDeliverer();
    Report(3);
    ASSERT_TRUE(Eventually([&] { return !receiver_.Received().empty(); }));
    Sinks().Change("hook",
                   [&](sinks::StoredSink &sink) { sink.config.options["url"] = other.Url(); });
    Reload();
    ASSERT_TRUE(WaitDelivered("hook", 3));
    EXPECT_EQ(AllStored(), MessagesOf(other.Taken()));
}

TEST_F(DeliveryTest, AChangeEndsAPauseAtOnce)
{
    AddWebhook();
    receiver_.Answer([](const Request &) { return 500; });
    StartDeliverer({.pause = std::chrono::hours(1), .longest_pause = std::chrono::hours(1)});
    Report(1);
    ASSERT_TRUE(Eventually([&] { return receiver_.Received().size() == 1; }));
    receiver_.Answer([](const Request &) { return 200; });
    Reload();
    EXPECT_TRUE(WaitDelivered("hook", 1));
}

TEST_F(DeliveryTest, TheEventOfTheCommandsDoesAsAReload)
{
    StartDeliverer();
    sinks::SinkConfig config = Config("webhook", {{"url", receiver_.Url()}});
    config.name = "hook";
    Sinks().Add(config);
    host::WakeEvent::Create(Layout().run, sinks::kSinksEvent, false, false)->Set();
    Report(1);
    EXPECT_TRUE(WaitDelivered("hook", 1));
}

TEST_F(DeliveryTest, ADamagedSinkSaysWhyAndStopsNoOther)
{
    AddWebhook();
    test::SetTreeText("SOFTWARE\\KORBIN\\TARSKVOSKAR\\AGENT\\SINKS\\odd", "Kind", "pigeon");
    StartDeliverer();
    Report(1);
    ASSERT_TRUE(WaitDelivered("hook", 1));
    ASSERT_TRUE(Eventually([&] {
        return Row("odd").last_error.find("use one of console, file") != std::string::npos;
    }));
}

TEST_F(DeliveryTest, ARemovedSinkTakesItsRowsAlong)
{
    AddWebhook();
    StartDeliverer();
    Report(1);
    ASSERT_TRUE(WaitDelivered("hook", 1));
    const int64_t key = Sinks().Find("hook").config.key;
    Sinks().Remove("hook");
    EXPECT_TRUE(sinks::ReadDeliveries(test::Store().database(), key).empty());
    Reload();
    StopDeliverer();
    EXPECT_TRUE(sinks::ReadDeliveries(test::Store().database(), key).empty());
}

// ---- the store is busy ----

TEST_F(DeliveryTest, APassThatHoldsTheStoreForLongStopsNoSink)
{
    AddWebhook();
    Store(5);
    StartDeliverer();
    ASSERT_TRUE(WaitDelivered("hook", 5));
    {
        host::Transaction pass(test::Store());
        Wake();
        std::this_thread::sleep_for(milliseconds(400));
        pass.Commit();
    }
    Report(3);
    ASSERT_TRUE(WaitDelivered("hook", 8));
    EXPECT_EQ(AllStored(), MessagesOf(receiver_.Received()));
}

TEST_F(DeliveryTest, TheStopOfADelivererDoesNotWaitForAReceiverThatNeverAnswers)
{
    AddSink("webhook", "hook", {{"url", receiver_.Url()}, {"timeout", "120"}});
    receiver_.Answer([](const Request &) { return -1; });
    StartDeliverer();
    Report(1);
    ASSERT_TRUE(Eventually([&] { return receiver_.Received().size() == 1; }));
    const int64_t asked = status::WallTimeMs();
    StopDeliverer();
    EXPECT_LT(status::WallTimeMs() - asked, 60000); // it would wait for two minutes
}

} // namespace

// A sink that may send a few messages only: what it holds back is told of in the next one, and no hit is
// missing, whatever happens meanwhile.
#include <algorithm>
#include <atomic>
#include <thread>

#include "agent/host/waitable.h"
#include "agent/sinks/held_store.h"
#include "agent/sinks/worker.h"
#include "tests/agent/sinks/sink_test.h"
#include "tests/agent/support/process.h"
#include "tests/support/json_text.h"

namespace {

using test::Eventually;
using test::HttpReceiver;
using test::JsonAt;
using test::Request;

// Each stored alert stands for three hits: see SinkTest::Store.
constexpr int64_t kHitsOfAnAlert = 3;

// Of the test with kills.
constexpr int kLives = 8;
constexpr int kAtATime = 20;
constexpr int kMayBeRepeated = 60;

int64_t NumberAt(const Request &request, const char *place)
{
    const std::string text = JsonAt(request.body, place);
    return text == "(none)" ? 0 : std::stoll(text);
}

int64_t HitsOf(const Request &request)
{
    return NumberAt(request, "/count") + NumberAt(request, "/digest/hits");
}

class StormTest : public test::SinkTest {
  protected:
    ~StormTest() override { StopDeliverer(); } // before its receiver

    void AddHook(const std::string &rate)
    {
        AddSink("webhook", "hook", {{"url", receiver_.Url()}, {"rate", rate}});
    }
    // Of the messages that were taken, each key once: the receiver has to leave out repeats.
    std::map<std::string, int64_t> HitsByKey()
    {
        std::map<std::string, int64_t> hits;
        for (const Request &request : receiver_.Taken()) {
            const auto [known, is_new] =
                hits.emplace(JsonAt(request.body, "/key"), HitsOf(request));
            EXPECT_EQ(known->second, HitsOf(request)) << "a repeat tells of the same hits";
        }
        return hits;
    }
    int64_t AllHits()
    {
        int64_t sum = 0;
        for (const auto &[key, hits] : HitsByKey())
            sum += hits;
        return sum;
    }
    sinks::Held Held()
    {
        return sinks::ReadHeld(test::Store().database(), Sinks().Find("hook").config.key);
    }

    HttpReceiver receiver_;
};

TEST_F(StormTest, TheFirstOnesComeAloneAndTheLastTokenTellsOfAllOthers)
{
    AddHook("5/d");
    StartDeliverer();
    Report(100);
    ASSERT_TRUE(Eventually([&] { return Row("hook").delivered == 100; }));
    const auto taken = receiver_.Taken();
    ASSERT_EQ(5U, taken.size());
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(std::to_string(i), JsonAt(taken[size_t(i)].body, "/message"));
        EXPECT_EQ("(none)", JsonAt(taken[size_t(i)].body, "/digest"));
    }
    EXPECT_EQ("99", JsonAt(taken[4].body, "/message")) << "the newest stands for itself";
    EXPECT_EQ("95", JsonAt(taken[4].body, "/digest/alerts"));
    EXPECT_EQ("285", JsonAt(taken[4].body, "/digest/hits"));
    EXPECT_EQ("DISK", JsonAt(taken[4].body, "/digest/events/0/source"));
    EXPECT_EQ("4", JsonAt(taken[4].body, "/digest/events/0/first"));
    EXPECT_EQ("98", JsonAt(taken[4].body, "/digest/events/0/last"));
    EXPECT_EQ(100 * kHitsOfAnAlert, AllHits());
    EXPECT_EQ(100, Row("hook").last_id);
}

TEST_F(StormTest, WithoutATokenAllWaitAndNothingIsSent)
{
    AddHook("1/d");
    StartDeliverer();
    Report(1);
    ASSERT_TRUE(WaitDelivered("hook", 1));
    AddSink("file", "file", {{"path", File("alerts")}});
    Report(50);
    ASSERT_TRUE(WaitDelivered("file", 50));
    EXPECT_EQ(1U, receiver_.Received().size());
    EXPECT_EQ(1, Row("hook").last_id);
}

TEST_F(StormTest, ARestartFillsNoBucket)
{
    AddHook("1/d");
    StartDeliverer();
    Report(1);
    ASSERT_TRUE(WaitDelivered("hook", 1));
    for (int i = 0; i < 3; ++i) {
        StopDeliverer();
        StartDeliverer();
        AddSink("file", "file" + std::to_string(i), {{"path", File("alerts")}});
        Report(1);
        ASSERT_TRUE(WaitDelivered("file" + std::to_string(i), 1));
    }
    EXPECT_EQ(1U, receiver_.Received().size());
}

TEST_F(StormTest, WhatWaitsArrivesWhenTheBoundIsTakenAway)
{
    AddHook("1/d");
    StartDeliverer();
    Report(1);
    ASSERT_TRUE(WaitDelivered("hook", 1));
    Report(10);
    Sinks().Change("hook", [](sinks::StoredSink &sink) { sink.config.options["rate"] = "none"; });
    Reload();
    ASSERT_TRUE(WaitDelivered("hook", 11));
    EXPECT_EQ(AllStored(), test::MessagesOf(receiver_.Taken()));
}

TEST_F(StormTest, AnotherRateHoldsAtOnce)
{
    AddHook("1/d");
    StartDeliverer();
    Report(1);
    ASSERT_TRUE(WaitDelivered("hook", 1));
    Report(10);
    Sinks().Change("hook", [](sinks::StoredSink &sink) { sink.config.options["rate"] = "1/s"; });
    Reload();
    ASSERT_TRUE(WaitDelivered("hook", 11)) << "what the old rate owes would take a day";
    EXPECT_EQ(11 * kHitsOfAnAlert, AllHits());
}

TEST_F(StormTest, WhatLeavesTheStoreBeforeItCouldBeToldOfIsInTheNextMessage)
{
    Sinks().SetAlertLimit("100");
    AddHook("1/d");
    StartDeliverer();
    Report(1);
    ASSERT_TRUE(WaitDelivered("hook", 1));
    Report(500);
    ASSERT_TRUE(Eventually([&] { return Held().behind.Whole().alerts == 400; }));
    EXPECT_EQ(0, Row("hook").dropped) << "it is told of yet";
    StopDeliverer(); // and survives
    Sinks().Change("hook", [](sinks::StoredSink &sink) { sink.config.options["rate"] = "none"; });
    StartDeliverer();
    ASSERT_TRUE(Eventually([&] { return Row("hook").last_id == 501; }));
    EXPECT_EQ(501 * kHitsOfAnAlert, AllHits());
    EXPECT_TRUE(Held().behind.IsEmpty());
    EXPECT_TRUE(Held().of_message.IsEmpty());
}

TEST_F(StormTest, WhatLeavesTheStoreWhileItIsSentIsCountedOnce)
{
    Sinks().SetAlertLimit("100");
    AddHook("3/d");
    receiver_.Answer([](const Request &) { return 503; });
    StartDeliverer();
    Report(10);
    ASSERT_TRUE(Eventually([&] { return receiver_.Received().size() > 3; }));
    Report(400); // the one that is tried goes, and is told of with the others
    ASSERT_TRUE(Eventually([&] { return Row("hook").last_id >= 310; }));
    receiver_.Answer([](const Request &) { return 200; });
    ASSERT_TRUE(Eventually([&] { return Row("hook").last_id == 410; }));
    EXPECT_EQ(410 * kHitsOfAnAlert, AllHits());
    EXPECT_EQ(0, Row("hook").dropped);
    EXPECT_EQ(410, Row("hook").delivered);
}

TEST_F(StormTest, AMessageForManyThatIsRefusedIsSentWithoutTheLines)
{
    AddHook("1/d");
    receiver_.Answer([](const Request &request) {
        return request.body.find("\"4\"") != std::string::npos ? 400 : 200;
    });
    StartDeliverer();
    Report(9);
    ASSERT_TRUE(Eventually([&] { return Row("hook").last_id == 9; }));
    EXPECT_EQ(9 * kHitsOfAnAlert, AllHits());
    EXPECT_TRUE(Undelivered("hook").empty());
}

// Each in a place of its own, beside the two lines of the alert itself.
TEST_F(StormTest, WithoutTheLinesNothingThatALineMayStandInIsLeft)
{
    const std::vector<std::pair<std::string, std::function<void(alerts::Alert *)>>> places = {
        {"MESSAGE", [](auto *alert) { alert->message = "poison"; }},
        {"SUMMARY", [](auto *alert) { alert->summary = "poison"; }},
        {"VALUE", [](auto *alert) { alert->value = "poison"; }},
        {"HOST", [](auto *alert) { alert->line_host = "poison"; }},
        {"PROGRAM", [](auto *alert) { alert->program = "poison"; }},
        {"TIME", [](auto *alert) { alert->own_time = "poison"; }},
        {"FIRST", [](auto *alert) { alert->held_back = {1, 0, 0, 0, "poison", ""}; }},
        {"LAST", [](auto *alert) { alert->held_back = {1, 0, 0, 0, "", "poison"}; }},
    };
    receiver_.Answer([](const Request &request) {
        return request.body.find("poison") != std::string::npos ? 400 : 200;
    });
    for (const auto &[source, write] : places) {
        AddSink("webhook", source,
                {{"url", receiver_.Url()}, {"only", "source=" + source}, {"rate", "1/d"}});
        alerts::Alert alert;
        alert.source = source;
        alert.count = kHitsOfAnAlert;
        alert.labels = {{"team", "db"}};
        alerts::AddAlert(test::Store(), alert);
        write(&alert);
        alerts::AddAlert(test::Store(), alert);
    }
    StartDeliverer();
    for (const auto &[source, write] : places)
        EXPECT_TRUE(WaitDelivered(source, 2)) << source;
    for (const Request &request : receiver_.Taken()) {
        EXPECT_EQ(2 * kHitsOfAnAlert, HitsOf(request));
        EXPECT_EQ("db", JsonAt(request.body, "/labels/team")) << "whoever it is for";
    }
}

// A line of a file is a message, however many are written together.
TEST_F(StormTest, ABatchOfMessagesTakesATokenForEach)
{
    AddSink("file", "file", {{"path", File("alerts")}, {"rate", "5/d"}});
    StartDeliverer();
    Report(100);
    ASSERT_TRUE(WaitDelivered("file", 100));
    const std::string written = test::ReadFile(File("alerts"));
    EXPECT_EQ(5, std::count(written.begin(), written.end(), '\n'));
    EXPECT_NE(std::string::npos, written.find("\"digest\":{\"alerts\":95,")) << written;
}

TEST_F(StormTest, ASinkGetsNoMoreThanItsConditionsSay)
{
    AddSink("webhook", "hook", {{"url", receiver_.Url()}, {"only", "source=NET*"}});
    AddSink("webhook", "bound",
            {{"url", receiver_.Url()}, {"only", "source=FAN"}, {"rate", "1/d"}});
    for (int i = 0; i < 5; ++i) {
        Store(100);
        alerts::Alert alert;
        alert.source = i % 2 == 0 ? "NET1" : "FAN";
        alert.message = "net " + std::to_string(i);
        alert.count = 1;
        alerts::AddAlert(test::Store(), alert);
    }
    StartDeliverer();
    ASSERT_TRUE(WaitDelivered("hook", 3));
    ASSERT_TRUE(WaitDelivered("bound", 2));
    test::Strings messages;
    for (const Request &request : receiver_.Taken())
        messages.push_back(JsonAt(request.body, "/message") + ", before it " +
                           JsonAt(request.body, "/digest/alerts"));
    std::sort(messages.begin(), messages.end());
    EXPECT_EQ((test::Strings{"net 0, before it (none)", "net 2, before it (none)",
                             "net 3, before it 1", "net 4, before it (none)"}),
              messages);
    ASSERT_TRUE(Eventually([&] { return Row("hook").last_id >= 505; }))
        << "it waits for nothing that it does not get";
}

TEST_F(StormTest, WhatASinkDoesNotGetIsNotDroppedForIt)
{
    Sinks().SetAlertLimit("100");
    AddSink("webhook", "hook", {{"url", receiver_.Url()}, {"only", "source=NET*"}});
    receiver_.Answer([](const Request &) { return 503; });
    StartDeliverer();
    alerts::Alert alert;
    alert.source = "NET1";
    alerts::AddAlert(test::Store(), alert);
    Report(500);
    ASSERT_TRUE(Eventually([&] { return Row("hook").last_id >= 401; }));
    EXPECT_EQ(1, Row("hook").dropped);
}

// Of what it is given first, the receiver takes a third, and meanwhile half of all alerts leave the store.
struct Torn {
    std::function<void()> leave;
    std::atomic<bool> is_torn = false;
    std::atomic<int64_t> told = 0; // alerts
};
Torn *torn;

class TornSink : public sinks::Sink {
  public:
    [[nodiscard]] size_t batch() const override { return kAlerts; }
    sinks::Outcome Send(std::span<const sinks::Message> messages, const sinks::Interrupt &) override
    {
        if (!torn->is_torn.exchange(true)) {
            torn->leave();
            torn->told += static_cast<int64_t>(messages.size() / 3);
            return sinks::Failed("torn", messages.size() / 3);
        }
        for (const sinks::Message &message : messages)
            torn->told += 1 + message.digest.Whole().alerts;
        return sinks::AllTaken(messages, "");
    }
    static constexpr int kAlerts = 99;
};

TEST_F(StormTest, NoAlertIsLostWhenSomeOfABatchAreTakenWhileTheyLeaveTheStore)
{
    sinks::SinkKind kind;
    kind.open = [](const sinks::SinkConfig &, const std::string &,
                   sinks::Secrets &) -> std::unique_ptr<sinks::Sink> {
        return std::make_unique<TornSink>();
    };
    const auto progress =
        std::make_shared<sinks::Progress>(sinks::Deliveries{{"", {}}}, std::nullopt);
    Torn of_test;
    torn = &of_test;
    of_test.leave = [&] {
        const auto leaving = alerts::ReadAlerts(test::Store().database(), 0, 0, 50);
        progress->Removed({50, {}, leaving});
        alerts::RemoveAlerts(test::Store(), 50);
    };
    Store(TornSink::kAlerts);
    sinks::SinkConfig config;
    config.name = "torn";
    config.kind = &kind;
    config.options = {{"rate", "1000/s"}};
    sinks::Worker worker({Layout().Store(),
                          {std::chrono::milliseconds(5), std::chrono::milliseconds(20)},
                          [] {},
                          std::chrono::seconds(1),
                          [] { return true; }},
                         config, "", progress);
    ASSERT_TRUE(Eventually([&] {
        if (of_test.is_torn)
            progress->Written(progress->Rows()); // as the deliverer does
        worker.Wake();
        return progress->LastId("") == TornSink::kAlerts && !progress->Holds();
    }));
    EXPECT_EQ(TornSink::kAlerts, of_test.told);
    EXPECT_EQ(TornSink::kAlerts, progress->RowOf("").delivered);
}

// The process is killed again and again while alerts come and go; the receiver hangs up now and then
// when it has the message, as a network does.
TEST_F(StormTest, NoHitIsMissingHoweverOftenTheProcessIsKilled)
{
    Sinks().SetAlertLimit("200");
    AddHook("20/s");
    AddSink("webhook", "slow", {{"url", receiver_.Url("/slow")}, {"rate", "5/s"}});
    std::atomic<int> requests = 0;
    receiver_.Answer([&](const Request &) { return ++requests % 7 == 0 ? 503 : 200; });
    for (int life = 0; life < kLives; ++life) {
        test::Child deliverer({SINK_HELPER, "deliver", Root(), "10"});
        const int before = requests;
        ASSERT_TRUE(Eventually([&] {
            Store(kAtATime);
            // It is another process, which nothing else tells of them.
            host::WakeEvent::Create(Layout().run, sinks::kSinksEvent, false, false)->Set();
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            return requests > before + 10 + life;
        }));
        deliverer.Kill();
    }
    StartDeliverer();
    const int64_t all = alerts::NewestAlertId(test::Store().database());
    ASSERT_TRUE(
        Eventually([&] { return Row("hook").last_id == all && Row("slow").last_id == all; }));
    std::map<std::string, std::map<std::string, int64_t>> by_path;
    for (const Request &request : receiver_.Taken())
        by_path[request.path][JsonAt(request.body, "/key")] = HitsOf(request);
    for (const auto &[path, hits] : by_path) {
        int64_t sum = 0;
        for (const auto &[key, number] : hits)
            sum += number;
        // What was sent alone right before the end, and not written down, may be summed up with
        // others after it: told twice, and never not at all.
        EXPECT_GE(sum, all * kHitsOfAnAlert) << path;
        EXPECT_LE(sum, (all + kLives * kMayBeRepeated) * kHitsOfAnAlert) << path;
    }
    EXPECT_LT(by_path["/slow"].size(), size_t(all) / 4);
}

} // namespace
